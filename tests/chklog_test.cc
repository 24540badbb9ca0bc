// The check log: whole blocks as they stand in the file, appending, the
// trace-log fall-back when the file cannot be opened or written.
#include "chklog/chklog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::TempDir;
using vyrtest::TraceCapture;

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

TEST(ChkLog, NewFileHoldsExactlyOneBlockWithMode0644) {
  TempDir dir;
  std::string file = dir / "check.log";
  mode_t old = ::umask(022);
  EXPECT_EQ(chk_log_init("vip", "vip1", file.c_str()), 0);
  ::umask(old);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "Routing Protocol"), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_INTERNAL_ERR), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_INFO, CHK_ID_SUCCESS), 0);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 0);

  EXPECT_EQ(ReadFile(file),
            "*****START [type : vip][rscname : vip1]\n"
            "E [003] Parameter Routing Protocol is empty.\n"
            "E [099] Internal error occurred.\n"
            "I [001] Success in a composition check.\n"
            "*****END [type : vip][rscname : vip1]\n");
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST(ChkLog, EveryRowPrintsItsNumberAndText) {
  struct Case {
    std::string expected;
    int (*write)();
  };
  const std::vector<Case> cases = {
      {"I [001] Success in a composition check.",
       [] { return CHK_LOG(CHK_LEVEL_INFO, CHK_ID_SUCCESS); }},
      {"E [002] Invalid argument.", [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_ARG_ERR); }},
      {"E [003] Parameter IP address is empty.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_EMPTY_ERR, "IP address"); }},
      {"E [004] Value of Send Interval is out of range. (value=31)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_RANGE_ERR, "Send Interval", 31); }},
      {"E [005] Format of VIP address is invalid. (value=a/b)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_IPFOMAT_ERR, "a/b"); }},
      {"E [006] IP address is invalid. (value=192.0.2.300)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_IPADDR_ERR, "192.0.2.300"); }},
      {"E [007] NIC alias is invalid. (value=eth0:x)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_NIC_ERR, "eth0:x"); }},
      {"E [008] Subnet mask is invalid. (value=192.0.2.1/33)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "192.0.2.1/33"); }},
      {"E [009] Routing Protocol is not set.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_EMPTY_ERR); }},
      {"E [010] Remove top blank. (value= RIPver1)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_TOP_ERR, " RIPver1"); }},
      {"E [011] Remove tail blank. (value=RIPver1 )",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_TAIL_ERR, "RIPver1 "); }},
      {"E [012] Routing Protocol is invalid. (value=RIPv2)",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, "RIPv2"); }},
      {"E [013] Parameter Source IP Address is required for each server.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_REQUIRED_ERR, "Source IP Address"); }},
      {"E [097] Path of Comment does not exist.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_COMMENT_PATH_ERR); }},
      {"E [098] Length of Comment is out of range.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_COMMENT_RANGE_ERR); }},
      {"E [099] Internal error occurred.",
       [] { return CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_INTERNAL_ERR); }},
      // Any level but 4 prints E.
      {"E [001] Success in a composition check.", [] { return CHK_LOG(8, CHK_ID_SUCCESS); }},
  };
  TempDir dir;
  std::string file = dir / "rows.log";
  ASSERT_EQ(chk_log_init("vip", "r", file.c_str()), 0);
  for (const Case& c : cases) EXPECT_EQ(c.write(), 0) << c.expected;
  ASSERT_EQ(chk_log_term("vip", "r"), 0);

  std::vector<std::string> lines = SplitLines(ReadFile(file));
  ASSERT_EQ(lines.size(), cases.size() + 2);
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(lines[i + 1], cases[i].expected);
}

TEST(ChkLog, EarlierBlockIsKeptAndTheNewOneAppended) {
  TempDir dir;
  std::string file = dir / "check.log";
  vyrtest::WriteFile(
      file, "*****START [type : vip][rscname : old]\n*****END [type : vip][rscname : old]\n");
  ASSERT_EQ(chk_log_init("vip", "vip2", file.c_str()), 0);
  ASSERT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, "RIPv2"), 0);
  ASSERT_EQ(chk_log_term("vip", "vip2"), 0);
  EXPECT_EQ(ReadFile(file),
            "*****START [type : vip][rscname : old]\n"
            "*****END [type : vip][rscname : old]\n"
            "*****START [type : vip][rscname : vip2]\n"
            "E [012] Routing Protocol is invalid. (value=RIPv2)\n"
            "*****END [type : vip][rscname : vip2]\n");
}

TEST(ChkLog, EmptyResourceNameLeavesTheBracketEmpty) {
  TempDir dir;
  std::string file = dir / "check.log";
  ASSERT_EQ(chk_log_init("vip", "", file.c_str()), 0);
  ASSERT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_ARG_ERR), 0);
  ASSERT_EQ(chk_log_term("vip", ""), 0);
  EXPECT_EQ(ReadFile(file),
            "*****START [type : vip][rscname : ]\n"
            "E [002] Invalid argument.\n"
            "*****END [type : vip][rscname : ]\n");
}

TEST(ChkLog, OverlongMessageIsCutAndLosesItsNewline) {
  TempDir dir;
  std::string file = dir / "check.log";
  ASSERT_EQ(chk_log_init("vip", "v", file.c_str()), 0);
  std::string value(2000, 'x');
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, value.c_str()), 0);
  ASSERT_EQ(chk_log_term("vip", "v"), 0);

  std::string text = ReadFile(file);
  std::string start = "*****START [type : vip][rscname : v]\n";
  ASSERT_EQ(text.compare(0, start.size(), start), 0);
  std::string rest = text.substr(start.size());
  // 1031 characters of line, then the end line right behind it.
  std::string message = "Routing Protocol is invalid. (value=" + value;
  std::string expected =
      ("E [012] " + message.substr(0, 1023)) + "*****END [type : vip][rscname : v]\n";
  EXPECT_EQ(rest, expected);
}

TEST(ChkLog, MissingFolderSendsEveryLineToTheTraceLog) {
  TraceCapture capture;
  TempDir dir;
  std::string file = dir / "no/such/folder/check.log";
  EXPECT_EQ(chk_log_init("vip", "vip1", file.c_str()), 1);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40"), 1);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_INFO, CHK_ID_SUCCESS), 1);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 1);

  EXPECT_EQ(capture.Texts("ERROR"),
            std::vector<std::string>{"open(" + file + ") failed. (errno = 2)"});
  EXPECT_EQ(capture.Texts("INFO"), (std::vector<std::string>{
                                       "*****START [type : vip][rscname : vip1]",
                                       "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                       "I [001] Success in a composition check.",
                                       "*****END [type : vip][rscname : vip1]",
                                   }));
  // Closed again: a later run opens afresh.
  std::string good = dir / "good.log";
  EXPECT_EQ(chk_log_init("vip", "vip1", good.c_str()), 0);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 0);
}

TEST(ChkLog, FailedWriteIsTracedAndTheLineKept) {
  struct stat st {};
  if (::stat("/dev/full", &st) != 0) GTEST_SKIP() << "no /dev/full here";
  TraceCapture capture;
  EXPECT_EQ(chk_log_init("vip", "vip1", "/dev/full"), 0);
  EXPECT_EQ(CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_EMPTY_ERR), 1);
  EXPECT_EQ(chk_log_term("vip", "vip1"), 1);

  std::vector<std::string> errors = capture.Texts("ERROR");
  ASSERT_EQ(errors.size(), 3u);
  for (const std::string& e : errors) EXPECT_EQ(e, "write() failed. (errno = 28)");
  EXPECT_EQ(capture.Texts("INFO"), (std::vector<std::string>{
                                       "*****START [type : vip][rscname : vip1]",
                                       "E [009] Routing Protocol is not set.",
                                       "*****END [type : vip][rscname : vip1]",
                                   }));
}

}  // namespace
