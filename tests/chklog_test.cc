// The check log's fall-back: lines that cannot be written to the file go to
// the trace log, with the cause of the failed write. Whole blocks in the
// file are shown by the check-mode runs.
#include "chklog/chklog.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using Lines = std::vector<std::string>;

// Writes one block to `path` in a child whose files may not grow past
// `limit` bytes (SIGXFSZ ignored: a write past the limit fails with EFBIG).
// The results of init, write and term as the digits of a number.
int BlockInChild(const std::string& path, rlim_t limit) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit lim{limit, limit};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) ::_exit(99);
    const int init = chk_log_init("vip", "vip1", path.c_str());
    const int write = CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40");
    ::_exit(init * 100 + write * 10 + chk_log_term("vip", "vip1"));
  }
  int status = -1;
  if (pid < 0 || ::waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// A failed write must not lose the line: it reaches the trace log whole,
// after the real cause. A file at its size limit takes the start of the
// line (a short write) and refuses the rest with EFBIG; /dev/full refuses
// every write with ENOSPC.
TEST(ChkLog, FailedWritesGoToTheTraceLog) {
  vyrtest::TempDir dir;
  constexpr rlim_t kLimit = 65536;
  vyrtest::WriteFile(dir / "limited", std::string(kLimit - 8, 'x'));
  const struct {
    std::string path;
    rlim_t limit;
    int err;
    std::string tail;  // the file's last bytes afterwards
  } cases[] = {
      {"/dev/full", RLIM_INFINITY, 28, ""},
      {dir / "limited", kLimit, 27, "xx*****STA"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    if (::access(c.path.c_str(), W_OK) != 0) continue;  // no /dev/full here
    vyrtest::TraceCapture trace;
    EXPECT_EQ(BlockInChild(c.path, c.limit), 11) << "opened; the message and end lines failed";
    const std::string errno_line = "write() failed. (errno = " + std::to_string(c.err) + ")";
    EXPECT_EQ(trace.Texts("ERROR"), Lines(3, errno_line));
    EXPECT_EQ(trace.Texts("INFO"), (Lines{"*****START [type : vip][rscname : vip1]",
                                          "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                          "*****END [type : vip][rscname : vip1]"}));
    if (!c.tail.empty()) {
      const std::string kept = vyrtest::ReadFile(c.path);
      EXPECT_EQ(kept.size(), kLimit);
      EXPECT_EQ(kept.substr(kept.size() - c.tail.size()), c.tail);
    }
  }
}

}  // namespace
