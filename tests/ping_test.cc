// The duplicate-address probe and its fan-out, with a real script in place
// of the ping command that logs its arguments and answers per address.
#include "vip/ping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "common/shell.h"
#include "support/netns_fixture.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using vyrtest::StatusText;
using vyrtest::TraceCapture;

Strings Sorted(Strings v, const std::string& prefix = "") {
  for (std::string& a : v) a = prefix + a;
  std::sort(v.begin(), v.end());
  return v;
}

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

// The install folder's name needs quoting: a path handed to the shell
// unquoted would not find the command.
class PingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p " + vyr::ShellQuote(dir_ / "it's $(id) dir/bin")));
    std::snprintf(inspath, sizeof inspath, "%s", (dir_ / "it's $(id) dir").c_str());
    actflag = 0;
    ipv6flag = 0;
    vip_clear_shmbuf();
    std::snprintf(info_.rscname, sizeof info_.rscname, "vip1");
    std::snprintf(info_.addr, sizeof info_.addr, "192.0.2.5");
    std::snprintf(info_.pingcmd, sizeof info_.pingcmd, "bin/vyrping");
    std::snprintf(info_.arpcmd, sizeof info_.arpcmd, "/bin/true");
    info_.pingtout = 1;
  }

  void SetPing(const std::string& body) {
    vyrtest::WriteFile(dir_ / "calls", "");
    vyrtest::WriteFile(std::string(inspath) + "/bin/vyrping",
                       "#!/bin/sh\necho \"$*\" >> '" + dir_ / "calls" + "'\n" + body + "\n", 0755);
  }

  // The argument lists of the runs so far, sorted: probes run in any order.
  Strings Calls() const {
    Strings calls;
    std::istringstream in(vyrtest::ReadFile(dir_ / "calls"));
    for (std::string line; std::getline(in, line);) calls.push_back(line);
    return Sorted(calls);
  }

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

// Each probe's verdict (answer 15, failed run 2, no command 13, a text that
// is no address 2 and never run) and the last failure in address order wins.
TEST_F(PingTest, VerdictsCombineToTheLastFailureInAddressOrder) {
  const struct {
    Strings addrs;
    bool installed, runs;
    int want;
    const char* desc;
  } cases[] = {
      {{"192.0.2.1", "192.0.2.2"}, true, true, 2, "Internal error. (status=2)"},
      {{"192.0.2.2", "192.0.2.1"}, true, true, 15, "IP address was already used."},
      {{"192.0.2.1", "192.0.2.3"}, true, true, 15, "IP address was already used."},
      {{"192.0.2.3", "192.0.2.4"}, true, true, 0, ""},
      {{"192.0.2.5;id"}, true, false, 2, "Internal error. (status=2)"},
      {{"192.0.2.1"}, false, false, 13, "Internal error. (status=13)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.addrs[0]);
    vip_clear_shmbuf();
    SetPing("case \"$3\" in 192.0.2.1) exit 0;; 192.0.2.2) exit 2;; *) exit 1;; esac");
    if (!c.installed) std::remove((std::string(inspath) + "/bin/vyrping").c_str());
    info_.pingtout = 3;
    EXPECT_EQ(FanOut(c.addrs), c.want);
    EXPECT_EQ(StatusText(), c.desc);
    EXPECT_EQ(Calls(), c.runs ? Sorted(c.addrs, "-c 3 ") : Strings{});
  }
}

TEST_F(PingTest, RetriesUntilTheAddressStopsAnswering) {
  info_.pingretry = 3;
  info_.pinginterval = 1;
  SetPing("n=$(wc -l < '" + dir_ / "calls" + "'); [ $n -ge 3 ] && exit 1; exit 0");
  const auto start = Clock::now();
  EXPECT_EQ(vip_ping(&info_), 0);
  EXPECT_GE(Seconds(start), 2.0) << "two sleeps of one second";
  EXPECT_LT(Seconds(start), 2.9);
  EXPECT_EQ(Calls().size(), 3u);
}

// An address that keeps answering raises event 10; forcing goes on anyway
// with event 11 when activating, never when deactivating.
TEST_F(PingTest, HeldAddressEventsAndForcing) {
  const struct {
    int force, act, want;
    Strings events;
  } cases[] = {
      {0, 0, 15, {"[event 10] 192.0.2.5"}},
      {1, 0, 0, {"[event 10] 192.0.2.5", "[event 11] 192.0.2.5"}},
      {1, 1, 15, {}},
  };
  SetPing("exit 0");
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "force " << c.force << " act " << c.act);
    TraceCapture log;
    vip_clear_shmbuf();
    actflag = c.act;
    info_.pingforce = c.force;
    EXPECT_EQ(vip_ping(&info_), c.want);
    EXPECT_EQ(log.Texts("EVENT"), c.events);
    EXPECT_EQ(StatusText(), c.want ? "IP address was already used." : "");
  }
}

TEST_F(PingTest, ProbesRunAtTheSameTime) {
  SetPing("sleep 1; exit 1");
  Strings addrs;
  for (int i = 1; i <= 32; ++i) addrs.push_back("198.51.100." + std::to_string(i));
  const auto start = Clock::now();
  EXPECT_EQ(FanOut(addrs), 0);
  EXPECT_LT(Seconds(start), 3.0) << "32 probes of one second each";
  EXPECT_EQ(Calls(), Sorted(addrs, "-c 1 "));
}

std::string Server(const char* name, const char* ip) {
  return std::string("<server name=\"") + name + "\"><parameters><ip>" + ip +
         "</ip></parameters></server>";
}

// With "pingallip": the common address, then every server's in enumeration
// order; an address that cannot be read, or deactivation, probes the own only.
TEST_F(PingTest, AllAddressesFollowTheClusterConfiguration) {
  const struct {
    std::string servers;
    int act;
    Strings want;
  } cases[] = {
      {Server("node3", "198.51.100.13") + Server("node1", "198.51.100.11/24") +
           Server("node2", "198.51.100.12"),
       0,
       {"198.51.100.10", "198.51.100.13", "198.51.100.11", "198.51.100.12"}},
      {Server("node1", "198.51.100.11") + "<server name=\"node2\"/>", 0, {"192.0.2.5"}},
      {Server("node1", "198.51.100.11"), 1, {"192.0.2.5"}},
  };
  vyrtest::ScopedEnv config_env("VYR_CONFIG", dir_ / "cluster.xml");
  vyrtest::ScopedEnv policy_env("VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy");
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
    std::vector<IP_INFO> pips;
    vip_ping_targets(&info_, &pips);
    Strings order;
    for (const IP_INFO& p : pips) order.push_back(p.addr);
    EXPECT_EQ(order, c.want);
    SetPing("exit 1");
    EXPECT_EQ(vip_ping(&info_), 0);
    EXPECT_EQ(Calls(), Sorted(c.want, "-c 1 "));
    xmllib_unload_config();
    xmllib_term();
  }
}

}  // namespace
