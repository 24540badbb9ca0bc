// The NIC link check: ethtool on veth devices, the MII rules on a played PHY.
#include "vip/address/link_check.h"

#include <gtest/gtest.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "nicCommon/nic_ioctl.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "unique_fd.h"

namespace {

using LinkOnVethTest = vyrtest::AgentNetnsTest;

// The peer's link state decides; bad methods and devices without an ethtool link report fail.
TEST_F(LinkOnVethTest, PeerStateMethodsAndUnsupportedDevices) {
  vyr::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int fd = sock.get();
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 2), MIIW_RET_SUCCESS);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 3), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", -1), MIIW_RET_FAIL_PARAM);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 down"), 0);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 2), MIIW_RET_FAIL_NICDOWN);
  // No dummy device type here; an ifb device has no ethtool link report either.
  if (pair_->InAgent("ip link add vyrifb0 type ifb") != 0) GTEST_SKIP() << "no ifb device type";
  EXPECT_EQ(vip_miiw_ioctl(&fd, "vyrifb0", 2), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
}

// A PHY played through the ioctl seam, without an ethtool link report. mii: 0 no MII requests,
// 1 registers that cannot be read, 2 register 1 reads `basic`, then `status`.
struct Phy {
  int method, mii;
  uint16_t basic, status;
  int ret;
};
const Phy* phy = nullptr;
int reads = 0;

int PlayedIoctl(int, unsigned long request, void* arg) {
  auto* mii = reinterpret_cast<mii_ioctl_data*>(&static_cast<ifreq*>(arg)->ifr_ifru);
  errno = EOPNOTSUPP;
  if (request == SIOCGMIIPHY && phy->mii > 0) {
    mii->phy_id = 7;
  } else if (request == SIOCGMIIREG && phy->mii > 1 && mii->phy_id == 7) {
    mii->val_out = mii->reg_num != 1 ? 0x3100 : reads++ == 0 ? phy->basic : phy->status;
  } else {
    return -1;
  }
  return 0;
}

// Register 1, read twice (basic, then status), decides the link.
TEST(MiiRegisterTest, RegistersDecideTheLink) {
  const Phy cases[] = {
      {1, 2, 0x786d, 0x786d, MIIW_RET_SUCCESS},       // up, nothing wrong
      {1, 2, 0x787d, 0x787d, MIIW_RET_SUCCESS},       // up with remote fault
      {1, 2, 0x7869, 0x786d, MIIW_RET_SUCCESS},       // dropped since the last read, back
      {1, 2, 0x0000, 0x0004, MIIW_RET_SUCCESS},       // register 1 zero, then the link
      {1, 2, 0x7869, 0x7869, MIIW_RET_FAIL_NICDOWN},  // down both times
      {0, 2, 0x7869, 0x7869, MIIW_RET_FAIL_NICDOWN},  // method 0 falls back to the registers
      {1, 1, 0x786d, 0x786d, MIIW_RET_FAIL_IOCTL},
      {1, 0, 0x786d, 0x786d, MIIW_RET_FAIL_IOCTL_NOTSUPPORT},
  };
  vyrtest::ScopedGlobal<NicIoctlFn> seam{nic_ioctl_fn, PlayedIoctl};
  for (const Phy& c : cases) {
    phy = &c;
    reads = 0;
    int fd = 99;
    EXPECT_EQ(vip_miiw_ioctl(&fd, "eth0", c.method), c.ret) << "case " << &c - cases;
  }
}

}  // namespace
