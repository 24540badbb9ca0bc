// Kernel enumeration of every local address, inside a private network
// namespace with veth devices and documentation addresses.
#include "nicCommon/nic_getinfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/fake_tool.h"
#include "support/netns.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vip/listing.h"

namespace {

using List = std::unique_ptr<ipaddrinfo, decltype(&std::free)>;

// va0 carries two IPv4 addresses (one labelled as an alias) and two IPv6
// ones; va1, the down end of a second veth pair, carries one; lo carries an
// alias address besides its own. The peer has no address at all.
bool Configure(const vyrtest::NetnsPair& pair) {
  return pair.InAgent(
             "ip addr add 192.0.2.10/24 dev va0 && "
             "ip addr add 192.0.2.11/24 dev va0 label va0:1 && "
             "ip -6 addr add 2001:db8::10/64 dev va0 nodad && "
             "ip -6 addr add 2001:db8:1::10/48 dev va0 nodad && "
             "ip link add va1 type veth peer name va2 && "
             "ip addr add 203.0.113.5/24 dev va1 && "
             "ip addr add 198.51.100.99/32 dev lo label lo:1") == 0 &&
         pair.InPeer("sysctl -qw net.ipv6.conf.vb0.disable_ipv6=1 && ip addr flush dev vb0") == 0;
}

// The MAC as the listing writes it: "AABBCCDDEEFF".
std::string MacText(const vyrtest::NetnsPair& pair, const std::string& dev) {
  std::string out;
  pair.InAgent("cat /sys/class/net/" + dev + "/address", &out);
  std::string text;
  for (char ch : out) {
    if (std::isxdigit(static_cast<unsigned char>(ch))) text += static_cast<char>(std::toupper(ch));
  }
  return text;
}

const ipaddrinfo* Find(const ipaddrinfo* list, int num, const char* addr) {
  const ipaddrinfo* end = list + num;
  const ipaddrinfo* at =
      std::find_if(list, end, [&](const ipaddrinfo& e) { return !strcmp(e.sipel.addr, addr); });
  return at == end ? nullptr : at;
}

TEST(KernelEnumeration, ListsEveryAddressOutsideLoWithItsInterfaceMac) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  ASSERT_TRUE(Configure(*pair));
  const std::string va0 = MacText(*pair, "va0");
  ipaddrinfo* raw = nullptr;
  int num = 0;
  {
    vyrtest::ScopedNetns inside(pair->agent());
    ASSERT_TRUE(inside.ok());
    ASSERT_EQ(nic_get_all_info(&raw, &num), 0);
  }
  List list(raw, &std::free);
  const struct {
    const char* addr;
    const char* ifname;
    int masklen;
    std::string smac;
  } want[] = {
      {"192.0.2.10", "va0", 0, va0},
      {"192.0.2.11", "va0:1", 0, va0},  // an alias carries its interface's MAC
      {"2001:db8::10", "va0", 64, va0},
      {"2001:db8:1::10", "va0", 48, va0},
      {"203.0.113.5", "va1", 0, MacText(*pair, "va1")},  // down, still listed
      {"198.51.100.99", "lo:1", 0, ""},                  // lo's link-layer element is left out
  };
  for (const auto& w : want) {
    const ipaddrinfo* e = Find(raw, num, w.addr);
    ASSERT_NE(e, nullptr) << w.addr;
    EXPECT_STREQ(e->ifname, w.ifname) << w.addr;
    EXPECT_EQ(e->sipel.masklen, w.masklen) << w.addr;
    EXPECT_EQ(e->smac, w.smac) << w.addr;
  }
  EXPECT_STREQ(Find(raw, num, "192.0.2.10")->sipel.mask, "255.255.255.0");
  unsigned char bytes[6];
  for (int i = 0; i < 6; ++i)
    bytes[i] = static_cast<unsigned char>(std::stoi(va0.substr(2 * i, 2), nullptr, 16));
  EXPECT_EQ(std::memcmp(Find(raw, num, "192.0.2.11")->macaddr, bytes, 6), 0);
  // Nothing of lo itself; besides the above only va0's link-local address.
  int link_local = 0;
  for (int k = 0; k < num; ++k) {
    EXPECT_STRNE(raw[k].ifname, "lo");
    EXPECT_EQ(raw[k].index, static_cast<unsigned>(k));
    link_local += std::strncmp(raw[k].sipel.addr, "fe80:", 5) == 0;
  }
  EXPECT_EQ(num, 6 + link_local);
  EXPECT_EQ(link_local, 1);
}

// The peer has only loopback addresses: 3, outputs untouched; through the
// listing (the tool not used) that is "Get nic info failed.".
TEST(KernelEnumeration, ListingUsesTheKernelWhenTheToolIsNotUsed) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  ASSERT_TRUE(Configure(*pair));
  vyrtest::ScopedGlobal<int> source(IsIfconfig, 0);
  vyrtest::TempDir dir;
  // A tool that would fail: it must not run at all, and no limit applies.
  const std::string tool = vyrtest::WriteScript(dir.path(), "ifconfig", "exit 1\n");
  ipaddrinfo* raw = nullptr;
  int num = 0;
  {
    vyrtest::ScopedNetns inside(pair->agent());
    ASSERT_TRUE(inside.ok());
    ASSERT_EQ(vip_ifconfig_mkth(&raw, &num, tool.c_str(), 0), 0);
  }
  List list(raw, &std::free);
  EXPECT_NE(Find(raw, num, "192.0.2.11"), nullptr);

  vyrtest::TraceCapture trace;
  ipaddrinfo sentinel{};
  ipaddrinfo* untouched = &sentinel;
  int none = -7;
  vip_set_shmbuf("untouched");
  {
    vyrtest::ScopedNetns inside(pair->peer());
    ASSERT_TRUE(inside.ok());
    EXPECT_EQ(nic_get_all_info(&untouched, &none), 3);
    EXPECT_EQ(vip_ifconfig_mkth(&raw, &num, tool.c_str(), 5), 38);
  }
  EXPECT_EQ(untouched, &sentinel);
  EXPECT_EQ(none, -7);
  EXPECT_TRUE(trace.Contains("no ip address found."));
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  EXPECT_STREQ(text, "Get nic info failed.");
}

}  // namespace
