// Gratuitous ARP frames, caught on the peer end of a veth pair.
#include "vip/arp.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/netns.h"
#include "vip/globals.h"

namespace {

struct Frame {
  std::vector<unsigned char> bytes;
  double at;  // kernel receive time, seconds
};

// A packet socket for ARP frames arriving on the peer's vb0.
vyr::UniqueFd WatchPeer(const vyrtest::NetnsPair& pair) {
  vyrtest::ScopedNetns peer(pair.peer());
  if (!peer.ok()) return vyr::UniqueFd();
  vyr::UniqueFd sock(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ARP)));
  sockaddr_ll where{};
  where.sll_family = AF_PACKET;
  where.sll_protocol = htons(ETH_P_ARP);
  where.sll_ifindex = static_cast<int>(if_nametoindex(vyrtest::NetnsPair::kPeerIf));
  // Stamp each frame as it arrives, not when it is read.
  const int on = 1;
  if (!sock || ::setsockopt(sock.get(), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof on) != 0 ||
      ::bind(sock.get(), reinterpret_cast<sockaddr*>(&where), sizeof where) != 0) {
    return vyr::UniqueFd();
  }
  return sock;
}

std::vector<Frame> Drain(const vyr::UniqueFd& sock) {
  std::vector<Frame> frames;
  for (;;) {
    unsigned char buf[256];
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(timeval))];
    iovec iov{buf, sizeof buf};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    ssize_t n = ::recvmsg(sock.get(), &msg, MSG_DONTWAIT);
    if (n < 0) break;
    timeval tv{};
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMP) {
        std::memcpy(&tv, CMSG_DATA(c), sizeof tv);
      }
    }
    frames.push_back({std::vector<unsigned char>(buf, buf + n),
                      static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6});
  }
  return frames;
}

// The frame written out byte by byte, independently of the record layout.
std::vector<unsigned char> Expected(const unsigned char mac[6], const unsigned char ip[4],
                                    unsigned char op) {
  std::vector<unsigned char> f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  f.insert(f.end(), mac, mac + 6);
  const unsigned char header[] = {0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4, 0x00, op};
  f.insert(f.end(), header, header + sizeof header);
  f.insert(f.end(), mac, mac + 6);
  f.insert(f.end(), ip, ip + 4);
  f.insert(f.end(), mac, mac + 6);
  f.insert(f.end(), ip, ip + 4);
  f.resize(60, 0);
  return f;
}

std::string Desc() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

class ArpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    pair_ = vyrtest::NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
    watch_ = WatchPeer(*pair_);
    ASSERT_TRUE(watch_.valid());
    inside_ = std::make_unique<vyrtest::ScopedNetns>(pair_->agent());
    ASSERT_TRUE(inside_->ok());
    ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.10/24 dev va0 label va0:0"), 0);
    std::string mac;
    pair_->InAgent("cat /sys/class/net/va0/address", &mac);
    unsigned int b[6] = {};
    ASSERT_EQ(
        std::sscanf(mac.c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]), 6);
    for (int i = 0; i < 6; ++i) mac_[i] = static_cast<unsigned char>(b[i]);
    vip_clear_shmbuf();
  }
  void TearDown() override {
    inside_.reset();
    watch_.reset();
    pair_.reset();
  }

  vdevinfo Record() {
    vdevinfo v{};
    std::snprintf(v.ifname, sizeof v.ifname, "va0");
    std::snprintf(v.vdevname, sizeof v.vdevname, "va0:0");
    std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "192.0.2.10");
    inet_pton(AF_INET, "192.0.2.10", &v.nipel.addr);
    std::memcpy(v.macaddr, mac_, 6);
    return v;
  }

  const unsigned char ip_[4] = {192, 0, 2, 10};
  unsigned char mac_[6] = {};
  std::unique_ptr<vyrtest::NetnsPair> pair_;
  vyr::UniqueFd watch_;
  std::unique_ptr<vyrtest::ScopedNetns> inside_;
};

TEST_F(ArpTest, RequestsLeaveThroughTheInterfaceOneSecondApart) {
  vdevinfo v = Record();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(vip_send_arp(&v, 2, 1), 0) << Desc();
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(1950));  // a pause after the last frame too
  EXPECT_LT(took, std::chrono::milliseconds(2600));

  const auto frames = Drain(watch_);
  ASSERT_EQ(frames.size(), 2u);
  for (const auto& f : frames) EXPECT_EQ(f.bytes, Expected(mac_, ip_, 1));
  const double gap = frames[1].at - frames[0].at;
  EXPECT_GT(gap, 0.9);
  EXPECT_LT(gap, 1.3);
}

TEST_F(ArpTest, RepliesUseTheLow16BitsOfTheOpcode) {
  vdevinfo v = Record();
  // The device record names an alias; the frames still go out of ifname.
  std::snprintf(v.vdevname, sizeof v.vdevname, "nosuch:0");
  std::memset(v.macaddr, 0, sizeof v.macaddr);  // interface was not listed
  ASSERT_EQ(vip_send_arp(&v, 1, 0x10002), 0) << Desc();
  const unsigned char zero[6] = {};
  const auto frames = Drain(watch_);
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0].bytes, Expected(zero, ip_, 2));
}

TEST_F(ArpTest, NothingIsSentForACountOfZero) {
  vdevinfo v = Record();
  EXPECT_EQ(vip_send_arp(&v, 0, 1), 0);
  EXPECT_TRUE(Drain(watch_).empty());
}

TEST_F(ArpTest, UnknownInterfaceGives20) {
  vdevinfo v = Record();
  std::snprintf(v.ifname, sizeof v.ifname, "nosuch0");
  EXPECT_EQ(vip_send_arp(&v, 1, 1), 20);
  EXPECT_EQ(Desc(), "Internal error. (status=20)");
  EXPECT_TRUE(Drain(watch_).empty());
}

}  // namespace
