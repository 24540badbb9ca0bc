// The duplicate-address probe and its fan-out, with a script as the ping
// command, then vyrping itself in private network namespaces.
#include "vip/defence/ping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/shell.h"
#include "support/netns_fixture.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using Strings = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// The install folder's name needs quoting: unquoted, no command is found.
class PingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p " + vyr::ShellQuote(dir_ / "it's $(id)/bin")));
    std::snprintf(inspath, sizeof inspath, "%s", (dir_ / "it's $(id)").c_str());
    std::snprintf(info_.rscname, sizeof info_.rscname, "vip1");
    std::snprintf(info_.addr, sizeof info_.addr, "192.0.2.5");
    std::snprintf(info_.pingcmd, sizeof info_.pingcmd, "bin/vyrping");
    std::snprintf(info_.arpcmd, sizeof info_.arpcmd, "/bin/true");
    info_.pingtout = 1;
    actflag = 0;
  }

  // The ping command logs its arguments, then runs `body`.
  void SetPing(const std::string& body) {
    vyrtest::WriteFile(dir_ / "calls", "");
    vyrtest::WriteFile(std::string(inspath) + "/bin/vyrping",
                       "#!/bin/sh\necho \"$*\" >> '" + dir_ / "calls" + "'\n" + body + "\n", 0755);
  }

  // The argument lists of the runs so far, one per line, and their count.
  std::string Ran() const { return vyrtest::ReadFile(dir_ / "calls"); }
  size_t Runs() const { return static_cast<size_t>(std::ranges::count(Ran(), '\n')); }

  int FanOut(const Strings& addrs) {
    std::vector<IP_INFO> recs(addrs.size());
    for (size_t i = 0; i < addrs.size(); ++i) {
      std::snprintf(recs[i].addr, sizeof recs[i].addr, "%s", addrs[i].c_str());
      recs[i].pinfo = &info_;
    }
    return vip_ping_mkth(recs.data(), static_cast<int>(recs.size()));
  }

  vyrtest::TempDir dir_;
  VIP_INFO info_{};
};

// Per address an answer is 15 (event 10 when activating), a failed run 2, a
// signal 11, no command 13; the last failure in address order wins; forcing
// makes it 0 with event 11 when activating.
TEST_F(PingTest, VerdictsCombineAndForcingOverrides) {
  const char* kUsed = "IP address was already used.";
  const Strings kHeld = {"[event 10] 192.0.2.5"};
  const struct {
    Strings addrs;
    int force, act;
    size_t runs;
    int want;
    const char* desc;
    Strings events;
  } cases[] = {
      {{"192.0.2.5", "192.0.2.2"}, 0, 0, 2, 2, "Internal error. (status=2)", kHeld},
      {{"192.0.2.2", "192.0.2.5"}, 0, 0, 2, 15, kUsed, kHeld},
      {{"192.0.2.5", "192.0.2.3"}, 0, 1, 2, 15, kUsed, {}},
      {{"192.0.2.5"}, 1, 0, 1, 0, "", {"[event 10] 192.0.2.5", "[event 11] 192.0.2.5"}},
      {{"192.0.2.5"}, 1, 1, 1, 15, kUsed, {}},
      {{"192.0.2.9"}, 0, 0, 1, 11, "Internal error. (status=11)", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.addrs[0] << " force " << c.force << " act " << c.act);
    vyrtest::TraceCapture log;
    vip_clear_shmbuf();
    SetPing(
        "case \"$3\" in 192.0.2.5) exit 0;; 192.0.2.2) exit 2;; 192.0.2.9) kill -SEGV 0; sleep 5;;"
        " 192.0.2.?) exit 1;; *) exit 2;; esac");
    info_.pingforce = c.force;
    actflag = c.act;
    EXPECT_EQ(FanOut(c.addrs), c.want);
    EXPECT_EQ(vyrtest::StatusText(), c.desc);
    EXPECT_EQ(Runs(), c.runs);
    EXPECT_EQ(log.Texts("EVENT"), c.events);
  }
  std::remove((std::string(inspath) + "/bin/vyrping").c_str());
  EXPECT_EQ(FanOut({"192.0.2.3"}), 13);
  EXPECT_EQ(vyrtest::StatusText(), "Internal error. (status=13)");
}

// The command lines as the trace and the description show them: the paths
// double-quoted, the address as configured, a word the shell would act on
// quoted; what answers is looked up, an IPv6 address of an IPv4 resource too.
TEST_F(PingTest, CommandLinesReachTheCommandsWordForWord) {
  const std::string arp = "a\"$`\\b";  // a bare name, found on PATH as "arp" is
  vyrtest::ScopedEnv path_env("PATH", dir_.path() + ":" + std::getenv("PATH"));
  vyrtest::WriteFile(dir_ / arp, "#!/bin/sh\necho \"$# $*\" >> '" + dir_ / "calls" + "'\nexit 1\n",
                     0755);
  std::snprintf(info_.arpcmd, sizeof info_.arpcmd, "%s", arp.c_str());
  const std::string ping = "system(\"" + dir_.path() + "/it's \\$(id)/bin/vyrping\" -c 1 ";
  const std::string lookup = "\"a\\\"\\$\\`\\\\b\" -n ";
  const std::string quiet = " > /dev/null 2>&1)...";
  const struct {
    const char* addr;
    int v6, want;
    std::string calls;  // ping's arguments, then the lookup's count and arguments
    Strings info, errors;
    std::string desc;
  } cases[] = {
      // clang-format off
      {"192.0.2.5", 0, 15, "-c 1 192.0.2.5\n2 -n 192.0.2.5\n",
       {ping + "192.0.2.5" + quiet, "popen(" + lookup + "192.0.2.5)..."},
       {lookup + "192.0.2.5 : failed. (ret=1)", "192.0.2.5 is already exist. (ret=3)"},
       "Command failed. (" + lookup + "192.0.2.5, ret=1)"},
      {"2001:db8::5", 0, 15, "-c 1 2001:db8::5\n2 -n 2001:db8::5\n",
       {ping + "2001:db8::5" + quiet, "popen(" + lookup + "2001:db8::5)..."},
       {lookup + "2001:db8::5 : failed. (ret=1)", "2001:db8::5 is already exist. (ret=3)"},
       "Command failed. (" + lookup + "2001:db8::5, ret=1)"},
      {"2001:db8::5", 1, 15, "-c 1 2001:db8::5\n", {ping + "2001:db8::5" + quiet},
       {"2001:db8::5 is already exist. (ret=1)"}, ""},
      {" 198.51.100.7\t", 0, 0, "-c 1 198.51.100.7\n", {ping + " 198.51.100.7\t" + quiet}, {}, ""},
      {"192.0.2.9 `id` $HOME", 0, 2, "-c 1 192.0.2.9 `id` $HOME\n",
       {ping + "192.0.2.9 '`id`' '$HOME'" + quiet},
       {"ping to 192.0.2.9 `id` $HOME failed (after system())."}, ""},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.addr);
    SetPing(
        "[ $# = 3 ] || exit 3; case \"$3\" in 192.0.2.5|2001:db8::5) exit 0;; "
        "198.51.100.*) exit 1;; *) exit 2;; esac");
    vyrtest::TraceCapture log;
    vip_clear_shmbuf();
    ipv6flag = c.v6;
    IP_INFO rec{};
    std::snprintf(rec.addr, sizeof rec.addr, "%s", c.addr);
    rec.pinfo = &info_;
    EXPECT_EQ(vip_chk_ip_response(&rec), c.want);
    EXPECT_EQ(Ran(), c.calls);
    EXPECT_EQ(log.Texts("INFO"), c.info);
    EXPECT_EQ(log.Texts("ERROR"), c.errors);
    EXPECT_EQ(vyrtest::StatusText(), c.desc);
  }
}

// Retries 3 one second apart; the address stops answering at the third probe.
TEST_F(PingTest, RetriesUntilTheAddressStopsAnswering) {
  info_.pingretry = 3;
  info_.pinginterval = 1;
  info_.pingtout = 2;
  SetPing("[ $(wc -l < '" + dir_ / "calls" + "') -ge 3 ] && exit 1; exit 0");
  const auto start = Clock::now();
  EXPECT_EQ(vip_ping(&info_), 0);
  EXPECT_GE(Clock::now() - start, std::chrono::seconds(2)) << "two sleeps of one second";
  EXPECT_EQ(Ran(), "-c 2 192.0.2.5\n-c 2 192.0.2.5\n-c 2 192.0.2.5\n") << "-c is the ping timeout";
}

TEST_F(PingTest, ProbesRunAtTheSameTime) {
  SetPing("sleep 1; exit 1");
  Strings addrs;
  for (int i = 1; i <= 32; ++i) addrs.push_back("198.51.100." + std::to_string(i));
  const auto start = Clock::now();
  EXPECT_EQ(FanOut(addrs), 0);
  // One after the other they would take 32 seconds; at once about one.
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << "32 probes of one second each";
  EXPECT_EQ(Runs(), addrs.size());
}

// With "pingallip": the common address, then every server's in enumeration
// order; an address that cannot be read, or deactivation, probes the own only.
TEST_F(PingTest, AllAddressesFollowTheClusterConfiguration) {
  const std::string three =
      "<server name=\"node3\"><parameters><ip>198.51.100.13</ip></parameters></server>"
      "<server name=\"node1\"><parameters><ip>198.51.100.11/24</ip></parameters></server>"
      "<server name=\"node2\"><parameters><ip>198.51.100.12</ip></parameters></server>";
  const struct {
    int act;
    Strings want;
    std::string servers;
    Strings warnings;
  } cases[] = {
      {0, {"198.51.100.10", "198.51.100.13", "198.51.100.11", "198.51.100.12"}, three, {}},
      // A server without its own address narrows the probing to this server's.
      {0, {"192.0.2.5"}, three + "<server name=\"node4\"/>", {"ping ip=192.0.2.5 only."}},
      {1, {"192.0.2.5"}, three, {}},
  };
  vyrtest::ScopedEnv config_env("VYR_CONFIG", dir_ / "cluster.xml");
  vyrtest::ScopedEnv policy_env("VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy");
  info_.pingallip = 1;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.want.size());
    vyrtest::WriteFile(dir_ / "cluster.xml",
                       "<root><resource><vip name=\"vip1\"><parameters><ip>198.51.100.10/24</ip>"
                       "</parameters>" +
                           c.servers + "</vip></resource></root>\n");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
    actflag = c.act;
    std::vector<IP_INFO> targets;
    vyrtest::TraceCapture log;
    vip_ping_targets(&info_, &targets);
    EXPECT_EQ(log.Texts("WARN"), c.warnings);
    Strings order;
    for (const IP_INFO& t : targets) order.push_back(t.addr);
    EXPECT_EQ(order, c.want);
    SetPing("exit 1");
    EXPECT_EQ(vip_ping(&info_), 0);
    EXPECT_EQ(Runs(), c.want.size());
    xmllib_unload_config();
    xmllib_term();
  }
}

// The peer holds 192.0.2.2 and 2001:db8::2, .3 and ::3 are free.
using ProbeNetns = vyrtest::AgentNetnsTest;

// Sixteen vyrpings at once, each taking only its own replies, then one
// alone, timed: a reply or bad arguments end it at once, silence one second
// after the last request (bounds only against that second, with 3x margin).
TEST_F(ProbeNetns, VyrpingExitStatusAndTiming) {
  const struct {
    const char* args;
    int want;
    double min_s, max_s;
  } cases[] = {
      {"-c 5 192.0.2.2", 0, 0, 0.9},
      {"-c 2 192.0.2.3", 1, 2.0, 6.0},
      {"-c 1 2001:db8::2", 0, 0, 0.9},
      {"-c 1 2001:db8::3", 1, 1.0, 3.0},
      {"-c 1 host.example", 2, 0, 0.9},
      {"-c 0 192.0.2.2", 2, 0, 0.9},
      {"-c 1", 2, 0, 0.9},
      {"-c 1 192.0.2.2 192.0.2.3", 2, 0, 0.9},
  };
  ASSERT_EQ(0, pair_->AddAddresses());
  const std::string vyrping = VYR_BINARY_DIR "/platform/vyrping/vyrping ";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    std::string out, want;
    vyrtest::Sh("for i in $(seq 16); do (" + vyrping + c.args +
                    " >/dev/null 2>&1; echo rc=$?) & done; wait",
                &out);
    for (int i = 0; i < 16; ++i) want += "rc=" + std::to_string(c.want) + "\n";
    EXPECT_EQ(out, want);

    const auto start = Clock::now();
    EXPECT_EQ(vyrtest::Sh(vyrping + c.args + " >/dev/null 2>&1"), c.want);
    const std::chrono::duration<double> took = Clock::now() - start;
    EXPECT_GE(took.count(), c.min_s);
    EXPECT_LT(took.count(), c.max_s);
  }
}

}  // namespace
