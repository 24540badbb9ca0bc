// The address family of an address text, for the interface layer.
#pragma once

// 1 when the text is IPv6, 0 when IPv4. Leaves ipv6flag alone.
int nic_ipck(const char* paddr);
