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

// Exit status and duration: a reply ends it at once, silence lasts one
// second after the last request, bad arguments fail at once.
TEST(VyrpingTest, ExitStatusAndTimingTellWhetherSomebodyAnswers) {
  SETUP_PAIR_OR_SKIP(pair);
  const struct {
    const char* args;
    int want;
    double min_s, max_s;
  } cases[] = {
      {"-c 5 192.0.2.2", 0, 0, 0.9},
      {"-c 2 192.0.2.3", 1, 2.0, 2.8},
      {"-c 1 2001:db8::2", 0, 0, 0.9},
      {"-c 1 2001:db8::3", 1, 1.0, 1.8},
      {"-c 1 127.0.0.1", 0, 0, 0.9},
      {"-c 1 ::1", 0, 0, 0.9},
      {"-c 1 host.example", 2, 0, 0.5},
      {"-c 1 192.0.2.256", 2, 0, 0.5},
      {"-c 0 192.0.2.2", 2, 0, 0.5},
      {"-c x 192.0.2.2", 2, 0, 0.5},
      {"-c 1", 2, 0, 0.5},
      {"192.0.2.2", 2, 0, 0.5},
      {"-q -c 1 192.0.2.2", 2, 0, 0.5},
      {"-c 1 192.0.2.2 192.0.2.3", 2, 0, 0.5},
      {"-c 70000 192.0.2.2", 2, 0, 0.5},
  };
  for (const auto& c : cases) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pair->InAgent(kVyrping + " " + c.args + " >/dev/null 2>&1"), c.want) << c.args;
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(took, c.min_s) << c.args;
    EXPECT_LT(took, c.max_s) << c.args;
  }
}

// Many probes of one address at once: each takes only its own replies.
TEST(VyrpingTest, SixteenAtOnceEachSeeOnlyTheirOwnReplies) {
  SETUP_PAIR_OR_SKIP(pair);
  for (const char* addr : {"192.0.2.2", "2001:db8::2", "192.0.2.3", "2001:db8::3"}) {
    std::string out;
    pair->InAgent("for i in $(seq 16); do (" + kVyrping + " -c 1 " + addr +
                      " >/dev/null 2>&1; echo rc=$?) & done; wait",
                  &out);
    std::string expected;
    for (int i = 0; i < 16; ++i) expected += std::string(addr).back() == '2' ? "rc=0\n" : "rc=1\n";
    EXPECT_EQ(out, expected) << addr;
  }
}

// The agent's probe through the real ping command (and the real arp for
// IPv4; IPv6 looks nothing up).
TEST(AgentProbeNetnsTest, HeldAddressIsRefusedFreeAddressPasses) {
  SETUP_PAIR_OR_SKIP(pair);
  std::string link;
  ASSERT_EQ(pair->InPeer("cat /sys/class/net/vb0/address", &link), 0);
  const std::string mac = link.substr(0, link.find('\n'));
  const struct {
    const char* addr;
    int want;
    std::string trace;
  } cases[] = {
      {"192.0.2.2", 15, "192.0.2.2 is already exist.(macaddr : " + mac + ")"},
      {"192.0.2.3", 0, ""},
      {"2001:db8::2", 15, "2001:db8::2 is already exist. (ret=1)"},
      {"2001:db8::3", 0, ""},
  };
  for (const auto& c : cases) {
    vyrtest::FakePingInstall fake;
    fake.UseRealPing();
    ipv6flag = std::string(c.addr).find(':') != std::string::npos;
    if (ipv6flag) {
      fake.SetArp("exit 0");
    } else {
      std::snprintf(fake.info().arpcmd, sizeof fake.info().arpcmd, "arp");
    }
    std::snprintf(fake.info().addr, sizeof fake.info().addr, "%s", c.addr);
    vyrtest::TraceCapture log;
    vip_clear_shmbuf();
    {
      vyrtest::ScopedNetns in(pair->agent());
      ASSERT_TRUE(in.ok());
      EXPECT_EQ(vip_ping(&fake.info()), c.want) << c.addr;
    }
    char desc[VIP_SHMBUF_LEN];
    vip_get_shmbuf(desc);
    EXPECT_STREQ(desc, c.want ? "IP address was already used." : "") << c.addr;
    EXPECT_TRUE(c.trace.empty() || log.Contains(c.trace)) << c.addr << " peer MAC " << mac;
    EXPECT_TRUE(!ipv6flag || fake.ArpCalls().empty()) << c.addr;
  }
}

}  // namespace
