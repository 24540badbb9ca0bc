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
using vyrtest::kNoProbe;
using vyrtest::OnVa0;

using Defence = AgentE2E;

// The peer holds the address and drops echo requests: the ping probe lets it
// through, the ARP probe refuses it with the same event as an address that
// answers ping (forcing as for ping), a free address passes both.
TEST_F(Defence, ArpProbeSeesAHostThatDropsPing) {
  ASSERT_EQ(0, pair_->InPeer("sysctl -qw net.ipv4.icmp_echo_ignore_all=1 && "
                             "ip addr add 192.0.2.70/24 dev vb0"));
  const std::string probe = "<arpprobe><timeout>1000</timeout></arpprobe>";
  const std::string claimed = "192.0.2.70 is already exist.(macaddr : " + pair_->PeerMac() + ")";
  RunSteps({
      {.mode = "--active",
       .rsc = "pingonly",
       .params = OnVa0("192.0.2.70/24"),
       .desc = "Success.",
       .shown = "192.0.2.70/24"},
      {.setup = "ip -n $A addr del 192.0.2.70/24 dev va0",
       .mode = "--active",
       .rsc = "arpprobe",
       .params = OnVa0("192.0.2.70/24", probe),
       .code = 15,
       .desc = "IP address was already used.",
       .gone = "192.0.2.70",
       .log = claimed.c_str()},
      {.mode = "--active",
       .rsc = "ev",
       .params = OnVa0("192.0.2.70/24", kNoProbe + "<arpprobe><timeout>600</timeout></arpprobe>"),
       .code = 15,
       .desc = "IP address was already used.",
       .gone = "192.0.2.70",
       .log = "[event 10] 192.0.2.70"},
      {.mode = "--active",
       .rsc = "forced",
       .params = OnVa0("192.0.2.70/24", probe + "<ping><force>1</force></ping>"),
       .desc = "Success.",
       .shown = "192.0.2.70/24",
       .log = "force act vip(192.0.2.70)!"},
      {.setup = "ip -n $A addr del 192.0.2.70/24 dev va0",
       .mode = "--active",
       .rsc = "free",
       .params = OnVa0("192.0.2.71/24", probe),
       .desc = "Success.",
       .shown = "192.0.2.71/24",
       .log = "vip_arp_probe(192.0.2.71) OK."},
  });
}

// The peer holds the IPv6 address: with a DAD time limit the kernel's
// "dadfailed" fails the activation and the address is gone; without one
// the activation succeeds as it always did.
TEST_F(Defence, DadFailureTakesTheAddressAway) {
  ASSERT_EQ(0, pair_->InPeer("ip -6 addr add 2001:db8::40/64 dev vb0 nodad"));
  RunSteps({
      {.mode = "--active",
       .rsc = "dad",
       .params = OnVa0("2001:db8::40/64", kNoProbe + "<dad><timeout>8000</timeout></dad>"),
       .code = 15,
       .desc = "This ip address was already used.  IP=2001:db8::40",
       .gone = "2001:db8::40/",
       .log = "DAD failed for 2001:db8::40 on va0."},
      {.mode = "--active",
       .rsc = "nodad",
       .params = OnVa0("2001:db8::40/64", kNoProbe),
       .desc = "Success.",
       .shown = "2001:db8::40/64"},
  });
}

// A free IPv6 address passes DAD within the limit and stays.
TEST_F(Defence, DadPassesForAFreeAddress) {
  RunSteps({{.mode = "--active",
             .rsc = "free",
             .params = OnVa0("2001:db8::41/64", "<dad><timeout>8000</timeout></dad>"),
             .desc = "Success.",
             .shown = "2001:db8::41/64",
             .gone = "dadfailed",
             .log = "DAD of 2001:db8::41 on va0 passed."}});
  EXPECT_FALSE(Contains(AgentAddrs("-6"), "tentative")) << AgentAddrs("-6");
}

// The bytes of each frame in tcpdump -xx output, in order.
std::vector<std::vector<unsigned char>> Frames(const std::string& dump) {
  std::vector<std::vector<unsigned char>> frames;
  std::istringstream lines(dump);
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t at = line.find("0x");
    if (at == std::string::npos || line.find(':', at) == std::string::npos || at > 2) {
      // A packet's summary line begins with its time stamp.
      if (line.find(" IP6 ") != std::string::npos) frames.emplace_back();
      continue;
    }
    if (frames.empty()) continue;
    std::istringstream words(line.substr(line.find(':', at) + 1));
    std::string word;
    while (words >> word) {
      for (std::size_t i = 0; i + 1 < word.size(); i += 2) {
        frames.back().push_back(
            static_cast<unsigned char>(std::stoi(word.substr(i, 2), nullptr, 16)));
      }
    }
  }
  return frames;
}

std::vector<unsigned char> Bytes(const std::string& mac) {
  std::vector<unsigned char> out(6);
  std::sscanf(mac.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &out[0], &out[1], &out[2], &out[3],
              &out[4], &out[5]);
  return out;
}

std::vector<unsigned char> Bytes(const char* addr6) {
  std::vector<unsigned char> out(16);
  inet_pton(AF_INET6, addr6, out.data());
  return out;
}

// The advertisement the wire must carry, its checksum worked out here from
// RFC 4443's pseudo-header.
std::vector<unsigned char> ExpectedAdvert(const std::string& mac, const std::string& source,
                                          const char* target) {
  std::vector<unsigned char> f = {0x33, 0x33, 0, 0, 0, 1};
  auto add = [&f](const std::vector<unsigned char>& b) { f.insert(f.end(), b.begin(), b.end()); };
  add(Bytes(mac));
  add({0x86, 0xdd, 0x60, 0, 0, 0, 0, 32, 58, 255});
  add(Bytes(source.c_str()));
  add(Bytes("ff02::1"));
  add({136, 0, 0, 0, 0x20, 0, 0, 0});
  add(Bytes(target));
  add({2, 1});
  add(Bytes(mac));
  uint32_t sum = 32 + 58;
  for (std::size_t i = 22; i < f.size(); i += 2) sum += static_cast<uint32_t>(f[i] << 8 | f[i + 1]);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  f[56] = static_cast<unsigned char>(~sum >> 8);
  f[57] = static_cast<unsigned char>(~sum);
  return f;
}

// The advertisements the peer catches, byte by byte, and its neighbour entry
// for the address, which had another MAC: it follows the agent with
// advertisements and stays where it was without them. One that cannot be
// sent does not fail the activation.
TEST_F(Defence, NeighborAdvertisementsMoveThePeersNeighbourEntry) {
  const std::string mac = pair_->AgentMac();
  std::string out;
  pair_->InAgent("ip -6 -o addr show dev va0 scope link", &out);
  const std::size_t at = out.find("fe80:");
  ASSERT_NE(at, std::string::npos) << out;
  const std::string linklocal = out.substr(at, out.find('/', at) - at);
  const std::string catching =
      "(ip netns exec $P timeout 60 tcpdump -l -xx -i vb0 -n -c 2 'ether src " + mac +
      " and icmp6 and ip6[40] = 136' >$D/na 2>&1 &); for i in $(seq 200); do grep -qs listening "
      "$D/na && break; sleep 0.05; done; ";
  const std::string first =
      catching +
      "ip -n $P -6 neigh replace 2001:db8::50 lladdr 02:00:00:00:00:99 dev vb0 nud stale";
  RunSteps({
      {.setup = first.c_str(),
       .mode = "--active",
       .rsc = "na",
       .params = OnVa0("2001:db8::50/64", "<na><retry>2</retry></na>"),
       .desc = "Success.",
       .shown = "2001:db8::50/64",
       .log = "vip_send_na() OK."},
      {.setup = "ip -n $P -6 neigh replace 2001:db8::51 lladdr 02:00:00:00:00:99 dev vb0 nud stale",
       .mode = "--active",
       .rsc = "none",
       .params = OnVa0("2001:db8::51/64"),
       .desc = "Success.",
       .shown = "2001:db8::51/64"},
      // Without a link-local source nothing can be sent: a warning only.
      {.setup = "ip -n $A -6 addr flush dev va0 scope link",
       .mode = "--active",
       .rsc = "nolinklocal",
       .params = OnVa0("2001:db8::52/64", "<na><retry>1</retry></na>"),
       .shown = "2001:db8::52/64",
       .log = "vip_send_na() failed. (ret=20)"},
  });
  std::string neigh;
  pair_->InPeer("ip -6 neigh show dev vb0", &neigh);
  EXPECT_TRUE(Contains(neigh, "2001:db8::50 lladdr " + mac)) << neigh;
  EXPECT_TRUE(Contains(neigh, "2001:db8::51 lladdr 02:00:00:00:00:99")) << neigh;

  std::string dump;
  for (int i = 0; i < 200 && Frames(dump).size() < 2; ++i) {
    usleep(50000);
    dump = vyrtest::ReadFile(env_.dir() + "/na");
  }
  const auto frames = Frames(dump);
  ASSERT_EQ(frames.size(), 2u) << dump;
  for (const auto& frame : frames) {
    EXPECT_EQ(frame, ExpectedAdvert(mac, linklocal, "2001:db8::50")) << dump;
  }
}

}  // namespace
