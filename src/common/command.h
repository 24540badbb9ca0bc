// Running a command on behalf of the current thread. Inside a TimedWorker
// the worker's cancellation reaches the command (its waiter can end it at
// the time limit); on any other thread the command simply runs.
#pragma once

#include <optional>
#include <string>

#include "common/child_process.h"

namespace vyr {

class WorkerControl;

// The control of the TimedWorker running on this thread, or null.
WorkerControl* CurrentWorkerControl();

// Starts "/bin/sh -c 'exec command'". `command` is one simple command with
// its redirections; the shell replaces itself with it, so the wait status
// is the command's own: a command killed by a signal reads as not ended
// normally rather than as the shell's exit status 128+N. Returns nullopt
// with errno set when it cannot be started (ECANCELED when the waiter has
// already given up).
std::optional<ChildProcess> StartCommand(const std::string& command, ChildProcess::Output output);
// The same for a program started with no shell in between.
std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output);

// Waits for a command from StartCommand and reaps it: its wait status, or
// -1 with errno set.
int WaitCommand(ChildProcess& child);

// system() with an owned child: the wait status, or -1 with errno set
// when the shell could not be started.
int RunCommand(const std::string& command);
int RunCommand(const Invocation& what);

}  // namespace vyr
