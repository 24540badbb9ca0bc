// Adding and removing the virtual address by interface ioctls, on a veth
// device inside a private network namespace. Adding and removing that
// succeed are shown end to end by the agent tests.
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string>
#include <utility>

#include "nicCommon/nic_ipaddr_ioctl.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
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

}  // namespace
