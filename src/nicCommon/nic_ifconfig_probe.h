// Decides once per run whether the interface tool lists, adds and removes
// addresses (its older output layout) or the kernel does.
#pragma once

#include <atomic>

namespace vyr {
class WorkerControl;
}

extern std::atomic<int> nic_actthend;  // completion flag of the probe's worker

namespace vyr::nic_probe {
// Results of nic_chk_isifconfig.
inline constexpr int kNoThread = 19;  // the worker could not be started
inline constexpr int kTimeout = 21;   // the time limit passed
// Codes of the probe's worker body.
inline constexpr int kListNotStarted = 17;  // "ifconfig -a" could not be started
inline constexpr int kSearchAbnormal = 18;  // the search did not run or ended abnormally
inline constexpr int kNoIfconfig = 20;      // no ifconfig on PATH
inline constexpr int kNewerLayout = 22;     // newer or unknown layout
}  // namespace vyr::nic_probe

// Main thread, once per run, before any listing. Sets *IsIfconfig to 0, and
// to 1 only when ifconfuse is 0 and the "ifconfig" found on PATH prints the
// older layout within `ifconfout` seconds. Returns 0 when decided, kNoThread
// or kTimeout (the listing command is then ended and reaped before this
// returns).
int nic_chk_isifconfig(int* IsIfconfig, int ifconfuse, int ifconfout);

// The probe worker's record: lent to the worker until it is joined.
typedef struct _NIC_CHK_INFO {
  int ret;                      // 0 older layout, or one of the worker codes above
  vyr::WorkerControl* control;  // the timed run the worker belongs to; null: no limit
} NIC_CHK_INFO;

// The probe's worker body; `arg` is the NIC_CHK_INFO record.
// nic_chk_isifconfig runs it under vyr::RunTimed, which sets nic_actthend
// as the worker's last act.
void nic_cmd_chk(void* arg);

namespace vyr {

enum class IfconfigLayout {
  kUndecided,  // the line says nothing about the layout
  kOlder,      // an "inet"/"inet6" token followed by a token starting with "addr:"
  kNewer,      // a block whose name ends with ':' (eth0: flags=...)
};

// Examines one line of "ifconfig -a" output as the probe reads it (at most
// kLineMax - 1 characters), with or without its newline.
IfconfigLayout ScanLayoutLine(const char* line);

}  // namespace vyr
