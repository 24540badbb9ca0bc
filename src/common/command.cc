#include "common/command.h"

#include "common/timed_run.h"

namespace vyr {

namespace {

// The shell replaces itself with the command, so its wait status is the
// command's own.
Invocation ExecThroughShell(const std::string& command) {
  return Invocation::Shell("exec " + command);
}

}  // namespace

std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output,
                                         WorkerControl* control) {
  if (control != nullptr) return control->StartCommand(what, output);
  return ChildProcess::Start(what, output);
}

std::optional<ChildProcess> StartCommand(const std::string& command, ChildProcess::Output output,
                                         WorkerControl* control) {
  return StartCommand(ExecThroughShell(command), output, control);
}

int WaitCommand(ChildProcess& child, WorkerControl* control) {
  if (control != nullptr) return control->WaitCommand(child);
  return child.Wait();
}

int RunCommand(const Invocation& what, WorkerControl* control) {
  auto child = StartCommand(what, ChildProcess::Output::kInherit, control);
  if (!child) return -1;
  return WaitCommand(*child, control);
}

int RunCommand(const std::string& command, WorkerControl* control) {
  return RunCommand(ExecThroughShell(command), control);
}

WaitResult DecodeWaitStatus(int status) {
  if ((status & 0x7f) != 0) return {false, 0};
  return {true, (status >> 8) & 0xff};
}

}  // namespace vyr
