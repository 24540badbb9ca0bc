// Duplicate-address probing for real: vyrping on its own and the agent's
// probe, inside a private pair of network namespaces joined by veth. The
// peer holds 192.0.2.2 and 2001:db8::2; .3 and ::3 are free.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>

#include "common/unique_fd.h"
#include "support/fake_ping.h"
#include "support/netns.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vip/ping.h"

namespace {

using vyrtest::NetnsPair;

const std::string kVyrping = std::string(VYR_BINARY_DIR) + "/platform/vyrping/vyrping";

// Addresses on both sides; the peer is the host that "already uses" an address.
bool Address(const NetnsPair& pair) {
  return pair.InAgent(
             "ip addr add 192.0.2.1/24 dev va0 && "
             "ip addr add 2001:db8::1/64 dev va0 nodad") == 0 &&
         pair.InPeer(
             "ip addr add 192.0.2.2/24 dev vb0 && "
             "ip addr add 2001:db8::2/64 dev vb0 nodad") == 0;
}

#define SETUP_PAIR_OR_SKIP(pair)                                           \
  ASSERT_EQ(::access(kVyrping.c_str(), X_OK), 0) << "build vyrping first"; \
  VYR_NETNS_PAIR_OR_SKIP(pair);                                            \
  ASSERT_TRUE(Address(*pair))

int Vyrping(const NetnsPair& pair, const std::string& args) {
  return pair.InAgent(kVyrping + " " + args + " >/dev/null 2>&1");
}

TEST(VyrpingTest, ExitStatusTellsWhetherSomebodyAnswers) {
  SETUP_PAIR_OR_SKIP(pair);
  const struct {
    const char* args;
    int want;
  } cases[] = {
      {"-c 1 192.0.2.2", 0},
      {"-c 2 192.0.2.3", 1},
      {"-c 1 2001:db8::2", 0},
      {"-c 1 2001:db8::3", 1},
      {"-c 1 127.0.0.1", 0},
      {"-c 1 ::1", 0},
      {"-c 1 host.example", 2},
      {"-c 1 192.0.2.256", 2},
      {"-c 0 192.0.2.2", 2},
      {"-c x 192.0.2.2", 2},
      {"-c 1", 2},
      {"192.0.2.2", 2},
      {"-c 1 192.0.2.2 192.0.2.3", 2},
      {"-q -c 1 192.0.2.2", 2},
      {"-c 70000 192.0.2.2", 2},
  };
  for (const auto& c : cases) EXPECT_EQ(Vyrping(*pair, c.args), c.want) << c.args;
}

TEST(VyrpingTest, TimingFollowsTheRequestCount) {
  SETUP_PAIR_OR_SKIP(pair);
  const auto timed = [&](const std::string& args, int want) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Vyrping(*pair, args), want) << args;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  // A reply ends it at once; silence lasts one second after the last request.
  EXPECT_LT(timed("-c 5 192.0.2.2", 0), 0.9);
  const double free2 = timed("-c 2 192.0.2.3", 1);
  EXPECT_GE(free2, 2.0);
  EXPECT_LT(free2, 2.8);
}

// Many probes of one address at once: each takes only its own replies.
TEST(VyrpingTest, SixteenAtOnceEachSeeOnlyTheirOwnReplies) {
  SETUP_PAIR_OR_SKIP(pair);
  for (const char* addr : {"192.0.2.2", "2001:db8::2", "192.0.2.3", "2001:db8::3"}) {
    std::string out;
    pair->InAgent("for i in $(seq 16); do (" + kVyrping + " -c 1 " + addr +
                      " >/dev/null 2>&1; echo rc=$?) & done; wait",
                  &out);
    const std::string want = std::string(addr).back() == '2' ? "rc=0\n" : "rc=1\n";
    std::string expected;
    for (int i = 0; i < 16; ++i) expected += want;
    EXPECT_EQ(out, expected) << addr;
  }
}

// An ICMP counter of the agent namespace's /proc/net/snmp.
long IcmpCounter(const NetnsPair& pair, const std::string& name) {
  std::string snmp;
  vyrtest::Sh("ip netns exec " + pair.agent() + " cat /proc/net/snmp", &snmp);
  std::istringstream in(snmp);
  std::string header, values;
  while (std::getline(in, header) && header.rfind("Icmp:", 0) != 0) {
  }
  std::getline(in, values);
  std::istringstream h(header), v(values);
  std::string key, value;
  while (h >> key && v >> value) {
    if (key == name) return std::stol(value);
  }
  return -1;
}

// Sends forged echo replies "from" 192.0.2.3 to the agent, one for every
// identifier with sequence 1, for `seconds`: what vyrping may see when
// another process probes the same address. Runs in the peer namespace.
void ForgeReplies(const NetnsPair& pair, double seconds) {
  vyrtest::ScopedNetns in(pair.peer());
  ASSERT_TRUE(in.ok());
  vyr::UniqueFd fd(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW));
  ASSERT_TRUE(fd.valid());
  sockaddr_in dst{};
  dst.sin_family = AF_INET;
  inet_pton(AF_INET, "192.0.2.1", &dst.sin_addr);
  uint8_t pkt[20 + 64] = {};
  pkt[0] = 0x45;
  pkt[3] = sizeof pkt;
  pkt[8] = 64;
  pkt[9] = IPPROTO_ICMP;
  inet_pton(AF_INET, "192.0.2.3", pkt + 12);
  inet_pton(AF_INET, "192.0.2.1", pkt + 16);
  uint8_t* icmp = pkt + 20;
  icmp[7] = 1;  // sequence 1
  for (int i = 8; i < 64; ++i) icmp[i] = static_cast<uint8_t>(i * 7);
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    for (int id = 0; id < 65536; ++id) {
      icmp[2] = icmp[3] = 0;
      icmp[4] = static_cast<uint8_t>(id >> 8);
      icmp[5] = static_cast<uint8_t>(id & 0xff);
      uint32_t sum = 0;
      for (int i = 0; i < 64; i += 2) sum += static_cast<uint32_t>((icmp[i] << 8) | icmp[i + 1]);
      while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
      icmp[2] = static_cast<uint8_t>(~sum >> 8);
      icmp[3] = static_cast<uint8_t>(~sum & 0xff);
      ::sendto(fd.get(), pkt, sizeof pkt, 0, reinterpret_cast<sockaddr*>(&dst), sizeof dst);
    }
  }
}

TEST(VyrpingTest, RepliesWithAForeignCookieDoNotCount) {
  SETUP_PAIR_OR_SKIP(pair);
  std::thread forger(ForgeReplies, std::cref(*pair), 2.5);
  // Give the forger a head start, then probe the free address it forges.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(Vyrping(*pair, "-c 2 192.0.2.3"), 1);
  forger.join();
  // The forged replies did reach the agent: a check without the cookie
  // would have taken one of them.
  EXPECT_GT(IcmpCounter(*pair, "InEchoReps"), 10000);
}

// The agent's probe through the real ping command and the real arp.
class AgentProbeNetnsTest : public ::testing::Test {
 protected:
  int PingFromAgent(const NetnsPair& pair, const char* addr) {
    std::snprintf(fake_.info().addr, sizeof fake_.info().addr, "%s", addr);
    ipv6flag = std::string(addr).find(':') != std::string::npos;
    vyrtest::ScopedNetns in(pair.agent());
    EXPECT_TRUE(in.ok());
    return vip_ping(&fake_.info());
  }
  std::string Shmbuf() {
    char text[VIP_SHMBUF_LEN];
    vip_get_shmbuf(text);
    return text;
  }

  vyrtest::FakePingInstall fake_;
};

TEST_F(AgentProbeNetnsTest, HeldIPv4AddressIsRefusedAndItsMacNamed) {
  SETUP_PAIR_OR_SKIP(pair);
  fake_.UseRealPing();
  std::snprintf(fake_.info().arpcmd, sizeof fake_.info().arpcmd, "arp");
  std::string link;
  ASSERT_EQ(pair->InPeer("cat /sys/class/net/vb0/address", &link), 0);
  const std::string mac = link.substr(0, link.find('\n'));

  vyrtest::TraceCapture log;
  EXPECT_EQ(PingFromAgent(*pair, "192.0.2.2"), 15);
  EXPECT_EQ(Shmbuf(), "IP address was already used.");
  EXPECT_TRUE(log.Contains("192.0.2.2 is already exist.(macaddr : " + mac + ")"))
      << "peer MAC " << mac;
  std::string table;
  pair->InAgent("arp -n 192.0.2.2", &table);
  EXPECT_NE(table.find(mac), std::string::npos) << table;

  vip_clear_shmbuf();
  EXPECT_EQ(PingFromAgent(*pair, "192.0.2.3"), 0);
  EXPECT_EQ(Shmbuf(), "");
}

TEST_F(AgentProbeNetnsTest, HeldIPv6AddressIsRefusedWithoutLookup) {
  SETUP_PAIR_OR_SKIP(pair);
  fake_.UseRealPing();
  fake_.SetArp("exit 0");
  vyrtest::TraceCapture log;
  EXPECT_EQ(PingFromAgent(*pair, "2001:db8::2"), 15);
  EXPECT_TRUE(log.Contains("2001:db8::2 is already exist. (ret=1)"));
  EXPECT_TRUE(fake_.ArpCalls().empty());
  EXPECT_EQ(PingFromAgent(*pair, "2001:db8::3"), 0);
}

}  // namespace
