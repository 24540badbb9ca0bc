// The address family of an address text, for the interface layer and the
// agent alike.
#pragma once

// True when the text names an IPv6 address: it has a ':' and no '%' before
// its first ':' (fe80::1%eth0 is IPv6, 10.1.1.1%eth0:1 is IPv4). Only ':'
// and '%' are looked at; the text is not validated. Traces nothing.
bool nic_addr_is_ipv6(const char* paddr);

// 1 when the text is IPv6, 0 when IPv4. Leaves ipv6flag alone.
int nic_ipck(const char* paddr);
