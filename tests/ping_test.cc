// The probe fan-out: which addresses are probed, retries, the combined
// result, forcing and the cluster events, with fake ping commands that
// answer per address.
#include "vip/ping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "support/fake_ping.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vyrxml.h"

namespace {

using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using vyrtest::FakePingInstall;
using vyrtest::TraceCapture;

std::string Shmbuf() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

int FanOut(FakePingInstall& fake, const Strings& addrs) {
  std::vector<IP_INFO> recs(addrs.size());
  for (size_t i = 0; i < addrs.size(); ++i) {
    std::snprintf(recs[i].addr, sizeof recs[i].addr, "%s", addrs[i].c_str());
    recs[i].pinfo = &fake.info();
  }
  return vip_ping_mkth(recs.data(), static_cast<int>(recs.size()));
}

// Ping command lines for `addrs`, sorted: the probes run in any order.
Strings Sorted(Strings v, const char* prefix = "") {
  for (std::string& a : v) a = prefix + a;
  std::sort(v.begin(), v.end());
  return v;
}

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

TEST(PingFanOutTest, LastFailureInAddressOrderWins) {
  // The fake answers (exit 0) at 192.0.2.1 and fails with 2 at 192.0.2.2.
  const struct {
    Strings addrs;
    int want;
    const char* desc;
  } cases[] = {
      {{"192.0.2.1", "192.0.2.2"}, 2, "Internal error. (status=2)"},
      {{"192.0.2.2", "192.0.2.1"}, 15, "IP address was already used."},
      {{"192.0.2.1", "192.0.2.3"}, 15, "IP address was already used."},
      {{"192.0.2.3", "192.0.2.4"}, 0, ""},
  };
  for (const auto& c : cases) {
    FakePingInstall fake;
    fake.SetPing("case \"$3\" in 192.0.2.1) exit 0;; 192.0.2.2) exit 2;; *) exit 1;; esac");
    fake.SetArp("echo '? ether 02:00:5e:00:00:01'");
    EXPECT_EQ(FanOut(fake, c.addrs), c.want) << c.desc;
    EXPECT_EQ(Shmbuf(), c.desc);
    EXPECT_EQ(fake.PingCalls().size(), c.addrs.size());
  }
}

TEST(PingFanOutTest, RetriesUntilTheAddressStopsAnswering) {
  TraceCapture log;
  FakePingInstall fake;
  fake.info().pingretry = 3;
  fake.info().pinginterval = 1;
  // Answers the first two probes, not the third.
  const std::string count = fake.scratch() + "/count";
  fake.SetPing("n=$(cat '" + count + "' 2>/dev/null || echo 0); n=$((n+1)); echo $n > '" + count +
               "'; [ $n -ge 3 ] && exit 1; exit 0");
  fake.SetArp("exit 0");
  const auto start = Clock::now();
  EXPECT_EQ(vip_ping(&fake.info()), 0);
  const double took = Seconds(start);
  EXPECT_GE(took, 2.0);  // two sleeps of one second
  EXPECT_LT(took, 2.9);
  EXPECT_EQ(fake.PingCalls().size(), 3u);
  EXPECT_TRUE(log.Contains("ping(192.0.2.5) retry start, count=2."));
  EXPECT_TRUE(log.Texts("EVENT").empty());
  EXPECT_EQ(Shmbuf(), "");
}

// An address that keeps answering: event 10, and forcing goes on anyway
// (event 11) when activating, never when deactivating.
TEST(PingFanOutTest, HeldAddressEventsAndForcing) {
  const struct {
    const char* name;
    int force, retry, act, want;
    Strings events;
    const char* desc;
  } cases[] = {
      {"no retries", 0, 0, 0, 15, {"[event 10] 192.0.2.5"}, "IP address was already used."},
      {"forced", 1, 1, 0, 0, {"[event 10] 192.0.2.5", "[event 11] 192.0.2.5"}, ""},
      {"forced on deactivation", 1, 0, 1, 15, {}, "IP address was already used."},
  };
  for (const auto& c : cases) {
    TraceCapture log;
    FakePingInstall fake;
    actflag = c.act;
    fake.info().pingforce = c.force;
    fake.info().pingretry = c.retry;
    fake.info().pinginterval = 0;
    fake.SetPing("exit 0");
    fake.SetArp("exit 0");
    EXPECT_EQ(vip_ping(&fake.info()), c.want) << c.name;
    EXPECT_EQ(fake.PingCalls().size(), static_cast<size_t>(c.retry + 1)) << c.name;
    EXPECT_EQ(log.Texts("EVENT"), c.events) << c.name;
    EXPECT_EQ(log.Contains("force act vip(192.0.2.5)!"), c.want == 0) << c.name;
    EXPECT_EQ(Shmbuf(), c.desc) << c.name;
  }
}

TEST(PingFanOutTest, ProbesRunAtTheSameTime) {
  FakePingInstall fake;
  fake.SetPing("sleep 1; exit 1");
  Strings addrs;
  for (int i = 1; i <= 32; ++i) addrs.push_back("198.51.100." + std::to_string(i));
  const auto start = Clock::now();
  EXPECT_EQ(FanOut(fake, addrs), 0);
  EXPECT_LT(Seconds(start), 3.0) << "32 probes of one second each";
  EXPECT_EQ(Sorted(fake.PingCalls()), Sorted(addrs, "-c 1 "));
}

std::string Server(const char* name, const char* ip) {
  return std::string("<server name=\"") + name + "\"><parameters><ip>" + ip +
         "</ip></parameters></server>";
}

// With "pingallip": the common address, then every server's in enumeration
// order; anything that cannot be read narrows the probe to the own address.
TEST(PingAllAddressesTest, TargetsFollowTheClusterConfiguration) {
  const struct {
    const char* name;
    std::string servers;
    int act;
    Strings want;
  } cases[] = {
      {"three servers",
       Server("node3", "198.51.100.13") + Server("node1", "198.51.100.11/24") +
           Server("node2", "198.51.100.12"),
       0,
       {"198.51.100.10", "198.51.100.13", "198.51.100.11", "198.51.100.12"}},
      {"unreadable address",
       Server("node1", "198.51.100.11") + "<server name=\"node2\"/>" +
           Server("node3", "198.51.100.13"),
       0,
       {"192.0.2.5"}},
      {"deactivation", Server("node1", "198.51.100.11"), 1, {"192.0.2.5"}},
      {"no servers", "", 0, {"192.0.2.5"}},
  };
  for (const auto& c : cases) {
    FakePingInstall fake;
    const std::string config = fake.scratch() + "/cluster.xml";
    vyrtest::WriteFile(config,
                       "<root><resource><vip name=\"vip1\"><parameters><ip>198.51.100.10/24</ip>"
                       "</parameters>" +
                           c.servers + "</vip></resource></root>\n");
    vyrtest::ScopedEnv config_env("VYR_CONFIG", config);
    vyrtest::ScopedEnv policy_env("VYR_POLICY_DIR",
                                  std::string(VYR_SOURCE_DIR) + "/platform/policy");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
    fake.info().pingallip = 1;
    fake.SetPing("exit 1");
    actflag = c.act;
    TraceCapture log;
    EXPECT_EQ(vip_ping(&fake.info()), 0) << c.name;
    EXPECT_EQ(Sorted(fake.PingCalls()), Sorted(c.want, "-c 1 ")) << c.name;
    std::vector<IP_INFO> pips;
    vip_ping_targets(&fake.info(), &pips);
    Strings order;
    for (const IP_INFO& p : pips) order.push_back(p.addr);
    EXPECT_EQ(order, c.want) << c.name;
    if (c.servers.find("\"node2\"/>") != std::string::npos) {
      EXPECT_TRUE(log.Contains("ping ip=192.0.2.5 only."));
    }
    xmllib_unload_config();
    xmllib_term();
  }
}

}  // namespace
