// A private run folder for tests of the cluster IPC objects: VYR_RUN_DIR
// points at a fresh folder for the life of the object, and on the way out
// every attach this process still holds is undone and the folder's tables
// and semaphore set are removed, also when the test failed halfway.
#pragma once

#include <string>

#include "support/sh.h"

namespace vyrtest {

class IpcRunDir {
 public:
  IpcRunDir();
  ~IpcRunDir();
  IpcRunDir(const IpcRunDir&) = delete;
  IpcRunDir& operator=(const IpcRunDir&) = delete;

  const std::string& path() const { return dir_.path(); }
  std::string operator/(const std::string& name) const { return dir_ / name; }

 private:
  TempDir dir_;
  ScopedEnv env_;
};

// A forked child that is killed and reaped when the owner goes away.
class ForkedChild {
 public:
  explicit ForkedChild(int pid) : pid_(pid) {}
  ForkedChild(ForkedChild&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }
  ForkedChild& operator=(ForkedChild&&) = delete;
  ~ForkedChild();

  int pid() const { return pid_; }
  // Waits for the child; its exit code, or -1 when it did not exit normally.
  int Wait();
  // Ends it with SIGKILL and reaps it.
  void Kill();

 private:
  int pid_;
};

}  // namespace vyrtest
