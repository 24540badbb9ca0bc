#include "vip/defence/dad_wait.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "tracersc/tracersc.h"
#include "unique_fd.h"
#include "vip/address/ipaddr_change.h"
#include "vip/base/status.h"

namespace {

using Clock = std::chrono::steady_clock;

// Without a DAD time limit the advertisements still wait for the verdict,
// this long: the kernel's defaults take up to one second of start delay and
// one second for the single probe.
constexpr int kAnnounceWaitMs = 3000;
constexpr std::size_t kReceiveLen = 16384;

// Subscribes to IPv6 address changes, then asks for every IPv6 address:
// notifications that race with the dump are not lost.
vyr::UniqueFd OpenAddressWatch() {
  vyr::UniqueFd sock(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!sock) return sock;
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = RTMGRP_IPV6_IFADDR;
  if (::bind(sock.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    return vyr::UniqueFd();
  }
  struct {
    nlmsghdr header;
    ifaddrmsg body;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETADDR;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = 1;
  request.body.ifa_family = AF_INET6;
  if (::send(sock.get(), &request, sizeof request, 0) != static_cast<ssize_t>(sizeof request)) {
    return vyr::UniqueFd();
  }
  return sock;
}

// What one address message says about our address; kError means "not ours".
DadVerdict Judge(const nlmsghdr* msg, unsigned ifindex, const in6_addr& addr) {
  const auto* ifa = static_cast<const ifaddrmsg*>(NLMSG_DATA(msg));
  if (ifa->ifa_family != AF_INET6 || ifa->ifa_index != ifindex) return DadVerdict::kError;
  uint32_t flags = ifa->ifa_flags;
  bool ours = false;
  int len = static_cast<int>(IFA_PAYLOAD(msg));
  for (const rtattr* rta = IFA_RTA(ifa); RTA_OK(rta, len); rta = RTA_NEXT(rta, len)) {
    if (rta->rta_type == IFA_ADDRESS && RTA_PAYLOAD(rta) == sizeof addr) {
      ours = std::memcmp(RTA_DATA(rta), &addr, sizeof addr) == 0;
    } else if (rta->rta_type == IFA_FLAGS && RTA_PAYLOAD(rta) == sizeof(uint32_t)) {
      std::memcpy(&flags, RTA_DATA(rta), sizeof flags);
    }
  }
  if (!ours) return DadVerdict::kError;
  if (msg->nlmsg_type == RTM_DELADDR) return DadVerdict::kGone;
  if (flags & IFA_F_DADFAILED) return DadVerdict::kFailed;
  if (flags & IFA_F_TENTATIVE) return DadVerdict::kTentative;
  return DadVerdict::kUsable;
}

// Reads what is queued. *seen tells whether the address showed up in the
// dump; *done whether the dump has ended. A final verdict, or kTentative.
DadVerdict ReadMessages(int fd, unsigned ifindex, const in6_addr& addr, bool* seen, bool* done) {
  alignas(nlmsghdr) char buffer[kReceiveLen];
  ssize_t got = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
  if (got < 0) {
    return errno == EAGAIN || errno == EINTR ? DadVerdict::kTentative : DadVerdict::kError;
  }
  int len = static_cast<int>(got);
  // NLMSG_OK compares the header's unsigned length with the int it is
  // given; Clang reports that inside the C library's macro.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
  for (const auto* msg = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(msg, len);
       msg = NLMSG_NEXT(msg, len)) {
#pragma GCC diagnostic pop
    if (msg->nlmsg_type == NLMSG_DONE) {
      *done = true;
      if (!*seen) return DadVerdict::kGone;
    } else if (msg->nlmsg_type == NLMSG_ERROR) {
      return DadVerdict::kError;
    } else if (msg->nlmsg_type == RTM_NEWADDR || msg->nlmsg_type == RTM_DELADDR) {
      DadVerdict verdict = Judge(msg, ifindex, addr);
      if (verdict == DadVerdict::kError) continue;
      if (!*done) *seen = true;
      if (verdict != DadVerdict::kTentative) return verdict;
    }
  }
  return DadVerdict::kTentative;
}

int MillisUntil(Clock::time_point when) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

const char* VerdictName(DadVerdict verdict) {
  switch (verdict) {
    case DadVerdict::kUsable:
      return "usable";
    case DadVerdict::kFailed:
      return "dadfailed";
    case DadVerdict::kTentative:
      return "tentative";
    case DadVerdict::kGone:
      return "gone";
    case DadVerdict::kError:
      break;
  }
  return "error";
}

// Takes the address away again after DAD failed, as after a bad link.
void RemoveAddress(VIP_INFO* info, vdevinfo* vdev) {
  const char* device = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  std::memset(info->ifname, 0, sizeof info->ifname);
  std::snprintf(info->ifname, sizeof info->ifname, "%s", device);
  if (info->masklen == 0) info->masklen = vdev->sipel.masklen;
  int ret = vip_deact_ipaddr(vdev, info);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "dadfailed, vip_deact_ipaddr(%s) failed. (ret=%d)", info->ifname, ret);
  } else {
    TRACE(TRACE_DETAIL, "dadfailed, vip_deact_ipaddr() succeeded.");
  }
}

}  // namespace

DadVerdict vip_wait_dad(unsigned ifindex, const struct in6_addr& addr, int timeout_ms) {
  TRACE(TRACE_DETAIL, "vip_wait_dad(%u,%d)  ENTRY...", ifindex, timeout_ms);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  DadVerdict verdict = DadVerdict::kTentative;
  vyr::UniqueFd sock = OpenAddressWatch();
  if (!sock) {
    TRACE(TRACE_ERROR, "netlink socket failed. (errno=%d)", errno);
    verdict = DadVerdict::kError;
  }
  bool seen = false;
  bool done = false;
  while (verdict == DadVerdict::kTentative) {
    pollfd pfd{sock.get(), POLLIN, 0};
    int ready = ::poll(&pfd, 1, MillisUntil(deadline));
    if (ready > 0) {
      verdict = ReadMessages(sock.get(), ifindex, addr, &seen, &done);
    } else if (ready < 0 && errno != EINTR) {
      verdict = DadVerdict::kError;
    } else if (ready == 0) {
      break;
    }
  }
  TRACE(TRACE_DETAIL, "return(%s)", VerdictName(verdict));
  return verdict;
}

int vip_dad_check(VIP_INFO* info, struct vdevinfo* vdev, bool* announce) {
  *announce = info->nanum > 0;
  if (info->dadtout <= 0 && info->nanum <= 0) return 0;
  TRACE(TRACE_DETAIL, "vip_dad_check()  ENTRY...");
  const char* device = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  const unsigned ifindex = ::if_nametoindex(device);
  const int limit = info->dadtout > 0 ? info->dadtout : kAnnounceWaitMs;
  const DadVerdict verdict =
      ifindex == 0 ? DadVerdict::kError : vip_wait_dad(ifindex, vdev->nipel6.addr, limit);
  int ret = 0;
  if (verdict == DadVerdict::kFailed && info->dadtout > 0) {
    TRACE(TRACE_ERROR, "DAD failed for %s on %s.", info->addr, device);
    RemoveAddress(info, vdev);
    ret = vyr::Fail(vyr::status::kInUse, "This ip address was already used.  IP=%s", info->addr);
  } else if (verdict != DadVerdict::kUsable) {
    TRACE(TRACE_WARNING, "DAD of %s on %s: %s within %d ms.", info->addr, device,
          VerdictName(verdict), limit);
  } else {
    TRACE(TRACE_INFO, "DAD of %s on %s passed.", info->addr, device);
  }
  if (verdict != DadVerdict::kUsable) *announce = false;
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
