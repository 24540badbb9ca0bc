// The probe fan-out: which addresses are probed, retries, the combined
// result, forcing and the cluster events, with fake ping commands that
// answer per address.
#include "vip/ping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_ping.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vyrxml.h"

namespace {

using Clock = std::chrono::steady_clock;
using vyrtest::FakePingInstall;
using vyrtest::TraceCapture;

std::string Shmbuf() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

std::vector<IP_INFO> Records(FakePingInstall& fake, const std::vector<std::string>& addrs) {
  std::vector<IP_INFO> recs;
  for (const std::string& a : addrs) {
    IP_INFO r{};
    std::snprintf(r.addr, sizeof r.addr, "%s", a.c_str());
    r.pinfo = &fake.info();
    recs.push_back(r);
  }
  return recs;
}

double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

// The fake answers (exit 0) at 192.0.2.1 and fails with 2 at 192.0.2.2.
constexpr const char* kPerAddress =
    "case \"$3\" in 192.0.2.1) exit 0;; 192.0.2.2) exit 2;; *) exit 1;; esac";

TEST(PingFanOutTest, LastFailureInAddressOrderWins) {
  struct Case {
    std::vector<std::string> addrs;
    int want;
    const char* desc;
  } cases[] = {
      {{"192.0.2.1", "192.0.2.2"}, 2, "Internal error. (status=2)"},
      {{"192.0.2.2", "192.0.2.1"}, 15, "IP address was already used."},
      {{"192.0.2.1", "192.0.2.3"}, 15, "IP address was already used."},
      {{"192.0.2.3", "192.0.2.4"}, 0, ""},
  };
  for (const Case& c : cases) {
    FakePingInstall fake;
    fake.SetPing(kPerAddress);
    fake.SetArp("echo '? ether 02:00:5e:00:00:01'");
    auto recs = Records(fake, c.addrs);
    EXPECT_EQ(vip_ping_mkth(recs.data(), static_cast<int>(recs.size())), c.want) << c.desc;
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
  EXPECT_FALSE(log.Contains("retry start, count=3."));
  EXPECT_TRUE(log.Contains("vip_chk_ip_response(192.0.2.5) succeeded."));
  EXPECT_TRUE(log.Texts("EVENT").empty());
  EXPECT_EQ(Shmbuf(), "");
}

TEST(PingFanOutTest, NoRetriesMeansOneAttemptAndEventTen) {
  TraceCapture log;
  FakePingInstall fake;
  fake.SetPing("exit 0");
  fake.SetArp("exit 0");
  EXPECT_EQ(vip_ping(&fake.info()), 15);
  EXPECT_EQ(fake.PingCalls().size(), 1u);
  EXPECT_FALSE(log.Contains("retry failed."));
  EXPECT_EQ(log.Texts("EVENT"), std::vector<std::string>{"[event 10] 192.0.2.5"});
  EXPECT_EQ(Shmbuf(), "IP address was already used.");
}

TEST(PingFanOutTest, ForcingActivatesAnywayButNotOnDeactivation) {
  {
    TraceCapture log;
    FakePingInstall fake;
    fake.info().pingforce = 1;
    fake.info().pingretry = 1;
    fake.info().pinginterval = 0;
    fake.SetPing("exit 0");
    fake.SetArp("exit 0");
    EXPECT_EQ(vip_ping(&fake.info()), 0);
    EXPECT_TRUE(log.Contains("force act vip(192.0.2.5)!"));
    EXPECT_TRUE(log.Contains("ping(192.0.2.5) retry failed."));
    EXPECT_EQ(log.Texts("EVENT"),
              (std::vector<std::string>{"[event 10] 192.0.2.5", "[event 11] 192.0.2.5"}));
    EXPECT_EQ(Shmbuf(), "");
  }
  {
    TraceCapture log;
    FakePingInstall fake;
    actflag = 1;
    fake.info().pingforce = 1;
    fake.SetPing("exit 0");
    fake.SetArp("exit 0");
    EXPECT_EQ(vip_ping(&fake.info()), 15);
    EXPECT_FALSE(log.Contains("force act vip"));
    EXPECT_TRUE(log.Texts("EVENT").empty());
  }
}

TEST(PingFanOutTest, ProbesRunAtTheSameTime) {
  FakePingInstall fake;
  fake.SetPing("sleep 1; exit 1");
  std::vector<std::string> addrs;
  for (int i = 1; i <= 32; ++i) addrs.push_back("198.51.100." + std::to_string(i));
  auto recs = Records(fake, addrs);
  const auto start = Clock::now();
  EXPECT_EQ(vip_ping_mkth(recs.data(), static_cast<int>(recs.size())), 0);
  const double took = Seconds(start);
  EXPECT_LT(took, 3.0) << "32 probes of one second each took " << took << " s";
  auto calls = fake.PingCalls();
  std::sort(calls.begin(), calls.end());
  std::vector<std::string> want;
  for (const auto& a : addrs) want.push_back("-c 1 " + a);
  std::sort(want.begin(), want.end());
  EXPECT_EQ(calls, want);
}

// A cluster configuration with a common address and three servers.
class PingAllAddressesTest : public ::testing::Test {
 protected:
  void Load(const std::string& servers) {
    const std::string config = fake_.scratch() + "/cluster.xml";
    vyrtest::WriteFile(config,
                       "<root><resource><vip name=\"vip1\">"
                       "<parameters><ip>198.51.100.10/24</ip></parameters>" +
                           servers + "</vip></resource></root>\n");
    config_env_.emplace("VYR_CONFIG", config);
    policy_env_.emplace("VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
    fake_.info().pingallip = 1;
    fake_.SetPing("exit 1");
  }
  void TearDown() override {
    xmllib_unload_config();
    xmllib_term();
  }
  static std::string Server(const char* name, const char* ip) {
    return std::string("<server name=\"") + name + "\"><parameters><ip>" + ip +
           "</ip></parameters></server>";
  }
  std::vector<std::string> Targets() {
    std::vector<IP_INFO> pips;
    vip_ping_targets(&fake_.info(), &pips);
    std::vector<std::string> addrs;
    for (const IP_INFO& p : pips) {
      EXPECT_EQ(p.pinfo, &fake_.info());
      addrs.push_back(p.addr);
    }
    return addrs;
  }
  static std::vector<std::string> Sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
  }

  FakePingInstall fake_;
  std::optional<vyrtest::ScopedEnv> config_env_, policy_env_;
};

TEST_F(PingAllAddressesTest, CommonAddressThenEveryServerInOrder) {
  Load(Server("node3", "198.51.100.13") + Server("node1", "198.51.100.11/24") +
       Server("node2", "198.51.100.12"));
  const std::vector<std::string> want = {"198.51.100.10", "198.51.100.13", "198.51.100.11",
                                         "198.51.100.12"};
  EXPECT_EQ(Targets(), want);
  EXPECT_EQ(vip_ping(&fake_.info()), 0);
  EXPECT_EQ(Sorted(fake_.PingCalls()), Sorted({"-c 1 198.51.100.10", "-c 1 198.51.100.13",
                                               "-c 1 198.51.100.11", "-c 1 198.51.100.12"}));
}

TEST_F(PingAllAddressesTest, UnreadableAddressNarrowsToTheOwnAddress) {
  Load(Server("node1", "198.51.100.11") + "<server name=\"node2\"/>" +
       Server("node3", "198.51.100.13"));
  TraceCapture log;
  EXPECT_EQ(Targets(), std::vector<std::string>{"192.0.2.5"});
  EXPECT_TRUE(log.Contains("ping ip=192.0.2.5 only."));
  EXPECT_EQ(vip_ping(&fake_.info()), 0);
  EXPECT_EQ(fake_.PingCalls(), std::vector<std::string>{"-c 1 192.0.2.5"});
}

TEST_F(PingAllAddressesTest, DeactivationProbesOnlyTheOwnAddress) {
  Load(Server("node1", "198.51.100.11"));
  actflag = 1;
  EXPECT_EQ(Targets(), std::vector<std::string>{"192.0.2.5"});
}

TEST_F(PingAllAddressesTest, NoServersNarrowsToTheOwnAddress) {
  Load("");
  EXPECT_EQ(Targets(), std::vector<std::string>{"192.0.2.5"});
}

}  // namespace
