// Duplicate-address probing for real, with the test thread on the agent's
// side of a private veth pair: the peer holds 192.0.2.2 and 2001:db8::2,
// .3 and ::3 are free.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "support/netns_fixture.h"
#include "support/trace_capture.h"
#include "vip/ping.h"

namespace {

const std::string kBinDir = std::string(VYR_BINARY_DIR) + "/platform/vyrping";
const std::string kVyrping = kBinDir + "/vyrping";

class ProbeNetns : public vyrtest::AgentNetnsTest {
 protected:
  void SetUp() override {
    AgentNetnsTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.1/24 dev va0 && "
                                "ip addr add 2001:db8::1/64 dev va0 nodad"));
    ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.2/24 dev vb0 && "
                               "ip addr add 2001:db8::2/64 dev vb0 nodad"));
  }
};

// A reply ends the run at once, silence lasts one second after the last
// request, bad arguments fail at once.
TEST_F(ProbeNetns, VyrpingExitStatusAndTiming) {
  const struct {
    const char* args;
    int want;
    double min_s, max_s;
  } cases[] = {
      {"-c 5 192.0.2.2", 0, 0, 0.9},     {"-c 2 192.0.2.3", 1, 2.0, 2.8},
      {"-c 1 2001:db8::2", 0, 0, 0.9},   {"-c 1 2001:db8::3", 1, 1.0, 1.8},
      {"-c 1 host.example", 2, 0, 0.5},  {"-c 0 192.0.2.2", 2, 0, 0.5},
      {"-c x 192.0.2.2", 2, 0, 0.5},     {"-c 1", 2, 0, 0.5},
      {"192.0.2.2", 2, 0, 0.5},          {"-c 1 192.0.2.2 192.0.2.3", 2, 0, 0.5},
      {"-c 70000 192.0.2.2", 2, 0, 0.5},
  };
  for (const auto& c : cases) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(vyrtest::Sh(kVyrping + " " + c.args + " >/dev/null"), c.want) << c.args;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), c.min_s) << c.args;
    EXPECT_LT(took.count(), c.max_s) << c.args;
  }
}

// Sixteen probes of one address at once: each takes only its own replies.
TEST_F(ProbeNetns, SixteenVyrpingsAtOnce) {
  for (const std::string addr : {"192.0.2.2", "2001:db8::2", "192.0.2.3", "2001:db8::3"}) {
    std::string out, want;
    vyrtest::Sh("for i in $(seq 16); do (" + kVyrping + " -c 1 " + addr +
                    " >/dev/null 2>&1; echo rc=$?) & done; wait",
                &out);
    for (int i = 0; i < 16; ++i) want += addr.back() == '2' ? "rc=0\n" : "rc=1\n";
    EXPECT_EQ(out, want) << addr;
  }
}

// The agent's probe through vyrping and the real arp: the trace names the
// peer's MAC address; IPv6 looks nothing up ("ret=1").
TEST_F(ProbeNetns, AgentRefusesAHeldAddressAndPassesAFreeOne) {
  std::string link;
  ASSERT_EQ(pair_->InPeer("cat /sys/class/net/vb0/address", &link), 0);
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
  std::snprintf(inspath, sizeof inspath, "%s", kBinDir.c_str());
  VIP_INFO info{};
  std::snprintf(info.pingcmd, sizeof info.pingcmd, "vyrping");
  std::snprintf(info.arpcmd, sizeof info.arpcmd, "arp");
  info.pingtout = 1;
  for (const auto& c : cases) {
    vyrtest::TraceCapture log;
    vip_clear_shmbuf();
    ipv6flag = std::string(c.addr).find(':') != std::string::npos;
    std::snprintf(info.addr, sizeof info.addr, "%s", c.addr);
    EXPECT_EQ(vip_ping(&info), c.want) << c.addr;
    EXPECT_EQ(vyrtest::StatusText(), c.want ? "IP address was already used." : "") << c.addr;
    EXPECT_TRUE(c.trace.empty() || log.Contains(c.trace)) << c.trace;
  }
}

}  // namespace
