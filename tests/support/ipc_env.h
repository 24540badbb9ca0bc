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
  std::string operator/(const std::string& name) const { return dir_ / name; }

 private:
  TempDir dir_;
  ScopedEnv env_;
};

}  // namespace vyrtest
