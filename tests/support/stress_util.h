// Helpers of the stress tests: processes started in the background, clocks,
// leftovers.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace vyrtest {

// Milliseconds since `start`.
inline long long MsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start)
      .count();
}

// Starts `cmd` with /bin/sh -c in a process of its own; its standard output
// and error go to `log`. Returns the pid (of the shell, which execs the
// last command), or -1.
pid_t Spawn(const std::string& cmd, const std::string& log);

// Waits for the spawned process; its exit code, 128 + signal when it was
// killed by one, -1 when it did not end within `timeout_ms` (it is then
// killed and reaped).
int WaitSpawned(pid_t pid, int timeout_ms);

// Polls until `path` exists or `timeout_ms` passed.
bool WaitForFile(const std::string& path, int timeout_ms);

// Command lines of running processes that contain `needle` (excluding the
// caller and its shells), one per line; "" when there are none.
std::string ProcessesMatching(const std::string& needle);

}  // namespace vyrtest
