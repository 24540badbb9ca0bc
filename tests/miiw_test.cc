// The NIC link check: ethtool on real devices in a private namespace, and
// the MII register rules with a played PHY.
#include "vip/miiw.h"

#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/netns_fixture.h"

namespace {

using LinkOnVethTest = vyrtest::AgentNetnsTest;

TEST_F(LinkOnVethTest, PeerStateMethodsAndUnsupportedDevices) {
  vyr::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_TRUE(sock.valid());
  int fd = sock.get();
  auto check = [&fd](const char* dev, int method) { return vip_miiw_ioctl(&fd, dev, method); };
  EXPECT_EQ(check("va0", 2), MIIW_RET_SUCCESS);
  EXPECT_EQ(check("va0", 0), MIIW_RET_SUCCESS);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 down"), 0);
  EXPECT_EQ(check("va0", 2), MIIW_RET_FAIL_NICDOWN);
  EXPECT_EQ(check("va0", 0), MIIW_RET_FAIL_NICDOWN);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 up"), 0);
  EXPECT_EQ(check("va0", 2), MIIW_RET_SUCCESS);

  EXPECT_EQ(check("va0", 1), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);  // veth has no MII registers
  EXPECT_EQ(check("va0", 3), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(check("va0", -1), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(check("nosuch0", 2), MIIW_RET_FAIL_IOCTL);
  // No dummy device type here; an ifb device has no ethtool link report either.
  if (pair_->InAgent("ip link add vyrifb0 type ifb") != 0) GTEST_SKIP() << "no ifb device type";
  EXPECT_EQ(check("vyrifb0", 2), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
  EXPECT_EQ(check("vyrifb0", 0), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
}

// A PHY played through the ioctl seam.
struct Phy {
  int ethtool_errno = EOPNOTSUPP;  // 0: ethtool answers with `link`
  unsigned int link = 1;
  bool miiphy = true;    // SIOCGMIIPHY accepted
  bool private_ = true;  // SIOCDEVPRIVATE accepted
  uint16_t reg0 = 0x3100;
  uint16_t basic = 0x786d;   // first read of register 1
  uint16_t status = 0x786d;  // second read
  int fail_read = -1;        // register read (0..8, 8 = second read of 1) that fails
};
Phy phy;
int reads = 0;  // register reads so far
std::vector<unsigned long> requests;

int PlayedIoctl(int, unsigned long request, void* arg) {
  requests.push_back(request);
  auto* ifr = static_cast<ifreq*>(arg);
  if (request == SIOCETHTOOL) {
    if (phy.ethtool_errno != 0) {
      errno = phy.ethtool_errno;
      return -1;
    }
    reinterpret_cast<ethtool_value*>(ifr->ifr_data)->data = phy.link;
    return 0;
  }
  mii_ioctl_data mii;
  std::memcpy(&mii, &ifr->ifr_ifru, sizeof mii);
  if (request == SIOCGMIIPHY || request == SIOCDEVPRIVATE) {
    if (!(request == SIOCGMIIPHY ? phy.miiphy : phy.private_)) {
      errno = EOPNOTSUPP;
      return -1;
    }
    mii.phy_id = 7;
  } else {
    const int read = reads++;
    if (read == phy.fail_read || mii.phy_id != 7 || mii.reg_num > 7) {
      errno = EIO;
      return -1;
    }
    const uint16_t others[8] = {phy.reg0, 0, 0x0141, 0x0cc2, 0x01e1, 0xc5e1, 0x000f, 0x2001};
    mii.val_out = mii.reg_num != 1 ? others[mii.reg_num] : read == 1 ? phy.basic : phy.status;
  }
  std::memcpy(&ifr->ifr_ifru, &mii, sizeof mii);
  return 0;
}

TEST(MiiRegisterTest, RegistersAndMethodsDecideTheLink) {
  constexpr unsigned long kReg = SIOCGMIIREG, kPriv = SIOCDEVPRIVATE, kEth = SIOCETHTOOL;
  struct Case {
    const char* what;
    Phy phy;
    int method, ret, reads;
    size_t requests;  // ioctls made, the last one being `last`
    unsigned long last;
  };
  // Method 1 reads the eight registers and register 1 again.
  // clang-format off
  const Case cases[] = {
      {"link up, healthy", {}, 1, MIIW_RET_SUCCESS, 9, 10, kReg},
      {"link up with remote fault", {.basic = 0x787d, .status = 0x787d}, 1, MIIW_RET_SUCCESS, 9, 10, kReg},
      {"link up with jabber", {.basic = 0x786f, .status = 0x786f}, 1, MIIW_RET_SUCCESS, 9, 10, kReg},
      {"dropped since last read, back now", {.basic = 0x7869}, 1, MIIW_RET_SUCCESS, 9, 10, kReg},
      {"register 1 zero, link back", {.basic = 0, .status = 4}, 1, MIIW_RET_SUCCESS, 9, 10, kReg},
      {"down both reads", {.basic = 0x7869, .status = 0x7869}, 1, MIIW_RET_FAIL_NICDOWN, 9, 10, kReg},
      {"no transceiver", {.reg0 = 0xffff, .basic = 0, .status = 0}, 1, MIIW_RET_FAIL_NICDOWN, 9, 10, kReg},
      {"first read fails", {.fail_read = 0}, 1, MIIW_RET_FAIL_IOCTL, 1, 2, kReg},
      {"read 3 fails", {.fail_read = 3}, 1, MIIW_RET_FAIL_IOCTL, 4, 5, kReg},
      {"read 7 fails", {.fail_read = 7}, 1, MIIW_RET_FAIL_IOCTL, 8, 9, kReg},
      {"second read of 1 fails", {.fail_read = 8}, 1, MIIW_RET_FAIL_IOCTL, 9, 10, kReg},
      {"device-private pair", {.miiphy = false}, 1, MIIW_RET_SUCCESS, 9, 11, kPriv + 1},
      {"no MII requests", {.miiphy = false, .private_ = false}, 1, MIIW_RET_FAIL_IOCTL_NOTSUPPORT, 0, 2, kPriv},
      {"method 0, no ethtool: registers", {}, 0, MIIW_RET_SUCCESS, 9, 11, kReg},
      {"method 0, ethtool answers", {.ethtool_errno = 0, .link = 0}, 0, MIIW_RET_FAIL_NICDOWN, 0, 1, kEth},
      {"method 2, no ethtool", {}, 2, MIIW_RET_FAIL_IOCTL_NOTSUPPORT, 0, 1, kEth},
      {"method 2, ethtool fails", {.ethtool_errno = EIO}, 2, MIIW_RET_FAIL_IOCTL, 0, 1, kEth},
  };
  // clang-format on
  for (const auto& c : cases) {
    phy = c.phy;
    reads = 0;
    requests.clear();
    vip_miiw_ioctl_fn = PlayedIoctl;
    int fd = 99;
    EXPECT_EQ(vip_miiw_ioctl(&fd, "eth0", c.method), c.ret) << c.what;
    vip_miiw_ioctl_fn = vip_miiw_ioctl_kernel;
    EXPECT_EQ(reads, c.reads) << c.what;
    ASSERT_EQ(requests.size(), c.requests) << c.what;
    EXPECT_EQ(requests.back(), c.last) << c.what;
  }
}

}  // namespace
