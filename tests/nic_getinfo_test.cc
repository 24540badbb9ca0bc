// Kernel enumeration of every local address, inside a private network
// namespace with veth devices and documentation addresses.
#include "nicCommon/nic_getinfo.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/fake_tool.h"
#include "support/netns.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vip/listing.h"

namespace {

struct ListFree {
  void operator()(ipaddrinfo* list) const { std::free(list); }
};
using List = std::unique_ptr<ipaddrinfo, ListFree>;

// "aa:bb:cc:dd:ee:ff" as the kernel shows it, in the listing's two forms.
struct Mac {
  std::string text;  // AABBCCDDEEFF
  unsigned char bytes[6] = {};
};

Mac DeviceMac(const vyrtest::NetnsPair& pair, const std::string& dev) {
  std::string out;
  pair.InAgent("cat /sys/class/net/" + dev + "/address", &out);
  Mac mac;
  unsigned int b[6] = {};
  EXPECT_EQ(std::sscanf(out.c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]),
            6)
      << out;
  char text[13] = {};
  for (int i = 0; i < 6; ++i) {
    mac.bytes[i] = static_cast<unsigned char>(b[i]);
    std::snprintf(text + 2 * i, sizeof text - 2 * i, "%02X", b[i]);
  }
  mac.text = text;
  return mac;
}

const ipaddrinfo* Find(const ipaddrinfo* list, int num, const char* addr) {
  for (int k = 0; k < num; ++k) {
    if (std::strcmp(list[k].sipel.addr, addr) == 0) return &list[k];
  }
  return nullptr;
}

class KernelEnumeration : public ::testing::Test {
 protected:
  // va0 carries two IPv4 addresses (one labelled as an alias) and two IPv6
  // ones; va1, the down end of a second veth pair, carries one; lo carries
  // an alias address besides its own.
  static bool Configure(const vyrtest::NetnsPair& pair, std::string* out) {
    return pair.InAgent(
               "ip addr add 192.0.2.10/24 dev va0 && "
               "ip addr add 192.0.2.11/24 dev va0 label va0:1 && "
               "ip -6 addr add 2001:db8::10/64 dev va0 nodad && "
               "ip -6 addr add 2001:db8:1::10/48 dev va0 nodad && "
               "ip link add va1 type veth peer name va2 && "
               "ip addr add 203.0.113.5/24 dev va1 && "
               "ip addr add 198.51.100.99/32 dev lo label lo:1",
               out) == 0;
  }
};

TEST_F(KernelEnumeration, ListsEveryAddressOutsideLoWithItsInterfaceMac) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  std::string out;
  ASSERT_TRUE(Configure(*pair, &out)) << out;
  const Mac va0 = DeviceMac(*pair, "va0");
  const Mac va1 = DeviceMac(*pair, "va1");

  ipaddrinfo* raw = nullptr;
  int num = 0;
  {
    vyrtest::ScopedNetns inside(pair->agent());
    ASSERT_TRUE(inside.ok());
    ASSERT_EQ(nic_get_all_info(&raw, &num), 0);
  }
  List list(raw);

  for (int k = 0; k < num; ++k) {
    EXPECT_STRNE(list.get()[k].ifname, "lo");
    EXPECT_EQ(list.get()[k].index, static_cast<unsigned>(k));
  }
  EXPECT_EQ(Find(raw, num, "127.0.0.1"), nullptr);
  EXPECT_EQ(Find(raw, num, "::1"), nullptr);

  const ipaddrinfo* v4 = Find(raw, num, "192.0.2.10");
  ASSERT_NE(v4, nullptr);
  EXPECT_STREQ(v4->ifname, "va0");
  EXPECT_STREQ(v4->sipel.mask, "255.255.255.0");
  EXPECT_EQ(v4->sipel.masklen, 0);
  EXPECT_EQ(v4->smac, va0.text);
  EXPECT_EQ(std::memcmp(v4->macaddr, va0.bytes, 6), 0);

  const ipaddrinfo* alias = Find(raw, num, "192.0.2.11");
  ASSERT_NE(alias, nullptr);
  EXPECT_STREQ(alias->ifname, "va0:1");
  EXPECT_EQ(alias->smac, va0.text) << "an alias carries its interface's MAC";
  EXPECT_EQ(std::memcmp(alias->macaddr, va0.bytes, 6), 0);

  const ipaddrinfo* v6 = Find(raw, num, "2001:db8::10");
  ASSERT_NE(v6, nullptr);
  EXPECT_STREQ(v6->ifname, "va0");
  EXPECT_EQ(v6->sipel.masklen, 64);
  EXPECT_STREQ(v6->sipel.mask, "");
  EXPECT_EQ(v6->nipel.addr.s_addr, 0u);
  EXPECT_EQ(v6->smac, va0.text);
  const ipaddrinfo* v6b = Find(raw, num, "2001:db8:1::10");
  ASSERT_NE(v6b, nullptr);
  EXPECT_EQ(v6b->sipel.masklen, 48);

  const ipaddrinfo* down = Find(raw, num, "203.0.113.5");
  ASSERT_NE(down, nullptr) << "an address on a device that is down is listed";
  EXPECT_STREQ(down->ifname, "va1");
  EXPECT_EQ(down->smac, va1.text);

  // lo:1 is not "lo": its address is listed, without a MAC, since lo's
  // link-layer element is left out.
  const ipaddrinfo* lo1 = Find(raw, num, "198.51.100.99");
  ASSERT_NE(lo1, nullptr);
  EXPECT_STREQ(lo1->ifname, "lo:1");
  EXPECT_STREQ(lo1->smac, "");

  // Exactly these, plus va0's IPv6 link-local address.
  int link_local = 0;
  for (int k = 0; k < num; ++k) {
    if (std::strncmp(list.get()[k].sipel.addr, "fe80:", 5) == 0) {
      ++link_local;
      EXPECT_STREQ(list.get()[k].ifname, "va0");
      EXPECT_EQ(list.get()[k].sipel.masklen, 64);
    }
  }
  EXPECT_EQ(num, 6 + link_local);
}

TEST_F(KernelEnumeration, OnlyLoopbackAddressesGiveThree) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  std::string out;
  ASSERT_EQ(
      pair->InPeer("sysctl -qw net.ipv6.conf.vb0.disable_ipv6=1 && ip addr flush dev vb0", &out), 0)
      << out;
  vyrtest::TraceCapture trace;
  ipaddrinfo* sentinel = reinterpret_cast<ipaddrinfo*>(&out);
  ipaddrinfo* raw = sentinel;
  int num = -7;
  {
    vyrtest::ScopedNetns inside(pair->peer());
    ASSERT_TRUE(inside.ok());
    EXPECT_EQ(nic_get_all_info(&raw, &num), 3);
  }
  EXPECT_EQ(raw, sentinel) << "outputs are not touched";
  EXPECT_EQ(num, -7);
  EXPECT_TRUE(trace.Contains("no ip address found."));
}

TEST_F(KernelEnumeration, ListingUsesTheKernelWhenTheToolIsNotUsed) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  std::string out;
  ASSERT_TRUE(Configure(*pair, &out)) << out;
  ASSERT_EQ(
      pair->InPeer("sysctl -qw net.ipv6.conf.vb0.disable_ipv6=1 && ip addr flush dev vb0", &out), 0)
      << out;
  vyrtest::ScopedGlobal<int> source(IsIfconfig, 0);
  vyrtest::TempDir dir;
  // A tool that would fail: it must not run at all.
  const std::string tool = vyrtest::WriteScript(dir.path(), "ifconfig", "exit 1\n");

  ipaddrinfo* raw = nullptr;
  int num = 0;
  {
    vyrtest::ScopedNetns inside(pair->agent());
    ASSERT_TRUE(inside.ok());
    ASSERT_EQ(vip_ifconfig_mkth(&raw, &num, tool.c_str(), 0), 0)
        << "no time limit applies to the kernel";
  }
  List list(raw);
  EXPECT_NE(Find(raw, num, "192.0.2.11"), nullptr);

  vip_set_shmbuf("untouched");
  {
    vyrtest::ScopedNetns inside(pair->peer());
    ASSERT_TRUE(inside.ok());
    EXPECT_EQ(vip_ifconfig_mkth(&raw, &num, tool.c_str(), 5), 38);
  }
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  EXPECT_STREQ(text, "Get nic info failed.");
}

}  // namespace
