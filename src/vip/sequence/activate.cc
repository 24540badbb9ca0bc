#include "vip/sequence/activate.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include "nicCommon/addrinfo.h"
#include "tracersc/tracersc.h"
#include "unique_fd.h"
#include "vip/defence/announce.h"
#include "vip/defence/arp.h"
#include "vip/defence/arp_probe.h"
#include "vip/defence/dad_wait.h"
#include "vip/base/globals.h"
#include "vip/address/ipaddr_change.h"
#include "vip/address/link_check.h"
#include "vip/defence/advertise.h"
#include "vip/defence/ping.h"
#include "vip/sequence/sequence_util.h"
#include "vip/base/status.h"
#include "vip/address/device_choice.h"

namespace {

// The link probe's verdict as the status description, once both probes are
// over, so that the description always goes with the status returned.
int LinkProbeStatus(int ret) {
  if (ret == vyr::status::kInUse) return vyr::Fail(ret, "IP address was already used.");
  if (ret != 0) return vyr::Fail(ret);
  return ret;
}

// The probe on the link for the address's family when it is configured: the
// ARP probe (IPv4) or the agent's own duplicate address detection (IPv6).
using LinkProbe = int (*)(const VIP_INFO*);
LinkProbe ChooseLinkProbe(const VIP_INFO* info) {
  if (ipv6flag) return info->dadprobe > 0 ? vip_dad_probe_act : nullptr;
  return info->arpprobetout > 0 ? vip_arp_probe_act : nullptr;
}

// The duplicate-address probes before anything is changed: the ping probe
// and, when configured, the probe on the link beside it on a thread of its
// own, so that together they take as long as the slower one. 0 lets the
// activation go on.
int ProbeBeforeActivation(VIP_INFO* info) {
  const bool ping = info->pingtout != 0;
  const LinkProbe link = ChooseLinkProbe(info);
  if (!ping && link == nullptr) return 0;
  if (vyr::ProbeNpsimuFlag(info->pingnpsimu) == 1) {
    TRACE(TRACE_INFO, "ping was not executed because npsimu is enabled.");
    return 0;
  }
  int link_ret = 0;
  std::jthread link_probe;
  if (link != nullptr) {
    try {
      link_probe = std::jthread([info, link, &link_ret] { link_ret = link(info); });
    } catch (const std::system_error& e) {
      TRACE(TRACE_WARNING, "pthread_create(link probe) failed. (errno=%d)", e.code().value());
    }
  }
  int ret = 0;
  if (ping) {
    ret = vip_ping(info);
    if (ret != 0) {
      TRACE(TRACE_ERROR, "vip_ping() failed. (ret=%d)", ret);
    } else {
      TRACE(TRACE_DETAIL, "vip_ping() succeeded.");
    }
  }
  if (link_probe.joinable()) {
    link_probe.join();
  } else if (link != nullptr) {
    link_ret = link(info);  // no thread to be had: one after the other
  }
  if (ret != 0) return ret;
  return LinkProbeStatus(link_ret);
}

// The device record as the settings describe the address.
void FillDeviceRecord(const VIP_INFO* info, vdevinfo* vdev) {
  std::snprintf(vdev->sipel.addr, sizeof vdev->sipel.addr, "%s", info->addr);
  std::snprintf(vdev->sipel.mask, sizeof vdev->sipel.mask, "%s", info->mask);
  vdev->sipel.masklen = info->masklen;
  vdev->opt = vip_ipaddr_options(info);
  if (info->ifname[0] != '\0') std::snprintf(vdev->ifname, sizeof vdev->ifname, "%s", info->ifname);
  if (ipv6flag) {
    inet_pton(AF_INET6, info->addr, &vdev->nipel6.addr);
    if (info->mask[0] != '\0') inet_pton(AF_INET6, info->mask, &vdev->nipel6.mask);
  } else {
    inet_pton(AF_INET, info->addr, &vdev->nipel.addr);
    if (info->mask[0] != '\0') inet_pton(AF_INET, info->mask, &vdev->nipel.mask);
  }
}

// The link check's verdict as the run's status, with its trace line and
// description.
int LinkFailure(int miiw_ret) {
  switch (miiw_ret) {
    case MIIW_RET_FAIL_PARAM:
      TRACE(TRACE_ERROR, "Failed to get NIC status.");
      return vyr::Fail(vyr::status::kLinkMethod, "Failed to get NIC status.");
    case MIIW_RET_FAIL_NICDOWN:
      TRACE(TRACE_ERROR, "NIC link status was down.");
      return vyr::Fail(vyr::status::kLinkDown, "Detected NIC Link Down.");
    default:
      TRACE(TRACE_ERROR, "ioctl internal error.");
      return vyr::Fail(vyr::status::kInternal);
  }
}

// Checks the NIC link of the device that now carries the address; a link
// that is not usable takes the address away again.
int CheckLink(VIP_INFO* info, vdevinfo* vdev) {
  vyr::UniqueFd sock(::socket(ipv6flag ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock) {
    TRACE(TRACE_ERROR, "create socket for NIC link check failed.");
    return vyr::Fail(vyr::status::kLinkSocket);
  }
  const char* device = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  int fd = sock.get();
  int miiw_ret = vip_miiw_ioctl(&fd, device, info->miiw_method);
  if (miiw_ret == MIIW_RET_SUCCESS) {
    TRACE(TRACE_INFO, "check NIC link success.");
    return 0;
  }
  const int status = LinkFailure(miiw_ret);

  std::memset(info->ifname, 0, sizeof info->ifname);
  std::snprintf(info->ifname, sizeof info->ifname, "%s", device);
  if (ipv6flag && info->masklen == 0) info->masklen = vdev->sipel.masklen;
  int ret = vip_deact_ipaddr(vdev, info);
  if (ret != 0) {
    TRACE(TRACE_DETAIL, "NIC link down, vip_deact_ipaddr(%s) failed. (ret=%d).", info->ifname, ret);
  } else {
    TRACE(TRACE_DETAIL, "NIC link down, vip_deact_ipaddr() succeeded.");
  }
  return status;
}

// Inside the critical section: the listing, the duplicate test, the device
// choice, the change itself and the link check. Leaves the device record
// filled for the announcement.
int ActivateLocked(VIP_INFO* info, vdevinfo* vdev) {
  vyr::AddrList list;
  int num = 0;
  int ret = vyr::ListAddresses(info->ifconfcmd, info->ifconftout, &list, &num);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_ifconfig_mkth() failed. (ret=%d)", ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_ifconfig_mkth() succeeded.");
  if (num == 0) {
    TRACE(TRACE_ERROR, "No IP address");
    return vyr::Fail(vyr::status::kNoAddress, "IP address did not exist.");
  }

  FillDeviceRecord(info, vdev);
  if (vyr::FindAddress(list.get(), num, vyr::ToNetAddress(info->addr, ipv6flag != 0)) >= 0) {
    TRACE(TRACE_ERROR, "Already used %s.", info->addr);
    return vyr::Fail(vyr::status::kInUse, "This ip address was already used.  IP=%s", info->addr);
  }

  ret = vip_crt_vdevinfo(list.get(), num, vdev);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_crt_vdevinfo() failed. (ret=%d)", ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_crt_vdevinfo() succeeded.");
  ret = vip_act_ipaddr(vdev, info->ifconfcmd, info->ifconftout);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_act_ipaddr() failed. (ret=%d)", ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_act_ipaddr() succeeded.");

  if (info->isMiiw != 0) return CheckLink(info, vdev);
  return 0;
}

// After the address is up: the kernel's DAD verdict for IPv6, then the
// gratuitous ARP frames or the Neighbor Advertisements. Inside the critical
// section unless lock/short lets it go first.
int Announce(VIP_INFO* info, vdevinfo* vdev) {
  bool announce = false;
  if (ipv6flag) {
    int ret = vip_dad_check(info, vdev, &announce);
    if (ret != 0) return ret;
  }
  const vyr::AnnouncePace pace{info->arpinterval, info->arpbackground != 0};
  if (info->arpnum != 0 && !ipv6flag) {
    int ret = vip_send_arp(vdev, info->arpnum, info->arpopcode, pace);
    if (ret != 0) {
      TRACE(TRACE_WARNING, "vip_send_arp() failed. (ret=%d)", ret);
    } else {
      TRACE(TRACE_INFO, "vip_send_arp() OK.");
    }
  }
  if (announce) {
    int ret = vip_send_na(vdev, info->nanum, pace);
    if (ret != 0) {
      TRACE(TRACE_WARNING, "vip_send_na() failed. (ret=%d)", ret);
    } else {
      TRACE(TRACE_INFO, "vip_send_na() OK.");
    }
  }
  return 0;
}

}  // namespace

int vip_start_act(VIP_INFO* pvipinfo) {
  TRACE(TRACE_DETAIL, "vip_start_act(%p)  ENTRY...", static_cast<void*>(pvipinfo));
  int ret = ProbeBeforeActivation(pvipinfo);
  if (ret != 0) {
    TRACE(TRACE_INFO, "return(%d)", ret);
    return ret;
  }
  {
    vdevinfo vdev{};
    vyr::IfconfigCriticalSection section;
    ret = ActivateLocked(pvipinfo, &vdev);
    if (ret == 0) {
      if (pvipinfo->lockshort != 0) section.Leave();
      ret = Announce(pvipinfo, &vdev);
    }
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
