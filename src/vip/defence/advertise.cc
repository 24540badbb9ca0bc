#include "vip/defence/advertise.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tracersc/tracersc.h"
#include "vip/base/status.h"
#include "vip/defence/raw_link.h"

namespace {

using vyr::kEtherTypeIpv6;
using vyr::kIcmpv6;
using vyr::kNeighborAdvert;
constexpr uint32_t kOverride = 0x20000000;
constexpr uint8_t kTargetLinkLayer = 2;
constexpr uint16_t kPayloadLen = 32;

int SendNa(const vdevinfo* vdev, int num, const vyr::AnnouncePace& pace) {
  const char* device = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  vyr::UniqueFd sock = vyr::OpenPacketSocket();
  if (!sock) {
    TRACE(TRACE_ERROR, "socket() failed. (errno=%d)", errno);
    return vyr::Fail(vyr::kRawSocketFailed);
  }
  unsigned char mac[vyr::kMacLen] = {};
  const unsigned ifindex = vyr::LinkIndex(sock.get(), device);
  if (ifindex == 0 || !vyr::LinkMac(sock.get(), device, mac)) {
    TRACE(TRACE_ERROR, "ioctl(%d %s) failed. (errno=%d)", sock.get(), device, errno);
    return vyr::Fail(vyr::kRawNoInterface);
  }
  in6_addr source{};
  if (!vyr::LinkLocal(device, &source)) {
    TRACE(TRACE_ERROR, "No link-local address on %s.", device);
    return vyr::Fail(vyr::kRawNoInterface);
  }
  na_frame frame;
  vip_fill_na_frame(mac, source, vdev->nipel6.addr, &frame);
  vyr::AnnounceTarget target;
  target.ifindex = ifindex;
  target.device = device;
  target.ipv6 = true;
  target.v6 = vdev->nipel6.addr;
  if (vyr::SendAnnouncements(sock.get(), target, &frame, sizeof frame, num, pace) != 0) {
    TRACE(TRACE_ERROR, "sendto(%d) failed. (errno=%d)", sock.get(), errno);
    return vyr::Fail(vyr::kRawSendFailed);
  }
  return 0;
}

}  // namespace

void vip_fill_na_frame(const unsigned char* mac, const struct in6_addr& source,
                       const struct in6_addr& target, struct na_frame* frame) {
  std::memset(frame, 0, sizeof *frame);
  static constexpr unsigned char kAllNodesMac[6] = {0x33, 0x33, 0, 0, 0, 1};
  std::memcpy(frame->eth_dst, kAllNodesMac, sizeof frame->eth_dst);
  std::memcpy(frame->eth_src, mac, vyr::kMacLen);
  frame->eth_type = htons(kEtherTypeIpv6);
  frame->ip_vtcfl = htonl(0x60000000);
  frame->ip_plen = htons(kPayloadLen);
  frame->ip_next = kIcmpv6;
  frame->ip_hlim = 255;
  std::memcpy(frame->ip_src, &source, sizeof frame->ip_src);
  inet_pton(AF_INET6, "ff02::1", frame->ip_dst);
  frame->icmp_type = kNeighborAdvert;
  frame->flags = htonl(kOverride);
  std::memcpy(frame->target, &target, sizeof frame->target);
  frame->opt_type = kTargetLinkLayer;
  frame->opt_len = 1;
  std::memcpy(frame->opt_mac, mac, vyr::kMacLen);
  const auto* message = reinterpret_cast<const unsigned char*>(&frame->icmp_type);
  frame->icmp_cksum =
      htons(vyr::Icmpv6Checksum(frame->ip_src, frame->ip_dst, message, kPayloadLen));
}

int vip_send_na(const struct vdevinfo* vdev, int num, const vyr::AnnouncePace& pace) {
  TRACE(TRACE_DETAIL, "vip_send_na()  ENTRY...");
  int ret = num > 0 ? SendNa(vdev, num, pace) : 0;
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
