// Adding and removing the virtual address by interface ioctls, on a veth
// device inside a private network namespace.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string>
#include <vector>

#include "nicCommon/nic_ipaddr_ioctl.h"
#include "support/netns_fixture.h"
#include "vip/ipaddr_change.h"
#include "vip/vdev.h"

namespace {

using vyrtest::StatusText;

// Makes the next call of one request fail with EIO.
unsigned long fail_request = 0;

int FailingIoctl(int fd, unsigned long request, void* arg) {
  if (request == fail_request) {
    fail_request = 0;
    errno = EIO;
    return -1;
  }
  return nic_ioctl_kernel(fd, request, arg);
}

class IpaddrIoctlTest : public vyrtest::AgentNetnsTest {
 protected:
  void SetUp() override {
    AgentNetnsTest::SetUp();
    IsIfconfig = 0;
    fail_request = 0;
    nic_ioctl_fn = FailingIoctl;
  }
  void TearDown() override {
    nic_ioctl_fn = nic_ioctl_kernel;
    IsIfconfig = 1;
    AgentNetnsTest::TearDown();
  }
};

TEST_F(IpaddrIoctlTest, AddressGoesOnTheChosenDeviceAndComesOffAgain) {
  ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.5/24 dev va0 label va0:0"), 0);
  // The list as the listing shows it: the interface and its alias 0.
  std::vector<ipaddrinfo> list = {vyrtest::ListEntry("va0"), vyrtest::ListEntry("va0:0")};
  vdevinfo v = vyrtest::Vdev4("va0", "", "192.0.2.10", "", "");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 2, &v), 0);
  ASSERT_STREQ(v.vdevname, "va0:1");

  ASSERT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0);
  // One line per address; the label ends the address part of the line.
  EXPECT_TRUE(HasAddr("-4", "inet 192.0.2.10/24 brd 192.0.2.255 scope global secondary va0:1\\"))
      << Addrs("-4");
  VIP_INFO info{};
  ASSERT_EQ(vip_deact_ipaddr(&v, &info), 0);
  EXPECT_FALSE(HasAddr("-4", "192.0.2.10/")) << Addrs("-4");
  EXPECT_TRUE(HasAddr("-4", "192.0.2.5/24")) << "the other alias must stay\n" << Addrs("-4");

  // IPv6: on the interface itself, with its prefix length.
  ipv6flag = 1;
  vdevinfo v6 = vyrtest::Vdev6("va0", "2001:db8::10", 64);
  ASSERT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 0);
  EXPECT_TRUE(HasAddr("-6", "inet6 2001:db8::10/64")) << Addrs("-6");
  ASSERT_EQ(vip_deact_ipaddr(&v6, &info), 0);
  EXPECT_FALSE(HasAddr("-6", "2001:db8::10")) << Addrs("-6");
}

TEST_F(IpaddrIoctlTest, FailureAfterTheAddressWasSetLeavesNothingBehind) {
  struct Case {
    const char* what;
    bool ipv6;
    unsigned long request;
    int code;
  };
  const Case cases[] = {
      {"IPv4 netmask", false, SIOCSIFNETMASK, 11},   {"IPv4 broadcast", false, SIOCSIFBRDADDR, 12},
      {"IPv4 flags write", false, SIOCSIFFLAGS, 13}, {"IPv4 flags read", false, SIOCGIFFLAGS, 15},
      {"IPv6 flags write", true, SIOCSIFFLAGS, 13},  {"IPv6 flags read", true, SIOCGIFFLAGS, 15},
  };
  for (const auto& c : cases) {
    vdevinfo v = c.ipv6 ? vyrtest::Vdev6("va0", "2001:db8::10", 64)
                        : vyrtest::Vdev4("va0", "va0:4", "192.0.2.10");
    fail_request = c.request;
    EXPECT_EQ(nic_act_ipaddr_ioctl(&v), c.code) << c.what;
    EXPECT_EQ(fail_request, 0u) << c.what << ": the failure was never reached";
    const char* family = c.ipv6 ? "-6" : "-4";
    EXPECT_FALSE(HasAddr(family, c.ipv6 ? "2001:db8::10/" : "192.0.2.10/")) << c.what << "\n"
                                                                            << Addrs(family);
  }

  // The agent reports any failed add as 39: undone, or never set at all.
  fail_request = SIOCSIFNETMASK;
  vdevinfo v = vyrtest::Vdev4("va0", "va0:4", "192.0.2.10");
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 39);
  EXPECT_EQ(StatusText(), "Add ip(192.0.2.10) failed.");
  EXPECT_FALSE(HasAddr("-4", "192.0.2.10/")) << Addrs("-4");
  vdevinfo missing = vyrtest::Vdev4("nosuch0", "nosuch0:1", "192.0.2.11");
  EXPECT_EQ(vip_act_ipaddr(&missing, "ifconfig", 5), 39);
  EXPECT_EQ(StatusText(), "Add ip(192.0.2.11) failed.");
}

TEST_F(IpaddrIoctlTest, FailedRemoveReports40) {
  ipv6flag = 1;
  vdevinfo v = vyrtest::Vdev6("va0", "2001:db8::77", 64);  // never added
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&v, &info), 40);
  EXPECT_EQ(StatusText(), "Delete ip(2001:db8::77) failed.");
}

}  // namespace
