// Gratuitous ARP frames, caught on the peer end of a veth pair.
#include "vip/defence/arp.h"

#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "support/frames.h"
#include "support/netns_fixture.h"
#include "unique_fd.h"

namespace {

using ArpTest = vyrtest::AgentNetnsTest;

// The exact frames leave through ifname, also with the address on an alias, one second apart
// or at the pace asked for; only the opcode's low 16 bits count.
TEST_F(ArpTest, FramesLeaveThroughTheInterfaceOneSecondApart) {
  vyr::UniqueFd watch;  // ARP frames arriving on the peer's vb0
  {
    vyrtest::ScopedNetns peer(pair_->peer());
    ASSERT_TRUE(peer.ok());
    watch.reset(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ARP)));
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_protocol = htons(ETH_P_ARP);
    where.sll_ifindex = static_cast<int>(if_nametoindex("vb0"));
    ASSERT_EQ(::bind(watch.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where), 0);
  }
  timeval stamp{};
  ::ioctl(watch.get(), SIOCGSTAMP, &stamp);  // from now on frames are stamped on arrival
  ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.10/24 dev va0 label va0:0"), 0);
  vdevinfo v = vyrtest::Vdev4("va0", "va0:0", "192.0.2.10");
  const unsigned char mac[6] = {0x02, 0x00, 0x5e, 0x10, 0x20, 0x30};
  std::memcpy(v.macaddr, mac, 6);
  EXPECT_EQ(vip_send_arp(&v, 2, 1), 0);
  EXPECT_EQ(vip_send_arp(&v, 1, 0x10002), 0);
  EXPECT_EQ(vip_send_arp(&v, 2, 2, {.interval_ms = 300}), 0);
  std::snprintf(v.ifname, sizeof v.ifname, "nosuch0");
  EXPECT_EQ(vip_send_arp(&v, 1, 1), 20);
  EXPECT_EQ(vyrtest::StatusText(), "Internal error. (status=20)");

  vyrtest::Bytes want = vyrtest::GratuitousArp("02:00:5e:10:20:30", "192.0.2.10", 0);
  unsigned char buf[256];
  double last = 0;
  int frames = 0;
  for (ssize_t n; (n = ::recv(watch.get(), buf, sizeof buf, MSG_DONTWAIT)) > 0; ++frames) {
    want[vyrtest::kArpOpLow] = frames < 2 ? vyrtest::kArpRequest : vyrtest::kArpReply;
    EXPECT_EQ(vyrtest::Bytes(buf, buf + n), want) << "frame " << frames;
    ASSERT_EQ(::ioctl(watch.get(), SIOCGSTAMP, &stamp), 0);
    const double at = static_cast<double>(stamp.tv_sec) + static_cast<double>(stamp.tv_usec) / 1e6;
    const double gap = frames == 4 ? 0.3 : 1.0;  // the paced pair, after the others' seconds
    EXPECT_TRUE(frames == 0 || (at - last > gap * 0.9 && at - last < gap * 3)) << at - last;
    last = at;
  }
  EXPECT_EQ(frames, 5);
}

}  // namespace
