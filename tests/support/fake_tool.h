// A look at the process table to prove that no tool is left running, and
// helpers around the agent's globals and lists.
#pragma once

#include <chrono>
#include <string>

#include "nicCommon/addrinfo.h"

namespace vyrtest {

// True when within `limit` no process's command line contains `text` (a
// name or path without quotes); a killed process may take a moment to go.
bool NoProcessWithin(const std::string& text, std::chrono::milliseconds limit);

// Each entry as a line "ifname addr mask /masklen smac".
std::string EntryTexts(const ipaddrinfo* list, int num);

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
