// Running a command on behalf of a job. Inside a timed run (common/timed_run.h)
// the job passes its WorkerControl, so that its waiter can end the command at
// the time limit; elsewhere the control is null and the command simply runs.
#pragma once

#include <optional>
#include <string>

#include "common/child_process.h"

namespace vyr {

class WorkerControl;

// Starts "/bin/sh -c 'exec command'". `command` is one simple command with
// its redirections; the shell replaces itself with it, so the wait status
// is the command's own: a command killed by a signal reads as not ended
// normally rather than as the shell's exit status 128+N. Returns nullopt
// with errno set when it cannot be started (ECANCELED when the waiter has
// already given up).
std::optional<ChildProcess> StartCommand(const std::string& command, ChildProcess::Output output,
                                         WorkerControl* control);
// The same for a program started with no shell in between.
std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output,
                                         WorkerControl* control);

// Waits for a command from StartCommand (started with the same control) and
// reaps it: its wait status, or -1 with errno set.
int WaitCommand(ChildProcess& child, WorkerControl* control);

// system() with an owned child: the wait status, or -1 with errno set
// when the shell could not be started.
int RunCommand(const std::string& command, WorkerControl* control);
int RunCommand(const Invocation& what, WorkerControl* control);

// A wait status as system(), pclose() and waitpid() give it.
struct WaitResult {
  bool normal;    // the low seven bits are zero: the command ended by exit
  int exit_code;  // bits 8 to 15 when normal
};
WaitResult DecodeWaitStatus(int status);

}  // namespace vyr
