// The duplicate probes on the link before an activation: the ARP probe
// (IPv4) and the agent's own duplicate address detection (IPv6). They see a
// host that holds the address even when that host ignores ping.
//
// Both follow RFC 5227's probing scaled to a window of milliseconds: three
// probes (an ARP request from 0.0.0.0, a Neighbor Solicitation from :: to
// the address's solicited-node group) at random spacing, and the first
// conflicting frame at any moment of the window ends it at once: an ARP
// frame with the address as sender from another MAC, or another host's probe
// for it; a Neighbor Advertisement for it, or another host's solicitation
// from :: for it. Any thread; a free address costs the whole window.
#pragma once

#include <cstddef>

#include "vip/base/vip_info.h"

// Probes `addr` (dotted IPv4) on `ifname` (an alias name stands for its
// interface) for `timeout_ms`. 0: nobody claimed it; 15: another MAC did
// (its text in `mac`, at least 18 bytes); 19: no socket; 20: the interface
// (index or MAC) could not be read; 21: a probe could not be sent.
int vip_arp_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen);

// The same for an IPv6 `addr`, with Neighbor Solicitations.
int vip_dad_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen);

// The activation's probe of the run's address with the run's settings
// (arpprobetout for IPv4, dadprobe for IPv6): the trace lines, event 10 for
// an address in use and the forcing of the ping probe (pingforce: warning,
// event 11, result 0). Writes no status description; the caller does, once
// every probe is over.
int vip_arp_probe_act(const VIP_INFO* info);
int vip_dad_probe_act(const VIP_INFO* info);
