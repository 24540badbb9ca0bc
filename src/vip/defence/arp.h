// Gratuitous ARP announcement of an added IPv4 address.
//
// Main thread. Blocks about `num` seconds: one frame, then one second of
// sleep, `num` times; a pace in milliseconds puts that much between frames
// (nothing after the last), and in the background only the first frame is
// sent before the call returns (see announce.h).
#pragma once

#include <cstdint>

#include "nicCommon/addrinfo.h"
#include "vip/defence/announce.h"

// The frame as it goes on the wire: Ethernet header, ARP for IPv4 over
// Ethernet, zero padding up to the 60-byte minimum. Numbers in network order.
struct __attribute__((packed)) arp_packet {
  unsigned char targ_hw_addr[6];  // Ethernet destination: broadcast
  unsigned char src_hw_addr[6];   // Ethernet source: the device's MAC
  uint16_t frame_type;            // 0x0806
  uint16_t hw_type;               // 1, Ethernet
  uint16_t prot_type;             // 0x0800, IPv4
  unsigned char hw_addr_size;     // 6
  unsigned char prot_addr_size;   // 4
  uint16_t op;                    // 1 request, 2 reply
  unsigned char sndr_hw_addr[6];
  unsigned char sndr_ip_addr[4];
  unsigned char rcpt_hw_addr[6];  // the sender's own MAC, not zero
  unsigned char rcpt_ip_addr[4];
  unsigned char padding[18];
};
static_assert(sizeof(arp_packet) == 60, "an ARP frame is 60 bytes on the wire");

// Fills the frame for the record's macaddr and nipel.addr (cleared first).
void vip_fill_arp_packet(const struct vdevinfo* vdev, int opcode, struct arp_packet* pkt);

// Sends `num` frames with operation `opcode` (low 16 bits) out of the
// record's ifname (not vdevname). 0, or 19 (socket), 20 (interface index),
// 21 (send); frames sent before a failure stay sent.
int vip_send_arp(struct vdevinfo* vdev, int num, int opcode, const vyr::AnnouncePace& pace = {});
