// Choosing the device for the virtual address from an address list.
#include "vip/vdev.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "vip/globals.h"

namespace {

using vyrtest::ListEntry;
using vyrtest::Vdev4;
using Names = std::vector<std::string>;

std::vector<ipaddrinfo> List(const Names& names) {
  std::vector<ipaddrinfo> list;
  for (const auto& name : names) list.push_back(ListEntry(name));
  return list;
}

int Choose(std::vector<ipaddrinfo>& list, vdevinfo* v) {
  return vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), v);
}

class VdevTest : public ::testing::Test {
 protected:
  vyrtest::ScopedGlobal<int> ipv4_{ipv6flag, 0};
};

TEST_F(VdevTest, Ipv4AliasChoice) {
  const std::string b13 = "abcdefghijklm", b14 = "abcdefghijklmn";
  Names b13_with_ten = {b13};
  for (int i = 0; i < 10; ++i) b13_with_ten.push_back(b13 + ":" + std::to_string(i));
  struct Case {
    const char* what;
    Names listed;
    std::string configured;
    int ret;
    const char* vdevname;
  };
  const Case cases[] = {
      {"first alias", {"eth0"}, "eth0", 0, "eth0:0"},
      {"eth0:0 taken", {"eth0", "eth0:0"}, "eth0", 0, "eth0:1"},
      {"gap is filled", {"eth0", "eth0:0", "eth0:2"}, "eth0", 0, "eth0:1"},
      {"collision ignores case", {"eth0", "ETH0:0"}, "eth0", 0, "eth0:1"},
      {"eth0:00 is not eth0:0", {"eth0", "eth0:00"}, "eth0", 0, "eth0:0"},
      {"eth0:+1 is not eth0:1", {"eth0", "eth0:0", "eth0:+1"}, "eth0", 0, "eth0:1"},
      {"trailing blank", {"eth0", "eth0:0 ", "eth0:1"}, "eth0", 0, "eth0:0"},
      {"other interface's aliases", {"eth1", "eth1:0", "eth0"}, "eth0", 0, "eth0:0"},
      {"prefix of another name", {"eth0", "eth00:0"}, "eth0", 0, "eth0:0"},
      {"configured alias free", {"eth0"}, "eth0:3", 0, "eth0:3"},
      {"configured alias taken", {"eth0", "eth0:3"}, "eth0:3", 28, ""},
      {"configured alias taken, other case", {"eth0", "ETH0:3"}, "eth0:3", 28, ""},
      {"13-character base", {b13}, b13, 0, "abcdefghijklm:0"},
      {"14-character base", {b14}, b14, 30, "abcdefghijklmn:0"},
      {"13-character base, 0-9 taken", b13_with_ten, b13, 30, "abcdefghijklm:10"},
      {"no name configured", {"eth0"}, "", 17, ""},
      {"interface match is exact", {"ETH0"}, "eth0", 0, "eth0"},
  };
  for (const auto& c : cases) {
    auto list = List(c.listed);
    vdevinfo v = Vdev4(c.configured.c_str(), "", "192.0.2.10", "", "");
    EXPECT_EQ(Choose(list, &v), c.ret) << c.what;
    EXPECT_STREQ(v.vdevname, c.vdevname) << c.what;
  }
}

// What the choice filled in: device, mask (IPv6: prefix length), broadcast
// and MAC text, whose bytes (sent in the announcement) must match it.
std::string Filled(const vdevinfo& v) {
  const bool bytes = std::memcmp(v.macaddr, ListEntry("", "", v.smac).macaddr, 6) == 0;
  const std::string mask = ipv6flag ? std::to_string(v.sipel.masklen) : v.sipel.mask;
  return std::string(v.vdevname) + "|" + mask + "|" + v.bcast + "|" +
         (bytes ? v.smac : "MAC bytes differ");
}

TEST_F(VdevTest, MaskBroadcastAndMacComeFromTheMatchingEntry) {
  struct Case {
    const char* what;
    bool ipv6;
    std::vector<ipaddrinfo> list;
    vdevinfo v;
    const char* filled;
  };
  const ipaddrinfo e6 = ListEntry("eth0:1", "0.0.0.0", "02:00:00:00:00:06", 48);
  vdevinfo given6 = vyrtest::Vdev6("eth0", "2001:db8::10", 80);
  std::snprintf(given6.sipel.mask, sizeof given6.sipel.mask, "80");
  // clang-format off
  Case cases[] = {
      {"first matching entry", false,
       {ListEntry("lo", "255.0.0.0", "00:00:00:00:00:00"), ListEntry("eth0", "255.255.0.0", "02:00:00:aa:bb:cc"),
        ListEntry("eth0:0", "255.255.255.0", "02:00:00:11:22:33")},
       Vdev4("eth0", "", "192.0.2.10", "", ""), "eth0:1|255.255.0.0|192.0.255.255|02:00:00:aa:bb:cc"},
      {"configured mask kept", false, {ListEntry("eth0", "255.255.0.0")},
       Vdev4("eth0", "", "192.0.2.10", "255.255.255.128", ""), "eth0:0|255.255.255.128|192.0.2.127|02:00:00:00:00:01"},
      {"interface not listed", false, {ListEntry("eth1")},
       Vdev4("eth0:7", "", "198.51.100.20", "", ""), "eth0:7|255.255.255.0|198.51.100.255|"},
      {"IPv6 on the interface", true, {e6}, vyrtest::Vdev6("eth0", "2001:db8::10", 0), "|48||02:00:00:00:00:06"},
      {"IPv6 prefix given", true, {e6}, given6, "|80||02:00:00:00:00:06"},
      {"IPv6 alias name not listed", true, {e6}, vyrtest::Vdev6("eth0:1", "2001:db8::10", 0), "eth0:1|64||"},
  };
  // clang-format on
  for (auto& c : cases) {
    ipv6flag = c.ipv6 ? 1 : 0;
    ASSERT_EQ(Choose(c.list, &c.v), 0) << c.what;
    EXPECT_EQ(Filled(c.v), c.filled) << c.what;
  }
}

TEST_F(VdevTest, ThousandsOfAliases) {
  Names names = {"eth0"};
  for (int i = VIP_MAX_ALIAS - 1; i >= 0; --i) names.push_back("eth0:" + std::to_string(i));
  auto list = List(names);  // eth0:9998 down to eth0:0, to defeat early exits
  vdevinfo v = Vdev4("eth0", "", "192.0.2.10", "", "");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Choose(list, &v), 0);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_STREQ(v.vdevname, "eth0:9999");
  // Testing each candidate against the whole list takes ~5e7 comparisons;
  // one pass over the list takes well under a millisecond.
  EXPECT_LT(took, std::chrono::milliseconds(50))
      << std::chrono::duration_cast<std::chrono::microseconds>(took).count() << " us";

  list.push_back(ListEntry("eth0:9999"));
  v = Vdev4("eth0", "", "192.0.2.10", "", "");
  EXPECT_EQ(Choose(list, &v), 17);
  EXPECT_EQ(vyrtest::StatusText(), "Vip interface was not found.");
}

}  // namespace
