// The ARP probe before an IPv4 activation: it sees a host that holds the
// address even when that host ignores ping.
//
// Three ARP requests for the address with sender protocol address 0.0.0.0
// (they disturb nobody's neighbour cache) go out of the interface, spread
// over the time limit, and every ARP frame whose sender protocol address is
// the address is watched for. Any thread; blocks for the whole time limit
// when the address is free.
#pragma once

#include <cstddef>

#include "vip/base/vip_info.h"

inline constexpr int VIP_ARP_PROBES = 3;

// Probes `addr` (dotted IPv4) on `ifname` (an alias name stands for its
// interface) for `timeout_ms`. 0: nobody claimed it; 15: another MAC did
// (its text in `mac`, at least 18 bytes); 19: no socket; 20: the interface
// (index or MAC) could not be read; 21: a probe could not be sent.
int vip_arp_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen);

// The activation's probe of the run's address with the run's settings: the
// trace lines, event 10 for an address in use and the forcing of the ping
// probe (pingforce: warning, event 11, result 0). Writes no status
// description; the caller does, once both probes are over.
int vip_arp_probe_act(const VIP_INFO* info);
