// vyrvip end to end: the installed programs, a real configuration, the
// cluster tables started with vyrctl, and the agent run inside a private
// pair of network namespaces (va0 on the agent's side, vb0 on the peer).
#include <string>

#include "support/agent_fixture.h"

namespace {

using vyrtest::AgentE2E;

std::string OnVa0(const char* ip, const std::string& more = "") {
  return std::string("<ip>") + ip + "</ip><ifname>va0</ifname>" + more;
}

// Activation, refusals, forcing, npsimu, the link check and deactivation's
// confirmations, with the kernel making the changes.
TEST_F(AgentE2E, ActivationAndDeactivation) {
  RunSteps({
      // Mask from the configuration, the first alias, its broadcast; the first
      // gratuitous ARP frame the peer sees is kept in $D/arp.
      {"(ip netns exec $P timeout 60 tcpdump -l -i vb0 -n -e -c 1 'arp and "
       "arp[14:4] = arp[24:4]' "
       ">$D/arp 2>&1 &); for i in $(seq 100); do grep -qs listening $D/arp && "
       "break; sleep 0.05; done",
       "--active", "v4", OnVa0("192.0.2.10/25"), 0, "Success.",
       "inet 192.0.2.10/25 brd 192.0.2.127 scope global va0:0"},
      {"", "--deactive", "v4", "", 0, "Success.", "inet 192.0.2.1/24", "192.0.2.10"},
      // No mask configured: the interface's own mask and broadcast.
      {"", "--active", "nomask", OnVa0("192.0.2.11"), 0, "",
       "inet 192.0.2.11/24 brd 192.0.2.255 scope global secondary va0:0"},
      // IPv6 goes on the interface itself; its prefix is kept for the removal.
      {"", "--active", "v6", OnVa0("2001:db8::10/64"), 0, "", "inet6 2001:db8::10/64"},
      {"", "--deactive", "v6", "", 0, "Success.", "", "2001:db8::10/"},
      {"", "--add -a 198.51.100.5/24 -i va0", "", "", 0, "",
       "inet 198.51.100.5/24 brd 198.51.100.255 scope global va0:1"},
      {"", "--del -a 198.51.100.5", "", "", 0, "", "", "198.51.100.5"},
      {"peer_has 192.0.2.20", "--active", "taken", OnVa0("192.0.2.20/24"), 15,
       "IP address was already used.", "", "192.0.2.20"},
      {"agent_has 192.0.2.30 va0:7", "--active", "local",
       OnVa0("192.0.2.30/24", "<ping><timeout>0</timeout></ping>"), 15,
       "This ip address was already used.  IP=192.0.2.30"},
      {"agent_has 192.0.2.80 va0:5", "--active", "alias",
       "<ip>192.0.2.81/24</ip><ifname>va0:5</ifname>", 28, "", "", "192.0.2.81"},
      {"ip -n $A link add vyrlongname014 up type veth peer name vyrshort && "
       "ip -n $A addr add 203.0.113.1/24 dev vyrlongname014",
       "--active", "long", "<ip>203.0.113.5/24</ip><ifname>vyrlongname014</ifname>", 30, "", "", "",
       "Interface name is too long."},
      {"peer_has 192.0.2.90", "--active", "force",
       OnVa0("192.0.2.90/24", "<ping><force>1</force></ping>"), 0, "", "192.0.2.90/24"},
      // npsimu skips the probe, unless the resource asks for it.
      {"peer_has 192.0.2.21 && ctl npsimu on", "--active", "pingnpsimu",
       OnVa0("192.0.2.21/24",
             "<ping><execute_in_npsimu_on_act>1</"
             "execute_in_npsimu_on_act></ping>"),
       15, "", "", "192.0.2.21"},
      {"", "--active", "npsimu", OnVa0("192.0.2.21/24"), 0, "", "192.0.2.21/24", "",
       "ping was not executed because npsimu is enabled."},
      {"ctl npsimu off", "--active", "mii", OnVa0("192.0.2.60/24", "<monmii>1</monmii>"), 0, "",
       "192.0.2.60/24", "", "check NIC link success."},
      {"", "--deactive", "absent", OnVa0("192.0.2.40/24"), 0, "Success.", "", "",
       "192.0.2.40 not activated."},
      // The peer keeps answering at the address after its removal here.
      {"peer_has 192.0.2.50 && agent_has 192.0.2.50 va0:3", "--deactive", "pingerr",
       OnVa0("192.0.2.50/24", "<check><ping><retry>1</retry><error>1</error></ping></check>"), 25,
       "Internal error. (status=25)", "", "192.0.2.50"},
      {"peer_has 192.0.2.92 && agent_has 192.0.2.92 va0:2", "--deactive", "pingok",
       OnVa0("192.0.2.92/24",
             "<check><ping><retry>1</retry><interval>1</"
             "interval></ping></check>"),
       0, "", "", "192.0.2.92", "deact check ping retry count over. (ip=192.0.2.92)"},
      {"ip -n $P link set vb0 down", "--active", "miidown",
       OnVa0("192.0.2.91/24", "<monmii>1</monmii>"), 34, "Detected NIC Link Down.", "",
       "192.0.2.91"},
  });
  const std::string arp = vyrtest::ReadFile(env_.dir() + "/arp");
  EXPECT_TRUE(vyrtest::Contains(arp,
                                "> ff:ff:ff:ff:ff:ff, ethertype ARP (0x0806), length 60: "
                                "Request who-has 192.0.2.10 ("))
      << arp;
}

// The same through a tool of the older layout on PATH that lists the
// addresses and makes the changes; one that leaves the address in place
// fails deactivation with 24 only when the error switch is on.
TEST_F(AgentE2E, ThroughTheInterfaceTool) {
  const std::string path = "PATH='" + env_.dir() + "/bin:/usr/sbin:/usr/bin:/sbin:/bin'";
  RunSteps({{"mkdir $D/bin && cp " VYR_TESTDATA_DIR "/tools/ifconfig-older $D/bin/ifconfig",
             "--active", "v4", OnVa0("192.0.2.10/24"), 0, "",
             "inet 192.0.2.10/24 brd 192.0.2.255 scope global secondary va0:0", "", "system("},
            {"", "--deactive", "v4", "", 0, "", "", "192.0.2.10"},
            {"", "--active", "v6", OnVa0("2001:db8::20/64"), 0, "", "inet6 2001:db8::20/64"},
            {"", "--deactive", "v6", "", 0, "", "", "2001:db8::20/"}},
           path);
  const std::string stays = OnVa0("192.0.2.60/24",
                                  "<check><ping><execute>0</execute></"
                                  "ping><ifconfig><retry>1</retry><interval>1</interval>");
  RunSteps({{"agent_has 192.0.2.60 va0:4", "--deactive", "on",
             stays + "<error>1</error></ifconfig></check>", 24, "Internal error. (status=24)"},
            {"", "--deactive", "off", stays + "</ifconfig></check>", 0, "", "", "",
             "deact check ifconfig retry count over. (ip=192.0.2.60)"}},
           "FAKE_IFCONFIG_STUBBORN=1 " + path);
}

}  // namespace
