// Adding and removing the virtual address by interface ioctls and through
// rtnetlink, on a veth device inside a private network namespace. Adding and
// removing by ioctl that succeed are shown end to end by the agent tests.
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string>
#include <utility>

#include "nicCommon/nic_ipaddr_ioctl.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/trace_capture.h"
#include "vip/address/ipaddr_change.h"

namespace {

using IpaddrIoctlTest = vyrtest::AgentNetnsTest;

// Makes the next call of one request fail with EIO.
unsigned long fail_request = 0;
int FailingIoctl(int fd, unsigned long request, void* arg) {
  if (request != fail_request) return nic_ioctl_kernel(fd, request, arg);
  fail_request = 0;
  errno = EIO;
  return -1;
}

// A step failing after the address was set leaves no address behind; any failed add is 39, a
// failed remove 40, each with its status description.
TEST_F(IpaddrIoctlTest, FailedChangesAreUndoneAndReported) {
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

// Each option reaches the kernel (read back with `ip -d -o addr` and `ip route`), whatever the
// interface tool setting, and each address goes again on removal, which names the interface
// without the label, as the listing gives it.
TEST_F(IpaddrIoctlTest, NetlinkOptionsReachTheKernel) {
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  constexpr unsigned kBoth = IFA_F_NODAD | IFA_F_NOPREFIXROUTE;
  struct Case {
    vdevinfo v;
    const char* shown;   // in the address's line
    const char* absent;  // not in it
    bool route;          // the prefix route is there
  };
  const Case cases[] = {
      {Netlink4("va0:1", "192.0.2.255"), "192.0.2.10/24 brd 192.0.2.255 scope global va0:1\\",
       "noprefixroute", true},
      {Netlink4("va0", "", {.flags = IFA_F_NOPREFIXROUTE}),
       "192.0.2.10/24 scope global noprefixroute va0\\", "brd", false},
      {Netlink4("va0:web", "192.0.2.200", {.preferred_lft = 0}),
       "192.0.2.10/24 brd 192.0.2.200 scope global deprecated va0:web\\", "noprefixroute", true},
      {Netlink6({.flags = IFA_F_NODAD}), "2001:db8::10/64 scope global nodad \\", "tentative",
       true},
      {Netlink6({.flags = kBoth, .preferred_lft = 0}),
       "scope global nodad deprecated noprefixroute \\       valid_lft forever preferred_lft 0sec",
       "tentative", false},
  };
  for (const Case& c : cases) {
    vdevinfo v = c.v;
    const bool six = v.sipel.masklen != 0;
    const char* family = six ? "-6" : "-4";
    SCOPED_TRACE(std::string(v.sipel.addr) + " " + c.shown);
    ipv6flag = six ? 1 : 0;
    ASSERT_EQ(vip_act_ipaddr(&v, "/nonexistent/ifconfig", 5), 0) << vyrtest::StatusText();
    std::string line;
    std::string routes;
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

// What the kernel refuses, and an interface that is not there, give 39 or 40 with the errno in
// the trace.
TEST_F(IpaddrIoctlTest, NetlinkFailuresAreReported) {
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

  // The kernel's own answers: the address is already there (EEXIST) and, once gone, not there
  // (EADDRNOTAVAIL).
  vdevinfo v6 = Netlink6({.flags = IFA_F_NODAD});
  ipv6flag = 1;
  ASSERT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 0);
  EXPECT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 39);
  EXPECT_TRUE(trace.Contains("RTM_NEWADDR failed.(errno=17)"));
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 0);
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 40);
  EXPECT_EQ(vyrtest::StatusText(), "Delete ip(2001:db8::10) failed.");
  EXPECT_TRUE(trace.Contains("RTM_DELADDR failed.(errno=99)"));
}

}  // namespace
