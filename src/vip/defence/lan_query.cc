#include "vip/defence/lan_query.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tracersc/tracersc.h"
#include "vip/base/status.h"
#include "vip/defence/advertise.h"
#include "vip/defence/announce.h"
#include "vip/defence/arp.h"
#include "vip/defence/claim_watch.h"
#include "vip/defence/detached.h"
#include "vip/defence/raw_link.h"

namespace {

using vyr::status::kInUse;
using Mac = std::array<unsigned char, vyr::kMacLen>;
using vyr::kArpRequest;

// The interface part of `name` ("eth0" of "eth0:1"): a link-local address
// and an IPv6 address belong to the interface itself.
std::string BaseName(const char* name) { return std::string(name, std::strcspn(name, ":")); }

// The question as it goes on the wire, into `frame`; its length.
std::size_t QueryFrame(const char* ifname, const vyr::ClaimWatch& watch,
                       const vyr::LinkTarget& target, vyr::ns_frame* frame) {
  if (!target.ipv6) {
    static_assert(sizeof(arp_packet) <= sizeof(vyr::ns_frame));
    const arp_packet pkt = vyr::ArpProbeFrame(watch.mac(), target.v4);
    std::memcpy(frame, &pkt, sizeof pkt);
    return sizeof pkt;
  }
  in6_addr source{};
  const bool linklocal = vyr::LinkLocal(BaseName(ifname).c_str(), &source);
  std::size_t len = 0;
  *frame = vyr::NsFrame(watch.mac(), linklocal ? &source : nullptr, target.v6, &len);
  return len;
}

// Remembers `mac` once; true when it is new.
bool Note(std::vector<Mac>* seen, const unsigned char* mac) {
  Mac m;
  std::memcpy(m.data(), mac, m.size());
  for (const Mac& s : *seen) {
    if (s == m) return false;
  }
  seen->push_back(m);
  return true;
}

int Query(const char* ifname, const vyr::LinkTarget& target, int window_ms, bool whole_window,
          const char* addr, unsigned char* first) {
  vyr::ClaimWatch watch;
  int ret = watch.Open(ifname, target, vyr::Claims::kAnswers);
  if (ret != 0) return ret;
  vyr::ns_frame frame;
  const std::size_t len = QueryFrame(ifname, watch, target, &frame);
  const vyr::Clock::time_point start = vyr::Clock::now();
  const auto window = std::chrono::milliseconds(window_ms > 0 ? window_ms : 0);
  const vyr::Clock::time_point sends[] = {start, start + window / 4, start + window / 2};
  const vyr::Clock::time_point end = start + window;
  std::vector<Mac> seen;
  std::size_t next = 0;
  for (;;) {
    const bool sending = next < sizeof sends / sizeof sends[0];
    unsigned char mac[vyr::kMacLen];
    ret = watch.WaitClaim(sending ? sends[next] : end, mac);
    if (ret == kInUse) {
      if (seen.empty()) std::memcpy(first, mac, vyr::kMacLen);
      if (Note(&seen, mac) && seen.size() > 1) {
        char text[32];
        vyr::FormatMac(mac, text, sizeof text);
        TRACE(TRACE_WARNING, "%s also answered from %s.", addr, text);
      }
      if (!whole_window) return kInUse;
      continue;
    }
    if (ret != 0) return ret;
    if (!sending) return seen.empty() ? 0 : kInUse;
    ret = watch.Send(&frame, len);
    if (ret != 0) return ret;
    ++next;
  }
}

// The detached listener: until `end`, the first answer from a MAC that has
// not probed for the address is reported. Never returns.
[[noreturn]] void ListenDetached(vyr::ClaimWatch& watch, vyr::Clock::time_point end,
                                 LanQueryReport report) {
  ::prctl(PR_SET_NAME, "vyrlancheck", 0, 0, 0);
  if (::chdir("/") != 0) ::_exit(1);
  vyr::DetachDescriptors({watch.fd(), watch.group_fd(), tracefd()});
  std::vector<Mac> taking_over;
  for (;;) {
    unsigned char mac[vyr::kMacLen];
    const int ret = watch.WaitClaim(end, mac);
    if (ret == kInUse && watch.ClaimWasProbe()) {
      Note(&taking_over, mac);
      continue;
    }
    if (ret == kInUse && !Note(&taking_over, mac)) continue;
    char text[32] = {};
    if (ret == kInUse) vyr::FormatMac(mac, text, sizeof text);
    report(ret, text);
    ::_exit(0);
  }
}

int QueryDetached(const char* ifname, const vyr::LinkTarget& target, int window_ms,
                  LanQueryReport report) {
  vyr::ClaimWatch watch;
  int ret = watch.Open(ifname, target, vyr::Claims::kAnswersAndProbes);
  if (ret != 0) return ret;
  vyr::ns_frame frame;
  const std::size_t len = QueryFrame(ifname, watch, target, &frame);
  const vyr::Clock::time_point end =
      vyr::Clock::now() + std::chrono::milliseconds(window_ms > 0 ? window_ms : 0);
  ret = watch.Send(&frame, len);
  if (ret != 0) return ret;
  const int forked = vyr::ForkDetached();
  if (forked == 0) ListenDetached(watch, end, report);
  return forked > 0 ? 0 : -1;
}

int Announce(const char* ifname, const vyr::LinkTarget& target, int count, int interval_ms) {
  vyr::UniqueFd sock = vyr::OpenPacketSocket();
  if (!sock) {
    TRACE(TRACE_ERROR, "socket() failed. (errno=%d)", errno);
    return vyr::kRawSocketFailed;
  }
  vyr::AnnounceTarget where;
  where.device = ifname;
  where.ipv6 = target.ipv6;
  where.v4 = target.v4;
  where.v6 = target.v6;
  unsigned char mac[vyr::kMacLen] = {};
  where.ifindex = vyr::LinkIndex(sock.get(), ifname);
  if (where.ifindex == 0 || !vyr::LinkMac(sock.get(), ifname, mac)) {
    TRACE(TRACE_ERROR, "ioctl(%s) failed. (errno=%d)", ifname, errno);
    return vyr::kRawNoInterface;
  }
  vyr::ns_frame buffer;
  std::size_t len = 0;
  if (!target.ipv6) {
    vdevinfo self{};
    std::memcpy(self.macaddr, mac, vyr::kMacLen);
    self.nipel.addr = target.v4;
    arp_packet pkt;
    vip_fill_arp_packet(&self, kArpRequest, &pkt);
    std::memcpy(&buffer, &pkt, sizeof pkt);
    len = sizeof pkt;
  } else {
    in6_addr source{};
    if (!vyr::LinkLocal(BaseName(ifname).c_str(), &source)) {
      TRACE(TRACE_ERROR, "No link-local address on %s.", ifname);
      return vyr::kRawNoInterface;
    }
    static_assert(sizeof(na_frame) == sizeof(vyr::ns_frame));
    na_frame na;
    vip_fill_na_frame(mac, source, target.v6, &na);
    std::memcpy(&buffer, &na, sizeof na);
    len = sizeof na;
  }
  vyr::AnnouncePace pace;
  pace.interval_ms = interval_ms;
  if (vyr::SendAnnouncements(sock.get(), where, &buffer, len, count, pace) != 0) {
    TRACE(TRACE_ERROR, "sendto(%d) failed. (errno=%d)", sock.get(), errno);
    return vyr::kRawSendFailed;
  }
  return 0;
}

}  // namespace

int vip_lan_query(const char* ifname, const char* addr, int window_ms, bool whole_window, char* mac,
                  std::size_t maclen) {
  TRACE(TRACE_DETAIL, "vip_lan_query(%s,%s,%d)  ENTRY...", ifname, addr, window_ms);
  vyr::LinkTarget target;
  unsigned char first[vyr::kMacLen] = {};
  int ret = 0;
  if (!vyr::ParseLinkTarget(addr, &target)) {
    TRACE(TRACE_ERROR, "inet_pton(%s) failed.", addr);
    ret = vyr::kRawNoInterface;
  } else {
    ret = Query(ifname, target, window_ms, whole_window, addr, first);
  }
  if (ret == kInUse) vyr::FormatMac(first, mac, maclen);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_lan_query_detached(const char* ifname, const char* addr, int window_ms,
                           LanQueryReport report) {
  TRACE(TRACE_DETAIL, "vip_lan_query_detached(%s,%s,%d)  ENTRY...", ifname, addr, window_ms);
  vyr::LinkTarget target;
  int ret = 0;
  if (!vyr::ParseLinkTarget(addr, &target)) {
    TRACE(TRACE_ERROR, "inet_pton(%s) failed.", addr);
    ret = vyr::kRawNoInterface;
  } else {
    ret = QueryDetached(ifname, target, window_ms, report);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_lan_announce(const char* ifname, const char* addr, int count, int interval_ms) {
  TRACE(TRACE_DETAIL, "vip_lan_announce(%s,%s,%d,%d)  ENTRY...", ifname, addr, count, interval_ms);
  vyr::LinkTarget target;
  int ret = 0;
  if (!vyr::ParseLinkTarget(addr, &target)) {
    TRACE(TRACE_ERROR, "inet_pton(%s) failed.", addr);
    ret = vyr::kRawNoInterface;
  } else if (count > 0) {
    ret = Announce(ifname, target, count, interval_ms);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
