// Fake interface tools for tests: real shell scripts in a test folder, and
// a look at the process table to prove that none is left running.
#pragma once

#include <chrono>
#include <string>

namespace vyrtest {

// Writes an executable "#!/bin/sh" script `name` with `body` into `dir`
// and returns its path.
std::string WriteScript(const std::string& dir, const std::string& name, const std::string& body);

// True when no process's command line contains `marker` (letters, digits,
// '-' and '_' only) within `limit`; a SIGKILLed process may take a moment to
// leave the table.
bool NoProcessWithin(const std::string& marker, std::chrono::milliseconds limit);

// A name unique to this test process, for scripts a test looks for later.
std::string UniqueMarker(const std::string& stem);

// Sets a global for the life of the object and restores it afterwards.
template <typename T>
class ScopedGlobal {
 public:
  ScopedGlobal(T& global, T value) : global_(global), old_(global) { global_ = value; }
  ~ScopedGlobal() { global_ = old_; }
  ScopedGlobal(const ScopedGlobal&) = delete;
  ScopedGlobal& operator=(const ScopedGlobal&) = delete;

 private:
  T& global_;
  T old_;
};

}  // namespace vyrtest
