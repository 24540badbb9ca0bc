// Kernel enumeration of every local address, in a private namespace pair.
#include "nicCommon/nic_getinfo.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "vip/base/globals.h"
#include "vip/address/listing.h"

namespace {

// An alias carries its interface's MAC text and bytes, lo itself is left
// out, a down device is listed, IPv6 prefix lengths are right; a namespace
// with loopback addresses only fails the listing with 38.
using KernelEnumeration = vyrtest::AgentNetnsTest;

TEST_F(KernelEnumeration, ListsEveryAddressOutsideLoWithItsInterfaceMac) {
  const std::string setup =
      "ip addr add 192.0.2.10/24 dev va0 && ip addr add 192.0.2.11/24 dev va0 label va0:1"
      " && ip -6 addr add 2001:db8::10/64 dev va0 nodad && ip link add va1 type veth peer va2"
      " && ip -6 addr add 2001:db8:1::10/48 dev va0 nodad && ip addr add 203.0.113.5/24 dev va1"
      " && ip addr add 198.51.100.99/32 dev lo label lo:1";
  ASSERT_EQ(pair_->InAgent(setup), 0);
  ASSERT_EQ(pair_->InPeer("sysctl -qw net.ipv6.conf.vb0.disable_ipv6=1"), 0);
  std::string macs;  // va0's and va1's as the listing writes them: "AABBCCDDEEFF"
  pair_->InAgent("cat /sys/class/net/va[01]/address | tr -d : | tr a-f A-F", &macs);
  const std::string text[2] = {macs.substr(0, 12), macs.substr(13, 12)};
  ipaddrinfo* list = nullptr;
  int num = 0;
  ASSERT_EQ(nic_get_all_info(&list, &num), 0);
  const std::string all = vyrtest::EntryTexts(list, num);
  for (const std::string& want :
       {"va0 192.0.2.10 255.255.255.0 /0 " + text[0],
        "va0:1 192.0.2.11 255.255.255.0 /0 " + text[0], "va0 2001:db8::10  /64 " + text[0],
        "va0 2001:db8:1::10  /48 " + text[0], "va1 203.0.113.5 255.255.255.0 /0 " + text[1],
        std::string("lo:1 198.51.100.99 255.255.255.255 /0 ")}) {
    EXPECT_NE(all.find(want + "\n"), std::string::npos) << want << " in\n" << all;
  }
  EXPECT_NE(all.find("va0 fe80:"), std::string::npos) << all;
  EXPECT_EQ(num, 7) << "the above, va0's link-local address and nothing of lo:\n" << all;
  for (int k = 0; k < num; ++k) {
    const unsigned char* m = list[k].macaddr;
    char hex[13];
    std::snprintf(hex, sizeof hex, "%02X%02X%02X%02X%02X%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
    EXPECT_TRUE(std::strcmp(list[k].ifname, "va0:1") || hex == text[0]) << "the alias's MAC bytes";
  }
  std::free(list);

  // With the tool not used the listing is the kernel's: no tool runs.
  vyrtest::ScopedGlobal<int> source(IsIfconfig, 0);
  vip_set_shmbuf("untouched");
  {
    vyrtest::ScopedNetns inside(pair_->peer());
    ASSERT_TRUE(inside.ok());
    EXPECT_EQ(vip_ifconfig_mkth(&list, &num, "/nonexistent/ifconfig", 5), 38);
  }
  EXPECT_EQ(vyrtest::StatusText(), "Get nic info failed.");
}

}  // namespace
