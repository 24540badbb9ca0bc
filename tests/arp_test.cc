// Gratuitous ARP frames, caught on the peer end of a veth pair.
#include "vip/defence/arp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "support/frames.h"
#include "support/netns_fixture.h"

namespace {

using ArpTest = vyrtest::AgentNetnsTest;

// The exact frames leave through ifname, also with the address on an alias, one second apart
// or at the pace asked for; only the opcode's low 16 bits count.
TEST_F(ArpTest, FramesLeaveThroughTheInterfaceOneSecondApart) {
  vyrtest::PeerCatch watch(*pair_, false, "192.0.2.10");
  ASSERT_TRUE(watch.ok());
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

  EXPECT_EQ(watch.WaitFor(6, std::chrono::milliseconds(200)), 5u);
  for (std::size_t i = 0; i < watch.frames.size(); ++i) {
    const int op = i < 2 ? vyrtest::kArpRequest : vyrtest::kArpReply;
    EXPECT_EQ(watch.frames[i], vyrtest::GratuitousArp("02:00:5e:10:20:30", "192.0.2.10", op)) << i;
    const double gap = i == 4 ? 0.3 : 1.0;  // the paced pair, after the others' seconds
    const double apart = i == 0 ? gap : watch.times[i] - watch.times[i - 1];
    EXPECT_TRUE(apart > gap * 0.9 && apart < gap * 3) << apart;
  }
}

}  // namespace
