// vyrvip end to end through the interface tool (a fake tool of the older
// layout on PATH, so the tool lists, adds and removes), and many agents at
// once on one interface.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/agent_fixture.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::Resource;

class AgentToolE2E : public AgentE2E {
 protected:
  void SetUp() override {
    AgentE2E::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    std::string bin = env_.dir() + "/bin";
    vyrtest::Sh("mkdir -p '" + bin + "' && cp '" VYR_TESTDATA_DIR "/tools/ifconfig-older' '" + bin +
                "/ifconfig'");
    env_.SetExtraEnv("PATH='" + bin + ":/usr/sbin:/usr/bin:/sbin:/bin'");
  }
};

constexpr const char* kToolCommon =
    "<ping><path>bin/vyrping</path></ping><ifconfig><path>ifconfig</path></ifconfig>";

TEST_F(AgentToolE2E, Ipv4ThroughTheTool) {
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.10/24</ip><ifname>va0</ifname>"
                            "<arp><retry>0</retry></arp>"),
                   kToolCommon);
  ASSERT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_TRUE(Contains(env_.Log(), "system(")) << "the tool made the change";
  EXPECT_TRUE(
      Contains(AgentAddrs(), "inet 192.0.2.10/24 brd 192.0.2.255 scope global secondary va0:0"))
      << AgentAddrs();
  ASSERT_EQ(0, Run("--deactive -r vip1 -g grp1")) << env_.Log();
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.10"));
}

TEST_F(AgentToolE2E, Ipv6ThroughTheToolKeepsThePrefix) {
  env_.WriteConfig(Resource("vip6", "<ip>2001:db8::20/64</ip><ifname>va0</ifname>"), kToolCommon);
  ASSERT_EQ(0, Run("--active -r vip6 -g grp6")) << env_.Log();
  EXPECT_TRUE(Contains(AgentAddrs("-6"), "inet6 2001:db8::20/64")) << AgentAddrs("-6");
  ASSERT_EQ(0, Run("--deactive -r vip6 -g grp6")) << env_.Log();
  EXPECT_FALSE(Contains(AgentAddrs("-6"), "2001:db8::20/")) << AgentAddrs("-6");
}

TEST_F(AgentToolE2E, AddressThatStaysListedFailsOnlyWithTheErrorSwitch) {
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.60/24 dev va0 label va0:4"));
  env_.SetExtraEnv("FAKE_IFCONFIG_STUBBORN=1 PATH='" + env_.dir() +
                   "/bin:/usr/sbin:/usr/bin:/sbin:/bin'");
  const std::string params =
      "<ip>192.0.2.60/24</ip><ifname>va0</ifname><check><ifconfig><retry>1</retry>"
      "<interval>1</interval><error>%d</error></ifconfig><ping><execute>0</execute></ping></check>";
  std::string on = params, off = params;
  on.replace(on.find("%d"), 2, "1");
  off.replace(off.find("%d"), 2, "0");
  env_.WriteConfig(Resource("vip1", on) + Resource("vip2", off), kToolCommon);

  EXPECT_EQ(24, Run("--deactive -r vip1 -g grp1"));
  EXPECT_EQ("Internal error. (status=24)", env_.Description("grp1", "vip1"));
  EXPECT_EQ(0, Run("--deactive -r vip2 -g grp1"));
  EXPECT_TRUE(Contains(env_.Log(), "deact check ifconfig retry count over. (ip=192.0.2.60)"));
}

TEST_F(AgentE2E, ThirtyTwoAgentsAtOnceEachGetTheirOwnAlias) {
  std::string resources;
  for (int i = 0; i < 32; ++i) {
    resources += Resource("vip" + std::to_string(i),
                          "<ip>198.51.100." + std::to_string(100 + i) +
                              "/24</ip><ifname>va0</ifname><arp><retry>0</retry></arp>");
  }
  env_.WriteConfig(resources, vyrtest::kCommon, 4);

  auto run_all = [&](const char* mode) {
    std::vector<int> codes(32, -1);
    std::vector<std::thread> agents;
    for (int i = 0; i < 32; ++i) {
      agents.emplace_back([&, i] {
        codes[static_cast<size_t>(i)] =
            Run(std::string(mode) + " -r vip" + std::to_string(i) + " -g grp1");
      });
    }
    for (auto& agent : agents) agent.join();
    return codes;
  };

  for (int code : run_all("--active")) EXPECT_EQ(0, code);
  std::string addrs = AgentAddrs();
  std::set<std::string> labels;
  for (int i = 0; i < 32; ++i) {
    std::string needle = "198.51.100." + std::to_string(100 + i) + "/24";
    size_t at = addrs.find(needle);
    ASSERT_NE(std::string::npos, at) << needle << " missing:\n" << addrs;
    size_t eol = addrs.find('\n', at);
    size_t label = addrs.rfind(' ', eol);
    labels.insert(addrs.substr(label + 1, eol - label - 1));
  }
  EXPECT_EQ(32u, labels.size()) << "every address on its own alias:\n" << addrs;

  for (int code : run_all("--deactive")) EXPECT_EQ(0, code);
  EXPECT_FALSE(Contains(AgentAddrs(), "198.51.100.")) << AgentAddrs();
  std::string leftovers;
  // The bracket keeps pgrep's own shell from matching the pattern.
  vyrtest::Sh("pgrep -f '" + env_.prefix() + "/bin/[v]yr' || true", &leftovers);
  EXPECT_EQ("", leftovers) << "no process left behind";
}

}  // namespace
