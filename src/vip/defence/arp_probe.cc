#include "vip/defence/arp_probe.h"

#include <random>

#include "tracersc/tracersc.h"
#include "vip/base/status.h"
#include "vip/defence/claim_watch.h"
#include "vip/defence/raw_link.h"

namespace {

using vyr::kEventForced;
using vyr::kEventInUse;
using vyr::status::kInUse;

// Watches `ifname` for `timeout_ms` while the probes go out at RFC 5227's
// scaled times; `frame` builds the probe from the interface's MAC.
template <typename Frame>
int Probe(const char* ifname, const vyr::LinkTarget& target, int timeout_ms,
          unsigned char* claimant, Frame frame) {
  vyr::ClaimWatch watch;
  int ret = watch.Open(ifname, target, vyr::Claims::kAnswersAndProbes);
  if (ret != 0) return ret;
  std::mt19937 random(std::random_device{}());
  const auto times = vyr::ProbeTimes(timeout_ms, random);
  std::size_t len = 0;
  const auto probe = frame(watch.mac(), &len);
  return vyr::RunProbes(watch, &probe, len, times, timeout_ms, claimant);
}

int ProbeAddress(const char* ifname, const char* addr, bool ipv6, int timeout_ms, char* mac,
                 std::size_t maclen) {
  vyr::LinkTarget target;
  if (!vyr::ParseLinkTarget(addr, &target) || target.ipv6 != ipv6) {
    TRACE(TRACE_ERROR, "inet_pton(%s) failed.", addr);
    return vyr::kRawNoInterface;
  }
  unsigned char claimant[vyr::kMacLen] = {};
  int ret = 0;
  if (ipv6) {
    ret = Probe(ifname, target, timeout_ms, claimant,
                [&target](const unsigned char* own, std::size_t* len) {
                  return vyr::NsFrame(own, nullptr, target.v6, len);
                });
  } else {
    ret = Probe(ifname, target, timeout_ms, claimant,
                [&target](const unsigned char* own, std::size_t* len) {
                  *len = sizeof(arp_packet);
                  return vyr::ArpProbeFrame(own, target.v4);
                });
  }
  if (ret == kInUse) vyr::FormatMac(claimant, mac, maclen);
  return ret;
}

void RaiseEvent(int event, const char* addr) {
  tracemess(TRACE_EVENT, event, __FILE__, __LINE__, __func__, nullptr, addr);
}

// The verdict of `name` on the run's address, as the activation takes it.
int Verdict(const VIP_INFO* info, const char* name, int ret, const char* mac) {
  if (ret == kInUse) {
    TRACE(TRACE_ERROR, "%s is already exist.(macaddr : %s)", info->addr, mac);
    RaiseEvent(kEventInUse, info->addr);
  } else if (ret != 0) {
    TRACE(TRACE_ERROR, "%s(%s) failed. (ret=%d)", name, info->addr, ret);
  } else {
    TRACE(TRACE_INFO, "%s(%s) OK.", name, info->addr);
  }
  if (ret != 0 && info->pingforce != 0) {
    TRACE(TRACE_WARNING, "force act vip(%s)!", info->addr);
    RaiseEvent(kEventForced, info->addr);
    ret = 0;
  }
  return ret;
}

}  // namespace

int vip_arp_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen) {
  TRACE(TRACE_DETAIL, "vip_arp_probe(%s,%s,%d)  ENTRY...", ifname, addr, timeout_ms);
  const int ret = ProbeAddress(ifname, addr, false, timeout_ms, mac, maclen);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_dad_probe(const char* ifname, const char* addr, int timeout_ms, char* mac,
                  std::size_t maclen) {
  TRACE(TRACE_DETAIL, "vip_dad_probe(%s,%s,%d)  ENTRY...", ifname, addr, timeout_ms);
  const int ret = ProbeAddress(ifname, addr, true, timeout_ms, mac, maclen);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_arp_probe_act(const VIP_INFO* info) {
  TRACE(TRACE_DETAIL, "vip_arp_probe_act()  ENTRY...");
  char mac[32] = {};
  int ret = vip_arp_probe(info->ifname, info->addr, info->arpprobetout, mac, sizeof mac);
  ret = Verdict(info, "vip_arp_probe", ret, mac);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_dad_probe_act(const VIP_INFO* info) {
  TRACE(TRACE_DETAIL, "vip_dad_probe_act()  ENTRY...");
  char mac[32] = {};
  int ret = vip_dad_probe(info->ifname, info->addr, info->dadprobe, mac, sizeof mac);
  ret = Verdict(info, "vip_dad_probe", ret, mac);
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
