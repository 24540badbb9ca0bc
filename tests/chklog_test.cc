// The check log's fall-back: lines that cannot be written to the file go to
// the trace log after the cause of the failed write. Whole blocks in the file
// are shown by the check-mode runs.
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

// A file 8 bytes short of its size limit takes the start of the first line
// (a short write, which sets no errno) and refuses the rest of it and every
// later line with EFBIG. The block is written in a child with that limit and
// SIGXFSZ ignored.
TEST(ChkLog, FailedWritesGoToTheTraceLog) {
  vyrtest::TempDir dir;
  constexpr rlim_t kLimit = 65536;
  const std::string path = dir / "limited";
  vyrtest::WriteFile(path, std::string(kLimit - 8, 'x'));
  vyrtest::TraceCapture trace;
  const pid_t pid = ::fork();
  if (pid == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit lim{kLimit, kLimit};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) ::_exit(99);
    const int init = chk_log_init("vip", "vip1", path.c_str());
    const int write = CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40");
    ::_exit(init * 100 + write * 10 + chk_log_term("vip", "vip1"));
  }
  int status = -1;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 11) << "opened; 2 lines failed";
  EXPECT_EQ(trace.Texts("ERROR"), Lines(3, "write() failed. (errno = 27)"));
  EXPECT_EQ(trace.Texts("INFO"), (Lines{"*****START [type : vip][rscname : vip1]",
                                        "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                        "*****END [type : vip][rscname : vip1]"}));
  EXPECT_EQ(vyrtest::ReadFile(path).substr(kLimit - 10), "xx*****STA") << "the short write";
}

}  // namespace
