// The timed listing of every local address: through the interface tool's
// output (older layout), parsed on a worker thread under a time limit, or
// through the kernel when the tool is not used.
#pragma once

#include <atomic>

#include "nicCommon/addrinfo.h"
#include "vip/base/vip_info.h"

namespace vyr {
class WorkerControl;
}

// The listing worker's record: filled by the caller, lent to the worker
// until it is joined.
typedef struct _IPADDR_INFO {
  int ret;
  int ipaddr_num;
  char cmdpath[VIP_PATH_LEN];
  struct ipaddrinfo* list;
  bool ipv6;                    // the family to read (the caller's ipv6flag)
  vyr::WorkerControl* control;  // the timed run the worker belongs to
} IPADDR_INFO, *PIPADDR_INFO;

// Completion flag of the listing worker, set as its last act.
extern std::atomic<int> ifconfthend;

// Main thread. With IsIfconfig 0 lists through the kernel (38 and "Get nic
// info failed." on failure). Otherwise runs "<cmdpath> -a" on a worker and
// waits at most `timeout` seconds, returning as soon as the worker ends: 0,
// the listing's code (3, 10, 11, 12, 18, 31), 22 (no worker) or 23 (time
// limit; the tool is ended and reaped, the outputs are not touched). On 0
// *ipaddrlist is a new array (free with std::free, null when the output
// held no block) of *num entries. The family read follows ipv6flag.
int vip_ifconfig_mkth(struct ipaddrinfo** ipaddrlist, int* num, const char* cmdpath, int timeout);

// The listing worker's body; `arg` is the IPADDR_INFO record.
void vip_cmd_popen(void* arg);

// Runs "<cmdpath> -a" (cmdpath is extended in place, so it needs room for
// three more characters in its 1024 bytes) through `control` (null: no
// limit) and reads the older layout of the family `ipv6` says. Returns 0,
// 3, 10, 11, 12, 18 or 31; the outputs are set only on 0.
int vip_get_ipaddrlist(struct ipaddrinfo** ipaddrlist, int* num, char* cmdpath, bool ipv6,
                       vyr::WorkerControl* control);
