// Asking the link who has an address, and telling it again who does: the
// check after a removal that nobody still answers at the address, and the
// deep monitor's question whether a second host holds it.
//
// Any thread. A query costs its whole window unless it may end at the first
// answer.
#pragma once

#include <cstddef>

// Asks on `ifname` (an alias name stands for its interface) who has `addr`
// (IPv4 or IPv6, no prefix) for `window_ms`: an ARP request from the
// interface's MAC with sender address 0.0.0.0, or a Neighbor Solicitation
// to the address's solicited-node group from the interface's link-local
// address (from :: when it has none), sent at once and again at a quarter
// and at half of the window. Answers from the interface's own MAC do not
// count. 0: nobody else answered; 15: another MAC did (the first one's text
// in `mac`, at least 18 bytes); with `whole_window` the query still runs to
// its end and every further MAC is traced; 19: no socket; 20: the address
// or the interface (index or MAC) could not be read; 21: a query could not
// be sent. Writes no status description.
int vip_lan_query(const char* ifname, const char* addr, int window_ms, bool whole_window, char* mac,
                  std::size_t maclen);

// What the detached half of vip_lan_query_detached reports at its end: 0
// when nobody else answered, 15 with the first other MAC's text, or 19 when
// its socket failed (the text is empty but for 15).
using LanQueryReport = void (*)(int ret, const char* mac);

// The same question without waiting for the answer: asked once, at once,
// on this thread; the rest of `window_ms` is listened to by a detached
// process (named "vyrlancheck", see detached.h) that calls `report` and
// ends. A MAC that probes for the address meanwhile (sender 0.0.0.0, or a
// Neighbor Solicitation from ::) is a host taking the address over, and its
// answers do not count. Asking only at the start keeps this node's probe
// frames out of a successor's duplicate probe, which begins once this
// node's stop has returned. 0 once the listener runs; 19, 20 or 21 as
// vip_lan_query; -1 when no process could be started (the question went
// out; the caller may ask again in line). Main thread only, while no worker
// thread runs.
int vip_lan_query_detached(const char* ifname, const char* addr, int window_ms,
                           LanQueryReport report);

// Tells the link `count` times, `interval_ms` apart, that `addr` is here: a
// gratuitous ARP request from the interface's MAC (IPv4), an unsolicited
// Neighbor Advertisement from its link-local address (IPv6). 0, or 19, 20
// (also: no link-local address) or 21; frames sent before a failure stay
// sent. Writes no status description.
int vip_lan_announce(const char* ifname, const char* addr, int count, int interval_ms);
