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

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string Recorded(const std::string& name) {
  return std::string(VYR_TESTDATA_DIR) + "/ifconfig/" + name;
}

std::string OriginalPath() {
  const char* path = std::getenv("PATH");
  return path ? path : "/usr/bin:/bin";
}

class IfconfigProbe : public ::testing::Test {
 protected:
  // Puts a fake ifconfig first on PATH; it notes each run in "ran".
  void FakeIfconfig(const std::string& body) {
    vyrtest::WriteScript(dir_.path(), "ifconfig",
                         "echo \"$@\" >> '" + (dir_ / "ran") + "'\n" + body);
  }
  void PrintsRecorded(const std::string& file) { FakeIfconfig("cat '" + Recorded(file) + "'\n"); }
  // The search command's own runs are noted too.
  void FakeWhich() {
    vyrtest::WriteScript(dir_.path(), "which",
                         "echo which >> '" + (dir_ / "ran") + "'\nexec /usr/bin/which \"$@\"\n");
  }
  int Probe(int* is_ifconfig, int use = 0, int limit = 5) {
    vyrtest::ScopedEnv path("PATH", dir_.path() + ":" + OriginalPath());
    return nic_chk_isifconfig(is_ifconfig, use, limit);
  }
  int WorkerCode() {
    vyrtest::ScopedEnv path("PATH", dir_.path() + ":" + OriginalPath());
    int code = -1;
    nic_cmd_chk(&code);
    return code;
  }
  std::string Ran() const { return vyrtest::ReadFile(dir_ / "ran"); }
  vyrtest::TempDir dir_;
};

TEST_F(IfconfigProbe, OlderLayoutSelectsTheTool) {
  PrintsRecorded("older_mixed.txt");
  int flag = -1;
  const auto start = Clock::now();
  EXPECT_EQ(Probe(&flag, 0, 60), 0);
  EXPECT_LT(Clock::now() - start, milliseconds(500)) << "a quick tool costs no polling step";
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(Ran(), "-a\n") << "the probe lists with \"ifconfig -a\"";
}

TEST_F(IfconfigProbe, NewerLayoutSelectsTheKernel) {
  PrintsRecorded("newer_layout.txt");
  int flag = -1;
  EXPECT_EQ(Probe(&flag), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(WorkerCode(), 22);
}

TEST_F(IfconfigProbe, WorkerCodes) {
  PrintsRecorded("older_late_address.txt");
  EXPECT_EQ(WorkerCode(), 0) << "an address in a later block still shows the older layout";

  FakeIfconfig("printf '\\n   \\n  UP RUNNING\\n'\n");
  EXPECT_EQ(WorkerCode(), 22) << "no block and no address";

  FakeIfconfig("cat '" + Recorded("older_mixed.txt") + "'\nexit 3\n");
  EXPECT_EQ(WorkerCode(), 0) << "the listing's exit status does not change the code";
}

TEST_F(IfconfigProbe, NoIfconfigOnPathSelectsTheKernel) {
  // A PATH that holds nothing but "which".
  ASSERT_EQ(vyrtest::Sh("ln -s /usr/bin/which '" + (dir_ / "which") + "'"), 0);
  vyrtest::ScopedEnv path("PATH", dir_.path());
  int code = -1;
  nic_cmd_chk(&code);
  EXPECT_EQ(code, 20);
  int flag = -1;
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 5), 0);
  EXPECT_EQ(flag, 0);
}

TEST_F(IfconfigProbe, SwitchedOffRunsNoCommand) {
  FakeWhich();
  PrintsRecorded("older_mixed.txt");
  int flag = -1;
  EXPECT_EQ(Probe(&flag, 1), 0);
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(Ran(), "");
  // The same fakes do note their runs when the tool is not switched off.
  EXPECT_EQ(Probe(&flag, 0), 0);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(Ran(), "which\n-a\n");
}

TEST_F(IfconfigProbe, HangingListingTimesOut) {
  const std::string marker = vyrtest::UniqueMarker("vyrprobehang");
  // ifconfig hands over to a script named after the marker, which hangs.
  vyrtest::WriteScript(dir_.path(), marker, "while :; do sleep 1; done\n");
  FakeIfconfig("exec '" + (dir_ / marker) + "'\n");
  int flag = -1;
  const auto start = Clock::now();
  EXPECT_EQ(Probe(&flag, 0, 1), 21);
  const auto took = Clock::now() - start;
  EXPECT_EQ(flag, 0);
  EXPECT_GE(took, milliseconds(1000));
  EXPECT_LT(took, milliseconds(2500));
  EXPECT_TRUE(vyrtest::NoProcessWithin(marker, milliseconds(2000)));

  EXPECT_EQ(Probe(&flag, 0, 0), 21) << "a limit of 0 times out at once";
  EXPECT_EQ(flag, 0);
  EXPECT_TRUE(vyrtest::NoProcessWithin(marker, milliseconds(2000)));
}

TEST(IfconfigProbeHost, MachinesOwnIfconfigHasTheNewerLayout) {
  if (vyrtest::Sh("which ifconfig >/dev/null") != 0) GTEST_SKIP() << "no ifconfig here";
  std::string out;
  vyrtest::Sh("ifconfig -a | head -1", &out);
  if (out.find(": flags=") == std::string::npos) GTEST_SKIP() << "ifconfig prints " << out;
  int flag = -1;
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 10), 0);
  EXPECT_EQ(flag, 0);
  int code = -1;
  nic_cmd_chk(&code);
  EXPECT_EQ(code, 22);
}

TEST(IfconfigLayoutLine, WhatEachLineShows) {
  using nic::IfconfigLayout;
  struct Case {
    const char* line;
    IfconfigLayout want;
  };
  const Case cases[] = {
      {"eth0: flags=4163<UP,BROADCAST,RUNNING,MULTICAST>  mtu 1500\n", IfconfigLayout::kNewer},
      {"eth0      Link encap:Ethernet  HWaddr 00:0C:29:3B:12:34\n", IfconfigLayout::kUndecided},
      {"eth0:1    Link encap:Ethernet\n", IfconfigLayout::kUndecided},
      {"          inet addr:192.0.2.10  Mask:255.255.255.0\n", IfconfigLayout::kOlder},
      {"          INET6 ADDR: 2001:db8::1/64 Scope:Global\n", IfconfigLayout::kOlder},
      {"        inet 192.0.2.10  netmask 255.255.255.0\n", IfconfigLayout::kUndecided},
      {"          inet\n", IfconfigLayout::kUndecided},
      {"eth0 inet addr:192.0.2.10\n", IfconfigLayout::kOlder},
      {"", IfconfigLayout::kUndecided},
  };
  for (const Case& c : cases) EXPECT_EQ(nic::ScanLayoutLine(c.line), c.want) << c.line;
}

}  // namespace
