#include "common/command.h"

#include "common/timed_worker.h"

namespace vyr {

namespace {
thread_local WorkerControl* current_control = nullptr;

// The shell replaces itself with the command, so its wait status is the
// command's own.
Invocation ExecThroughShell(const std::string& command) {
  return Invocation::Shell("exec " + command);
}
}  // namespace

void SetCurrentWorkerControl(WorkerControl* control) { current_control = control; }

WorkerControl* CurrentWorkerControl() { return current_control; }

std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output) {
  if (current_control != nullptr) return current_control->StartCommand(what, output);
  return ChildProcess::Start(what, output);
}

std::optional<ChildProcess> StartCommand(const std::string& command, ChildProcess::Output output) {
  return StartCommand(ExecThroughShell(command), output);
}

int WaitCommand(ChildProcess& child) {
  if (current_control != nullptr) return current_control->WaitCommand(child);
  return child.Wait();
}

int RunCommand(const Invocation& what) {
  auto child = StartCommand(what, ChildProcess::Output::kInherit);
  if (!child) return -1;
  return WaitCommand(*child);
}

int RunCommand(const std::string& command) { return RunCommand(ExecThroughShell(command)); }

}  // namespace vyr
