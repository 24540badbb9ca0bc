#include "support/fake_tool.h"

#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/sh.h"

namespace vyrtest {

std::string WriteScript(const std::string& dir, const std::string& name, const std::string& body) {
  const std::string path = dir + "/" + name;
  WriteFile(path, "#!/bin/sh\n" + body, 0755);
  return path;
}

bool NoProcessWithin(const std::string& marker, std::chrono::milliseconds limit) {
  // "[x]rest" matches the marker but not the shell that runs pgrep with it.
  const std::string pattern = "[" + marker.substr(0, 1) + "]" + marker.substr(1);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (Sh("pgrep -f '" + pattern + "' >/dev/null") == 1) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

std::string UniqueMarker(const std::string& stem) {
  static std::atomic<int> counter{0};
  return stem + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
}

}  // namespace vyrtest
