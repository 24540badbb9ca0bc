// vyrvip --test and the dynamic-update modes, run as the built program with
// a private install folder, configuration, policies and trace log.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include "support/log_lines.h"
#include "support/netns.h"
#include "support/agent_fixture.h"
#include "support/sh.h"
#include "vyrxml.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::WriteFile;

const std::string kVip1 =
    "E [008] Subnet mask is invalid. (value=10.0.0.1/40)\n"
    "E [012] Routing Protocol is invalid. (value=RIPv2)\n";

std::string Dyn(const std::string& ip) {
  return vyrtest::Resource("dyn", vyrtest::OnVa0(ip, vyrtest::kNoProbe + vyrtest::kNoArp));
}

class CheckMode : public vyrtest::CheckEnvTest {
 protected:
  void SetUp() override { SetUpCheck(Dyn("192.0.2.1/24")); }
  std::string Vyrvip(const std::string& args) const { return env_.VyrvipLine(args); }
};

// Each run appends its whole block to a 0644 file, earlier blocks kept, and
// exits with its verdict; a wrong argument count is "Invalid argument.".
TEST_F(CheckMode, EachRunAppendsItsBlockAndExitsWithTheVerdict) {
  // Arguments, the resource name of the block, exit status, lines of the block.
  const std::tuple<std::string, std::string, int, std::string> runs[] = {
      {"--test good", "good", 0, "I [001] Success in a composition check.\n"},
      {"--TEST vip1", "vip1", 1, kVip1},
      {"--test", "", 1, "E [002] Invalid argument.\n"},
      {"--test vip1 good", "", 1, "E [002] Invalid argument.\n"},
  };
  std::string expected;
  for (const auto& [args, rscname, status, body] : runs) {
    const std::string tag = "[type : vip][rscname : " + rscname + "]\n";
    expected += "*****START " + tag + body + "*****END " + tag;
    EXPECT_EQ(vyrtest::Sh("umask 0; " + Vyrvip(args)), status) << args;
    EXPECT_EQ(ReadFile(check_), expected) << args;
  }
  struct stat st {};
  ASSERT_EQ(::stat(check_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

// A check log that cannot be opened loses no line: all go to the trace log.
TEST_F(CheckMode, MissingCheckLogFolderSendsEveryLineToTheTraceLog) {
  vyrtest::Sh("rmdir '" + env_.prefix() + "/var/check'");
  EXPECT_EQ(vyrtest::Sh(Vyrvip("--test vip1")), 1);
  std::string info;
  bool open_traced = false;
  for (const vyrtest::LogLine& l : vyrtest::ReadLogLines(trace_)) {
    if (l.level == "INFO") info += l.text + "\n";
    open_traced |= l.level == "ERROR" && l.text == "open(" + check_ + ") failed. (errno = 2)";
  }
  EXPECT_TRUE(open_traced);
  const std::string tag = "[type : vip][rscname : vip1]\n";
  EXPECT_NE(info.find("*****START " + tag + kVip1 + "*****END " + tag), std::string::npos) << info;
}

// Dynamic update adds and removes the address under check, not the running
// one; without a loadable configuration under check it exits with the
// loader's status rather than falling back to the running configuration.
TEST_F(CheckMode, DynamicUpdateTakesTheAddressUnderCheckOrNone) {
  SetUpNamespaces();
  if (IsSkipped()) return;
  WriteFile(chkconf_, "<root><resource>" + Dyn("203.0.113.7/28") + "</resource></root>\n");
  std::string out;
  EXPECT_EQ(pair_->InAgent(Vyrvip("--dactive -r dyn -g grp"), &out), 0) << out;
  EXPECT_TRUE(HasAddr("", "203.0.113.7/28")) << Addrs();
  EXPECT_FALSE(HasAddr("", "192.0.2.1/")) << Addrs();
  EXPECT_EQ(pair_->InAgent(Vyrvip("--ddeactive -r dyn -g grp"), &out), 0) << out;
  EXPECT_FALSE(HasAddr("", "203.0.113.7")) << Addrs();
  ASSERT_EQ(::unlink(chkconf_.c_str()), 0);
  for (const char* mode : {"--dactive", "--ddeactive"}) {
    EXPECT_EQ(vyrtest::Sh(Vyrvip(std::string(mode) + " -r dyn -g grp")), VYR_XMLERR_NOT_LOAD)
        << mode;
  }
}

}  // namespace
