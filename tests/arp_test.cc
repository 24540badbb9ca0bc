// Gratuitous ARP frames, caught on the peer end of a veth pair.
#include "vip/arp.h"

#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "support/netns_fixture.h"

namespace {

using std::chrono::milliseconds;

struct Frame {
  std::vector<unsigned char> bytes;
  double at;  // kernel receive time, seconds
};

// The frame written out byte by byte, independently of the record layout.
std::vector<unsigned char> Expected(const unsigned char mac[6], unsigned char op) {
  const unsigned char ip[4] = {192, 0, 2, 10};
  std::vector<unsigned char> f = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
  f.insert(f.end(), mac, mac + 6);
  const unsigned char header[] = {0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4, 0x00, op};
  f.insert(f.end(), header, header + sizeof header);
  for (int twice = 0; twice < 2; ++twice) {
    f.insert(f.end(), mac, mac + 6);
    f.insert(f.end(), ip, ip + 4);
  }
  f.resize(60, 0);
  return f;
}

class ArpTest : public vyrtest::AgentNetnsTest {
 protected:
  void SetUp() override {
    AgentNetnsTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.10/24 dev va0 label va0:0"), 0);
    std::string mac;
    ASSERT_EQ(pair_->InAgent("cat /sys/class/net/va0/address", &mac), 0);
    std::memcpy(mac_, vyrtest::ListEntry("", "", mac.c_str()).macaddr, 6);
    // A packet socket for ARP frames arriving on the peer's vb0, stamped
    // as they arrive rather than when they are read.
    vyrtest::ScopedNetns peer(pair_->peer());
    ASSERT_TRUE(peer.ok());
    watch_.reset(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ARP)));
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_protocol = htons(ETH_P_ARP);
    where.sll_ifindex = static_cast<int>(if_nametoindex(vyrtest::NetnsPair::kPeerIf));
    const int on = 1;
    ASSERT_TRUE(watch_.valid());
    ASSERT_EQ(::setsockopt(watch_.get(), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof on), 0);
    ASSERT_EQ(::bind(watch_.get(), reinterpret_cast<sockaddr*>(&where), sizeof where), 0);
  }

  std::vector<Frame> Drain() {
    std::vector<Frame> frames;
    unsigned char buf[256];
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(timeval))];
    iovec iov{buf, sizeof buf};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    for (;;) {
      msg.msg_controllen = sizeof control;
      const ssize_t n = ::recvmsg(watch_.get(), &msg, MSG_DONTWAIT);
      if (n < 0) return frames;
      timeval tv{};
      const cmsghdr* c = CMSG_FIRSTHDR(&msg);
      EXPECT_TRUE(c != nullptr && c->cmsg_type == SCM_TIMESTAMP) << "no receive time";
      if (c != nullptr) std::memcpy(&tv, CMSG_DATA(c), sizeof tv);
      frames.push_back({std::vector<unsigned char>(buf, buf + n),
                        static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6});
    }
  }

  unsigned char mac_[6] = {};
  vyr::UniqueFd watch_;
};

TEST_F(ArpTest, FramesLeaveThroughTheInterfaceOneSecondApart) {
  const unsigned char zero[6] = {};
  struct Case {
    const char *what, *ifname, *vdevname;
    bool listed;  // the interface's MAC is known
    int count, opcode, ret;
    unsigned char op;  // on the wire
  };
  const Case cases[] = {
      {"two requests", "va0", "va0:0", true, 2, 1, 0, 1},
      {"low 16 bits of the opcode, alias not a device", "va0", "nosuch:0", false, 1, 0x10002, 0, 2},
      {"count of zero", "va0", "va0:0", true, 0, 1, 0, 1},
      {"unknown interface", "nosuch0", "va0:0", true, 1, 1, 20, 1},
  };
  for (const auto& c : cases) {
    vdevinfo v = vyrtest::Vdev4(c.ifname, c.vdevname, "192.0.2.10");
    if (c.listed) std::memcpy(v.macaddr, mac_, 6);
    vip_clear_shmbuf();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(vip_send_arp(&v, c.count, c.opcode), c.ret)
        << c.what << ": " << vyrtest::StatusText();
    const auto took = std::chrono::steady_clock::now() - start;
    const auto frames = Drain();
    if (c.ret != 0) {
      EXPECT_EQ(vyrtest::StatusText(), "Internal error. (status=20)") << c.what;
      EXPECT_TRUE(frames.empty()) << c.what;
      continue;
    }
    // A pause follows every frame, the last one too.
    EXPECT_GE(took, milliseconds(1000 * c.count - 50)) << c.what;
    EXPECT_LT(took, milliseconds(1000 * c.count + 600)) << c.what;
    ASSERT_EQ(frames.size(), static_cast<size_t>(c.count)) << c.what;
    for (const auto& f : frames)
      EXPECT_EQ(f.bytes, Expected(c.listed ? mac_ : zero, c.op)) << c.what;
    for (size_t i = 1; i < frames.size(); ++i) {
      EXPECT_GT(frames[i].at - frames[i - 1].at, 0.9) << c.what;
      EXPECT_LT(frames[i].at - frames[i - 1].at, 1.3) << c.what;
    }
  }
}

}  // namespace
