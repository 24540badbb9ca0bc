// The duplicate-address probe fanned out over the resource's addresses,
// one thread per address, with retries.
//
// vip_ping and vip_ping_mkth run on the main thread; vip_ping_retry is the
// body of each probe thread. While the probe threads run, nobody writes the
// settings record or the run flags; the threads write only their own probe
// record's `ret` and, through vip_set_shmbuf, the status description.
#pragma once

#include <thread>
#include <vector>

#include "vip/defence/probe.h"
#include "vip/base/vip_info.h"

typedef struct _VIP_THREAD_INFO {
  int ret;          // 0 the thread was started, 22 it could not be
  std::jthread pt;  // the probe thread; joined before the record goes away
  void* thret;      // the thread's exit value (constant, not read further)
} VIP_THREAD_INFO, *PVIP_THREAD_INFO;

// Probes the resource's address (or, when activating with pingallip, the
// common address and every server's address) and combines the results:
// 0, 15, 10, 22, or a probe's own failure 2, 11 or 13. A non-zero result
// leaves its description in the status description.
int vip_ping(VIP_INFO* pvipinfo);
// One probe thread per record, all at once; joins them all and combines.
int vip_ping_mkth(PIP_INFO pip, int ipnum);
// Probe thread body: `arg` is one IP_INFO; leaves the result in its `ret`.
void* vip_ping_retry(void* arg);

// The probe records vip_ping works on, in probing order: the common address
// and each server's address in enumeration order, or the own address alone
// when only that one is to be probed or the others cannot be read. Returns
// the number of records (at least 1 unless no memory is left).
int vip_ping_targets(VIP_INFO* pvipinfo, std::vector<IP_INFO>* pips);
