// A command owned by the program: its pid and the pipe of its standard
// output. It is either a shell command line run through "/bin/sh -c", or a
// fixed program and its arguments started with no shell in between. The
// child runs in a process group of its own, so that ending it also ends
// whatever the shell started. The destructor ends and reaps a child that is
// still running, so no command outlives its owner.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "unique_fd.h"

namespace vyr {

// What a child runs.
struct Invocation {
  // "sh -c line", as system() and popen() run it.
  static Invocation Shell(const std::string& line);
  // A program found on the search path, given exactly `args` (args[0] is
  // its name), with no shell in between: for fixed command lines that
  // hold no configuration value, where a shell would only cost another
  // process image. A program that cannot be found or executed ends the
  // way the shell reports it: exit status 127 or 126, and no output.
  static Invocation Program(std::vector<std::string> args);
  // Sends the program's standard output and error to /dev/null, like
  // "> /dev/null 2>&1" after a command.
  Invocation&& Quiet() && {
    quiet = true;
    return std::move(*this);
  }

  std::string file;               // a path, or a bare name looked up on PATH
  std::vector<std::string> args;  // argv
  bool via_shell = false;
  bool quiet = false;
};

class ChildProcess {
 public:
  enum class Output {
    kInherit,  // the command writes to our own standard output (as system() does)
    kPipe,     // its standard output is read through ReadLine (as popen() does)
  };

  // Starts the command line. Returns nullopt, with errno set, when the pipe
  // or the process cannot be created. `cancel_fd`, when not -1, is a
  // descriptor that becomes readable when a waiting thread gives up on the
  // command: ReadLine then stops reading.
  static std::optional<ChildProcess> Start(const Invocation& what, Output output,
                                           int cancel_fd = -1);

  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }

  // Reads one line of the command's output the way fgets does: at most
  // size-1 bytes, the newline kept when it fits, always terminated. Returns
  // false at the end of the output, on a read error or on cancellation.
  bool ReadLine(char* buf, std::size_t size);

  // Closes the output pipe and waits for the command. Returns the wait
  // status, or -1 with errno set.
  int Wait();

  // Waits until the command has ended without reaping it, so its process
  // id stays reserved. Closes the output pipe first.
  void WaitExited();

  // Ends the command's process group with SIGKILL and reaps it.
  void KillAndReap();

 private:
  ChildProcess(pid_t pid, UniqueFd out, int cancel_fd)
      : pid_(pid), out_(std::move(out)), cancel_fd_(cancel_fd) {}
  // A program that never ran: it reads as ended with `status`.
  static ChildProcess NotRun(int status);
  bool Fill();

  pid_t pid_ = -1;
  UniqueFd out_;
  int cancel_fd_ = -1;
  int not_run_status_ = -1;  // the wait status of a program that never ran
  std::string pending_;
  bool eof_ = false;
};

}  // namespace vyr
