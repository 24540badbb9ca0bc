// One probe of one address (vip_chk_ip_response) and the neighbour-table
// lookup (vip_get_macaddr_v4), with real scripts standing in for the ping
// and arp commands.
#include "vip/probe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/fake_ping.h"
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

struct PingCase {
  const char* body;
  int want;
  const char* trace;  // an error line the probe must write ("" for none)
};

TEST(ProbeTest, PingExitStatusDecidesTheResult) {
  const PingCase cases[] = {
      {"exit 1", 0, ""},
      {"exit 2", 2, "ping to 192.0.2.5 failed (after system())."},
      {"exit 126", 2, "ping to 192.0.2.5 failed (after system())."},
      // The shell execs the command, so a ping killed by a signal did not end
      // normally, as does one whose whole process group is killed.
      {"kill -KILL $$", 11, "ping to 192.0.2.5 failed (before system())."},
      {"kill -KILL 0", 11, "ping to 192.0.2.5 failed (before system())."},
      {"exit 0", 15, "192.0.2.5 is already exist.(macaddr : 02:00:5e:10:00:01)"},
  };
  for (const PingCase& c : cases) {
    TraceCapture log;
    FakePingInstall fake;
    fake.info().pingtout = 3;
    fake.SetPing(c.body);
    fake.SetArp(kArpEntry);
    EXPECT_EQ(Probe(fake, "192.0.2.5"), c.want) << c.body;
    // The count is the echo-request count, the address comes last.
    EXPECT_EQ(fake.PingCalls(), std::vector<std::string>{"-c 3 192.0.2.5"}) << c.body;
    if (*c.trace != '\0') {
      auto errors = log.Texts("ERROR");
      EXPECT_NE(std::find(errors.begin(), errors.end(), c.trace), errors.end()) << c.body;
    }
    // Only an answer makes the probe look up the neighbour table.
    EXPECT_EQ(fake.ArpCalls().size(), c.want == 15 ? 1u : 0u) << c.body;
    EXPECT_EQ(Shmbuf(), "") << c.body;
  }
}

TEST(ProbeTest, MissingPingCommandRunsNothing) {
  TraceCapture log;
  FakePingInstall fake;
  fake.SetArp(kArpEntry);
  EXPECT_EQ(Probe(fake, "192.0.2.5"), 13);
  EXPECT_TRUE(log.Contains(fake.ping_path() + ": Command not found."));
  EXPECT_FALSE(log.Contains("system("));
  EXPECT_TRUE(fake.ArpCalls().empty());
  EXPECT_EQ(Shmbuf(), "");
}

TEST(ProbeTest, AnsweredIPv6AddressIsNotLookedUp) {
  TraceCapture log;
  FakePingInstall fake;
  ipv6flag = 1;
  fake.SetPing("exit 0");
  fake.SetArp(kArpEntry);
  EXPECT_EQ(Probe(fake, "2001:db8::5"), 15);
  EXPECT_TRUE(log.Contains("2001:db8::5 is already exist. (ret=1)"));
  EXPECT_EQ(fake.PingCalls(), std::vector<std::string>{"-c 1 2001:db8::5"});
  EXPECT_TRUE(fake.ArpCalls().empty());
}

TEST(ProbeTest, FailedLookupKeepsTheVerdictAndDescribesTheCommand) {
  TraceCapture log;
  FakePingInstall fake;
  fake.SetPing("exit 0");
  fake.SetArp("exit 1");
  EXPECT_EQ(Probe(fake, "192.0.2.5"), 15);
  EXPECT_TRUE(log.Contains("192.0.2.5 is already exist. (ret=3)"));
  EXPECT_EQ(Shmbuf(), "Command failed. ('" + fake.arp_path() + "' -n 192.0.2.5, ret=1)");
}

// Configured paths with blanks, quotes and command substitutions reach the
// commands as one word each; nothing in them is run.
TEST(ProbeTest, PathsAreNeverInterpretedByTheShell) {
  TraceCapture log;
  FakePingInstall fake("it's $(touch injected) `touch injected2` dir");
  fake.SetPing("exit 0");
  fake.SetArp(kArpEntry);
  EXPECT_EQ(Probe(fake, "192.0.2.5"), 15);
  EXPECT_EQ(fake.PingCalls().size(), 1u);
  EXPECT_EQ(fake.ArpCalls(), std::vector<std::string>{"-n 192.0.2.5"});
  EXPECT_NE(vyrtest::Sh("ls " + fake.scratch() + " | grep -x injected"), 0);
  EXPECT_NE(vyrtest::Sh("ls " + fake.scratch() + " | grep -x injected2"), 0);
  EXPECT_TRUE(log.Contains("macaddr : 02:00:5e:10:00:01"));
}

TEST(ProbeTest, TextThatIsNoAddressNeverReachesACommand) {
  FakePingInstall fake;
  fake.SetPing("exit 0");
  fake.SetArp(kArpEntry);
  EXPECT_EQ(Probe(fake, "192.0.2.5;touch x"), 2);
  EXPECT_TRUE(fake.PingCalls().empty());
  char mac[32] = "unchanged";
  EXPECT_EQ(vip_get_macaddr_v4(fake.arp_path().c_str(), "192.0.2.5;id", mac), 12);
  EXPECT_TRUE(fake.ArpCalls().empty());
  EXPECT_STREQ(mac, "unchanged");
}

struct LookupCase {
  const char* name;
  const char* body;
  int want;
  const char* mac;     // expected MAC text when want is 0
  const char* shmbuf;  // expected description; "%s" is the command line
};

TEST(ProbeTest, NeighbourLookupReadsTheFirstMacToken) {
  const LookupCase cases[] = {
      {"third line",
       // One write, as arp's buffered output comes: reading stops at the
       // match, so later writes could meet a closed pipe.
       "printf 'header\\n\\n192.0.2.5 ether 0a:1B:2c:3d:4e:5f C va0\\n"
       "192.0.2.5 ether 02:00:00:00:00:02 C va0\\n'",
       0, "0a:1B:2c:3d:4e:5f", ""},
      {"tabs and trailing text", "printf '192.0.2.5\\tether\\t1:2:3:4:5:6x\\n'", 0, "1:2:3:4:5:6x",
       ""},
      {"too long for the buffer is refused",
       "echo '0:0:0:0:0:000000000000000000000000000000 02:00:00:00:00:09'", 0, "02:00:00:00:00:09",
       ""},
      {"no entry", "echo '192.0.2.5 (192.0.2.5) -- no entry'", 26, "", ""},
      {"command fails", "exit 4", 3, "", "Command failed. (%s, ret=4)"},
      {"command killed", "kill -KILL 0", 11, "", "Command failed. (pclose(%s), errno="},
  };
  for (const LookupCase& c : cases) {
    TraceCapture log;
    FakePingInstall fake;
    fake.SetArp(c.body);
    char mac[32] = {};
    EXPECT_EQ(vip_get_macaddr_v4(fake.arp_path().c_str(), "192.0.2.5", mac), c.want) << c.name;
    EXPECT_STREQ(mac, c.mac) << c.name;
    const std::string cmdline = "'" + fake.arp_path() + "' -n 192.0.2.5";
    std::string want_desc = c.shmbuf;
    if (auto at = want_desc.find("%s"); at != std::string::npos) {
      want_desc.replace(at, 2, cmdline);
    }
    EXPECT_EQ(Shmbuf().substr(0, want_desc.size()), want_desc) << c.name;
    if (want_desc.empty()) {
      EXPECT_EQ(Shmbuf(), "") << c.name;
    }
  }
}

}  // namespace
