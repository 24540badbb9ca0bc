#include "vip/defence/arp.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tracersc/tracersc.h"
#include "unique_fd.h"
#include "vip/base/status.h"
#include "vip/defence/announce.h"
#include "vip/defence/raw_link.h"

// The announcement names itself "sendarp" in the trace.
#define ARP_TRACE(level, ...) trace((level), __FILE__, __LINE__, "sendarp", __VA_ARGS__)

namespace {

using vyr::kEtherTypeArp;
constexpr uint16_t kEtherTypeIpv4 = 0x0800;
constexpr uint16_t kHwTypeEthernet = 1;
// The socket only sends; its protocol (RARP) keeps ARP traffic from being
// queued on it.
constexpr uint16_t kSocketProtocol = 0x8035;

int SendArp(const vdevinfo* vdev, int num, int opcode, const vyr::AnnouncePace& pace) {
  vyr::UniqueFd sock(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(kSocketProtocol)));
  if (!sock.valid()) {
    ARP_TRACE(TRACE_ERROR, "socket() failed. (sock=%d)", sock.get());
    return vyr::Fail(vyr::kRawSocketFailed);
  }
  arp_packet pkt;
  vip_fill_arp_packet(vdev, opcode, &pkt);

  ifreq ifr{};
  std::snprintf(ifr.ifr_name, sizeof ifr.ifr_name, "%.15s", vdev->ifname);
  if (::ioctl(sock.get(), SIOCGIFINDEX, &ifr) < 0) {
    ARP_TRACE(TRACE_ERROR, "ioctl(%d SIOCGIFINDEX) failed. (errno=%d)", sock.get(), errno);
    return vyr::Fail(vyr::kRawNoInterface);
  }
  vyr::AnnounceTarget target;
  target.ifindex = static_cast<unsigned>(ifr.ifr_ifindex);
  target.device = vdev->ifname;
  target.v4 = vdev->nipel.addr;
  if (vyr::SendAnnouncements(sock.get(), target, &pkt, sizeof pkt, num, pace) != 0) {
    // Frames sent before stay sent; the announcement's failure is described
    // but never fails the run.
    ARP_TRACE(TRACE_ERROR, "sendto(%d) failed. (errno=%d)", sock.get(), errno);
    return vyr::Fail(vyr::kRawSendFailed);
  }
  return 0;
}

}  // namespace

void vip_fill_arp_packet(const struct vdevinfo* vdev, int opcode, struct arp_packet* pkt) {
  std::memset(pkt, 0, sizeof *pkt);
  std::memset(pkt->targ_hw_addr, 0xff, sizeof pkt->targ_hw_addr);
  std::memcpy(pkt->src_hw_addr, vdev->macaddr, 6);
  pkt->frame_type = htons(kEtherTypeArp);
  pkt->hw_type = htons(kHwTypeEthernet);
  pkt->prot_type = htons(kEtherTypeIpv4);
  pkt->hw_addr_size = 6;
  pkt->prot_addr_size = 4;
  pkt->op = htons(static_cast<uint16_t>(opcode & 0xffff));
  std::memcpy(pkt->sndr_hw_addr, vdev->macaddr, 6);
  std::memcpy(pkt->sndr_ip_addr, &vdev->nipel.addr, 4);
  std::memcpy(pkt->rcpt_hw_addr, vdev->macaddr, 6);
  std::memcpy(pkt->rcpt_ip_addr, &vdev->nipel.addr, 4);
}

int vip_send_arp(struct vdevinfo* vdev, int num, int opcode, const vyr::AnnouncePace& pace) {
  ARP_TRACE(TRACE_DETAIL, "vip_send_arp()  ENTRY...");
  int ret = SendArp(vdev, num, opcode, pace);
  ARP_TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
