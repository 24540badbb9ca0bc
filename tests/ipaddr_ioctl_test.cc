// Adding and removing the virtual address by interface ioctls, on a veth
// device inside a private network namespace.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "nicCommon/nic_ipaddr_ioctl.h"
#include "support/netns.h"
#include "vip/globals.h"
#include "vip/ipaddr_change.h"
#include "vip/vdev.h"

namespace {

// Makes the first `fail_count` calls of one request fail with EIO.
struct InjectedFailure {
  unsigned long request = 0;
  int fail_count = 0;
};
InjectedFailure injected;

int FailingIoctl(int fd, unsigned long request, void* arg) {
  if (request == injected.request && injected.fail_count > 0) {
    --injected.fail_count;
    errno = EIO;
    return -1;
  }
  return nic_ioctl_kernel(fd, request, arg);
}

std::string Desc() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

vdevinfo Ipv4Record(const char* ifname, const char* vdevname, const char* addr) {
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "%s", ifname);
  std::snprintf(v.vdevname, sizeof v.vdevname, "%s", vdevname);
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "%s", addr);
  std::snprintf(v.sipel.mask, sizeof v.sipel.mask, "255.255.255.0");
  inet_pton(AF_INET, addr, &v.nipel.addr);
  inet_pton(AF_INET, "255.255.255.0", &v.nipel.mask);
  std::snprintf(v.bcast, sizeof v.bcast, "192.0.2.255");
  return v;
}

vdevinfo Ipv6Record(const char* ifname, const char* addr, int masklen) {
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "%s", ifname);
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "%s", addr);
  v.sipel.masklen = masklen;
  inet_pton(AF_INET6, addr, &v.nipel6.addr);
  return v;
}

class IpaddrIoctlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    pair_ = vyrtest::NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
    inside_ = std::make_unique<vyrtest::ScopedNetns>(pair_->agent());
    ASSERT_TRUE(inside_->ok());
    IsIfconfig = 0;
    ipv6flag = 0;
    vip_clear_shmbuf();
    injected = {};
    nic_ioctl_fn = FailingIoctl;
  }
  void TearDown() override {
    nic_ioctl_fn = nic_ioctl_kernel;
    IsIfconfig = 1;
    ipv6flag = 0;
    inside_.reset();
    pair_.reset();
  }

  std::string Addrs(const char* family) {
    std::string out;
    pair_->InAgent(std::string("ip -o ") + family + " addr show dev va0", &out);
    return out;
  }

  std::unique_ptr<vyrtest::NetnsPair> pair_;
  std::unique_ptr<vyrtest::ScopedNetns> inside_;
};

TEST_F(IpaddrIoctlTest, Ipv4GoesOnTheChosenAliasAndComesOffAgain) {
  ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.5/24 dev va0 label va0:0"), 0);
  // The list as the listing shows it: the interface and its alias 0.
  std::vector<ipaddrinfo> list(2);
  std::snprintf(list[0].ifname, sizeof list[0].ifname, "va0");
  std::snprintf(list[1].ifname, sizeof list[1].ifname, "va0:0");
  inet_pton(AF_INET, "255.255.255.0", &list[0].nipel.mask);
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "va0");
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "192.0.2.10");
  inet_pton(AF_INET, "192.0.2.10", &v.nipel.addr);
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 2, &v), 0);
  ASSERT_STREQ(v.vdevname, "va0:1");

  ASSERT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0);
  // One line per address; the label ends the address part of the line.
  const std::string added = Addrs("-4");
  const size_t at = added.find("inet 192.0.2.10/24 brd 192.0.2.255 ");
  ASSERT_NE(at, std::string::npos) << added;
  const std::string line = added.substr(at, added.find('\n', at) - at);
  EXPECT_NE(line.find(" va0:1\\"), std::string::npos) << line;

  VIP_INFO info{};
  ASSERT_EQ(vip_deact_ipaddr(&v, &info), 0);
  const std::string after = Addrs("-4");
  EXPECT_EQ(after.find("192.0.2.10/"), std::string::npos) << after;
  EXPECT_NE(after.find("192.0.2.5/24"), std::string::npos) << "the other alias must stay\n"
                                                           << after;
}

TEST_F(IpaddrIoctlTest, Ipv6GoesOnTheInterfaceWithItsPrefix) {
  ipv6flag = 1;
  vdevinfo v = Ipv6Record("va0", "2001:db8::10", 64);
  ASSERT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0);
  EXPECT_NE(Addrs("-6").find("inet6 2001:db8::10/64"), std::string::npos) << Addrs("-6");

  VIP_INFO info{};
  ASSERT_EQ(vip_deact_ipaddr(&v, &info), 0);
  EXPECT_EQ(Addrs("-6").find("2001:db8::10"), std::string::npos) << Addrs("-6");
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
    vdevinfo v =
        c.ipv6 ? Ipv6Record("va0", "2001:db8::10", 64) : Ipv4Record("va0", "va0:4", "192.0.2.10");
    injected = {c.request, 1};
    EXPECT_EQ(nic_act_ipaddr_ioctl(&v), c.code) << c.what;
    EXPECT_EQ(injected.fail_count, 0) << c.what << ": the failure was never reached";
    const std::string listed = Addrs(c.ipv6 ? "-6" : "-4");
    EXPECT_EQ(listed.find(c.ipv6 ? "2001:db8::10/" : "192.0.2.10/"), std::string::npos)
        << c.what << "\n"
        << listed;
  }
}

TEST_F(IpaddrIoctlTest, FailedAddReports39WithTheAddress) {
  vdevinfo v = Ipv4Record("va0", "va0:4", "192.0.2.10");
  injected = {SIOCSIFNETMASK, 1};
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 39);
  EXPECT_EQ(Desc(), "Add ip(192.0.2.10) failed.");
  EXPECT_EQ(Addrs("-4").find("192.0.2.10/"), std::string::npos);

  // The address cannot be set at all: nothing to undo, still 39.
  vip_clear_shmbuf();
  vdevinfo missing = Ipv4Record("nosuch0", "nosuch0:1", "192.0.2.11");
  EXPECT_EQ(vip_act_ipaddr(&missing, "ifconfig", 5), 39);
  EXPECT_EQ(Desc(), "Add ip(192.0.2.11) failed.");
}

TEST_F(IpaddrIoctlTest, FailedRemoveReports40) {
  ipv6flag = 1;
  vdevinfo v = Ipv6Record("va0", "2001:db8::77", 64);  // never added
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&v, &info), 40);
  EXPECT_EQ(Desc(), "Delete ip(2001:db8::77) failed.");
}

TEST_F(IpaddrIoctlTest, Ipv4RemovalOfAnAddressAlreadyGoneSucceeds) {
  ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.30/24 dev va0 label va0:2"), 0);
  vdevinfo v = Ipv4Record("va0", "va0:2", "192.0.2.30");
  EXPECT_EQ(nic_deact_ipaddr_ioctl(&v), 0);
  EXPECT_EQ(Addrs("-4").find("192.0.2.30/"), std::string::npos) << Addrs("-4");
}

}  // namespace
