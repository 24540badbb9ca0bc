#include "chklog/chklog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tracersc/tracersc.h"
#include "unique_fd.h"

const struct logmsg logtbl[CHK_ID_COUNT] = {
    {1, CHK_ID_SUCCESS_MSG},           {2, CHK_ID_ARG_ERR_MSG},
    {3, CHK_ID_EMPTY_ERR_MSG},         {4, CHK_ID_RANGE_ERR_MSG},
    {5, CHK_ID_IPFOMAT_ERR_MSG},       {6, CHK_ID_IPADDR_ERR_MSG},
    {7, CHK_ID_NIC_ERR_MSG},           {8, CHK_ID_MASK_ERR_MSG},
    {9, CHK_ID_PROT_EMPTY_ERR_MSG},    {10, CHK_ID_PROT_TOP_ERR_MSG},
    {11, CHK_ID_PROT_TAIL_ERR_MSG},    {12, CHK_ID_PROT_ERR_MSG},
    {13, CHK_ID_REQUIRED_ERR_MSG},     {14, CHK_ID_NUMBER_ERR_MSG},
    {97, CHK_ID_COMMENT_PATH_ERR_MSG}, {98, CHK_ID_COMMENT_RANGE_ERR_MSG},
    {99, CHK_ID_INTERNAL_ERR_MSG},
};

namespace {

constexpr std::size_t kMessageLen = 1024;     // the formatted message
constexpr std::size_t kLineLen = 1032;        // a message line
constexpr std::size_t kMarkerLineLen = 1024;  // a start or end line

// The open check log; empty while none is open (every line is then traced).
vyr::UniqueFd grdctfd;

// Sends a line that could not reach the file to the trace log, without its
// newline (the trace log ends its lines itself).
void TraceInstead(char* line) {
  std::size_t len = std::strlen(line);
  if (len > 0 && line[len - 1] == '\n') line[len - 1] = '\0';
  TRACE(TRACE_INFO, "%s", line);
}

// Writes `len` bytes of `line`: 0, or the errno of the write that failed.
// One write() normally takes the whole line, so a block's lines never
// interleave with another writer's. A short write (a file size limit, a
// full file system) gives no errno; the write of the rest then fails with
// the cause (EFBIG, ENOSPC), or completes the line.
int WriteWhole(int fd, const char* line, std::size_t len) {
  while (len > 0) {
    const ssize_t written = ::write(fd, line, len);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;  // no progress and no cause: do not spin
    line += written;
    len -= static_cast<std::size_t>(written);
  }
  return 0;
}

// Writes one finished line. 0 when it reached the file, else 1.
int PutLine(char* line) {
  if (!grdctfd) {
    TraceInstead(line);
    return 1;
  }
  const int err = WriteWhole(grdctfd.get(), line, std::strlen(line));
  if (err != 0) {
    TRACE(TRACE_ERROR, "write() failed. (errno = %d)", err);
    TraceInstead(line);
    return 1;
  }
  return 0;
}

int PutMarker(const char* word, const char* type, const char* rscname) {
  char line[kMarkerLineLen];
  std::snprintf(line, sizeof line, "*****%s [type : %s][rscname : %s]\n", word, type ? type : "",
                rscname ? rscname : "");
  return PutLine(line);
}

}  // namespace

int chk_log_start(const char* type, const char* rscname) {
  return PutMarker("START", type, rscname);
}

int chk_log_end(const char* type, const char* rscname) { return PutMarker("END", type, rscname); }

int chk_log_init(const char* type, const char* rscname, const char* rdrctfile) {
  // A second init without a term would leak the earlier descriptor.
  grdctfd.reset();
  int ret = 0;
  int fd = ::open(rdrctfile ? rdrctfile : "", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) {
    TRACE(TRACE_ERROR, "open(%s) failed. (errno = %d)", rdrctfile ? rdrctfile : "", errno);
    ret = 1;
  } else {
    grdctfd.reset(fd);
  }
  chk_log_start(type, rscname);
  return ret;
}

int chk_log_write(int level, int index, const char* format, ...) {
  char message[kMessageLen] = {};
  if (format != nullptr) {
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(message, sizeof message, format, ap);
    va_end(ap);
  }
  char line[kLineLen];
  // A message that fills its buffer loses the end of its line here; the
  // line goes to the log as it was cut.
  const int written = std::snprintf(line, sizeof line, "%c [%03d] %s\n",
                                    level == CHK_LEVEL_INFO ? 'I' : 'E', index, message);
  static_cast<void>(written);
  return PutLine(line);
}

int chk_log_term(const char* type, const char* rscname) {
  int ret = chk_log_end(type, rscname);
  grdctfd.reset();
  return ret;
}
