#include "vip/defence/claim_watch.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "tracersc/tracersc.h"
#include "vip/base/status.h"

namespace vyr {

namespace {

// Offsets in an Ethernet frame carrying ARP for IPv4.
constexpr unsigned kOffEtherType = 12;
constexpr unsigned kOffArpSenderMac = 22;
constexpr unsigned kOffArpSenderIp = 28;
constexpr unsigned kOffArpTargetIp = 38;
constexpr std::size_t kArpFrameMin = 42;
// ... and Neighbor Discovery over IPv6 (no extension headers: RFC 4861
// messages carry none in practice, and the kernel's own are sent without).
constexpr unsigned kOffEtherSource = 6;
constexpr unsigned kOffIp6Next = 20;
constexpr unsigned kOffIp6Source = 22;
constexpr unsigned kOffIcmpType = 54;
constexpr unsigned kOffNdTarget = 62;
constexpr std::size_t kNdFrameMin = 78;

constexpr uint8_t kSourceLinkLayer = 1;
constexpr uint16_t kNsPayload = 24;
constexpr uint16_t kNsOptionLen = 8;

// A conditional jump from instruction `at` to `yes` or `no`.
sock_filter JumpIf(unsigned at, uint32_t value, unsigned yes, unsigned no) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, static_cast<uint8_t>(yes - at - 1),
                  static_cast<uint8_t>(no - at - 1));
}

bool Attach(int fd, sock_filter* code, std::size_t count) {
  sock_fprog prog{static_cast<unsigned short>(count), code};
  return ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) == 0;
}

// Passes ARP frames with the address as sender or target protocol address,
// so the socket queues nothing else however busy the link is.
bool AttachArpFilter(int fd, in_addr addr) {
  const uint32_t want = ntohl(addr.s_addr);
  constexpr unsigned kDrop = 6, kPass = 7;
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kOffEtherType),
      JumpIf(1, ETH_P_ARP, 2, kDrop),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffArpSenderIp),
      JumpIf(3, want, kPass, 4),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffArpTargetIp),
      JumpIf(5, want, kPass, kDrop),
      BPF_STMT(BPF_RET | BPF_K, 0),
      BPF_STMT(BPF_RET | BPF_K, 0xffff),
  };
  return Attach(fd, code, sizeof code / sizeof code[0]);
}

// Passes Neighbor Solicitations and Advertisements whose target is `addr`.
bool AttachNdFilter(int fd, const in6_addr& addr) {
  uint32_t word[4];
  std::memcpy(word, &addr, sizeof word);
  constexpr unsigned kDrop = 15, kPass = 16;
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kOffEtherType),
      JumpIf(1, kEtherTypeIpv6, 2, kDrop),
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kOffIp6Next),
      JumpIf(3, kIcmpv6, 4, kDrop),
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kOffIcmpType),
      JumpIf(5, kNeighborSolicit, 7, 6),
      JumpIf(6, kNeighborAdvert, 7, kDrop),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffNdTarget),
      JumpIf(8, ntohl(word[0]), 9, kDrop),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffNdTarget + 4),
      JumpIf(10, ntohl(word[1]), 11, kDrop),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffNdTarget + 8),
      JumpIf(12, ntohl(word[2]), 13, kDrop),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffNdTarget + 12),
      JumpIf(14, ntohl(word[3]), kPass, kDrop),
      BPF_STMT(BPF_RET | BPF_K, 0),
      BPF_STMT(BPF_RET | BPF_K, 0xffff),
  };
  return Attach(fd, code, sizeof code / sizeof code[0]);
}

// ff02::1:ffXX:XXXX, the group that a holder of `target` listens on.
in6_addr SolicitedNode(const in6_addr& target) {
  in6_addr group{};
  group.s6_addr[0] = 0xff;
  group.s6_addr[1] = 0x02;
  group.s6_addr[11] = 0x01;
  group.s6_addr[12] = 0xff;
  std::memcpy(&group.s6_addr[13], &target.s6_addr[13], 3);
  return group;
}

int MillisUntil(Clock::time_point when) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

bool IsZero(const unsigned char* bytes, std::size_t len) {
  for (std::size_t i = 0; i < len; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

}  // namespace

bool ParseLinkTarget(const char* text, LinkTarget* out) {
  LinkTarget target;
  if (inet_pton(AF_INET, text, &target.v4) == 1) {
    *out = target;
    return true;
  }
  if (inet_pton(AF_INET6, text, &target.v6) == 1) {
    target.ipv6 = true;
    *out = target;
    return true;
  }
  return false;
}

int ClaimWatch::Open(const char* ifname, const LinkTarget& target, Claims claims) {
  target_ = target;
  claims_ = claims;
  sock_ = OpenPacketSocket();
  const bool filtered = sock_ && (target.ipv6 ? AttachNdFilter(sock_.get(), target.v6)
                                              : AttachArpFilter(sock_.get(), target.v4));
  if (!filtered) {
    TRACE(TRACE_ERROR, "socket() failed. (errno=%d)", errno);
    return kRawSocketFailed;
  }
  ifindex_ = LinkIndex(sock_.get(), ifname);
  if (ifindex_ == 0 || !LinkMac(sock_.get(), ifname, mac_)) {
    TRACE(TRACE_ERROR, "ioctl(%s) failed. (errno=%d)", ifname, errno);
    return kRawNoInterface;
  }
  // Bound only now: nothing was queued before the filter was in place.
  if (!BindLink(sock_.get(), ifindex_, ETH_P_ALL)) {
    TRACE(TRACE_ERROR, "bind(%s) failed. (errno=%d)", ifname, errno);
    return kRawSocketFailed;
  }
  if (target.ipv6 && claims == Claims::kAnswersAndProbes) JoinSolicitedNode();
  return 0;
}

// Another host's duplicate address detection goes to the solicited-node
// group; a card that filters multicast passes it only once the group is
// joined, and a snooping switch only once the membership was reported. The
// kernel does both for a socket's membership.
void ClaimWatch::JoinSolicitedNode() {
  group_.reset(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ipv6_mreq request{};
  request.ipv6mr_multiaddr = SolicitedNode(target_.v6);
  request.ipv6mr_interface = ifindex_;
  if (!group_ ||
      ::setsockopt(group_.get(), IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) != 0) {
    // Answers (advertisements) still arrive; only another host's probe may not.
    TRACE(TRACE_WARNING, "IPV6_JOIN_GROUP(%u) failed. (errno=%d)", ifindex_, errno);
    group_.reset();
  }
}

int ClaimWatch::Send(const void* frame, std::size_t len) {
  if (!SendFrame(sock_.get(), ifindex_, frame, len)) {
    TRACE(TRACE_ERROR, "sendto(%d) failed. (errno=%d)", sock_.get(), errno);
    return kRawSendFailed;
  }
  return 0;
}

bool ClaimWatch::IsClaim(const unsigned char* frame, std::size_t len) const {
  const bool probes = claims_ == Claims::kAnswersAndProbes;
  if (!target_.ipv6) {
    if (len < kArpFrameMin) return false;
    if (std::memcmp(frame + kOffArpSenderMac, mac_, kMacLen) == 0) return false;
    if (std::memcmp(frame + kOffArpSenderIp, &target_.v4, 4) == 0) return true;
    return probes && IsZero(frame + kOffArpSenderIp, 4) &&
           std::memcmp(frame + kOffArpTargetIp, &target_.v4, 4) == 0;
  }
  if (len < kNdFrameMin) return false;
  if (std::memcmp(frame + kOffEtherSource, mac_, kMacLen) == 0) return false;
  if (frame[kOffIcmpType] == kNeighborAdvert) return true;
  // A solicitation from a unicast address is address resolution, not a claim.
  return probes && IsZero(frame + kOffIp6Source, 16);
}

// A claim (IsClaim holds) that is a probe: sender 0.0.0.0, or a
// solicitation from ::.
bool ClaimWatch::IsProbe(const unsigned char* frame) const {
  if (!target_.ipv6) return IsZero(frame + kOffArpSenderIp, 4);
  return frame[kOffIcmpType] != kNeighborAdvert && IsZero(frame + kOffIp6Source, 16);
}

int ClaimWatch::WaitClaim(Clock::time_point until, unsigned char* claimant) {
  // Frames already queued at `until` are still looked at, a bounded number
  // of them, so that a flood cannot hold the wait open.
  constexpr int kLateFrames = 64;
  int late = 0;
  for (;;) {
    pollfd pfd{sock_.get(), POLLIN, 0};
    const int ready = ::poll(&pfd, 1, MillisUntil(until));
    if (ready < 0 && errno != EINTR) {
      TRACE(TRACE_ERROR, "poll(%d) failed. (errno=%d)", sock_.get(), errno);
      return kRawSocketFailed;
    }
    if (ready > 0) {
      unsigned char frame[256];
      sockaddr_ll from{};
      socklen_t fromlen = sizeof from;
      const ssize_t got = ::recvfrom(sock_.get(), frame, sizeof frame, MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&from), &fromlen);
      if (got > 0 && from.sll_pkttype != PACKET_OUTGOING &&
          IsClaim(frame, static_cast<std::size_t>(got))) {
        const unsigned off = target_.ipv6 ? kOffEtherSource : kOffArpSenderMac;
        std::memcpy(claimant, frame + off, kMacLen);
        probe_ = IsProbe(frame);
        return status::kInUse;
      }
      if (Clock::now() < until || ++late <= kLateFrames) continue;
      return 0;
    }
    if (ready == 0 || Clock::now() >= until) return 0;
  }
}

std::array<std::chrono::microseconds, kProbeNum> ProbeTimes(int window_ms, std::mt19937& random) {
  using std::chrono::microseconds;
  const int64_t unit = static_cast<int64_t>(window_ms > 0 ? window_ms : 0) * 1000 / 7;
  std::uniform_int_distribution<int64_t> wait(0, unit);
  std::uniform_int_distribution<int64_t> gap(unit, 2 * unit);
  std::array<microseconds, kProbeNum> times{};
  int64_t at = wait(random);
  for (auto& t : times) {
    t = microseconds(at);
    at += gap(random);
  }
  return times;
}

arp_packet ArpProbeFrame(const unsigned char* mac, in_addr addr) {
  vdevinfo self{};
  std::memcpy(self.macaddr, mac, kMacLen);
  self.nipel.addr = addr;
  arp_packet pkt;
  vip_fill_arp_packet(&self, kArpRequest, &pkt);
  std::memset(pkt.sndr_ip_addr, 0, sizeof pkt.sndr_ip_addr);
  std::memset(pkt.rcpt_hw_addr, 0, sizeof pkt.rcpt_hw_addr);
  return pkt;
}

ns_frame NsFrame(const unsigned char* mac, const in6_addr* source, const in6_addr& target,
                 std::size_t* len) {
  ns_frame f;
  std::memset(&f, 0, sizeof f);
  const in6_addr group = SolicitedNode(target);
  f.eth_dst[0] = 0x33;
  f.eth_dst[1] = 0x33;
  std::memcpy(&f.eth_dst[2], &group.s6_addr[12], 4);
  std::memcpy(f.eth_src, mac, kMacLen);
  f.eth_type = htons(kEtherTypeIpv6);
  f.ip_vtcfl = htonl(0x60000000);
  const uint16_t payload = source != nullptr ? kNsPayload + kNsOptionLen : kNsPayload;
  f.ip_plen = htons(payload);
  f.ip_next = kIcmpv6;
  f.ip_hlim = 255;
  if (source != nullptr) std::memcpy(f.ip_src, source, sizeof f.ip_src);
  std::memcpy(f.ip_dst, &group, sizeof f.ip_dst);
  f.icmp_type = kNeighborSolicit;
  std::memcpy(f.target, &target, sizeof f.target);
  if (source != nullptr) {
    f.opt_type = kSourceLinkLayer;
    f.opt_len = 1;
    std::memcpy(f.opt_mac, mac, kMacLen);
  }
  const auto* message = reinterpret_cast<const unsigned char*>(&f.icmp_type);
  f.icmp_cksum = htons(Icmpv6Checksum(f.ip_src, f.ip_dst, message, payload));
  *len = offsetof(ns_frame, icmp_type) + payload;
  return f;
}

}  // namespace vyr
