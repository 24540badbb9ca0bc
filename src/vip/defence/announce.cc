#include "vip/defence/announce.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "nicCommon/ifaddrs_list.h"
#include "tracersc/tracersc.h"
#include "unique_fd.h"
#include "vip/defence/detached.h"
#include "vip/defence/raw_link.h"

namespace vyr {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kDefaultRunDir = "/run/vyrcluster";
// How long the run waits for a new announcer to record itself, and for an
// announcer to end after SIGTERM (and again after SIGKILL).
constexpr int kStartLimitMs = 2000;
constexpr int kEndLimitMs = 2000;

// An announcer as its pid file records it: the process id and its start
// time in clock ticks since boot, which a reused process id does not share.
struct Record {
  pid_t pid = 0;
  unsigned long long start = 0;
};

// What reaches the run through the start pipe: the intermediate process
// names the announcer (ready 0), the announcer reports that it has recorded
// itself (ready 1). Each is one write, whole on a pipe.
struct StartNote {
  pid_t pid = 0;
  char ready = 0;
};

// The process-descriptor calls, straight to the kernel (the C library's
// header lacks C++ linkage here).
int PidfdOpen(pid_t pid) { return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)); }
void PidfdSignal(int pidfd, int sig) { ::syscall(SYS_pidfd_send_signal, pidfd, sig, nullptr, 0); }

std::chrono::milliseconds Interval(const AnnouncePace& pace) {
  return std::chrono::milliseconds(pace.interval_ms > 0 ? pace.interval_ms : 1000);
}

// Whether the address is still on the target's interface; when the list
// cannot be read, it is taken as there, so the announcements go on.
bool AddressPresent(const AnnounceTarget& target) {
  const void* addr = target.ipv6 ? static_cast<const void*>(&target.v6) : &target.v4;
  return AddressOnInterface(target.device, target.ipv6 ? AF_INET6 : AF_INET, addr) != 0;
}

// The start time and name of a process from /proc/<pid>/stat.
bool ProcessStat(pid_t pid, unsigned long long* start, char* comm, std::size_t commlen) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  char text[1024];
  const ssize_t got = ::read(fd.get(), text, sizeof text - 1);
  if (got <= 0) return false;
  text[got] = '\0';
  const char* open = std::strchr(text, '(');
  const char* close = std::strrchr(text, ')');
  if (open == nullptr || close == nullptr || close < open) return false;
  std::snprintf(comm, commlen, "%.*s", static_cast<int>(close - open - 1), open + 1);
  // Fields from the third (the state) on; the start time is the 22nd.
  const char* p = close + 1;
  for (int field = 3; field < 22 && p != nullptr; ++field) p = std::strchr(p + 1, ' ');
  return p != nullptr && std::sscanf(p, " %llu", start) == 1;
}

bool ReadRecord(const char* path, Record* rec) {
  UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  char text[64];
  const ssize_t got = ::read(fd.get(), text, sizeof text - 1);
  if (got <= 0) return false;
  text[got] = '\0';
  int pid = 0;
  if (std::sscanf(text, "%d %llu", &pid, &rec->start) != 2 || pid <= 0) return false;
  rec->pid = pid;
  return true;
}

// Removes the pid file only while it still names `rec`: a newer announcer
// of the address keeps its own.
void RemoveRecord(const char* path, const Record& rec) {
  Record now;
  if (ReadRecord(path, &now) && now.pid == rec.pid && now.start == rec.start) ::unlink(path);
}

// Writes the record of this process, whole or not at all.
bool WriteOwnRecord(const char* path, Record* rec) {
  char comm[32];
  rec->pid = ::getpid();
  if (!ProcessStat(rec->pid, &rec->start, comm, sizeof comm)) return false;
  char temp[PATH_MAX];
  const int temp_len = std::snprintf(temp, sizeof temp, "%s.%d", path, static_cast<int>(rec->pid));
  if (temp_len < 0 || temp_len >= static_cast<int>(sizeof temp)) return false;  // no cut name
  char text[64];
  const int len =
      std::snprintf(text, sizeof text, "%d %llu\n", static_cast<int>(rec->pid), rec->start);
  UniqueFd fd(::open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd) return false;
  const bool written = ::write(fd.get(), text, static_cast<std::size_t>(len)) == len;
  fd.reset();
  if (!written || ::rename(temp, path) != 0) {
    ::unlink(temp);
    return false;
  }
  return true;
}

// Waits until `deadline`; true when SIGTERM (blocked) came first.
bool TermBefore(Clock::time_point deadline) {
  sigset_t term;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::nanoseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(left.count() / 1000000000);
    ts.tv_nsec = static_cast<long>(left.count() % 1000000000);
    if (::sigtimedwait(&term, nullptr, &ts) == SIGTERM) return true;
  }
}

struct Job {
  const AnnounceTarget* target;
  const void* frame;
  std::size_t len;
  int num;
  std::chrono::milliseconds interval;
  Clock::time_point first;  // when the run sent frame 0
  const char* pidfile;
};

// The announcer itself: frames 1 to num-1, each at its time after frame 0,
// while the address is there and nobody asked it to end. Never returns.
[[noreturn]] void RunAnnouncer(const Job& job, int ready) {
  sigset_t term;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &term, nullptr);
  ::prctl(PR_SET_NAME, kAnnouncerName, 0, 0, 0);
  if (::chdir("/") != 0) ::_exit(1);
  DetachDescriptors({ready});
  Record rec;
  if (!WriteOwnRecord(job.pidfile, &rec)) ::_exit(1);
  const StartNote note{rec.pid, 1};
  if (::write(ready, &note, sizeof note) != static_cast<ssize_t>(sizeof note)) {
    RemoveRecord(job.pidfile, rec);
    ::_exit(1);
  }
  ::close(ready);
  UniqueFd sock = OpenPacketSocket();
  for (int i = 1; sock && i < job.num; ++i) {
    if (TermBefore(job.first + i * job.interval)) break;
    if (!AddressPresent(*job.target)) break;
    if (!SendFrame(sock.get(), job.target->ifindex, job.frame, job.len)) break;
  }
  RemoveRecord(job.pidfile, rec);
  ::_exit(0);
}

// Reads exactly `len` bytes before `deadline`; false on the end of the pipe
// or at the deadline.
bool ReadBy(int fd, void* out, std::size_t len, Clock::time_point deadline) {
  auto* at = static_cast<char*>(out);
  while (len > 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd pfd{fd, POLLIN, 0};
    const int ready = ::poll(&pfd, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    const ssize_t got = ::read(fd, at, len);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    len -= static_cast<std::size_t>(got);
  }
  return true;
}

// Waits at most `limit_ms` for the process behind `pidfd` to end.
bool WaitGone(int pidfd, int limit_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(limit_ms);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd pfd{pidfd, POLLIN, 0};
    const int ready = ::poll(&pfd, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
    if (ready < 0 && errno == EINTR) continue;
    return ready > 0;
  }
}

// A new announcer that did not record itself in time is ended here: nobody
// else could find it.
void AbandonStart(pid_t pid) {
  UniqueFd pidfd(PidfdOpen(pid));
  if (!pidfd) return;
  PidfdSignal(pidfd.get(), SIGKILL);
  WaitGone(pidfd.get(), kEndLimitMs);
}

// Forks the announcer (double fork, new session). True once it has
// recorded itself; false when it could not be started.
bool StartAnnouncer(const Job& job) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  UniqueFd read_end(fds[0]);
  UniqueFd write_end(fds[1]);
  const pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) {
    read_end.release();  // the copy closes with everything else in DetachDescriptors
    if (::setsid() < 0) ::_exit(1);
    const pid_t grandchild = ::fork();
    if (grandchild != 0) {
      // Tells the run whom to end should the announcer not report.
      const StartNote note{grandchild, 0};
      if (grandchild > 0 && ::write(write_end.get(), &note, sizeof note) < 0) ::_exit(1);
      ::_exit(grandchild < 0 ? 1 : 0);
    }
    RunAnnouncer(job, write_end.release());
  }
  write_end.reset();
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kStartLimitMs);
  pid_t announcer = 0;
  StartNote note;
  while (ReadBy(read_end.get(), &note, sizeof note, deadline)) {
    announcer = note.pid;
    if (note.ready == 1) {
      TRACE(TRACE_INFO, "announcer %d started. (%s)", static_cast<int>(announcer), job.pidfile);
      return true;
    }
  }
  if (announcer > 0) AbandonStart(announcer);
  return false;
}

// Frames `from` to num-1 on the run's own thread. With a one-second pace
// each frame is followed by its second, as the announcement always was;
// otherwise each waits for its time after frame 0.
int SendHere(int sock, const AnnounceTarget& target, const void* frame, std::size_t len, int from,
             int num, const AnnouncePace& pace, Clock::time_point first) {
  for (int i = from; i < num; ++i) {
    if (pace.interval_ms > 0 && i > 0) std::this_thread::sleep_until(first + i * Interval(pace));
    if (!SendFrame(sock, target.ifindex, frame, len)) return -1;
    if (pace.interval_ms <= 0) ::sleep(1);
  }
  return 0;
}

}  // namespace

void AnnouncerPidFile(bool ipv6, const void* addr, char* out, std::size_t outlen) {
  const char* dir = std::getenv("VYR_RUN_DIR");
  if (dir == nullptr || dir[0] == '\0') dir = kDefaultRunDir;
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(ipv6 ? AF_INET6 : AF_INET, addr, text, sizeof text);
  std::snprintf(out, outlen, "%s/announce-%s.pid", dir, text);
}

int SendAnnouncements(int sock, const AnnounceTarget& target, const void* frame, std::size_t len,
                      int num, const AnnouncePace& pace) {
  if (num <= 0) return 0;
  if (!pace.background) return SendHere(sock, target, frame, len, 0, num, pace, Clock::now());
  const void* addr = target.ipv6 ? static_cast<const void*>(&target.v6) : &target.v4;
  EndAnnouncer(target.ipv6, addr);  // one announcer per address
  const Clock::time_point first = Clock::now();
  if (!SendFrame(sock, target.ifindex, frame, len)) return -1;
  if (num == 1) return 0;
  char pidfile[PATH_MAX];
  AnnouncerPidFile(target.ipv6, addr, pidfile, sizeof pidfile);
  const Job job{&target, frame, len, num, Interval(pace), first, pidfile};
  if (StartAnnouncer(job)) return 0;
  TRACE(TRACE_WARNING, "announcer not started. (%s)", pidfile);
  return SendHere(sock, target, frame, len, 1, num, pace, first);
}

bool EndAnnouncer(bool ipv6, const void* addr) {
  char pidfile[PATH_MAX];
  AnnouncerPidFile(ipv6, addr, pidfile, sizeof pidfile);
  Record rec;
  if (!ReadRecord(pidfile, &rec)) return false;
  // Held from here on, the descriptor keeps the process id from being
  // reused by another process, so what is checked is what is signalled.
  UniqueFd pidfd(PidfdOpen(rec.pid));
  unsigned long long start = 0;
  char comm[32] = {};
  if (!pidfd || !ProcessStat(rec.pid, &start, comm, sizeof comm) || start != rec.start ||
      std::strcmp(comm, kAnnouncerName) != 0) {
    RemoveRecord(pidfile, rec);
    return false;
  }
  PidfdSignal(pidfd.get(), SIGTERM);
  if (!WaitGone(pidfd.get(), kEndLimitMs)) {
    TRACE(TRACE_WARNING, "announcer %d did not end on SIGTERM.", static_cast<int>(rec.pid));
    PidfdSignal(pidfd.get(), SIGKILL);
    WaitGone(pidfd.get(), kEndLimitMs);
  }
  RemoveRecord(pidfile, rec);
  TRACE(TRACE_INFO, "announcer %d ended. (%s)", static_cast<int>(rec.pid), pidfile);
  return true;
}

}  // namespace vyr
