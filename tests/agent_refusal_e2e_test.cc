// vyrvip end to end: refusals, forcing, the link check and the
// confirmations of deactivation.
#include <gtest/gtest.h>

#include <string>

#include "support/agent_fixture.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::kCommon;
using vyrtest::Resource;

constexpr const char* kQuiet = "<ping><timeout>0</timeout></ping><arp><retry>0</retry></arp>";

TEST_F(AgentE2E, ConfiguredAliasAlreadyInUseIsRefused) {
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.80/24 dev va0 label va0:5"));
  env_.WriteConfig(
      Resource("vip1", std::string("<ip>192.0.2.81/24</ip><ifname>VA0:5</ifname>") + kQuiet) +
          Resource("vip2", std::string("<ip>192.0.2.81/24</ip><ifname>va0:5</ifname>") + kQuiet),
      kCommon);
  // The interface must match exactly: VA0 is not va0, so VA0:5 goes on as configured
  // and the kernel refuses the unknown device.
  EXPECT_EQ(39, Run("--active -r vip1 -g grp1"));
  EXPECT_EQ(28, Run("--active -r vip2 -g grp1"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.81"));
}

TEST_F(AgentE2E, AliasNameOverFifteenCharactersIsRefused) {
  ASSERT_EQ(0, pair_->InAgent("ip link add vyrlongname014 type veth peer name vyrshort && "
                              "ip link set vyrlongname014 up && "
                              "ip addr add 203.0.113.1/24 dev vyrlongname014"));
  env_.WriteConfig(Resource("vip1", std::string("<ip>203.0.113.5/24</ip>"
                                                "<ifname>vyrlongname014</ifname>") +
                                        kQuiet),
                   kCommon);
  EXPECT_EQ(30, Run("--active -r vip1 -g grp1"));
  EXPECT_TRUE(Contains(env_.Log(), "Interface name is too long."));
}

TEST_F(AgentE2E, ForcingGoesOnThoughThePeerAnswers) {
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.90/24 dev vb0"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.90/24</ip><ifname>va0</ifname>"
                            "<ping><force>1</force></ping><arp><retry>0</retry></arp>"),
                   kCommon);
  EXPECT_EQ(0, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_TRUE(Contains(AgentAddrs(), "192.0.2.90/24"));
}

TEST_F(AgentE2E, LinkDownRemovesTheAddressAgain) {
  ASSERT_EQ(0, pair_->InPeer("ip link set vb0 down"));
  env_.WriteConfig(Resource("vip1", std::string("<ip>192.0.2.91/24</ip><ifname>va0</ifname>"
                                                "<monmii>1</monmii>") +
                                        kQuiet),
                   kCommon);
  EXPECT_EQ(34, Run("--active -r vip1 -g grp1")) << env_.Log();
  EXPECT_EQ("Detected NIC Link Down.", env_.Description("grp1", "vip1"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.91")) << AgentAddrs();
}

TEST_F(AgentE2E, ProbeConfirmationWithErrorsOffEndsWithSuccess) {
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.92/24 dev vb0"));
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.92/24 dev va0 label va0:2"));
  env_.WriteConfig(Resource("vip1",
                            "<ip>192.0.2.92/24</ip><ifname>va0</ifname><check>"
                            "<ping><retry>1</retry><interval>1</interval></ping>"
                            "</check>"),
                   kCommon);
  EXPECT_EQ(0, Run("--deactive -r vip1 -g grp1"));
  EXPECT_TRUE(Contains(env_.Log(), "deact check ping retry count over. (ip=192.0.2.92)"));
  EXPECT_FALSE(Contains(AgentAddrs(), "192.0.2.92"));
}

}  // namespace
