// One probe of one address (vip_chk_ip_response) and the neighbour-table
// lookup (vip_get_macaddr_v4), with real scripts standing in for the ping
// and arp commands.
#include "vip/probe.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fake_ping.h"
#include "support/fake_tool.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/globals.h"

namespace {

using vyrtest::FakePingInstall;
using vyrtest::TraceCapture;

constexpr const char* kArpEntry =
    "echo 'Address HWtype HWaddress Flags Mask Iface'; "
    "echo '192.0.2.5 ether 02:00:5e:10:00:01 C va0'";

std::string Shmbuf() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

int Probe(FakePingInstall& fake, const char* addr) {
  IP_INFO ip{};
  std::snprintf(ip.addr, sizeof ip.addr, "%s", addr);
  ip.pinfo = &fake.info();
  return vip_chk_ip_response(&ip);
}

// The ping command's exit status decides; only an answered IPv4 address is
// looked up. The install folder's name needs quoting and must run nothing.
TEST(ProbeTest, PingExitStatusDecidesTheResult) {
  const struct {
    const char* body;  // nullptr: no ping command installed
    const char* addr;
    int want;
    bool runs;
    std::string trace;
  } cases[] = {
      {"exit 1", "192.0.2.5", 0, true, ""},
      {"exit 2", "192.0.2.5", 2, true, "ping to 192.0.2.5 failed (after system())."},
      {"exit 126", "192.0.2.5", 2, true, "ping to 192.0.2.5 failed (after system())."},
      // Killed by a signal, itself or with its whole process group.
      {"kill -KILL $$", "192.0.2.5", 11, true, "ping to 192.0.2.5 failed (before system())."},
      {"kill -KILL 0", "192.0.2.5", 11, true, "ping to 192.0.2.5 failed (before system())."},
      {"exit 0", "192.0.2.5", 15, true, "192.0.2.5 is already exist.(macaddr : 02:00:5e:10:00:01)"},
      {"exit 0", "2001:db8::5", 15, true, "2001:db8::5 is already exist. (ret=1)"},
      {nullptr, "192.0.2.5", 13, false, ": Command not found."},
      {"exit 0", "192.0.2.5;touch x", 2, false, ""},
  };
  for (const auto& c : cases) {
    TraceCapture log;
    FakePingInstall fake("it's $(touch injected) `touch injected2` dir");
    vyrtest::ScopedGlobal<int> v6(ipv6flag, std::string(c.addr).find(':') != std::string::npos);
    fake.info().pingtout = 3;
    if (c.body) fake.SetPing(c.body);
    fake.SetArp(kArpEntry);
    EXPECT_EQ(Probe(fake, c.addr), c.want) << c.addr << " " << (c.body ? c.body : "missing");
    // The count is the echo-request count, the address comes last.
    std::vector<std::string> calls;
    if (c.runs) calls.push_back("-c 3 " + std::string(c.addr));
    EXPECT_EQ(fake.PingCalls(), calls) << c.addr;
    const std::string trace = c.body ? c.trace : fake.ping_path() + c.trace;
    EXPECT_TRUE(c.trace.empty() || log.Contains(trace)) << trace;
    EXPECT_TRUE(c.runs || !log.Contains("system(")) << c.addr;
    EXPECT_EQ(fake.ArpCalls().size(), c.want == 15 && !ipv6flag ? 1u : 0u) << c.addr;
    EXPECT_EQ(Shmbuf(), "");
    EXPECT_NE(vyrtest::Sh("ls " + fake.scratch() + " | grep -x 'injected2\\?'"), 0);
  }
}

TEST(ProbeTest, LookupRefusesTextThatIsNoAddress) {
  FakePingInstall fake;
  fake.SetArp(kArpEntry);
  char mac[32] = "unchanged";
  EXPECT_EQ(vip_get_macaddr_v4(fake.arp_path().c_str(), "192.0.2.5;id", mac), 12);
  EXPECT_TRUE(fake.ArpCalls().empty());
  EXPECT_STREQ(mac, "unchanged");
}

TEST(ProbeTest, NeighbourLookupReadsTheFirstMacToken) {
  const struct {
    const char* name;
    const char* body;
    int want;
    const char* mac;     // expected MAC text when want is 0
    const char* shmbuf;  // start of the description, after the command line
  } cases[] = {
      // One write, as arp's buffered output comes: reading stops at the match.
      {"third line",
       "printf 'header\\n\\n192.0.2.5 ether 0a:1B:2c:3d:4e:5f C va0\\n"
       "192.0.2.5 ether 02:00:00:00:00:02 C va0\\n'",
       0, "0a:1B:2c:3d:4e:5f", nullptr},
      {"tabs and trailing text", "printf '192.0.2.5\\tether\\t1:2:3:4:5:6x\\n'", 0, "1:2:3:4:5:6x",
       nullptr},
      {"too long for the buffer is refused",
       "echo '0:0:0:0:0:000000000000000000000000000000 02:00:00:00:00:09'", 0, "02:00:00:00:00:09",
       nullptr},
      {"no entry", "echo '192.0.2.5 (192.0.2.5) -- no entry'", 26, "", nullptr},
      {"command fails", "exit 4", 3, "", "Command failed. (%s, ret=4)"},
      {"command killed", "kill -KILL 0", 11, "", "Command failed. (pclose(%s), errno="},
  };
  for (const auto& c : cases) {
    FakePingInstall fake;
    fake.SetArp(c.body);
    char mac[32] = {};
    EXPECT_EQ(vip_get_macaddr_v4(fake.arp_path().c_str(), "192.0.2.5", mac), c.want) << c.name;
    EXPECT_STREQ(mac, c.mac) << c.name;
    std::string want = c.shmbuf ? c.shmbuf : "";
    if (c.shmbuf) want.replace(want.find("%s"), 2, "'" + fake.arp_path() + "' -n 192.0.2.5");
    EXPECT_EQ(c.shmbuf ? Shmbuf().substr(0, want.size()) : Shmbuf(), want) << c.name;
  }
}

}  // namespace
