// Unsolicited Neighbor Advertisements after an IPv6 activation: they tell
// the hosts and routers on the link at once which MAC address now owns the
// address, as gratuitous ARP does for IPv4.
//
// Main thread. Blocks about `num` seconds: one advertisement, then one
// second of sleep, `num` times, unless paced otherwise (see announce.h).
#pragma once

#include <netinet/in.h>

#include <cstdint>

#include "nicCommon/addrinfo.h"
#include "vip/defence/announce.h"

// The frame as it goes on the wire: Ethernet header, IPv6 header, the
// advertisement with its Target Link-Layer Address option. Numbers in network
// order.
struct __attribute__((packed)) na_frame {
  unsigned char eth_dst[6];  // 33:33:00:00:00:01, the all-nodes group
  unsigned char eth_src[6];  // the interface's MAC
  uint16_t eth_type;         // 0x86dd
  uint32_t ip_vtcfl;         // version 6, no traffic class, no flow label
  uint16_t ip_plen;          // 32, the advertisement and its option
  uint8_t ip_next;           // 58, ICMPv6
  uint8_t ip_hlim;           // 255: receivers drop anything that crossed a router
  unsigned char ip_src[16];  // the interface's link-local address
  unsigned char ip_dst[16];  // ff02::1
  uint8_t icmp_type;         // 136
  uint8_t icmp_code;         // 0
  uint16_t icmp_cksum;
  uint32_t flags;            // Override only: Router and Solicited clear
  unsigned char target[16];  // the address
  uint8_t opt_type;          // 2, Target Link-Layer Address
  uint8_t opt_len;           // 1 (units of 8 bytes)
  unsigned char opt_mac[6];  // the interface's MAC
};
static_assert(sizeof(na_frame) == 86, "an advertisement is 86 bytes on the wire");

// Fills the advertisement of `target` from `mac` and the link-local `source`,
// checksum included.
void vip_fill_na_frame(const unsigned char* mac, const struct in6_addr& source,
                       const struct in6_addr& target, struct na_frame* frame);

// Sends `num` advertisements of the record's nipel6.addr out of the device
// that carries it (vdevname when set, else ifname). 0, or 19 (socket),
// 20 (interface index, MAC or link-local address), 21 (send); advertisements
// sent before a failure stay sent.
int vip_send_na(const struct vdevinfo* vdev, int num, const vyr::AnnouncePace& pace = {});
