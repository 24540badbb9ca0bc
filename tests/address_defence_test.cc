// Defending the address end to end, in a private pair of namespaces: the
// ARP probe before an IPv4 activation, the kernel's DAD verdict and the
// unsolicited Neighbor Advertisements after an IPv6 one.
#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/agent_fixture.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;

std::string OnVa0(const char* ip, const std::string& more = "") {
  return std::string("<ip>") + ip + "</ip><ifname>va0</ifname>" + more;
}

class Defence : public AgentE2E {
 protected:
  // The MAC address of `dev` in namespace `ns`, as "xx:xx:xx:xx:xx:xx".
  static std::string Mac(const std::string& ns, const char* dev) {
    std::string out;
    vyrtest::Sh("ip -n " + ns + " -o link show " + dev +
                    " | sed -n 's/.*link\\/ether \\([0-9a-f:]*\\).*/\\1/p'",
                &out);
    return out.substr(0, out.find('\n'));
  }
};

// The peer holds the address and drops echo requests: the ping probe lets it
// through, the ARP probe refuses it (forcing as for ping), a free address
// passes both.
TEST_F(Defence, ArpProbeSeesAHostThatDropsPing) {
  ASSERT_EQ(0, pair_->InPeer("sysctl -qw net.ipv4.icmp_echo_ignore_all=1 && "
                             "ip addr add 192.0.2.70/24 dev vb0"));
  const std::string probe = "<arpprobe><timeout>1000</timeout></arpprobe>";
  const std::string claimed =
      "192.0.2.70 is already exist.(macaddr : " + Mac(pair_->peer(), "vb0") + ")";
  RunSteps({
      {"", "--active", "pingonly", OnVa0("192.0.2.70/24"), 0, "Success.", "192.0.2.70/24"},
      {"ip -n $A addr del 192.0.2.70/24 dev va0", "--active", "arpprobe",
       OnVa0("192.0.2.70/24", probe), 15, "IP address was already used.", "", "192.0.2.70",
       claimed.c_str()},
      {"", "--active", "forced", OnVa0("192.0.2.70/24", probe + "<ping><force>1</force></ping>"), 0,
       "Success.", "192.0.2.70/24", "", "force act vip(192.0.2.70)!"},
      {"ip -n $A addr del 192.0.2.70/24 dev va0", "--active", "free", OnVa0("192.0.2.71/24", probe),
       0, "Success.", "192.0.2.71/24", "", "vip_arp_probe(192.0.2.71) OK."},
  });
}

// The refusal raises the same event as an address that answers ping.
TEST_F(Defence, ArpProbeRefusalRaisesTheInUseEvent) {
  ASSERT_EQ(0, pair_->InPeer("sysctl -qw net.ipv4.icmp_echo_ignore_all=1 && "
                             "ip addr add 192.0.2.72/24 dev vb0"));
  RunSteps({{"", "--active", "ev",
             OnVa0("192.0.2.72/24",
                   "<ping><timeout>0</timeout></ping>"
                   "<arpprobe><timeout>600</timeout></arpprobe>"),
             15, "IP address was already used.", "", "192.0.2.72", "[event 10] 192.0.2.72"}});
}

}  // namespace
