// Adding and removing the virtual address: through rtnetlink when the
// record's opt.netlink is set, otherwise by the interface tool under the
// time limit, or by ioctl, as IsIfconfig says.
//
// Main thread only. The command way runs its line on one worker thread and
// waits for it at most `timeout` seconds (0 or less: not at all); at the
// limit the command's process group is killed and reaped before the call
// returns, so no tool outlives the call.
#pragma once

#include <atomic>

#include "nicCommon/addrinfo.h"
#include "vip/base/vip_info.h"

namespace vyr {
class WorkerControl;
}

// The command worker's record: filled by the caller, lent to the worker
// until it is joined.
typedef struct _IP_CMD_INFO {
  int ret;
  char cmdpath[VIP_PATH_LEN];
  vyr::WorkerControl* control;  // the timed run the worker belongs to
} IP_CMD_INFO, *PIP_CMD_INFO;

// 0 while the command worker runs, 1 once it has finished.
extern std::atomic<int> actthend;

// 0, or 3 (tool failed), 11 (shell failed, or a line longer than a command
// buffer), 22 (no worker), 23 (time limit), 39 (ioctl or rtnetlink add).
int vip_act_ipaddr(struct vdevinfo* vdev, const char* cmdpath, int timeout);
// 0, or 3, 11, 22, 23, 40 (ioctl or rtnetlink remove). The command way works from the
// settings (ifconfcmd, ifname, addr, masklen, ifconftout), the ioctl way from
// the device record.
int vip_deact_ipaddr(struct vdevinfo* vdev, VIP_INFO* pvipinfo);
// The rtnetlink options the settings give the device record (ipaddr/...).
ipaddropt vip_ipaddr_options(const VIP_INFO* pvipinfo);
// Worker body: runs the record's command line through the shell and leaves
// 0, 3 or 11 in `ret`. A worker whose waiter gave up reports nothing.
void vip_cmd_system(void* arg);
