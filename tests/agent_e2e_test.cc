// vyrvip end to end: the installed programs, a real configuration, the
// cluster tables started with vyrctl, and the agent run inside a private
// pair of network namespaces (va0 on the agent's side, vb0 on the peer).
#include <chrono>
#include <string>

#include "support/agent_fixture.h"
#include "support/frames.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::kNoArp;
using vyrtest::kNoPingCheck;
using vyrtest::kNoProbe;
using vyrtest::kQuiet;
using vyrtest::OnVa0;

// Activation, refusals, npsimu, the link check and deactivation's
// confirmations, with the kernel making the changes.
TEST_F(AgentE2E, ActivationAndDeactivation) {
  // Through vyrping and the real arp: the trace names the peer's MAC address.
  const std::string claimed = "192.0.2.20 is already exist.(macaddr : " + pair_->PeerMac() + ")";
  vyrtest::PeerCatch arp(*pair_, false, "192.0.2.10");
  ASSERT_TRUE(arp.ok());
  // clang-format off
  RunSteps({
      // Mask from the configuration, the first alias, its broadcast; the
      // gratuitous ARP frame reaches the peer.
      {.mode = "--active", .rsc = "v4", .params = OnVa0("192.0.2.10/25", kNoProbe + kNoPingCheck),
       .desc = "Success.", .shown = "inet 192.0.2.10/25 brd 192.0.2.127 scope global va0:0"},
      {.mode = "--deactive", .rsc = "v4", .desc = "Success.", .shown = "inet 192.0.2.1/24",
       .gone = "192.0.2.10"},
      // No mask configured: the interface's own mask and broadcast.
      {.mode = "--active", .rsc = "nomask", .params = OnVa0("192.0.2.11", kNoProbe + kNoArp),
       .shown = "inet 192.0.2.11/24 brd 192.0.2.255 scope global secondary va0:0"},
      // IPv6 goes on the interface itself; its prefix is kept for the removal.
      {.mode = "--active", .rsc = "v6", .params = OnVa0("2001:db8::10/64", kQuiet),
       .shown = "inet6 2001:db8::10/64"},
      {.mode = "--deactive", .rsc = "v6", .desc = "Success.", .gone = "2001:db8::10/"},
      {.mode = "--add -a 198.51.100.5/24 -i va0",
       .shown = "inet 198.51.100.5/24 brd 198.51.100.255 scope global va0:1"},
      {.mode = "--del -a 198.51.100.5", .gone = "198.51.100.5"},
      {.setup = "peer_has 192.0.2.20", .mode = "--active", .rsc = "taken",
       .params = OnVa0("192.0.2.20/24"), .code = 15, .desc = "IP address was already used.",
       .gone = "192.0.2.20", .log = claimed.c_str()},
      {.setup = "agent_has 192.0.2.30 va0:7", .mode = "--active", .rsc = "local",
       .params = OnVa0("192.0.2.30/24", kNoProbe), .code = 15,
       .desc = "This ip address was already used.  IP=192.0.2.30"},
      {.setup = "agent_has 192.0.2.80 va0:5", .mode = "--active", .rsc = "alias",
       .params = "<ip>192.0.2.81/24</ip><ifname>va0:5</ifname>" + kNoProbe, .code = 28,
       .gone = "192.0.2.81"},
      {.setup = "ip -n $A link add vyrlongname014 up type veth peer name vyrshort && "
                "ip -n $A addr add 203.0.113.1/24 dev vyrlongname014",
       .mode = "--active", .rsc = "long",
       .params = "<ip>203.0.113.5/24</ip><ifname>vyrlongname014</ifname>" + kNoProbe, .code = 30,
       .log = "Interface name is too long."},
      // npsimu skips the probe, unless the resource asks for it.
      {.setup = "peer_has 192.0.2.21 && ctl npsimu on", .mode = "--active", .rsc = "pingnpsimu",
       .params = OnVa0("192.0.2.21/24",
                       "<ping><execute_in_npsimu_on_act>1</execute_in_npsimu_on_act></ping>"),
       .code = 15, .gone = "192.0.2.21"},
      {.mode = "--active", .rsc = "npsimu", .params = OnVa0("192.0.2.21/24", kNoArp),
       .shown = "192.0.2.21/24", .log = "ping was not executed because npsimu is enabled."},
      {.setup = "ctl npsimu off", .mode = "--active", .rsc = "mii",
       .params = OnVa0("192.0.2.60/24", "<monmii>1</monmii>" + kNoProbe + kNoArp),
       .shown = "192.0.2.60/24", .log = "check NIC link success."},
      {.mode = "--deactive", .rsc = "absent", .params = OnVa0("192.0.2.40/24", kQuiet),
       .desc = "Success.", .log = "192.0.2.40 not activated."},
      // The peer keeps answering at the address after its removal here.
      {.setup = "peer_has 192.0.2.50 && agent_has 192.0.2.50 va0:3", .mode = "--deactive",
       .rsc = "pingerr",
       .params = OnVa0("192.0.2.50/24",
                       "<check><ping><retry>1</retry><error>1</error></ping></check>"),
       .code = 25, .desc = "Internal error. (status=25)", .gone = "192.0.2.50"},
      {.setup = "peer_has 192.0.2.92 && agent_has 192.0.2.92 va0:2", .mode = "--deactive",
       .rsc = "pingok",
       .params = OnVa0("192.0.2.92/24",
                       "<check><ping><retry>1</retry><interval>1</interval></ping></check>"),
       .gone = "192.0.2.92", .log = "deact check ping retry count over. (ip=192.0.2.92)"},
      {.setup = "ip -n $P link set vb0 down", .mode = "--active", .rsc = "miidown",
       .params = OnVa0("192.0.2.91/24", "<monmii>1</monmii>" + kNoProbe), .code = 34,
       .desc = "Detected NIC Link Down.", .gone = "192.0.2.91"},
  });
  // clang-format on
  ASSERT_EQ(arp.WaitFor(1, std::chrono::seconds(5)), 1u);
  EXPECT_EQ(arp.frames[0],
            vyrtest::GratuitousArp(pair_->AgentMac(), "192.0.2.10", vyrtest::kArpRequest));
}

// The same through a tool of the older layout on PATH that lists the
// addresses and makes the changes; one that leaves the address in place
// fails deactivation with 24 only when the error switch is on.
TEST_F(AgentE2E, ThroughTheInterfaceTool) {
  const std::string path = "PATH='" + env_.dir() + "/bin:/usr/sbin:/usr/bin:/sbin:/bin'";
  // clang-format off
  RunSteps({
      {.setup = "mkdir $D/bin && cp " VYR_TESTDATA_DIR "/tools/ifconfig-older $D/bin/ifconfig",
       .mode = "--active", .rsc = "v4", .params = OnVa0("192.0.2.10/24", kQuiet),
       .shown = "inet 192.0.2.10/24 brd 192.0.2.255 scope global secondary va0:0",
       .log = "system("},
      {.mode = "--deactive", .rsc = "v4", .gone = "192.0.2.10"},
      {.mode = "--active", .rsc = "v6", .params = OnVa0("2001:db8::20/64", kQuiet),
       .shown = "inet6 2001:db8::20/64"},
      {.mode = "--deactive", .rsc = "v6", .gone = "2001:db8::20/"},
      // rtnetlink instead of the tool, for the listing too.
      {.mode = "--active", .rsc = "nl6",
       .params = OnVa0("2001:db8::30/64",
                       kQuiet + "<ipaddr><netlink>1</netlink><nodad>1</nodad></ipaddr>"),
       .shown = "inet6 2001:db8::30/64 scope global nodad",
       .log = "ipaddr/netlink: the kernel lists, adds and removes."},
      {.mode = "--deactive", .rsc = "nl6", .gone = "2001:db8::30/"},
      {.mode = "--active", .rsc = "label",
       .params = OnVa0("192.0.2.13/24", kQuiet + "<ipaddr><netlink>1</netlink><label>web</label>"
                                                 "<broadcast>192.0.2.200</broadcast></ipaddr>"),
       .shown = "inet 192.0.2.13/24 brd 192.0.2.200 scope global secondary va0:web\\"},
      {.mode = "--deactive", .rsc = "label", .gone = "192.0.2.13"}}, path);
  const std::string stays =
      OnVa0("192.0.2.60/24", "<check><ping><execute>0</execute></ping>"
                             "<ifconfig><retry>1</retry><interval>1</interval>");
  RunSteps({
      {.setup = "agent_has 192.0.2.60 va0:4", .mode = "--deactive", .rsc = "on",
       .params = stays + "<error>1</error></ifconfig></check>", .code = 24,
       .desc = "Internal error. (status=24)"},
      {.mode = "--deactive", .rsc = "off", .params = stays + "</ifconfig></check>",
       .log = "deact check ifconfig retry count over. (ip=192.0.2.60)"}},
      "FAKE_IFCONFIG_STUBBORN=1 " + path);
  // clang-format on
}

}  // namespace
