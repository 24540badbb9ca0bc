// Decides once per run whether the interface tool lists, adds and removes
// addresses (its older output layout) or the kernel does.
#pragma once

#include <atomic>

extern std::atomic<int> nic_actthend;  // completion flag of the probe's worker

// Main thread, once per run, before any listing. Sets *IsIfconfig to 0, and
// to 1 only when ifconfuse is 0 and the "ifconfig" found on PATH prints the
// older layout within `ifconfout` seconds. Returns 0 when decided, 19 when
// the worker could not be started, 21 at the time limit (the listing command
// is then ended and reaped before this returns).
int nic_chk_isifconfig(int* IsIfconfig, int ifconfuse, int ifconfout);

// The probe's worker body; `arg` points to the int that receives its code:
// 0 older layout, 17 listing not started, 18 search did not run or ended
// abnormally, 20 no ifconfig on PATH, 22 newer or unknown layout.
// nic_chk_isifconfig runs it under a vyr::TimedWorker, which sets
// nic_actthend as the worker's last act; called on its own it runs the
// commands without a limit and leaves the flag alone.
void nic_cmd_chk(void* arg);

namespace nic {

enum class IfconfigLayout {
  kUndecided,  // the line says nothing about the layout
  kOlder,      // an "inet"/"inet6" token followed by a token starting with "addr:"
  kNewer,      // a block whose name ends with ':' (eth0: flags=...)
};

// Examines one line of "ifconfig -a" output, with or without its newline.
IfconfigLayout ScanLayoutLine(const char* line);

}  // namespace nic
