#include "vip/address/ipaddr_change.h"

#include <linux/if_addr.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/command.h"
#include "common/timed_run.h"
#include "nicCommon/nic_ipaddr_ioctl.h"
#include "nicCommon/nic_netlink.h"
#include "tracersc/tracersc.h"
#include "vip/address/ipaddr_cmdline.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

std::atomic<int> actthend{0};

namespace {

// Runs `line` on a worker and waits for it at most `timeout` seconds.
int RunToolCommand(const std::string& line, int timeout) {
  IP_CMD_INFO rec{};
  std::snprintf(rec.cmdpath, sizeof rec.cmdpath, "%s", line.c_str());
  TRACE(TRACE_INFO, "system(%s)...", rec.cmdpath);

  const vyr::TimedResult run = vyr::RunTimed(
      actthend, timeout,
      [&rec](vyr::WorkerControl& control) {
        rec.control = &control;
        vip_cmd_system(&rec);
      },
      {.started =
           [func = __func__] {
             trace(TRACE_DETAIL, __FILE__, __LINE__, func,
                   "pthread_create(vip_cmd_system) success.");
           },
       .timed_out =
           [func = __func__] {
             trace(TRACE_ERROR, __FILE__, __LINE__, func, "thread timeout. command :ifconfig");
             vyr::Fail(vyr::status::kNoThread);
           }});
  if (run.outcome == vyr::TimedOutcome::kNotStarted) {
    TRACE(TRACE_ERROR, "pthread_create(fvip_cmd_system) failed. (errno=%d,ret=%d)", run.start_error,
          run.start_error);
    return vyr::Fail(vyr::status::kNoThread);
  }
  TRACE(TRACE_DETAIL, "pthread_join(vip_cmd_system) success.");
  if (run.outcome == vyr::TimedOutcome::kFinished) return rec.ret;
  // The tool's process group was killed; the worker reaped it before the join.
  TRACE(TRACE_DETAIL, "pthread_join(vip_cmd_system) successed.");
  TRACE(TRACE_INFO, "return(vip_cmd_system) = %d", vyr::status::kTimeout);
  return vyr::Fail(vyr::status::kTimeout);
}

int AddByIoctl(vdevinfo* vdev) {
  int ret = nic_act_ipaddr_ioctl(vdev);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_act_ipaddr_ioctl(%s -> %s(%s)) failed. (ret(in nicCommon)=%d)",
          vdev->sipel.addr, vdev->ifname, vdev->vdevname, ret);
    return vyr::Fail(vyr::status::kAddFailed, "Add ip(%s) failed.", vdev->sipel.addr);
  }
  TRACE(TRACE_DETAIL, "nic_act_ipaddr_ioctl() succeeded.");
  return 0;
}

int RemoveByIoctl(vdevinfo* vdev) {
  int ret = nic_deact_ipaddr_ioctl(vdev);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_deact_ipaddr_ioctl(%s -> %s) failed.(ret(in nicCommon)=%d)",
          vdev->sipel.addr, vdev->ifname, ret);
    return vyr::Fail(vyr::status::kRemoveFailed, "Delete ip(%s) failed.", vdev->sipel.addr);
  }
  TRACE(TRACE_DETAIL, "nic_deact_ipaddr_ioctl() succeeded.");
  return 0;
}

int AddByNetlink(const vdevinfo* vdev) {
  const int ret = nic_act_ipaddr_netlink(vdev);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_act_ipaddr_netlink(%s -> %s(%s)) failed. (errno=%d)", vdev->sipel.addr,
          vdev->ifname, vdev->vdevname, -ret);
    return vyr::Fail(vyr::status::kAddFailed, "Add ip(%s) failed.", vdev->sipel.addr);
  }
  TRACE(TRACE_DETAIL, "nic_act_ipaddr_netlink() succeeded.");
  return 0;
}

int RemoveByNetlink(const vdevinfo* vdev) {
  const int ret = nic_deact_ipaddr_netlink(vdev);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "nic_deact_ipaddr_netlink(%s -> %s) failed.(errno=%d)", vdev->sipel.addr,
          vdev->ifname, -ret);
    return vyr::Fail(vyr::status::kRemoveFailed, "Delete ip(%s) failed.", vdev->sipel.addr);
  }
  TRACE(TRACE_DETAIL, "nic_deact_ipaddr_netlink() succeeded.");
  return 0;
}

}  // namespace

void vip_cmd_system(void* arg) {
  auto* rec = static_cast<IP_CMD_INFO*>(arg);
  const int status = vyr::RunCommand(rec->cmdpath, rec->control);
  if (rec->control != nullptr && rec->control->cancelled()) {
    // The waiter gave up and killed the tool; its result is never seen.
    return;
  }
  const vyr::WaitResult result = vyr::DecodeWaitStatus(status);
  if (!result.normal) {
    TRACE(TRACE_ERROR, "system(%s) failed. (ret=%d)", rec->cmdpath, 0);
    rec->ret = vyr::Fail(vyr::status::kAbnormalEnd);
  } else if (result.exit_code != 0) {
    TRACE(TRACE_ERROR, "%s failed. (ret=%d)", rec->cmdpath, result.exit_code);
    rec->ret = vyr::Fail(vyr::status::kToolFailed);
  } else {
    TRACE(TRACE_DETAIL, "%s succeeded.", rec->cmdpath);
    rec->ret = vyr::status::kSuccess;
  }
}

ipaddropt vip_ipaddr_options(const VIP_INFO* pvipinfo) {
  ipaddropt opt;
  opt.netlink = pvipinfo->ipaddrnetlink != 0 ? 1 : 0;
  if (pvipinfo->ipaddrnodad != 0) opt.flags |= IFA_F_NODAD;
  if (pvipinfo->ipaddrnoprefixroute != 0) opt.flags |= IFA_F_NOPREFIXROUTE;
  opt.preferred_lft = pvipinfo->ipaddrpreflft < 0 ? -1 : pvipinfo->ipaddrpreflft;
  opt.nolabel = pvipinfo->ipaddrnolabel != 0 ? 1 : 0;
  std::snprintf(opt.label, sizeof opt.label, "%s", pvipinfo->ipaddrlabel);
  std::snprintf(opt.broadcast, sizeof opt.broadcast, "%s", pvipinfo->ipaddrbcast);
  return opt;
}

int vip_act_ipaddr(struct vdevinfo* vdev, const char* cmdpath, int timeout) {
  TRACE(TRACE_DETAIL, "vip_act_ipaddr()  ENTRY...");
  int ret;
  if (vdev->opt.netlink != 0) {
    ret = AddByNetlink(vdev);
  } else if (IsIfconfig != 0) {
    auto line = vyr::AddCommandLine(*vdev, cmdpath, ipv6flag != 0);
    ret = line ? RunToolCommand(*line, timeout) : vyr::Fail(vyr::status::kAbnormalEnd);
  } else {
    ret = AddByIoctl(vdev);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int vip_deact_ipaddr(struct vdevinfo* vdev, VIP_INFO* pvipinfo) {
  TRACE(TRACE_DETAIL, "vip_deact_ipaddr()  ENTRY...");
  int ret;
  if (vdev->opt.netlink != 0) {
    ret = RemoveByNetlink(vdev);
  } else if (IsIfconfig != 0) {
    auto line = vyr::RemoveCommandLine(*pvipinfo, ipv6flag != 0);
    ret = line ? RunToolCommand(*line, pvipinfo->ifconftout) : vyr::Fail(vyr::status::kAbnormalEnd);
  } else {
    ret = RemoveByIoctl(vdev);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
