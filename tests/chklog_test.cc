// The check log's fall-back: lines that cannot be written to the file go to
// the trace log. Whole blocks in the file are shown by the check-mode runs.
#include "chklog/chklog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/trace_capture.h"

namespace {

using Lines = std::vector<std::string>;

// A failed write must not lose the line: it reaches the trace log whole.
TEST(ChkLog, FailedWritesGoToTheTraceLog) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  vyrtest::TraceCapture trace;
  EXPECT_EQ(chk_log_init("vip", "vip1", "/dev/full"), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40"), 1);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 1);
  EXPECT_EQ(trace.Texts("ERROR"), Lines(3, "write() failed. (errno = 28)"));
  EXPECT_EQ(trace.Texts("INFO"), (Lines{"*****START [type : vip][rscname : vip1]",
                                        "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                        "*****END [type : vip][rscname : vip1]"}));
}

}  // namespace
