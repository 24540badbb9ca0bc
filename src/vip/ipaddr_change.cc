#include "vip/ipaddr_change.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/command.h"
#include "common/shell.h"
#include "common/timed_worker.h"
#include "nicCommon/nic_ipaddr_ioctl.h"
#include "tracersc/tracersc.h"
#include "vip/globals.h"
#include "vip/ipaddr_cmdline.h"
#include "vip/status.h"

std::atomic<int> actthend{0};

namespace {

// Runs `line` on a worker and waits for it at most `timeout` seconds.
int RunToolCommand(const std::string& line, int timeout) {
  // Shared with the worker, so the record lives as long as either side.
  auto rec = std::make_shared<IP_CMD_INFO>();
  std::memset(rec.get(), 0, sizeof *rec);
  std::snprintf(rec->cmdpath, sizeof rec->cmdpath, "%s", line.c_str());
  TRACE(TRACE_INFO, "system(%s)...", rec->cmdpath);

  vyr::TimedWorker worker(actthend);
  int err = worker.Start([rec](vyr::WorkerControl&) { vip_cmd_system(rec.get()); });
  if (err != 0) {
    TRACE(TRACE_ERROR, "pthread_create(fvip_cmd_system) failed. (errno=%d,ret=%d)", err, err);
    return vyr::Fail(vyr::status::kNoThread);
  }
  TRACE(TRACE_DETAIL, "pthread_create(vip_cmd_system) success.");

  if (timeout > 0 && worker.WaitFor(std::chrono::seconds(timeout))) {
    worker.Join();
    TRACE(TRACE_DETAIL, "pthread_join(vip_cmd_system) success.");
    return rec->ret;
  }
  TRACE(TRACE_ERROR, "thread timeout. command :ifconfig");
  vyr::Fail(vyr::status::kNoThread);
  // Kills the tool's process group; the worker reaps it before the join.
  worker.CancelAndJoin();
  TRACE(TRACE_DETAIL, "pthread_join(vip_cmd_system) success.");
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

}  // namespace

void vip_cmd_system(void* arg) {
  auto* rec = static_cast<IP_CMD_INFO*>(arg);
  const int status = vyr::RunCommand(rec->cmdpath);
  const vyr::WorkerControl* control = vyr::CurrentWorkerControl();
  if (control != nullptr && control->cancelled()) {
    // The waiter gave up and killed the tool; its result is never seen.
    actthend.store(1);
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
  actthend.store(1);
}

int vip_act_ipaddr(struct vdevinfo* vdev, const char* cmdpath, int timeout) {
  TRACE(TRACE_DETAIL, "vip_act_ipaddr()  ENTRY...");
  int ret;
  if (IsIfconfig != 0) {
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
  if (IsIfconfig != 0) {
    auto line = vyr::RemoveCommandLine(*pvipinfo, ipv6flag != 0);
    ret = line ? RunToolCommand(*line, pvipinfo->ifconftout) : vyr::Fail(vyr::status::kAbnormalEnd);
  } else {
    ret = RemoveByIoctl(vdev);
  }
  TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
