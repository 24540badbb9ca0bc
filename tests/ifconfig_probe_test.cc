// The once-per-run decision whether the interface tool is used: fake
// "ifconfig" (and "which") scripts first on PATH, the machine's own tool,
// and the time limit.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "nicCommon/nic_ifconfig_probe.h"
#include "support/fake_tool.h"
#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string Cat(const std::string& name) {
  return "cat '" + std::string(VYR_TESTDATA_DIR) + "/ifconfig/" + name + "'\n";
}

class IfconfigProbe : public ::testing::Test {
 protected:
  // Puts a fake ifconfig (noting each run in "ran") first on PATH.
  void FakeIfconfig(const std::string& body) {
    vyrtest::WriteScript(dir_.path(), "ifconfig",
                         "echo \"$@\" >> '" + (dir_ / "ran") + "'\n" + body);
  }
  int Probe(int* is_ifconfig, int use, int limit) {
    const char* path = std::getenv("PATH");
    vyrtest::ScopedEnv env("PATH", dir_.path() + ":" + (path ? path : "/usr/bin:/bin"));
    return nic_chk_isifconfig(is_ifconfig, use, limit);
  }
  std::string Ran() const { return vyrtest::ReadFile(dir_ / "ran"); }
  vyrtest::TempDir dir_;
};

// The first line that shows a layout decides; the listing's own exit
// status does not matter. "ifconfig -a" runs once, quickly.
TEST_F(IfconfigProbe, LayoutOfTheListingDecides) {
  const struct {
    std::string body;
    int want;
  } cases[] = {
      {Cat("older_mixed.txt"), 1},
      {Cat("older_late_address.txt"), 1},  // the address comes in a later block
      {Cat("older_mixed.txt") + "exit 3\n", 1},
      {Cat("newer_layout.txt"), 0},
      {"printf '\\n   \\n  UP RUNNING\\n'\n", 0},  // no block, no address
  };
  for (const auto& c : cases) {
    FakeIfconfig(c.body);
    vyrtest::WriteFile(dir_ / "ran", "");
    int flag = -1;
    const auto start = Clock::now();
    EXPECT_EQ(Probe(&flag, 0, 60), 0) << c.body;
    EXPECT_LT(Clock::now() - start, milliseconds(500)) << "a quick tool costs no polling step";
    EXPECT_EQ(flag, c.want) << c.body;
    EXPECT_EQ(Ran(), "-a\n");
  }
}

// No ifconfig on PATH, or not even "which": the search fails the way the
// shell reports it and the kernel is used.
TEST_F(IfconfigProbe, NoIfconfigOnPathSelectsTheKernel) {
  ASSERT_EQ(vyrtest::Sh("mkdir '" + (dir_ / "empty") + "'"), 0);
  {
    vyrtest::ScopedEnv path("PATH", dir_ / "empty");
    vyrtest::TraceCapture trace;
    int flag = -1;
    EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 5), 0);
    EXPECT_EQ(flag, 0);
    EXPECT_TRUE(trace.Contains("which ifconfig > /dev/null 2>&1 failed,ifconfig does not "
                               "exist.(ret=127)"));
  }
  // A PATH that holds nothing but a chatty "which": it answers 1, and
  // nothing it prints reaches the agent's output.
  vyrtest::WriteScript(dir_.path(), "which",
                       "echo noise; echo noise >&2; exec /usr/bin/which \"$@\"\n");
  vyrtest::ScopedEnv path("PATH", dir_.path());
  vyrtest::TraceCapture trace;
  int flag = -1;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 5), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(flag, 0);
  EXPECT_TRUE(trace.Contains("failed,ifconfig does not exist.(ret=1)"));
}

TEST_F(IfconfigProbe, SwitchedOffRunsNoCommand) {
  vyrtest::WriteScript(dir_.path(), "which",
                       "echo which >> '" + (dir_ / "ran") + "'\nexec /usr/bin/which \"$@\"\n");
  FakeIfconfig(Cat("older_mixed.txt"));
  int flag = -1;
  EXPECT_EQ(Probe(&flag, 1, 5), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(Ran(), "");
  // The same fakes do note their runs when the tool is not switched off.
  EXPECT_EQ(Probe(&flag, 0, 5), 0);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(Ran(), "which\n-a\n");
}

TEST_F(IfconfigProbe, HangingListingTimesOutAndLeavesNoProcess) {
  const std::string marker = vyrtest::UniqueMarker("vyrprobehang");
  vyrtest::WriteScript(dir_.path(), marker, "while :; do sleep 1; done\n");
  FakeIfconfig("exec '" + (dir_ / marker) + "'\n");
  for (int limit : {1, 0}) {
    int flag = -1;
    const auto start = Clock::now();
    EXPECT_EQ(Probe(&flag, 0, limit), 21) << limit;
    const auto took = Clock::now() - start;
    EXPECT_EQ(flag, 0);
    EXPECT_GE(took, milliseconds(1000 * limit));
    EXPECT_LT(took, milliseconds(1000 * limit + 1500));
    EXPECT_TRUE(vyrtest::NoProcessWithin(marker, milliseconds(2000))) << limit;
  }
}

TEST(IfconfigProbeHost, MachinesOwnIfconfigHasTheNewerLayout) {
  if (vyrtest::Sh("which ifconfig >/dev/null") != 0) GTEST_SKIP() << "no ifconfig here";
  std::string out;
  vyrtest::Sh("ifconfig -a | head -1", &out);
  if (out.find(": flags=") == std::string::npos) GTEST_SKIP() << "ifconfig prints " << out;
  int flag = -1;
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 10), 0);
  EXPECT_EQ(flag, 0);
}

}  // namespace
