// Faults around the agent: a run killed inside the interface-change critical
// section, an interface tool that never ends, a ping command killed by a
// signal, a check log that cannot be written, a configuration that vanishes
// or is cut short between runs. Each must end in a clear status, leave no
// process behind and not hold up the next run.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "support/agent_fixture.h"
#include "support/stress_util.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::MsSince;
using vyrtest::Resource;

// Runs with the interface tool: a tool of the older layout on PATH (so the
// one-time probe finds it usable) and, as the configured tool, a wrapper
// that hangs in a listing while the file "hang" exists.
class StressFaults : public AgentE2E {
 protected:
  void SetUp() override {
    AgentE2E::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    bin_ = env_.dir() + "/bin";
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p '" + bin_ +
                             "' && cp '" VYR_TESTDATA_DIR "/tools/ifconfig-older' '" + bin_ +
                             "/ifconfig' && cp /bin/sleep '" + bin_ + "/toolsleep'"));
    // The sleeping child carries the test folder in its command line, so a
    // left-over one is found by name.
    vyrtest::WriteFile(bin_ + "/hangtool",
                       "#!/bin/bash\n"
                       "if [ -e '" +
                           env_.dir() +
                           "/hang' ]; then\n"
                           "  echo $$ > '" +
                           env_.dir() +
                           "/tool.pid'\n"
                           "  touch '" +
                           env_.dir() +
                           "/inside'\n"
                           "  '" +
                           bin_ +
                           "/toolsleep' 30\n"
                           "  exit 0\n"
                           "fi\n"
                           "exec '" +
                           bin_ + "/ifconfig' \"$@\"\n",
                       0755);
    env_.SetExtraEnv("PATH='" + bin_ + ":/usr/sbin:/usr/bin:/sbin:/bin'");
  }

  void TearDown() override {
    // A tool orphaned by a killed agent must not outlive the test.
    std::string pid = vyrtest::ReadFile(env_.dir() + "/tool.pid");
    if (!pid.empty()) vyrtest::Sh("kill -9 -- -$(ps -o pgid= " + pid + ") 2>/dev/null; true");
  }

  std::string ToolCommon() const {
    return "<ping><path>bin/vyrping</path></ping><ifconfig><path>" + bin_ +
           "/hangtool</path></ifconfig>";
  }

  std::string AgentCommand(const std::string& args) const {
    return "ip netns exec " + pair_->agent() + " env " + env_.EnvAssignments() + " '" +
           env_.prefix() + "/bin/vyrvip' " + args;
  }

  std::string bin_;
};

constexpr const char* kQuiet = "<ping><timeout>0</timeout></ping><arp><retry>0</retry></arp>";

TEST_F(StressFaults, AgentKilledInsideTheCriticalSectionDoesNotBlockTheNext) {
  env_.WriteConfig(
      Resource("vip1", std::string("<ip>192.0.2.10/24</ip><ifname>va0</ifname>") + kQuiet) +
          Resource("vip2", std::string("<ip>192.0.2.11/24</ip><ifname>va0</ifname>") + kQuiet),
      ToolCommon());
  vyrtest::WriteFile(env_.dir() + "/hang", "");
  pid_t first = vyrtest::Spawn(AgentCommand("--active -r vip1 -g grp1"), env_.dir() + "/first.out");
  ASSERT_GT(first, 0);
  ASSERT_TRUE(vyrtest::WaitForFile(env_.dir() + "/inside", 10000))
      << "the first agent never listed:\n"
      << env_.Log();
  ASSERT_EQ(0, kill(first, SIGKILL));
  EXPECT_EQ(128 + SIGKILL, vyrtest::WaitSpawned(first, 5000));
  unlink((env_.dir() + "/hang").c_str());

  auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(0, Run("--active -r vip2 -g grp1")) << env_.Log();
  EXPECT_LT(MsSince(start), 1000) << "the critical section was released with the killed agent";
  EXPECT_TRUE(Contains(AgentAddrs(), "inet 192.0.2.11/24")) << AgentAddrs();
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.10/")) << "the killed agent added nothing";
}

TEST_F(StressFaults, HangingInterfaceToolTimesOutWithoutLeavingItBehind) {
  env_.WriteConfig(Resource("vip1", std::string("<ip>192.0.2.12/24</ip><ifname>va0</ifname>"
                                                "<ifconfig><timeout>1</timeout></ifconfig>") +
                                        kQuiet),
                   ToolCommon());
  vyrtest::WriteFile(env_.dir() + "/hang", "");
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(23, Run("--active -r vip1 -g grp1")) << env_.Log();
  long long took = MsSince(start);
  EXPECT_GE(took, 1000) << "the limit is the configured second";
  // About half a second past the limit on a quiet machine (see bench/); the
  // bound leaves room for a sanitizer build on a busy one.
  EXPECT_LE(took, 2500) << "the limit, not a polling step or a second limit";
  ASSERT_TRUE(vyrtest::WaitForFile(env_.dir() + "/inside", 0)) << "the tool did run";
  EXPECT_EQ("", vyrtest::ProcessesMatching(bin_ + "/")) << "the tool was ended with the run";
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.12/"));
}

TEST_F(StressFaults, PingCommandKilledBySignalEndsWithEleven) {
  // The fake ping ends its whole command line with SIGSEGV, as a crash or
  // an operator's kill of the command's process group would.
  vyrtest::WriteFile(bin_ + "/segvping", "#!/bin/sh\nkill -SEGV 0\nsleep 5\n", 0755);
  // The ping path is joined to the install folder; enough ".." lead to /.
  std::string ping = "../../../../../../../../.." + bin_ + "/segvping";
  env_.WriteConfig(Resource("vip1", "<ip>192.0.2.13/24</ip><ifname>va0</ifname>"),
                   "<ping><path>" + ping + "</path></ping>");
  EXPECT_EQ(11, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_EQ("Internal error. (status=11)", env_.Description("grp1", "vip1"));
  EXPECT_TRUE(Contains(env_.Log(), "ping to 192.0.2.13 failed (before system()).")) << env_.Log();
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.13/")) << "a failed probe adds nothing";
  EXPECT_EQ("", vyrtest::ProcessesMatching(bin_ + "/"));
}

TEST_F(StressFaults, VanishedOrTruncatedConfigurationGivesAClearStatus) {
  env_.WriteConfig(
      Resource("vip1", std::string("<ip>192.0.2.14/24</ip><ifname>va0</ifname>") + kQuiet),
      vyrtest::kCommon);
  ASSERT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  std::string good = vyrtest::ReadFile(env_.config_path());

  ASSERT_EQ(0, unlink(env_.config_path().c_str()));
  std::string out;
  EXPECT_EQ(7, env_.Vyrvip(pair_->agent(), "--deactive -r vip1 -g grp1", &out));
  EXPECT_TRUE(Contains(out, env_.config_path())) << "the reason names the file: " << out;
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.14/24")) << "nothing was changed";

  vyrtest::WriteFile(env_.config_path(), good.substr(0, good.size() / 2));
  out.clear();
  EXPECT_EQ(7, env_.Vyrvip(pair_->agent(), "--deactive -r vip1 -g grp1", &out));
  EXPECT_TRUE(Contains(out, "malformed XML")) << out;
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.14/24")) << "nothing was changed";

  vyrtest::WriteFile(env_.config_path(), "");
  EXPECT_EQ(7, Run("--deactive -r vip1 -g grp1"));

  vyrtest::WriteFile(env_.config_path(), good);
  EXPECT_EQ(0, Run("--deactive -r vip1 -g grp1")) << env_.Log();
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.14/"));
}

// Check mode touches no interface, so it runs without namespaces.
class StressCheckLog : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(env_.ok());
    vyrtest::WriteFile(env_.dir() + "/check.xml",
                       "<?xml version=\"1.0\"?>\n<root><server name=\"node1\"/><resource>"
                       "<vip name=\"vip1\"><comment>stress</comment><parameters>"
                       "<ip>192.0.2.300/24</ip><ifname></ifname>"
                       "<protocol> RIPver1,OSPF</protocol></parameters></vip>"
                       "</resource></root>\n");
  }

  // Runs the check with the check log at `rdrct` (relative to the install
  // folder); the exit status.
  int Check(const std::string& rdrct) {
    std::string up = "../../../../../../../../..";
    env_.WriteConfig("");
    std::string xml = vyrtest::ReadFile(env_.config_path());
    std::string cluster = "<cluster><check><rdrctpath>" + up + rdrct + "</rdrctpath><chkconf>" +
                          up + env_.dir() + "/check.xml</chkconf></check></cluster>";
    xml.replace(xml.find("<resource>"), 0, cluster);
    vyrtest::WriteFile(env_.config_path(), xml);
    return env_.Vyrvip("", "--test vip1");
  }

  vyrtest::ClusterEnv env_;
};

TEST_F(StressCheckLog, EveryLineReachesTheTraceLogWhenTheCheckLogCannotBeWritten) {
  ASSERT_EQ(1, Check(env_.dir() + "/check.log")) << env_.Log();
  std::string written = vyrtest::ReadFile(env_.dir() + "/check.log");
  ASSERT_TRUE(Contains(written, "*****START [type : vip][rscname : vip1]\n")) << written;
  ASSERT_TRUE(Contains(written, "E [")) << "the values hold findings: " << written;

  std::string blocked = env_.dir() + "/no-such-folder/check.log";
  EXPECT_EQ(1, Check(blocked));
  std::string trace = env_.Log();
  EXPECT_TRUE(Contains(trace, "/no-such-folder/check.log) failed. (errno = 2)")) << trace;
  size_t start = 0;
  int lines = 0;
  while (start < written.size()) {
    size_t nl = written.find('\n', start);
    std::string line = written.substr(start, nl - start);
    start = nl + 1;
    ++lines;
    EXPECT_TRUE(Contains(trace, line)) << "not in the trace log: " << line;
  }
  EXPECT_GE(lines, 3);
}

}  // namespace
