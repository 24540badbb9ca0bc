// Decides once per run whether the interface tool lists, adds and removes
// addresses (its older output layout) or the kernel does.
#pragma once

#include <atomic>

extern std::atomic<int> nic_actthend;  // completion flag of the probe's worker

int nic_chk_isifconfig(int* IsIfconfig, int ifconfuse, int ifconfout);
// The probe's worker body; `arg` points to the int that receives its code.
void nic_cmd_chk(void* arg);
