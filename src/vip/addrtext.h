// Text helpers for addresses: family, address/prefix split, newline cut,
// MAC text to bytes and name lookup in an address list. They keep no state
// of their own; vip_div_ipmask reads ipv6flag, vip_crt_macaddr writes the
// status description on failure. Safe from worker threads.
#pragma once

#include <cstdint>

#include "vip/addrinfo.h"

// Sets ipv6flag from the text (':' before any '%' means IPv6). Returns 0.
int vip_ipck(const char* paddr);
// Splits "addr[/prefix]" into addr, mask and masklen. 0 or 31.
int vip_div_ipmask(const char* addrbuf, char* addr, char* mask, int* masklen);
// Cuts the text at its last newline.
void vip_chop(char* str);
// "%x:%x:%x:%x:%x:%x" into 6 bytes. 0 or 18.
int vip_crt_macaddr(const char* str, unsigned char* mac);
// 1 when some entry's ifname equals `ifname` ignoring case, else 0.
int vip_chk_ifname(const struct ipaddrinfo* ipaddrlist, uint16_t listnum, const char* ifname);
