// Text helpers for addresses: family, address/prefix split, newline cut,
// MAC text to bytes and name lookup in an address list. They keep no state
// of their own; the four-argument vip_div_ipmask reads ipv6flag,
// vip_crt_macaddr writes the status description on failure. Safe from
// worker threads.
#pragma once

#include <cstdint>

#include "nicCommon/addrinfo.h"

// Sets ipv6flag from the text (as nic_addr_is_ipv6). Returns 0.
int vip_ipck(const char* paddr);
// Splits "addr[/prefix]" into addr (46 bytes), mask (46 bytes, the prefix as
// a dotted quad or IPv6 text, family from ipv6flag) and masklen. 0 or 31.
// Without a slash only addr is written. A bad prefix (trailing characters,
// empty, above 32/128) gives 31 with addr and masklen already written and
// mask unchanged. An address part over 45 characters or a prefix part over
// 15 gives 31 and writes nothing. A negative prefix is accepted (mask all
// zero); callers that need a non-negative one test masklen.
int vip_div_ipmask(const char* addrbuf, char* addr, char* mask, int* masklen);
// The same for the family the caller names (IPv6 when `ipv6`).
int vip_div_ipmask(const char* addrbuf, char* addr, char* mask, int* masklen, bool ipv6);
// Cuts the text at its last newline.
void vip_chop(char* str);
// "%x:%x:%x:%x:%x:%x" into 6 bytes (the low 8 bits of each field). 0, or 18
// with the 6 bytes zeroed and the status description set.
int vip_crt_macaddr(const char* str, unsigned char* mac);
// 1 when some entry's ifname equals `ifname` ignoring case, else 0.
int vip_chk_ifname(const struct ipaddrinfo* ipaddrlist, uint16_t listnum, const char* ifname);
