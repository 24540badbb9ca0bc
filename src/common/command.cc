#include "common/command.h"

#include "common/timed_worker.h"

namespace vyr {

namespace {
thread_local WorkerControl* current_control = nullptr;
}  // namespace

void SetCurrentWorkerControl(WorkerControl* control) { current_control = control; }

WorkerControl* CurrentWorkerControl() { return current_control; }

std::optional<ChildProcess> StartCommand(const std::string& command, ChildProcess::Output output) {
  const std::string line = "exec " + command;
  if (current_control != nullptr) return current_control->StartCommand(line, output);
  return ChildProcess::Start(line, output);
}

int WaitCommand(ChildProcess& child) {
  if (current_control != nullptr) return current_control->WaitCommand(child);
  return child.Wait();
}

int RunCommand(const std::string& command) {
  auto child = StartCommand(command, ChildProcess::Output::kInherit);
  if (!child) return -1;
  return WaitCommand(*child);
}

}  // namespace vyr
