#include "vyrlog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "make_dirs.h"
#include "unique_fd.h"

namespace {

constexpr const char* kDefaultLogDir = "/var/log/vyrcluster";
constexpr std::size_t kLineMax = 4096;

struct LogHandle {
  std::string path;
  std::string type;
  int level = 4;
  long size = 0;
  vyr::UniqueFd fd;
  std::mutex lock;  // guards fd against a rotation by another thread
};

const char* LevelName(int level) {
  switch (level) {
    case VYR_LOG_ERROR:
      return "ERROR";
    case VYR_LOG_WARNING:
      return "WARN";
    case VYR_LOG_INFO:
      return "INFO";
    case VYR_LOG_DETAIL:
      return "DETAIL";
    case VYR_LOG_EVENT:
      return "EVENT";
    default:
      return "LEVEL";
  }
}

vyr::UniqueFd OpenLog(const std::string& path) {
  return vyr::UniqueFd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
}

// Renames the file to ".1" when this line would take it past the size
// setting. Processes share the file, so the decision is taken under an
// advisory lock and only when our descriptor still names the current file;
// a process whose file was rotated by another simply reopens.
void RotateIfNeeded(LogHandle& h, std::size_t add) {
  if (h.size <= 0) return;
  struct stat mine {};
  if (::fstat(h.fd.get(), &mine) != 0) return;
  if (mine.st_size + static_cast<off_t>(add) <= h.size) {
    struct stat current {};
    if (::stat(h.path.c_str(), &current) == 0 && current.st_ino == mine.st_ino) return;
  }
  std::string lock_path = h.path + ".lock";
  // Closing the lock file at the end also releases the lock.
  vyr::UniqueFd lock(::open(lock_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  if (lock) ::flock(lock.get(), LOCK_EX);
  struct stat current {};
  bool same = ::stat(h.path.c_str(), &current) == 0 && current.st_ino == mine.st_ino;
  if (same && current.st_size > 0 && current.st_size + static_cast<off_t>(add) > h.size) {
    std::string old = h.path + ".1";
    ::rename(h.path.c_str(), old.c_str());
  }
  vyr::UniqueFd fd = OpenLog(h.path);
  if (fd) h.fd = std::move(fd);
}

// A value that carries a line break (an option typed by a user, a line of
// command output) must not start a line of its own that looks like a
// record of the log.
void FlattenLine(char* text) {
  for (char* p = text; *p != '\0'; ++p) {
    if (*p == '\n' || *p == '\r') *p = ' ';
  }
}

std::size_t FormatHeader(char* line, std::size_t cap, int level, const char* file, int lineno,
                         const char* func) {
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  struct tm local {};
  ::localtime_r(&now.tv_sec, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  int n = std::snprintf(line, cap, "%s.%03ld pid=%ld tid=%ld %s %s:%d %s: ", stamp,
                        now.tv_nsec / 1000000L, static_cast<long>(::getpid()),
                        static_cast<long>(::syscall(SYS_gettid)), LevelName(level),
                        file ? file : "?", lineno, func ? func : "?");
  if (n < 0) return 0;
  return static_cast<std::size_t>(n) < cap ? static_cast<std::size_t>(n) : cap - 1;
}

}  // namespace

int log_init(const char* type, void** handle, int level, int size, const char* path) {
  if (handle == nullptr) return -1;
  *handle = nullptr;
  auto h = std::make_unique<LogHandle>();
  h->type = type ? type : "vyr";
  h->level = level;
  h->size = size;
  if (path != nullptr && path[0] != '\0') {
    h->path = path;
  } else {
    const char* dir = std::getenv("VYR_LOG_DIR");
    std::string folder = (dir && dir[0]) ? dir : kDefaultLogDir;
    vyr::MakeDirs(folder);  // a folder that cannot be made shows as the open failing
    h->path = folder + "/" + h->type + ".log";
  }
  h->fd = OpenLog(h->path);
  if (!h->fd) return -1;
  *handle = h.release();
  return 0;
}

void log_write(void* handle, int level, int event, const char* file, int line, const char* func,
               const char* format, ...) {
  if (handle == nullptr) return;
  auto* h = static_cast<LogHandle*>(handle);
  const bool is_event = level == VYR_LOG_EVENT;
  if (!is_event && level > h->level) return;

  char text[kLineMax];
  va_list ap;
  va_start(ap, format);
  if (format != nullptr) {
    std::vsnprintf(text, sizeof text, format, ap);
  } else {
    // An event raised without a format carries its subject as one text.
    const char* subject = is_event ? va_arg(ap, const char*) : nullptr;
    std::snprintf(text, sizeof text, "%s", subject ? subject : "");
  }
  va_end(ap);
  FlattenLine(text);

  char out[kLineMax + 512];
  std::size_t len = FormatHeader(out, sizeof out, level, file, line, func);
  int n = is_event ? std::snprintf(out + len, sizeof out - len, "[event %d] %s\n", event, text)
                   : std::snprintf(out + len, sizeof out - len, "%s\n", text);
  if (n > 0) len += static_cast<std::size_t>(n);
  if (len >= sizeof out) {
    len = sizeof out - 1;
    out[len - 1] = '\n';
  }

  {
    std::lock_guard<std::mutex> hold(h->lock);
    RotateIfNeeded(*h, len);
    // One write per line: with O_APPEND the kernel never interleaves it.
    ssize_t ignored = ::write(h->fd.get(), out, len);
    (void)ignored;
  }
  if (is_event) {
    ::syslog(LOG_USER | LOG_NOTICE, "%s: event %d: %s", h->type.c_str(), event, text);
  }
}

int log_term(void* handle) {
  if (handle == nullptr) return 0;
  std::unique_ptr<LogHandle> h(static_cast<LogHandle*>(handle));
  return 0;
}

const char* log_path(void* handle) {
  return handle == nullptr ? nullptr : static_cast<LogHandle*>(handle)->path.c_str();
}

int log_fd(void* handle) {
  if (handle == nullptr) return -1;
  auto* h = static_cast<LogHandle*>(handle);
  std::lock_guard<std::mutex> guard(h->lock);
  return h->fd.get();
}
