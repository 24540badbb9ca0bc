// vyrvip end to end: the installed programs, a real configuration, the
// cluster tables started with vyrctl, and the agent run inside a private
// pair of network namespaces (va0 on the agent's side, vb0 on the peer).
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "support/agent_fixture.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::kCommon;
using vyrtest::Resource;

TEST_F(AgentE2E, Ipv4ActivationUsesAliasAnnouncesAndDeactivationRemoves) {
  env_.WriteConfig(Resource("vip1", "<ip>192.0.2.10/24</ip><ifname>va0</ifname>"), kCommon);
  std::string arp = CaptureArp();

  ASSERT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_EQ("Success.", env_.Description("grp1", "vip1"));
  std::string addrs = AgentAddrs();
  EXPECT_TRUE(Contains(addrs, "inet 192.0.2.10/24 brd 192.0.2.255 scope global secondary va0:0"))
      << addrs;
  ASSERT_TRUE(WaitFor(arp, "tell 192.0.2.10")) << vyrtest::ReadFile(arp);
  std::string frame = vyrtest::ReadFile(arp);
  EXPECT_TRUE(Contains(frame, "> ff:ff:ff:ff:ff:ff, ethertype ARP (0x0806), length 60")) << frame;
  EXPECT_TRUE(Contains(frame, "Request who-has 192.0.2.10")) << frame;

  ASSERT_EQ(0, Run("--deactive -r vip1 -g grp1")) << env_.Log();
  EXPECT_EQ("Success.", env_.Description("grp1", "vip1"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.10"));
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.1/24")) << "the interface's own address stays";
}

// Up, then down again: where the address lands and that it goes away.
TEST_F(AgentE2E, ActivationThenDeactivation) {
  struct Case {
    const char* up;
    const char* down;
    const char* family;
    const char* shown;  // as `ip addr` shows the address once it is up
    const char* gone;
  };
  const Case cases[] = {
      // No mask configured: the interface's own mask and broadcast.
      {"--active -r vip2 -g grp1", "--deactive -r vip2 -g grp1", "-4",
       "inet 192.0.2.11/24 brd 192.0.2.255 scope global secondary va0:0", "192.0.2.11"},
      // IPv6 goes on the interface itself; its prefix is kept for the removal.
      {"--active -r vip6 -g grp6", "--deactive -r vip6 -g grp6", "-6", "inet6 2001:db8::10/64",
       "2001:db8::10/"},
      // Manual mode: address and interface from the command line.
      {"--add -a 198.51.100.5/24 -i va0", "--del -a 198.51.100.5", "-4",
       "inet 198.51.100.5/24 brd 198.51.100.255 scope global va0:0", "198.51.100.5"},
  };
  env_.WriteConfig(Resource("vip2",
                            "<ip>192.0.2.11</ip><ifname>va0</ifname>"
                            "<arp><retry>0</retry></arp>") +
                       Resource("vip6", "<ip>2001:db8::10/64</ip><ifname>va0</ifname>"),
                   kCommon);
  for (const Case& c : cases) {
    ASSERT_EQ(0, Run(c.up)) << c.up << "\n" << env_.Log();
    EXPECT_TRUE(Contains(AgentAddrs(c.family), c.shown)) << c.up << "\n" << AgentAddrs(c.family);
    ASSERT_EQ(0, Run(c.down)) << c.down << "\n" << env_.Log();
    EXPECT_FALSE(Contains(AgentAddrs(c.family), c.gone)) << c.down << "\n" << AgentAddrs(c.family);
  }
  EXPECT_EQ("Success.", env_.Description("grp6", "vip6"));
}

TEST_F(AgentE2E, AddressHeldByThePeerIsRefused) {
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.20/24 dev vb0"));
  env_.WriteConfig(Resource("vip1", "<ip>192.0.2.20/24</ip><ifname>va0</ifname>"), kCommon);
  EXPECT_EQ(15, Run("--active -r vip1 -g grp1"));
  EXPECT_EQ("IP address was already used.", env_.Description("grp1", "vip1"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.20"));
}

TEST_F(AgentE2E, NpsimuSkipsTheProbeUnlessTheResourceAsksForIt) {
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.21/24 dev vb0"));
  ASSERT_EQ(0, env_.Ctl("npsimu on"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.21/24</ip><ifname>va0</ifname>"
                            "<arp><retry>0</retry></arp>") +
                       Resource("vip3",
                                "<ip>192.0.2.21/24</ip><ifname>va0</ifname>"
                                "<ping><execute_in_npsimu_on_act>1"
                                "</execute_in_npsimu_on_act></ping>"),
                   kCommon);
  EXPECT_EQ(15, Run("--active -r vip3 -g grp1")) << "probing is forced by the resource";
  ASSERT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_TRUE(Contains(env_.Log(), "ping was not executed because npsimu is enabled."));
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.21/24"));
}

TEST_F(AgentE2E, AddressAlreadyOnThisHostIsRefused) {
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.30/24 dev va0 label va0:7"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.30/24</ip><ifname>va0</ifname>"
                            "<ping><timeout>0</timeout></ping>"),
                   kCommon);
  EXPECT_EQ(15, Run("--active -r vip1 -g grp1"));
  EXPECT_EQ("This ip address was already used.  IP=192.0.2.30", env_.Description("grp1", "vip1"));
}

TEST_F(AgentE2E, DeactivatingAnAbsentAddressSucceeds) {
  env_.WriteConfig(Resource("vip1", "<ip>192.0.2.40/24</ip><ifname>va0</ifname>"), kCommon);
  EXPECT_EQ(0, Run("--deactive -r vip1 -g grp1"));
  EXPECT_TRUE(Contains(env_.Log(), "192.0.2.40 not activated."));
  EXPECT_EQ("Success.", env_.Description("grp1", "vip1"));
}

TEST_F(AgentE2E, DeactivationFailsWhenTheAddressStillAnswersAndErrorsAreOn) {
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.50/24 dev vb0"));
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.50/24 dev va0 label va0:3"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.50/24</ip><ifname>va0</ifname><check>"
                            "<ping><retry>1</retry><error>1</error></ping></check>"),
                   kCommon);
  EXPECT_EQ(25, Run("--deactive -r vip1 -g grp1"));
  EXPECT_EQ("Internal error. (status=25)", env_.Description("grp1", "vip1"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.50")) << "the local address is removed all the same";
}

TEST_F(AgentE2E, LinkCheckOnAVethPasses) {
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.60/24</ip><ifname>va0</ifname><monmii>1</monmii>"
                            "<arp><retry>0</retry></arp>"),
                   kCommon);
  ASSERT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_TRUE(Contains(env_.Log(), "check NIC link success."));
}

TEST_F(AgentE2E, WithoutTheClusterTablesTheRunStillEndsWithItsStatus) {
  ASSERT_EQ(0, env_.Ctl("stop"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.70/24</ip><ifname>va0</ifname>"
                            "<ping><timeout>0</timeout></ping><arp><retry>0</retry></arp>"),
                   kCommon);
  EXPECT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.70/24"));
  EXPECT_TRUE(Contains(env_.Log(), "shmrm_attach() failed."));
}

}  // namespace
