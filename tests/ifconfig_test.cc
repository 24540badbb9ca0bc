// The interface tool through fake scripts: whether it is used, and its listing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "nicCommon/nic_ifconfig_probe.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/address/listing.h"
#include "vip/base/globals.h"

namespace {

using std::chrono::milliseconds;

std::string Cat(std::string f) { return "/bin/cat '" VYR_TESTDATA_DIR "/ifconfig/" + f + "'\n"; }

std::string Print(const std::string& text) { return "printf '%s' '" + text + "'\n"; }

// One entry per block for IPv4 (an alias is a block), one per address for
// IPv6; "-a" follows the configured path's own arguments, each one word; a
// hanging tool is ended with its process group at the limit, no other is.
TEST(IfconfigListing, ToolOutputGivesTheEntriesOrItsCodeAndDescription) {
  vyrtest::TempDir dir;
  const auto tool = [&](const std::string& name, const std::string& body,
                        const std::string& args = "-a") {
    vyrtest::WriteFile(dir / name, "#!/bin/sh\n[ \"$*\" = \"" + args + "\" ] || exit 9\n" + body,
                       0755);
    return dir / name;
  };
  const std::string exits1 = tool("exits1", Cat("older_mixed.txt") + "exit 1\n");
  // Keywords in any case; MAC groups kept as written, the bytes right.
  const std::string caps = tool("caps", Print("eth0 HWADDR 0:c:29:3b:12:34\n INET ADDR:192.0.2.6 "
                                              "MASK:255.0.0.0\n INET6 ADDR: 2001:db8::6/64\n"
                                              " inet6 addr: 2001:db8::7/64\n"));
  std::string seventeen;  // in the order printed
  for (int k = 0; k < 17; ++k) {
    char e[64];
    std::snprintf(e, 64, "eth%d 192.0.2.%d 255.255.255.0 /0 00:0C:29:00:00:%02X\n", k, k + 1, k);
    seventeen += e;
  }
  const struct {
    std::string tool;
    int v6, ret;
    std::string desc, entries;
  } cases[] = {
      {tool("older", Cat("older_mixed.txt")), 0, 0, "untouched",
       "eth0 192.0.2.10 255.255.255.0 /0 00:0C:29:3B:12:34\n"
       "eth0:1 192.0.2.20 255.255.255.0 /0 00:0C:29:3B:12:34\n"
       "eth1 198.51.100.7 255.255.255.128 /0 00:0c:29:3b:12:3e\n"
       "eth2   /0 00:0C:29:3B:12:48\n"
       "lo 127.0.0.1 255.0.0.0 /0 \n"},
      {tool("older", Cat("older_mixed.txt")), 1, 0, "untouched",
       "eth0 fe80::20c:29ff:fe3b:1234 ffff:ffff:ffff:ffff:: /64 00:0C:29:3B:12:34\n"
       "eth0 2001:db8::10 ffff:ffff:ffff:ffff:: /64 00:0C:29:3B:12:34\n"
       "eth0:1   /0 00:0C:29:3B:12:34\n"
       "eth1 2001:db8:1::7 ffff:ffff:ffff:: /48 00:0c:29:3b:12:3e\n"
       "eth2   /0 00:0C:29:3B:12:48\n"
       "lo ::1 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff /128 \n"},
      {tool("it's;$(id)", Cat("seventeen_blocks.txt"), "--older * -a") + "\t--older  *", 0, 0,
       "untouched", seventeen},
      {caps, 0, 0, "untouched", "eth0 192.0.2.6 255.0.0.0 /0 0:c:29:3b:12:34\n"},
      {caps, 1, 0, "untouched",
       "eth0 2001:db8::6 ffff:ffff:ffff:ffff:: /64 0:c:29:3b:12:34\n"
       "eth0 2001:db8::7 ffff:ffff:ffff:ffff:: /64 0:c:29:3b:12:34\n"},
      // "inet6" without "addr:" is no address; an address without a prefix is.
      {tool("v6odd", Print("eth0 Link\n inet6 2001:db8::9/64\neth1\n inet6 addr: 2001:db8::8\n")),
       1, 0, "untouched", "eth0   /0 \neth1 2001:db8::8  /0 \n"},
      {tool("v6bad", Print("eth0 Link\n inet6 addr: 2001:db8::1/129\n")), 1, 31, "untouched", ""},
      {exits1, 0, 3, "Command failed. (" + exits1 + " -a, ret=1)", ""},
      {tool("dashes", Cat("hwaddr_dashes.txt")), 0, 18, "Internal error. (status=18)", ""},
      {std::string(1021, 'x'), 0, 12, "Internal error. (status=12)", ""},
      {tool("hangs", "echo 'eth0 Link'\nwhile :; do sleep 1; done\n"), 0, 23,
       "Internal error. (status=23)", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tool.substr(c.tool.rfind('/') + 1) + " ipv6flag=" + std::to_string(c.v6));
    vyrtest::ScopedGlobal<int> source(IsIfconfig, 1), mode(ipv6flag, c.v6);
    vip_set_shmbuf("untouched");
    ipaddrinfo* list = nullptr;
    int num = -1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(vip_ifconfig_mkth(&list, &num, c.tool.c_str(), c.ret == 23 ? 1 : 5), c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(vyrtest::EntryTexts(list, num), c.entries);
    EXPECT_EQ(num == -1, c.ret == 23) << "the outputs are untouched only at the limit";
    EXPECT_TRUE(c.tool != caps ||
                !std::memcmp(list[num - 1].macaddr, "\x00\x0c\x29\x3b\x12\x34", 6));
    std::free(list);
    EXPECT_EQ(vyrtest::StatusText(), c.desc);
    EXPECT_EQ(took >= milliseconds(1000), c.ret == 23) << "the limit, and only there";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(dir.path(), milliseconds(5000))) << "a tool outlived it";
}

// The first line that shows a layout decides, whatever the exit status; off,
// nothing runs; no ifconfig, a hung one (21) or no "which" (127) leaves the
// kernel; a chatty "which" prints nothing into the agent's own output.
TEST(IfconfigProbe, LayoutOfTheListingDecidesOncePerRun) {
  vyrtest::TempDir dir;
  vyrtest::TraceCapture trace;
  const std::string ran = dir / "ran";
  const std::string which = "echo which >>" + ran + "; exec /usr/bin/which \"$@\"";
  const struct {
    std::string ifconfig, which;  // the fakes' commands; none when empty
    int use, ret, flag;
    const char* ran;
  } cases[] = {
      {"", which, 0, 0, 0, "which\n"},
      {Cat("older_late_address.txt"), which, 0, 0, 1, "which\n-a\n"},  // in a later block
      {Cat("older_mixed.txt") + "exit 3", which, 0, 0, 1, "which\n-a\n"},
      {Cat("newer_layout.txt"), which, 0, 0, 0, "which\n-a\n"},
      {Cat("older_mixed.txt"), which, 1, 0, 0, ""},
      {"while :; do /bin/sleep 1; done", which, 0, 21, 0, "which\n-a\n"},
      {Cat("older_mixed.txt"), "", 0, 0, 0, ""},
      {Cat("older_mixed.txt"), "echo noise; echo noise >&2; exit 1", 0, 0, 0, ""},
  };
  const auto fake = [&dir](const char* name, const std::string& body) {
    ::unlink((dir / name).c_str());
    if (!body.empty()) vyrtest::WriteFile(dir / name, "#!/bin/sh\n" + body, 0755);
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ifconfig + " use=" + std::to_string(c.use) + " which=" + c.which);
    vyrtest::WriteFile(ran, "");
    fake("which", c.which);
    fake("ifconfig", c.ifconfig.empty() ? "" : "echo \"$@\" >> '" + ran + "'\n" + c.ifconfig);
    vyrtest::ScopedEnv path("PATH", dir.path());
    int flag = -1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(nic_chk_isifconfig(&flag, c.use, c.ret == 21 ? 1 : 5), c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(flag, c.flag);
    EXPECT_EQ(vyrtest::ReadFile(ran), c.ran);
    EXPECT_EQ(took >= milliseconds(1000), c.ret == 21) << "the limit, and only there";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(vyrtest::NoProcessWithin(dir.path(), milliseconds(5000))) << "a tool outlived it";
  EXPECT_TRUE(
      trace.Contains("which ifconfig > /dev/null 2>&1 failed,ifconfig does not exist.(ret=127)"));
}

}  // namespace
