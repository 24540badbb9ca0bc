// The agent under load and faults: 32 agents at once, a run killed inside
// the interface-change critical section, a hanging interface tool, a
// configuration that vanishes or is cut short. Each ends in a clear status
// and leaves no process behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/agent_fixture.h"

namespace {

using vyrtest::Contains;
using vyrtest::kQuiet;
using vyrtest::ReadFile;
using vyrtest::WriteFile;
using Clock = std::chrono::steady_clock;
using StressAgents = vyrtest::AgentE2E;

// Resource vipN for 192.0.2.N/24 on va0.
std::string Vip(int n, const std::string& more = "") {
  return vyrtest::Resource("vip" + std::to_string(n),
                           vyrtest::OnVa0("192.0.2." + std::to_string(n) + "/24", more));
}

// The interface tool lists like one of the older layout (which is also on
// PATH for the one-time probe), but while the file "hang" exists it writes
// its pid to tool.pid and sleeps.
class StressFaults : public vyrtest::AgentE2E {
 protected:
  void SetUp() override {
    AgentE2E::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(0, vyrtest::Sh("mkdir '" + bin_ + "' && cp /bin/sleep '" + bin_ +
                             "/toolsleep' && cp '" VYR_TESTDATA_DIR "/tools/ifconfig-older' '" +
                             bin_ + "/ifconfig'"));
    WriteFile(bin_ + "/hangtool",
              "#!/bin/sh\nd=$(dirname \"$0\")\n"
              "[ -e \"$d/../hang\" ] && echo $$ > \"$d/../tool.pid\" && exec \"$d/toolsleep\" 30\n"
              "exec \"$d/ifconfig\" \"$@\"\n",
              0755);
    env_.SetExtraEnv("PATH='" + bin_ + ":/usr/sbin:/usr/bin:/sbin:/bin'");
  }
  void TearDown() override { vyrtest::Sh("kill -9 $(cat '" + pid_file_ + "' 2>/dev/null)"); }

  void WriteConfig(const std::string& resources) {
    WriteFile(env_.dir() + "/hang", "");
    env_.WriteConfig(resources, "<ping><path>bin/vyrping</path></ping><ifconfig><path>" + bin_ +
                                    "/hangtool</path></ifconfig>");
  }

  const std::string bin_ = env_.dir() + "/bin", pid_file_ = env_.dir() + "/tool.pid";
};

TEST_F(StressFaults, AgentKilledInsideTheCriticalSectionDoesNotBlockTheNext) {
  WriteConfig(Vip(10, kQuiet) + Vip(11, kQuiet));
  int first = 0;
  std::thread agent([&] { first = Run("--active -r vip10 -g grp1 >/dev/null"); });
  // The tool's parent is the agent, inside the section while the tool lists.
  vyrtest::Sh("for i in $(seq 500); do [ -s '" + pid_file_ + "' ] && break; sleep 0.01; done");
  const bool inside = !ReadFile(pid_file_).empty();
  if (inside) vyrtest::Sh("kill -9 $(ps -o ppid= $(cat '" + pid_file_ + "'))");
  agent.join();
  ASSERT_EQ(128 + 9, first) << "the first agent was killed while listing:\n" << env_.Log();
  unlink((env_.dir() + "/hang").c_str());

  // Held for ever, the section would block the next run until it is killed.
  ASSERT_EQ(0, env_.Vyrvip(pair_->agent(), "--active -r vip11 -g grp1", nullptr, 30))
      << "the killed agent gave the section back:\n"
      << env_.Log();
  EXPECT_TRUE(Contains(Addrs("-4"), "inet 192.0.2.11/24")) << Addrs("-4");
  EXPECT_FALSE(Contains(Addrs("-4"), "192.0.2.10/")) << "the killed agent added nothing";
}

// 23 after the configured second, within three times it, and the tool ended.
TEST_F(StressFaults, HangingInterfaceToolTimesOutWithoutLeavingItBehind) {
  WriteConfig(Vip(12, "<ifconfig><timeout>1</timeout></ifconfig>" + kQuiet));
  const auto start = Clock::now();
  EXPECT_EQ(23, Run("--active -r vip12 -g grp1")) << env_.Log();
  const auto end = std::chrono::system_clock::now();
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));
  // From the start of the hanging listing (its pid file), within three times
  // the limit: a tool left hanging would take its 30 s.
  std::error_code ec;
  const auto listed =
      std::chrono::file_clock::to_sys(std::filesystem::last_write_time(pid_file_, ec));
  ASSERT_FALSE(ec) << "the tool did run";
  EXPECT_LE(end - listed, std::chrono::milliseconds(3000)) << "the limit ended the tool";
  std::string left;  // the bracket keeps pgrep's own shell from matching
  vyrtest::Sh("pgrep -af '" + bin_ + "[/]'", &left);
  EXPECT_EQ("", left) << "the tool was ended with the run";
  EXPECT_FALSE(Contains(Addrs("-4"), "192.0.2.12/"));
}

// A configuration that vanishes or is cut short between runs:
// 7 with the reason, the address left as it was.
TEST_F(StressFaults, VanishedOrTruncatedConfigurationGivesAClearStatus) {
  env_.WriteConfig(Vip(14, kQuiet), vyrtest::kCommon);
  ASSERT_EQ(0, Run("--active -r vip14 -g grp1")) << env_.Log();
  const std::string good = ReadFile(env_.config_path());
  const struct {
    bool vanish;
    std::string text, reason;
  } cases[] = {{true, "", env_.config_path()},
               {false, good.substr(0, good.size() / 2), "malformed XML"}};
  for (const auto& c : cases) {
    WriteFile(env_.config_path(), c.text);
    if (c.vanish) unlink(env_.config_path().c_str());
    std::string out;
    EXPECT_EQ(7, env_.Vyrvip(pair_->agent(), "--deactive -r vip14 -g grp1", &out)) << c.reason;
    EXPECT_TRUE(Contains(out, c.reason)) << out;
    EXPECT_TRUE(Contains(Addrs("-4"), "192.0.2.14/24")) << "nothing was changed";
  }
}

// 32 agents on one interface at once, 20 rounds: every run succeeds, each
// address gets an alias of its own, and nothing is left behind.
TEST_F(StressAgents, ThirtyTwoAgentsTwentyRoundsLeaveNothingBehind) {
  constexpr int kAgents = 32;
  // No probe, no frames, no ping confirmation: the rounds load the critical
  // section and the listing, not the mandated waits.
  std::string resources;
  for (int i = 0; i < kAgents; ++i) resources += Vip(100 + i, kQuiet);
  env_.WriteConfig(resources, vyrtest::kCommon, 2);
  auto run_all = [&](const std::string& mode) {  // every agent at once; their exit codes
    std::vector<int> codes(kAgents);
    std::vector<std::jthread> agents;
    for (size_t i = 0; i < codes.size(); ++i) {
      agents.emplace_back(
          [&, i] { codes[i] = Run(mode + " -r vip" + std::to_string(100 + i) + " -g g"); });
    }
    agents.clear();
    return codes;
  };
  for (int round = 0; round < 20 && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    EXPECT_EQ(run_all("--active"), std::vector<int>(kAgents, 0)) << env_.Log();
    std::string aliases;  // different ones, one per address
    pair_->InAgent("ip -o addr show dev va0 | grep -o 'va0:[0-9]*' | sort -u | wc -l", &aliases);
    EXPECT_EQ("32\n", aliases) << Addrs("-4");

    EXPECT_EQ(run_all("--deactive"), std::vector<int>(kAgents, 0)) << env_.Log();
    EXPECT_FALSE(Contains(Addrs("-4"), "va0:")) << Addrs("-4");
    EXPECT_TRUE(Contains(Addrs("-4"), "inet 192.0.2.1/24")) << "the own address stays";
    std::string left;  // the bracket keeps pgrep's own shell from matching
    vyrtest::Sh("pgrep -af '" + env_.prefix() + "/bin[/]'", &left);
    EXPECT_EQ("", left) << "no process left";
  }
}

}  // namespace
