// Duplicate-address probing for real: vyrping on its own and the agent's
// probe, inside a private pair of network namespaces joined by veth. The
// peer holds 192.0.2.2 and 2001:db8::2; .3 and ::3 are free.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>

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
