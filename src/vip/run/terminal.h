// The reason a person at a terminal reads when a run fails.
//
// The cluster runs the agent with standard error on a pipe or /dev/null and
// reads only the exit status and the stored description; a person who typed
// the command gets one line that says what went wrong, the status and where
// the details are. Main thread only, after the shutdown.
#pragma once

#include <string>

// Failures that happen before any description can be stored.
enum class VIP_EARLY { kNone, kNoMode, kNotRoot };

struct VIP_OUTCOME {
  std::string program;  // the name the person typed, without its folder
  int status = 0;       // the exit status
  VIP_EARLY early = VIP_EARLY::kNone;
  bool check_mode = false;  // --test: the verdict is in the check log
  std::string description;  // the status description, possibly empty
  std::string trace_log;    // the trace log's file; empty when it never opened
  std::string check_log;    // check mode: the check log's file, or empty
};

// The text for standard error: empty for a successful run, else one line of
// reason, followed by the usage lines when the command line was at fault.
std::string vip_failure_note(const VIP_OUTCOME& outcome);

// Writes vip_failure_note to standard error when standard error is a
// terminal; does nothing otherwise.
void vip_tell_terminal(const VIP_OUTCOME& outcome);
