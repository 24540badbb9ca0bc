// The check log: whole blocks as they stand in the file, appending, the
// trace-log fall-back when the file cannot be opened or written.
#include "chklog/chklog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::TempDir;
using vyrtest::TraceCapture;
using Lines = std::vector<std::string>;

const char kStart[] = "*****START [type : vip][rscname : ";
const char kEnd[] = "*****END [type : vip][rscname : ";

// Rows the check runs elsewhere never write, the level rule, an empty
// resource name and a second block appended to a new 0644 file.
TEST(ChkLog, BlocksAreAppendedToAFileWithMode0644) {
  TempDir dir;
  const std::string file = dir / "check.log";
  const mode_t old = ::umask(022);
  EXPECT_EQ(chk_log_init("vip", "", file.c_str()), 0);
  ::umask(old);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_ARG_ERR), 0);
  EXPECT_EQ(chk_log_term("vip", ""), 0);

  ASSERT_EQ(chk_log_init("vip", "vip1", file.c_str()), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_IPFOMAT_ERR, "a/b"), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_NIC_ERR, "eth0:x"), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_RANGE_ERR, "Send Interval", 31), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_INFO, CHK_ID_SUCCESS), 0);
  EXPECT_EQ(CHK_LOG(8, CHK_ID_SUCCESS), 0);  // any level but 4 prints E
  EXPECT_EQ(chk_log_term("vip", "vip1"), 0);

  EXPECT_EQ(ReadFile(file), std::string(kStart) + "]\nE [002] Invalid argument.\n" + kEnd + "]\n" +
                                kStart +
                                "vip1]\n"
                                "E [005] Format of VIP address is invalid. (value=a/b)\n"
                                "E [007] NIC alias is invalid. (value=eth0:x)\n"
                                "E [004] Value of Send Interval is out of range. (value=31)\n"
                                "I [001] Success in a composition check.\n"
                                "E [001] Success in a composition check.\n" +
                                kEnd + "vip1]\n");
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST(ChkLog, OverlongMessageIsCutAndLosesItsNewline) {
  TempDir dir;
  const std::string file = dir / "check.log";
  ASSERT_EQ(chk_log_init("vip", "v", file.c_str()), 0);
  const std::string value(2000, 'x');
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, value.c_str()), 0);
  ASSERT_EQ(chk_log_term("vip", "v"), 0);
  // 1031 characters of line, then the end line right behind it.
  const std::string message = "Routing Protocol is invalid. (value=" + value;
  EXPECT_EQ(ReadFile(file),
            std::string(kStart) + "v]\nE [012] " + message.substr(0, 1023) + kEnd + "v]\n");
}

TEST(ChkLog, UnusableFileSendsEveryLineToTheTraceLog) {
  TempDir dir;
  const std::string missing = dir / "no/such/folder/check.log";
  struct stat st {};
  const bool have_full = ::stat("/dev/full", &st) == 0;
  struct Case {
    std::string file;
    int init_ret;
    Lines errors;
  };
  const Case cases[] = {
      {missing, 1, {"open(" + missing + ") failed. (errno = 2)"}},
      {"/dev/full", 0, Lines(3, "write() failed. (errno = 28)")},
  };
  for (const Case& c : cases) {
    if (c.file == "/dev/full" && !have_full) continue;
    TraceCapture capture;
    EXPECT_EQ(chk_log_init("vip", "vip1", c.file.c_str()), c.init_ret) << c.file;
    EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40"), 1) << c.file;
    EXPECT_EQ(chk_log_term("vip", "vip1"), 1) << c.file;
    EXPECT_EQ(capture.Texts("ERROR"), c.errors);
    EXPECT_EQ(capture.Texts("INFO"), (Lines{std::string(kStart) + "vip1]",
                                            "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                            kEnd + std::string("vip1]")}))
        << c.file;
  }
  // Closed again: a later run opens afresh.
  EXPECT_EQ(chk_log_init("vip", "vip1", (dir / "good.log").c_str()), 0);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 0);
}

}  // namespace
