#include "support/stress_util.h"

#include <dirent.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

extern char** environ;

namespace vyrtest {

pid_t Spawn(const std::string& cmd, const std::string& log) {
  std::string line = "exec >'" + log + "' 2>&1; exec " + cmd;
  const char* argv[] = {"/bin/sh", "-c", line.c_str(), nullptr};
  pid_t pid = -1;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
    return -1;
  }
  return pid;
}

int WaitSpawned(pid_t pid, int timeout_ms) {
  auto start = std::chrono::steady_clock::now();
  for (;;) {
    int status = 0;
    pid_t got = waitpid(pid, &status, WNOHANG);
    if (got == pid) {
      if (WIFEXITED(status)) return WEXITSTATUS(status);
      if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
      return -1;
    }
    if (got < 0) return -1;
    if (MsSince(start) > timeout_ms) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

bool WaitForFile(const std::string& path, int timeout_ms) {
  auto start = std::chrono::steady_clock::now();
  while (access(path.c_str(), F_OK) != 0) {
    if (MsSince(start) > timeout_ms) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

namespace {

// The /proc command lines of all processes but this one, by pid.
std::vector<std::pair<pid_t, std::string>> CommandLines() {
  std::vector<std::pair<pid_t, std::string>> out;
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return out;
  while (dirent* e = readdir(proc)) {
    char* end = nullptr;
    long pid = std::strtol(e->d_name, &end, 10);
    if (*end != '\0' || pid <= 0 || pid == getpid()) continue;
    std::ifstream f(std::string("/proc/") + e->d_name + "/cmdline");
    std::string raw((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    for (char& c : raw) {
      if (c == '\0') c = ' ';
    }
    if (!raw.empty()) out.emplace_back(static_cast<pid_t>(pid), raw);
  }
  closedir(proc);
  return out;
}

}  // namespace

std::string ProcessesMatching(const std::string& needle) {
  std::ostringstream found;
  for (const auto& [pid, line] : CommandLines()) {
    if (line.find(needle) != std::string::npos) found << pid << " " << line << "\n";
  }
  return found.str();
}

}  // namespace vyrtest
