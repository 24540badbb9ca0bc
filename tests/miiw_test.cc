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
#include <memory>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/netns.h"

namespace {

class LinkOnVethTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    pair_ = vyrtest::NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
    inside_ = std::make_unique<vyrtest::ScopedNetns>(pair_->agent());
    ASSERT_TRUE(inside_->ok());
    sock_.reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_TRUE(sock_.valid());
  }
  void TearDown() override {
    sock_.reset();
    inside_.reset();
    pair_.reset();
  }
  int Check(const char* dev, int method) {
    int fd = sock_.get();
    return vip_miiw_ioctl(&fd, dev, method);
  }

  std::unique_ptr<vyrtest::NetnsPair> pair_;
  std::unique_ptr<vyrtest::ScopedNetns> inside_;
  vyr::UniqueFd sock_;
};

TEST_F(LinkOnVethTest, PeerUpAndDown) {
  EXPECT_EQ(Check("va0", 2), MIIW_RET_SUCCESS);
  EXPECT_EQ(Check("va0", 0), MIIW_RET_SUCCESS);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 down"), 0);
  EXPECT_EQ(Check("va0", 2), MIIW_RET_FAIL_NICDOWN);
  EXPECT_EQ(Check("va0", 0), MIIW_RET_FAIL_NICDOWN);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 up"), 0);
  EXPECT_EQ(Check("va0", 2), MIIW_RET_SUCCESS);
}

TEST_F(LinkOnVethTest, UnsupportedQueriesAndMethods) {
  // veth has no MII registers.
  EXPECT_EQ(Check("va0", 1), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
  EXPECT_EQ(Check("va0", 3), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(Check("va0", -1), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(Check("nosuch0", 2), MIIW_RET_FAIL_IOCTL);
  // An ifb device has no ethtool link report either.
  if (pair_->InAgent("ip link add vyrifb0 type ifb") != 0) {
    GTEST_SKIP() << "no ifb device type here";
  }
  EXPECT_EQ(Check("vyrifb0", 2), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
  EXPECT_EQ(Check("vyrifb0", 0), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
}

// A PHY played through the ioctl seam.
struct Phy {
  int ethtool_errno = EOPNOTSUPP;  // 0: ethtool answers with `link`
  unsigned int link = 1;
  bool miiphy = true;    // SIOCGMIIPHY accepted
  bool private_ = true;  // SIOCDEVPRIVATE accepted
  uint16_t regs[8] = {0x3100, 0, 0x0141, 0x0cc2, 0x01e1, 0xc5e1, 0x000f, 0x2001};
  uint16_t basic = 0;   // first read of register 1
  uint16_t status = 0;  // second read
  int fail_read = -1;   // register read (0..8, 8 = second read of 1) that fails
  int reads = 0;
  std::vector<unsigned long> requests;
};
Phy phy;

int PlayedIoctl(int, unsigned long request, void* arg) {
  phy.requests.push_back(request);
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
    const int read = phy.reads++;
    if (read == phy.fail_read || mii.phy_id != 7 || mii.reg_num > 7) {
      errno = EIO;
      return -1;
    }
    mii.val_out = mii.reg_num != 1 ? phy.regs[mii.reg_num] : read == 1 ? phy.basic : phy.status;
  }
  std::memcpy(&ifr->ifr_ifru, &mii, sizeof mii);
  return 0;
}

class MiiRegisterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    phy = Phy{};
    vip_miiw_ioctl_fn = PlayedIoctl;
  }
  void TearDown() override { vip_miiw_ioctl_fn = vip_miiw_ioctl_kernel; }
  static int Check(int method) {
    int fd = 99;
    return vip_miiw_ioctl(&fd, "eth0", method);
  }
};

TEST_F(MiiRegisterTest, BasicModeStatusDecidesTheLink) {
  struct Case {
    const char* what;
    uint16_t reg0, basic, status;
    int ret;
  };
  const Case cases[] = {
      {"link up, healthy", 0x3100, 0x786d, 0x786d, MIIW_RET_SUCCESS},
      {"link up with remote fault", 0x3100, 0x787d, 0x787d, MIIW_RET_SUCCESS},
      {"link up with jabber", 0x3100, 0x786f, 0x786f, MIIW_RET_SUCCESS},
      {"dropped since last read, back now", 0x3100, 0x7869, 0x786d, MIIW_RET_SUCCESS},
      {"register 1 zero, link back", 0x3100, 0x0000, 0x0004, MIIW_RET_SUCCESS},
      {"down both reads", 0x3100, 0x7869, 0x7869, MIIW_RET_FAIL_NICDOWN},
      {"no transceiver", 0xffff, 0x0000, 0x0000, MIIW_RET_FAIL_NICDOWN},
  };
  for (const auto& c : cases) {
    phy = Phy{};
    phy.regs[0] = c.reg0;
    phy.basic = c.basic;
    phy.status = c.status;
    EXPECT_EQ(Check(1), c.ret) << c.what;
    EXPECT_EQ(phy.reads, 9) << c.what << ": eight registers and register 1 again";
  }
}

TEST_F(MiiRegisterTest, FailedReadsGive12) {
  for (int failing : {0, 3, 7, 8}) {
    phy = Phy{};
    phy.basic = phy.status = 0x786d;
    phy.fail_read = failing;
    EXPECT_EQ(Check(1), MIIW_RET_FAIL_IOCTL) << "read " << failing;
    EXPECT_EQ(phy.reads, failing + 1) << "no read after the failing one";
  }
}

TEST_F(MiiRegisterTest, RequestSetsAndMethods) {
  // Standard requests refused: the device-private pair is used.
  phy.miiphy = false;
  phy.basic = phy.status = 0x786d;
  EXPECT_EQ(Check(1), MIIW_RET_SUCCESS);
  EXPECT_EQ(phy.requests.back(), static_cast<unsigned long>(SIOCDEVPRIVATE + 1));

  phy = Phy{};
  phy.miiphy = phy.private_ = false;
  EXPECT_EQ(Check(1), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);

  // Method 0: ethtool unsupported, the registers decide.
  phy = Phy{};
  phy.basic = phy.status = 0x786d;
  EXPECT_EQ(Check(0), MIIW_RET_SUCCESS);
  EXPECT_EQ(phy.requests.front(), static_cast<unsigned long>(SIOCETHTOOL));
  EXPECT_EQ(phy.requests.back(), static_cast<unsigned long>(SIOCGMIIREG));

  // Method 2: ethtool only, never the registers.
  phy = Phy{};
  EXPECT_EQ(Check(2), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
  EXPECT_EQ(phy.requests.size(), 1u);
  phy = Phy{};
  phy.ethtool_errno = EIO;
  EXPECT_EQ(Check(2), MIIW_RET_FAIL_IOCTL);

  // Method 0 with an answering ethtool: its answer stands.
  phy = Phy{};
  phy.ethtool_errno = 0;
  phy.link = 0;
  EXPECT_EQ(Check(0), MIIW_RET_FAIL_NICDOWN);
  EXPECT_EQ(phy.requests.size(), 1u);
}

}  // namespace
