// Adding and removing the virtual address in a private network namespace: by
// ioctl, by rtnetlink and with a stand-in interface tool that logs its arguments.
#include "vip/address/ipaddr_change.h"

#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "nicCommon/nic_ipaddr_ioctl.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using IpaddrTest = vyrtest::AgentNetnsTest;
using std::chrono::milliseconds;

// Makes the next call of one request fail with EIO.
unsigned long fail_request = 0;
int FailingIoctl(int fd, unsigned long request, void* arg) {
  if (request != fail_request) return nic_ioctl_kernel(fd, request, arg);
  fail_request = 0;
  errno = EIO;
  return -1;
}

// A step failing after the address was set leaves none; a failed add is 39, remove 40.
TEST_F(IpaddrTest, FailedChangesAreUndoneAndReported) {
  vyrtest::ScopedGlobal<int> ioctl_way{IsIfconfig, 0};
  vyrtest::ScopedGlobal<NicIoctlFn> seam{nic_ioctl_fn, FailingIoctl};
  const vdevinfo v4 = vyrtest::Vdev4("va0", "va0:1", "192.0.2.10");
  const std::pair<vdevinfo, unsigned long> cases[] = {
      {v4, SIOCSIFNETMASK},
      {v4, SIOCSIFBRDADDR},
      {v4, SIOCSIFFLAGS},
      {vyrtest::Vdev6("va0", "2001:db8::10", 64), SIOCGIFFLAGS},
      {vyrtest::Vdev4("nosuch0", "nosuch0:1", "192.0.2.10"), 0},  // never set at all
  };
  for (auto [v, request] : cases) {
    const char* family = v.sipel.masklen != 0 ? "-6" : "-4";
    SCOPED_TRACE(std::string(v.sipel.addr) + " on " + v.ifname + ", failing " +
                 std::to_string(request));
    ipv6flag = v.sipel.masklen != 0 ? 1 : 0;
    fail_request = request;
    EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 39);
    EXPECT_EQ(fail_request, 0u) << "the failure was never reached";
    EXPECT_EQ(vyrtest::StatusText(), "Add ip(" + std::string(v.sipel.addr) + ") failed.");
    EXPECT_FALSE(HasAddr(family, std::string(v.sipel.addr) + "/")) << Addrs(family);
  }
  vdevinfo absent = vyrtest::Vdev6("va0", "2001:db8::77", 64);
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&absent, &info), 40);
  EXPECT_EQ(vyrtest::StatusText(), "Delete ip(2001:db8::77) failed.");
}

// The record the rtnetlink way gets for an IPv4 address with these options.
vdevinfo Netlink4(const char* vdevname, const char* bcast, ipaddropt opt = {}) {
  vdevinfo v = vyrtest::Vdev4("va0", vdevname, "192.0.2.10", "255.255.255.0", bcast);
  opt.netlink = 1;
  v.opt = opt;
  return v;
}
vdevinfo Netlink6(ipaddropt opt = {}) {
  vdevinfo v = vyrtest::Vdev6("va0", "2001:db8::10", 64);
  opt.netlink = 1;
  v.opt = opt;
  return v;
}

// Each option reaches the kernel, whatever the interface tool setting, and the
// removal by the listed name (no label) takes the address away again.
TEST_F(IpaddrTest, NetlinkOptionsReachTheKernel) {
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  const struct {
    vdevinfo v;
    const char* shown;   // in the address's line
    const char* absent;  // not in it
    bool route;          // the prefix route is there
  } cases[] = {
      {Netlink4("va0", "", {.flags = IFA_F_NOPREFIXROUTE}),
       "192.0.2.10/24 scope global noprefixroute va0\\", "brd", false},
      {Netlink4("va0:web", "192.0.2.200", {.preferred_lft = 0}),
       "192.0.2.10/24 brd 192.0.2.200 scope global deprecated va0:web\\", "noprefixroute", true},
      {Netlink6({.flags = IFA_F_NODAD | IFA_F_NOPREFIXROUTE, .preferred_lft = 0}),
       "2001:db8::10/64 scope global nodad deprecated noprefixroute \\       valid_lft forever "
       "preferred_lft 0sec",
       "tentative", false},
  };
  for (const auto& c : cases) {
    vdevinfo v = c.v;
    const bool six = v.sipel.masklen != 0;
    const char* family = six ? "-6" : "-4";
    SCOPED_TRACE(std::string(v.sipel.addr) + " " + c.shown);
    ipv6flag = six ? 1 : 0;
    ASSERT_EQ(vip_act_ipaddr(&v, "/nonexistent/ifconfig", 5), 0) << vyrtest::StatusText();
    std::string line, routes;
    pair_->InAgent(
        std::string("ip -d -o ") + family + " addr show dev va0 | grep " + v.sipel.addr + "/",
        &line);
    pair_->InAgent(std::string("ip ") + family + " route show dev va0", &routes);
    EXPECT_NE(line.find(c.shown), std::string::npos) << line;
    EXPECT_EQ(line.find(c.absent), std::string::npos) << line;
    EXPECT_EQ(routes.find(six ? "2001:db8::/64" : "192.0.2.0/24") != std::string::npos, c.route)
        << routes;
    vdevinfo listed = v;
    listed.vdevname[0] = '\0';
    VIP_INFO info{};
    EXPECT_EQ(vip_deact_ipaddr(&listed, &info), 0) << vyrtest::StatusText();
    EXPECT_FALSE(HasAddr(family, std::string(v.sipel.addr) + "/")) << Addrs(family);
  }
}

// A missing interface or the kernel's refusal gives 39 or 40, the errno traced.
TEST_F(IpaddrTest, NetlinkFailuresAreReported) {
  vyrtest::TraceCapture trace;
  vdevinfo missing = Netlink4("nosuch0:1", "192.0.2.255");
  std::snprintf(missing.ifname, sizeof missing.ifname, "nosuch0");
  EXPECT_EQ(vip_act_ipaddr(&missing, "ifconfig", 5), 39);
  EXPECT_EQ(vyrtest::StatusText(), "Add ip(192.0.2.10) failed.");
  EXPECT_TRUE(trace.Contains(
      "nic_act_ipaddr_netlink(192.0.2.10 -> nosuch0(nosuch0:1)) failed. (errno=19)"));
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&missing, &info), 40);
  EXPECT_EQ(vyrtest::StatusText(), "Delete ip(192.0.2.10) failed.");
  EXPECT_TRUE(trace.Contains("nic_deact_ipaddr_netlink(192.0.2.10 -> nosuch0) failed.(errno=19)"));

  // The address already there (EEXIST) and, once gone, not there (EADDRNOTAVAIL).
  vdevinfo v6 = Netlink6({.flags = IFA_F_NODAD});
  ipv6flag = 1;
  ASSERT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 0);
  EXPECT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 39);
  EXPECT_TRUE(trace.Contains("RTM_NEWADDR failed.(errno=17)"));
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 0);
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 40);
  EXPECT_TRUE(trace.Contains("RTM_DELADDR failed.(errno=99)"));
}

constexpr const char* kTool = VYR_TESTDATA_DIR "/tools/ifconfig-older";

// The lines' formats: the tool path in double quotes, every other field bare.
constexpr const char* kAdd4 = "\"%s\" %s %s netmask %s broadcast %s up > /dev/null 2>&1";
constexpr const char* kAdd6 = "\"%s\" %s add %s/%s > /dev/null 2>&1";
constexpr const char* kDown4 = "\"%s\" %s down > /dev/null 2>&1";
constexpr const char* kDel6 = "\"%s\" %s del %s/%s > /dev/null 2>&1";

// Each line is its format byte for byte, a field the shell would act on quoted;
// the tool gets exactly its arguments (nothing else runs), a 16-character name
// too. A failing tool is 3; a hung one 23 at the limit, reaped with its child.
TEST_F(IpaddrTest, LinesFollowTheirFormatsAndTheToolGetsItsArguments) {
  vyrtest::TempDir dir;
  // Whatever a shell ran from these texts would write to the log too.
  const std::string odd = dir / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  for (const std::string& bin : {odd, dir / "bin"}) {
    ASSERT_EQ(::mkdir(bin.c_str(), 0755), 0);
    vyrtest::WriteFile(bin + "/ifconfig", vyrtest::ReadFile(kTool), 0755);
  }
  // IPv4 adds run the plain path, IPv6 ones the odd path, removals PATH's "ifconfig".
  const std::string plain = dir / "bin/ifconfig", odd_tool = odd + "/ifconfig";
  const std::string odd_shown =
      dir / "a b;'c\\\"\\$(echo pwned1 >>\\$FAKE_LOG)\\`echo pwned2 >>\\$FAKE_LOG\\`/ifconfig";
  const std::string log = dir / "log", mark = "hungtool" + std::to_string(::getpid());
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  vyrtest::ScopedEnv path{"PATH", odd + ":" + std::getenv("PATH")}, log_env{"FAKE_LOG", log};
  vyrtest::ScopedEnv mark_env{"FAKE_MARK", mark}, mode{"FAKE_MODE", ""};
  const struct {
    const char* mode;  // the fake tool's
    const char* format;
    std::string name, addr;
    int ret;
    std::string name_shown = "", addr_shown = "";  // when the line quotes the value
  } cases[] = {
      {"apply", kAdd4, "va0:0", "192.0.2.10", 0},
      {"apply", kAdd6, "va0", "2001:db8::10", 0},
      {"apply", kAdd4, "va0 $(echo pwned3 >>$FAKE_LOG)", "192.0.2.11", 3,
       "'va0 $(echo pwned3 >>$FAKE_LOG)'"},
      {"apply", kAdd4, "va0:1", "192.0.2.11;echo pwned4 >>$FAKE_LOG", 3, "",
       "'192.0.2.11;echo pwned4 >>$FAKE_LOG'"},
      {"apply", kAdd6, "va0'", "2001:db8::11", 3, "'va0'\\'''"},
      {"apply", kAdd4, "va0:0123456789ab", "192.0.2.12", 3},  // 16 characters
      {"hang", kAdd4, "va0:3", "192.0.2.14", 23},
      {"apply", kDown4, "va0:0", "192.0.2.10", 0},
      {"apply", kDel6, "va0", "2001:db8::10", 0},
  };
  for (const auto& c : cases) {
    const bool v6 = c.format == kAdd6 || c.format == kDel6;
    const bool remove = c.format == kDown4 || c.format == kDel6;
    const std::string tool = remove ? "ifconfig" : v6 ? odd_tool : plain;
    const char* shown = remove ? "ifconfig" : v6 ? odd_shown.c_str() : plain.c_str();
    const char* name = (c.name_shown.empty() ? c.name : c.name_shown).c_str();
    const char* addr = (c.addr_shown.empty() ? c.addr : c.addr_shown).c_str();
    char line[1024];
    std::snprintf(line, sizeof line, c.format, shown, name, addr, v6 ? "64" : "255.255.255.0",
                  "192.0.2.255");
    const std::string logged =
        c.name + (v6       ? (remove ? "|del|" : "|add|") + c.addr + "/64|\n"
                  : remove ? "|down|\n"
                           : "|" + c.addr + "|netmask|255.255.255.0|broadcast|192.0.2.255|up|\n");
    SCOPED_TRACE(line);
    ::setenv("FAKE_MODE", c.mode, 1);
    ::unlink(log.c_str());
    ipv6flag = v6;
    vip_clear_shmbuf();
    vyrtest::TraceCapture trace;
    vdevinfo vdev = v6 ? vyrtest::Vdev6(c.name.c_str(), c.addr.c_str(), 64)
                       : vyrtest::Vdev4("va0", c.name.c_str(), c.addr.c_str());
    VIP_INFO info{};
    info.ifconftout = 5;
    info.masklen = vdev.sipel.masklen;
    std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "%s", tool.c_str());
    std::snprintf(info.ifname, sizeof info.ifname, "%s", c.name.c_str());
    std::snprintf(info.addr, sizeof info.addr, "%s", c.addr.c_str());
    const int limit = c.ret == 23 ? 1 : 5;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(remove ? vip_deact_ipaddr(&vdev, &info) : vip_act_ipaddr(&vdev, tool.c_str(), limit),
              c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(c.ret == 23 ? 950 : 0)) << "the limit";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
    EXPECT_TRUE(trace.Contains("system(" + std::string(line) + ")..."));
    EXPECT_EQ(vyrtest::StatusText(),
              c.ret ? "Internal error. (status=" + std::to_string(c.ret) + ")" : "");
    EXPECT_EQ(vyrtest::ReadFile(log), logged);
    EXPECT_TRUE(c.ret != 0 || remove || HasAddr(v6 ? "-6" : "-4", c.addr + "/")) << Addrs("-4");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a tool is left running or unreaped";
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(mark, milliseconds(5000))) << "the hung tool's child";
  EXPECT_FALSE(HasAddr("-4", "192.0.2.") || HasAddr("-6", "2001:db8::")) << Addrs("-4");
}

}  // namespace
