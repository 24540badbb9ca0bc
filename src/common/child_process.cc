#include "common/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace vyr {

namespace {

// Owner of a posix_spawn object (attributes or file actions).
template <typename T, int (*Init)(T*), int (*Destroy)(T*)>
struct SpawnObject {
  T value;
  SpawnObject() { Init(&value); }
  ~SpawnObject() { Destroy(&value); }
  SpawnObject(const SpawnObject&) = delete;
  SpawnObject& operator=(const SpawnObject&) = delete;
};
using SpawnAttr = SpawnObject<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;
using SpawnActions = SpawnObject<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                 posix_spawn_file_actions_destroy>;

}  // namespace

Invocation Invocation::Shell(const std::string& line) {
  Invocation what;
  what.file = "/bin/sh";
  what.args = {"sh", "-c", line};
  what.via_shell = true;
  return what;
}

Invocation Invocation::Program(std::vector<std::string> args) {
  Invocation what;
  what.file = args.empty() ? std::string() : args.front();
  what.args = std::move(args);
  return what;
}

ChildProcess ChildProcess::NotRun(int status) {
  ChildProcess child(-1, UniqueFd(), -1);
  child.not_run_status_ = status;
  child.eof_ = true;
  return child;
}

std::optional<ChildProcess> ChildProcess::Start(const Invocation& what, Output output,
                                                int cancel_fd) {
  int fds[2] = {-1, -1};
  if (output == Output::kPipe && ::pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
  UniqueFd read_end(fds[0]);
  UniqueFd write_end(fds[1]);

  // posix_spawn rather than fork: the probe starts many commands at once
  // from a process with many threads, and a copy of the address space per
  // command costs more than the command itself. The child gets a process
  // group of its own (so ending it ends what the shell started), an empty
  // signal mask and default signal actions.
  SpawnAttr spawn;
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  ::posix_spawnattr_setflags(
      &spawn.value, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  ::posix_spawnattr_setpgroup(&spawn.value, 0);
  ::posix_spawnattr_setsigmask(&spawn.value, &none);
  ::posix_spawnattr_setsigdefault(&spawn.value, &all);
  SpawnActions files;
  if (what.quiet) {
    ::posix_spawn_file_actions_addopen(&files.value, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&files.value, STDOUT_FILENO, STDERR_FILENO);
  }
  // dup2 clears close-on-exec on the copy; the pipe's own ends close at exec.
  if (write_end.valid()) {
    ::posix_spawn_file_actions_adddup2(&files.value, write_end.get(), STDOUT_FILENO);
  }

  std::vector<char*> argv;
  argv.reserve(what.args.size() + 1);
  for (const std::string& arg : what.args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int err =
      ::posix_spawnp(&pid, what.file.c_str(), &files.value, &spawn.value, argv.data(), environ);
  if (err != 0 && !what.via_shell) {
    // What "sh -c" reports for a command it cannot find or cannot execute.
    if (err == ENOENT || err == ENOTDIR) return NotRun(127 << 8);
    if (err == EACCES || err == EPERM || err == ENOEXEC) return NotRun(126 << 8);
  }
  if (err != 0) {
    errno = err;
    return std::nullopt;
  }
  return ChildProcess(pid, std::move(read_end), cancel_fd);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      out_(std::move(other.out_)),
      cancel_fd_(other.cancel_fd_),
      not_run_status_(std::exchange(other.not_run_status_, -1)),
      pending_(std::move(other.pending_)),
      eof_(other.eof_) {}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) KillAndReap();
}

bool ChildProcess::Fill() {
  if (eof_ || !out_.valid()) return false;
  struct pollfd fds[2] = {{out_.get(), POLLIN, 0}, {cancel_fd_, POLLIN, 0}};
  const nfds_t nfds = cancel_fd_ >= 0 ? 2 : 1;
  for (;;) {
    int n = ::poll(fds, nfds, -1);
    if (n < 0) {
      if (errno == EINTR) continue;
      eof_ = true;
      return false;
    }
    if (nfds == 2 && fds[1].revents != 0) {
      eof_ = true;
      return false;
    }
    if (fds[0].revents != 0) break;
  }
  char chunk[4096];
  ssize_t got;
  do {
    got = ::read(out_.get(), chunk, sizeof chunk);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {
    eof_ = true;
    return false;
  }
  pending_.append(chunk, static_cast<std::size_t>(got));
  return true;
}

bool ChildProcess::ReadLine(char* buf, std::size_t size) {
  if (size == 0) return false;
  const std::size_t limit = size - 1;
  std::size_t newline;
  while ((newline = pending_.find('\n')) == std::string::npos && pending_.size() < limit) {
    if (!Fill()) break;
  }
  if (pending_.empty()) return false;
  std::size_t take = newline == std::string::npos ? pending_.size() : newline + 1;
  if (take > limit) take = limit;
  std::memcpy(buf, pending_.data(), take);
  buf[take] = '\0';
  pending_.erase(0, take);
  return true;
}

int ChildProcess::Wait() {
  out_.reset();
  if (not_run_status_ >= 0) return std::exchange(not_run_status_, -1);
  if (pid_ <= 0) {
    errno = ECHILD;
    return -1;
  }
  int status = 0;
  pid_t got;
  do {
    got = ::waitpid(pid_, &status, 0);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return -1;
  pid_ = -1;
  return status;
}

void ChildProcess::WaitExited() {
  out_.reset();
  if (pid_ <= 0) return;
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
  }
}

void ChildProcess::KillAndReap() {
  if (pid_ <= 0) return;
  ::kill(-pid_, SIGKILL);
  ::kill(pid_, SIGKILL);
  out_.reset();
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

}  // namespace vyr
