#include "vip/defence/arp_probe.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "tracersc/tracersc.h"
#include "vip/defence/arp.h"
#include "vip/base/globals.h"
#include "vip/defence/raw_link.h"
#include "vip/base/status.h"

namespace {

using Clock = std::chrono::steady_clock;

using vyr::status::kInUse;
constexpr int kEventInUse = 10;
constexpr int kEventForced = 11;
constexpr uint16_t kArpRequest = 1;
// Offsets in an Ethernet frame carrying ARP for IPv4.
constexpr unsigned kOffEtherType = 12;
constexpr unsigned kOffSenderMac = 22;
constexpr unsigned kOffSenderIp = 28;
constexpr std::size_t kArpFrameMin = 42;

// Keeps only ARP frames whose sender protocol address is `addr`, so the
// socket queues nothing else however busy the link is.
bool AttachClaimFilter(int fd, in_addr addr) {
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kOffEtherType),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_ARP, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kOffSenderIp),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(addr.s_addr), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, 0xffff),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  sock_fprog prog{static_cast<unsigned short>(sizeof code / sizeof code[0]), code};
  return ::setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) == 0;
}

// A probe: a request from our MAC for `addr`, sender address 0.0.0.0 and an
// unknown (zero) target MAC.
arp_packet ProbeFrame(const unsigned char* mac, in_addr addr) {
  vdevinfo self{};
  std::memcpy(self.macaddr, mac, vyr::kMacLen);
  self.nipel.addr = addr;
  arp_packet pkt;
  vip_fill_arp_packet(&self, kArpRequest, &pkt);
  std::memset(pkt.sndr_ip_addr, 0, sizeof pkt.sndr_ip_addr);
  std::memset(pkt.rcpt_hw_addr, 0, sizeof pkt.rcpt_hw_addr);
  return pkt;
}

// Reads one queued frame; true when another MAC claims the address in it
// (its sender MAC is then in `claimant`).
bool ReadClaim(int fd, in_addr addr, const unsigned char* own, unsigned char* claimant) {
  unsigned char frame[256];
  sockaddr_ll from{};
  socklen_t fromlen = sizeof from;
  ssize_t len = ::recvfrom(fd, frame, sizeof frame, MSG_DONTWAIT,
                           reinterpret_cast<sockaddr*>(&from), &fromlen);
  if (len < static_cast<ssize_t>(kArpFrameMin) || from.sll_pkttype == PACKET_OUTGOING) {
    return false;
  }
  if (std::memcmp(frame + kOffSenderIp, &addr, sizeof addr) != 0) return false;
  if (std::memcmp(frame + kOffSenderMac, own, vyr::kMacLen) == 0) return false;
  std::memcpy(claimant, frame + kOffSenderMac, vyr::kMacLen);
  return true;
}

// Milliseconds from now until `when`, rounded up so that a wait never ends
// just short of it; 0 when it has passed.
int MillisUntil(Clock::time_point when) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

int Probe(const char* ifname, in_addr addr, int timeout_ms, unsigned char* claimant) {
  vyr::UniqueFd sock = vyr::OpenPacketSocket();
  if (!sock || !AttachClaimFilter(sock.get(), addr)) {
    TRACE(TRACE_ERROR, "socket() failed. (errno=%d)", errno);
    return vyr::kRawSocketFailed;
  }
  unsigned char own[vyr::kMacLen] = {};
  const unsigned ifindex = vyr::LinkIndex(sock.get(), ifname);
  if (ifindex == 0 || !vyr::LinkMac(sock.get(), ifname, own)) {
    TRACE(TRACE_ERROR, "ioctl(%s) failed. (errno=%d)", ifname, errno);
    return vyr::kRawNoInterface;
  }
  if (!vyr::BindLink(sock.get(), ifindex, ETH_P_ARP)) {
    TRACE(TRACE_ERROR, "bind(%s) failed. (errno=%d)", ifname, errno);
    return vyr::kRawSocketFailed;
  }
  const arp_packet probe = ProbeFrame(own, addr);
  const Clock::time_point start = Clock::now();
  const auto limit = std::chrono::milliseconds(timeout_ms);
  const Clock::time_point deadline = start + limit;
  int sent = 0;
  for (;;) {
    if (sent < VIP_ARP_PROBES && Clock::now() >= start + limit * sent / VIP_ARP_PROBES) {
      if (!vyr::SendFrame(sock.get(), ifindex, &probe, sizeof probe)) {
        TRACE(TRACE_ERROR, "sendto(%d) failed. (errno=%d)", sock.get(), errno);
        return vyr::kRawSendFailed;
      }
      ++sent;
      continue;
    }
    const Clock::time_point wake =
        sent < VIP_ARP_PROBES ? start + limit * sent / VIP_ARP_PROBES : deadline;
    pollfd pfd{sock.get(), POLLIN, 0};
    int ready = ::poll(&pfd, 1, MillisUntil(wake));
    if (ready > 0 && ReadClaim(sock.get(), addr, own, claimant)) return kInUse;
    if (ready < 0 && errno != EINTR) {
      TRACE(TRACE_ERROR, "poll(%d) failed. (errno=%d)", sock.get(), errno);
      return vyr::kRawSocketFailed;
    }
    if (sent >= VIP_ARP_PROBES && Clock::now() >= deadline) return 0;
  }
}

void RaiseEvent(int event, const char* addr) {
  tracemess(TRACE_EVENT, event, __FILE__, __LINE__, __func__, nullptr, addr);
}

}  // namespace

int vip_arp_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen) {
  TRACE(TRACE_DETAIL, "vip_arp_probe(%s,%s,%d)  ENTRY...", ifname, addr, timeout_ms);
  in_addr target{};
  unsigned char claimant[vyr::kMacLen] = {};
  int ret = 0;
  if (inet_pton(AF_INET, addr, &target) != 1) {
    TRACE(TRACE_ERROR, "inet_pton(%s) failed.", addr);
    ret = vyr::kRawNoInterface;
  } else {
    ret = Probe(ifname, target, timeout_ms, claimant);
  }
  if (ret == kInUse) vyr::FormatMac(claimant, mac, maclen);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_arp_probe_act(const VIP_INFO* info) {
  TRACE(TRACE_DETAIL, "vip_arp_probe_act()  ENTRY...");
  char mac[32] = {};
  int ret = vip_arp_probe(info->ifname, info->addr, info->arpprobetout, mac, sizeof mac);
  if (ret == kInUse) {
    TRACE(TRACE_ERROR, "%s is already exist.(macaddr : %s)", info->addr, mac);
    RaiseEvent(kEventInUse, info->addr);
  } else if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_arp_probe(%s) failed. (ret=%d)", info->addr, ret);
  } else {
    TRACE(TRACE_INFO, "vip_arp_probe(%s) OK.", info->addr);
  }
  if (ret != 0 && info->pingforce != 0) {
    TRACE(TRACE_WARNING, "force act vip(%s)!", info->addr);
    RaiseEvent(kEventForced, info->addr);
    ret = 0;
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
