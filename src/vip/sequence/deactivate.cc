#include "vip/sequence/deactivate.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "nicCommon/addrinfo.h"
#include "tracersc/tracersc.h"
#include "vip/address/ipaddr_change.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"
#include "vip/defence/announce.h"
#include "vip/defence/lan_query.h"
#include "vip/defence/ping.h"
#include "vip/sequence/sequence_util.h"

namespace {

// The address the link check after a removal reports on (the callback of a
// check in the background takes no context; its process is a copy of this).
char arp_check_addr[VIP_ADDR_LEN];

// The state of one deactivation run.
struct Deactivation {
  VIP_INFO* info;
  vyr::NetAddress address;
  vyr::AddrList list;
  int num = 0;
  bool removed = false;  // the address was found and removed: confirm it
};

// Copies the entry that carries the address into the settings and the
// device record, so that the removal targets what is really there.
void TakeEntry(const ipaddrinfo& entry, VIP_INFO* info, vdevinfo* vdev) {
  std::snprintf(info->ifname, sizeof info->ifname, "%s", entry.ifname);
  if (ipv6flag) info->masklen = entry.sipel.masklen;
  std::snprintf(vdev->ifname, sizeof vdev->ifname, "%s", entry.ifname);
  std::snprintf(vdev->sipel.addr, sizeof vdev->sipel.addr, "%s", entry.sipel.addr);
  if (ipv6flag) {
    vdev->nipel6 = entry.nipel6;
    vdev->sipel.masklen = entry.sipel.masklen;
  } else {
    vdev->nipel = entry.nipel;
  }
}

// One confirmation listing. Sets *present; returns 0 or the listing's code.
int ConfirmListing(Deactivation& run, bool* present) {
  run.list.reset();
  run.num = 0;
  int ret = vyr::ListAddresses(run.info->ifconfcmd, run.info->ifconftout, &run.list, &run.num);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "deact check vip_ifconfig_mkth() failed. (ret=%d)", ret);
    return ret;
  }
  if (run.num == 0) {
    TRACE(TRACE_ERROR, "deact check No IP address.");
    *present = false;
    return 0;
  }
  *present = vyr::FindAddress(run.list.get(), run.num, run.address) >= 0;
  return 0;
}

// Repeats `still_there` after each sleep of `interval` seconds, at most
// `retries` times, while it reports the address as still there. A non-zero
// *error from it ends the loop at once.
template <typename Check>
bool StillThereAfterRetries(int retries, int interval, Check still_there, int* error) {
  bool there = still_there(error);
  for (int i = 0; there && *error == 0 && i < retries; ++i) {
    ::sleep(static_cast<unsigned>(interval > 0 ? interval : 0));
    there = still_there(error);
  }
  return there;
}

// The end of a confirmation loop: the OK line, or the retry-count-over
// line and, with the error switch on, the failure status.
int ConfirmationResult(bool still_there, const char* ok_text, const char* over_format,
                       const char* addr, int error_switch, int status) {
  if (!still_there) {
    TRACE(TRACE_DETAIL, "%s", ok_text);
    return 0;
  }
  TRACE(TRACE_ERROR, over_format, addr);
  if (error_switch == 0) return 0;
  return vyr::Fail(status);
}

// Lists again until the address no longer shows. 0, 24, or a listing code.
int ConfirmByListing(Deactivation& run) {
  const VIP_INFO* info = run.info;
  TRACE(TRACE_DETAIL, "deact check ifconfig start.");
  int error = 0;
  const bool there = StillThereAfterRetries(
      info->checkifretry, info->checkifinterval,
      [&run](int* err) {
        bool present = true;
        *err = ConfirmListing(run, &present);
        return present;
      },
      &error);
  if (error != 0) return error;
  return ConfirmationResult(there, "deact check ifconfig OK.",
                            "deact check ifconfig retry count over. (ip=%s)", info->addr,
                            info->checkiferror, vyr::status::kStillListed);
}

// Probes until nobody answers at the address. 0 or 25.
int ConfirmByProbe(VIP_INFO* info) {
  if (vyr::ProbeNpsimuFlag(info->pingnpsimu) == 1) {
    TRACE(TRACE_INFO, "deact check ping skip, because npsimu is enabled.");
    return 0;
  }
  TRACE(TRACE_DETAIL, "deact check ping start.");
  int error = 0;
  const bool answering = StillThereAfterRetries(
      info->checkpiretry, info->checkpiinterval, [info](int*) { return vip_ping(info) != 0; },
      &error);
  return ConfirmationResult(answering, "deact check ping OK",
                            "deact check ping retry count over. (ip=%s)", info->addr,
                            info->checkpierror, vyr::status::kStillAnswers);
}

// npsimu skips the link check after a removal; true when it does.
bool ArpCheckSkipped(const VIP_INFO* info) {
  if (vyr::ProbeNpsimuFlag(info->pingnpsimu) != 1) return false;
  TRACE(TRACE_INFO, "deact check arp skip, because npsimu is enabled.");
  return true;
}

// The outcome of the link check when it can only warn: the confirmation,
// another MAC's answer, or a question that could not be asked (which proves
// nothing either way). Also the end of a check in the background, written
// by the detached process.
void ReportArpCheck(int ret, const char* mac) {
  if (ret == 0) {
    TRACE(TRACE_DETAIL, "deact check arp OK");
  } else if (ret == vyr::status::kInUse) {
    TRACE(TRACE_WARNING, "deact check arp: %s still answers. (MAC=%s)", arp_check_addr, mac);
  } else {
    TRACE(TRACE_WARNING, "deact check arp failed. (ip=%s,ret=%d)", arp_check_addr, ret);
  }
}

// Asks the link once, for checkarptout ms, whether anyone still answers at
// the address: an answer is handled as the ping confirmation's retries
// running out. 0 or 25.
int ConfirmByArp(VIP_INFO* info) {
  if (ArpCheckSkipped(info)) return 0;
  TRACE(TRACE_DETAIL, "deact check arp start.");
  std::snprintf(arp_check_addr, sizeof arp_check_addr, "%s", info->addr);
  char mac[32] = {};
  const int ret =
      vip_lan_query(info->ifname, info->addr, info->checkarptout, false, mac, sizeof mac);
  if (ret == vyr::status::kInUse && info->checkpierror != 0) {
    TRACE(TRACE_ERROR, "deact check arp: %s still answers. (MAC=%s)", info->addr, mac);
    return vyr::Fail(vyr::status::kStillAnswers);
  }
  ReportArpCheck(ret, mac);
  return 0;
}

// The same question when its answer can only be a warning: asked at once,
// listened to by a detached process, so that the run does not wait for the
// window. When no process can be started it is asked in line. 0.
int ConfirmByArpInBackground(VIP_INFO* info) {
  if (ArpCheckSkipped(info)) return 0;
  TRACE(TRACE_DETAIL, "deact check arp start. (background)");
  std::snprintf(arp_check_addr, sizeof arp_check_addr, "%s", info->addr);
  const int ret =
      vip_lan_query_detached(info->ifname, info->addr, info->checkarptout, ReportArpCheck);
  if (ret == -1) return ConfirmByArp(info);
  if (ret != 0) ReportArpCheck(ret, "");
  return 0;
}

// Inside the critical section: the listing, the presence test and the
// removal.
int RemoveLocked(Deactivation& run) {
  VIP_INFO* info = run.info;
  int ret = vyr::ListAddresses(info->ifconfcmd, info->ifconftout, &run.list, &run.num);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_ifconfig_mkth() failed. (ret=%d)", ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_ifconfig_mkth() succeeded.");
  if (run.num == 0) {
    TRACE(TRACE_ERROR, "No IP address.");
    return vyr::Fail(vyr::status::kNoAddress, "IP address did not exist.");
  }

  int found = vyr::FindAddress(run.list.get(), run.num, run.address);
  if (found < 0) {
    TRACE(TRACE_WARNING, "%s not activated.", info->addr);
    return 0;
  }
  vdevinfo vdev{};
  vdev.opt = vip_ipaddr_options(info);
  TakeEntry(run.list[static_cast<std::size_t>(found)], info, &vdev);

  ret = vip_deact_ipaddr(&vdev, info);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_deact_ipaddr(%s) failed. (ret=%d).", info->ifname, ret);
    return ret;
  }
  TRACE(TRACE_DETAIL, "vip_deact_ipaddr() succeeded.");
  run.removed = true;
  return 0;
}

// The confirmations of a removal: inside the critical section unless
// lock/short lets it go first.
int ConfirmRemoval(Deactivation& run) {
  if (run.info->checkifexec != 0) {
    int ret = ConfirmByListing(run);
    if (ret != 0) return ret;
  }
  if (run.info->checkpiexec != 0) {
    int ret = ConfirmByProbe(run.info);
    if (ret != 0) return ret;
  }
  if (run.info->checkarptout <= 0) return 0;
  // An answer that cannot fail the run need not be waited for.
  if (run.info->checkarpbg != 0 && run.info->checkpierror == 0) {
    return ConfirmByArpInBackground(run.info);
  }
  return ConfirmByArp(run.info);
}

// An announcer still sending for the address would tell the LAN it is here
// after it has gone (perhaps to another server): it ends first.
void EndAnnouncements(const vyr::NetAddress& address) {
  vyr::EndAnnouncer(address.ipv6,
                    address.ipv6 ? static_cast<const void*>(&address.v6) : &address.v4);
}

}  // namespace

int vip_start_deact(VIP_INFO* pvipinfo) {
  TRACE(TRACE_DETAIL, "vip_start_deact(%p)  ENTRY...", static_cast<void*>(pvipinfo));
  Deactivation run{pvipinfo, vyr::ToNetAddress(pvipinfo->addr, ipv6flag != 0), {}, 0};
  EndAnnouncements(run.address);
  int ret;
  {
    vyr::IfconfigCriticalSection section;
    ret = RemoveLocked(run);
    if (ret == 0 && run.removed) {
      if (pvipinfo->lockshort != 0) section.Leave();
      ret = ConfirmRemoval(run);
    }
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
