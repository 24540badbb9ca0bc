// Choosing the device for the virtual address from an address list.
#include "vip/vdev.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vip/addrtext.h"
#include "vip/globals.h"

namespace {

ipaddrinfo Entry(const std::string& name, const char* mask = "255.255.255.0",
                 const char* mac = "02:00:00:00:00:01", int masklen = 0) {
  ipaddrinfo e{};
  std::snprintf(e.ifname, sizeof e.ifname, "%s", name.c_str());
  inet_pton(AF_INET, mask, &e.nipel.mask);
  std::snprintf(e.smac, sizeof e.smac, "%s", mac);
  unsigned int b[6] = {};
  std::sscanf(mac, "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]);
  for (int i = 0; i < 6; ++i) e.macaddr[i] = static_cast<unsigned char>(b[i]);
  e.sipel.masklen = masklen;
  return e;
}

vdevinfo Record4(const char* ifname, const char* addr, const char* mask = "") {
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "%s", ifname);
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "%s", addr);
  std::snprintf(v.sipel.mask, sizeof v.sipel.mask, "%s", mask);
  inet_pton(AF_INET, addr, &v.nipel.addr);
  if (mask[0] != '\0') inet_pton(AF_INET, mask, &v.nipel.mask);
  return v;
}

class VdevTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ipv6flag = 0;
    vip_clear_shmbuf();
  }
  void TearDown() override { ipv6flag = 0; }
};

struct Ipv4Case {
  const char* what;
  std::vector<std::string> listed;
  const char* configured;
  int ret;
  const char* vdevname;
};

TEST_F(VdevTest, Ipv4AliasChoice) {
  const std::string b13 = "abcdefghijklm";
  const std::string b14 = "abcdefghijklmn";
  std::vector<std::string> b13_with_ten = {b13};
  for (int i = 0; i < 10; ++i) b13_with_ten.push_back(b13 + ":" + std::to_string(i));
  const std::vector<Ipv4Case> cases = {
      {"first alias", {"eth0"}, "eth0", 0, "eth0:0"},
      {"eth0:0 taken", {"eth0", "eth0:0"}, "eth0", 0, "eth0:1"},
      {"gap is filled", {"eth0", "eth0:0", "eth0:2"}, "eth0", 0, "eth0:1"},
      {"collision ignores case", {"eth0", "ETH0:0"}, "eth0", 0, "eth0:1"},
      {"eth0:00 is not eth0:0", {"eth0", "eth0:00"}, "eth0", 0, "eth0:0"},
      {"eth0:+1 is not eth0:1", {"eth0", "eth0:0", "eth0:+1"}, "eth0", 0, "eth0:1"},
      {"other interface's aliases", {"eth1", "eth1:0", "eth0"}, "eth0", 0, "eth0:0"},
      {"prefix of another name", {"eth0", "eth00:0"}, "eth0", 0, "eth0:0"},
      {"configured alias free", {"eth0"}, "eth0:3", 0, "eth0:3"},
      {"configured alias taken", {"eth0", "eth0:3"}, "eth0:3", 28, ""},
      {"configured alias taken, other case", {"eth0", "ETH0:3"}, "eth0:3", 28, ""},
      {"13-character base", {b13}, b13.c_str(), 0, "abcdefghijklm:0"},
      {"14-character base", {b14}, b14.c_str(), 30, "abcdefghijklmn:0"},
      {"13-character base, 0-9 taken", b13_with_ten, b13.c_str(), 30, "abcdefghijklm:10"},
      {"no name configured", {"eth0"}, "", 17, ""},
      {"interface match is exact", {"ETH0"}, "eth0", 0, "eth0"},
  };
  for (const auto& c : cases) {
    std::vector<ipaddrinfo> list;
    for (const auto& name : c.listed) list.push_back(Entry(name));
    vdevinfo v = Record4(c.configured, "192.0.2.10");
    EXPECT_EQ(vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &v), c.ret) << c.what;
    EXPECT_STREQ(v.vdevname, c.vdevname) << c.what;
  }
}

TEST_F(VdevTest, Ipv4TakesMaskAndMacFromFirstMatchingEntry) {
  std::vector<ipaddrinfo> list = {Entry("lo", "255.0.0.0", "00:00:00:00:00:00"),
                                  Entry("eth0", "255.255.0.0", "02:00:00:aa:bb:cc"),
                                  Entry("eth0:0", "255.255.255.0", "02:00:00:11:22:33")};
  vdevinfo v = Record4("eth0", "192.0.2.10");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 3, &v), 0);
  EXPECT_STREQ(v.vdevname, "eth0:1");
  EXPECT_STREQ(v.sipel.mask, "255.255.0.0");
  EXPECT_EQ(v.nipel.mask.s_addr, htonl(0xffff0000u));
  EXPECT_STREQ(v.bcast, "192.0.255.255");
  EXPECT_STREQ(v.smac, "02:00:00:aa:bb:cc");
  const unsigned char mac[6] = {0x02, 0, 0, 0xaa, 0xbb, 0xcc};
  EXPECT_EQ(std::memcmp(v.macaddr, mac, 6), 0);
}

TEST_F(VdevTest, ConfiguredMaskIsKeptAndBroadcastFollowsIt) {
  std::vector<ipaddrinfo> list = {Entry("eth0", "255.255.0.0")};
  vdevinfo v = Record4("eth0", "192.0.2.10", "255.255.255.128");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 1, &v), 0);
  EXPECT_STREQ(v.sipel.mask, "255.255.255.128");
  EXPECT_STREQ(v.bcast, "192.0.2.127");
}

TEST_F(VdevTest, UnlistedIpv4InterfaceGetsDefaultMask) {
  std::vector<ipaddrinfo> list = {Entry("eth1")};
  vdevinfo v = Record4("eth0:7", "198.51.100.20");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 1, &v), 0);
  EXPECT_STREQ(v.vdevname, "eth0:7");
  EXPECT_STREQ(v.sipel.mask, "255.255.255.0");
  EXPECT_EQ(v.nipel.mask.s_addr, htonl(0xffffff00u));
  EXPECT_STREQ(v.bcast, "198.51.100.255");
  EXPECT_STREQ(v.smac, "");
  const unsigned char zero[6] = {};
  EXPECT_EQ(std::memcmp(v.macaddr, zero, 6), 0);
}

TEST_F(VdevTest, Ipv6UsesTheInterfaceItself) {
  ipv6flag = 1;
  std::vector<ipaddrinfo> list = {Entry("eth0:1", "0.0.0.0", "02:00:00:00:00:06", 48)};
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "eth0");
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "2001:db8::10");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 1, &v), 0);
  EXPECT_STREQ(v.vdevname, "");
  EXPECT_EQ(v.sipel.masklen, 48);
  EXPECT_STREQ(v.smac, "02:00:00:00:00:06");
  EXPECT_STREQ(v.bcast, "");

  // A given prefix stays.
  vdevinfo given{};
  std::snprintf(given.ifname, sizeof given.ifname, "eth0");
  std::snprintf(given.sipel.mask, sizeof given.sipel.mask, "80");
  given.sipel.masklen = 80;
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 1, &given), 0);
  EXPECT_EQ(given.sipel.masklen, 80);
}

TEST_F(VdevTest, Ipv6AliasNameMatchesNoInterface) {
  ipv6flag = 1;
  std::vector<ipaddrinfo> list = {Entry("eth0:1", "0.0.0.0", "02:00:00:00:00:06", 48)};
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "eth0:1");
  ASSERT_EQ(vip_crt_vdevinfo(list.data(), 1, &v), 0);
  EXPECT_STREQ(v.vdevname, "eth0:1");
  EXPECT_EQ(v.sipel.masklen, 64);
  EXPECT_STREQ(v.smac, "");
}

std::vector<ipaddrinfo> WithAliases(int count) {
  std::vector<ipaddrinfo> list = {Entry("eth0")};
  for (int i = 0; i < count; ++i) list.push_back(Entry("eth0:" + std::to_string(i)));
  return list;
}

TEST_F(VdevTest, AllTenThousandAliasesTaken) {
  auto list = WithAliases(10000);
  vdevinfo v = Record4("eth0", "192.0.2.10");
  EXPECT_EQ(vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &v), 17);
  char desc[VIP_SHMBUF_LEN];
  vip_get_shmbuf(desc);
  EXPECT_STREQ(desc, "Vip interface was not found.");
}

TEST_F(VdevTest, LastFreeAliasAmongThousandsIsFoundFast) {
  auto list = WithAliases(9999);  // eth0:0 .. eth0:9998, in reverse to defeat early exits
  std::reverse(list.begin() + 1, list.end());
  vdevinfo v = Record4("eth0", "192.0.2.10");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &v), 0);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_STREQ(v.vdevname, "eth0:9999");
  // Testing each candidate against the whole list takes ~5e7 comparisons;
  // one pass over the list takes well under a millisecond.
  std::printf(
      "alias choice among 9999 taken: %lld us\n",
      static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
  EXPECT_LT(took, std::chrono::milliseconds(50))
      << std::chrono::duration_cast<std::chrono::microseconds>(took).count() << " us";
}

}  // namespace

namespace {

// The alias choice tested candidate by candidate against the whole list.
std::string ReferenceAlias(const std::vector<ipaddrinfo>& list, const char* base) {
  for (int n = 0; n <= VIP_MAX_ALIAS; ++n) {
    const std::string cand = std::string(base) + ":" + std::to_string(n);
    if (vip_chk_ifname(list.data(), static_cast<uint16_t>(list.size()), cand.c_str()) == 0) {
      return cand;
    }
  }
  return "";
}

TEST_F(VdevTest, AliasChoiceAgreesWithCandidateByCandidateSearch) {
  const char* spellings[] = {"eth0:%d", "ETH0:%d", "Eth0:%d", "eth0:0%d", "eth0:%d ", "eth1:%d"};
  unsigned int seed = 12345;
  for (int round = 0; round < 200; ++round) {
    std::vector<ipaddrinfo> list = {Entry("eth0")};
    const int count = static_cast<int>(rand_r(&seed) % 40);
    for (int i = 0; i < count; ++i) {
      char name[VIP_NAME_LEN];
      const char* form = spellings[rand_r(&seed) % 6];
      std::snprintf(name, sizeof name, form, static_cast<int>(rand_r(&seed) % 12));
      list.push_back(Entry(name));
    }
    vdevinfo v = Record4("eth0", "192.0.2.10");
    ASSERT_EQ(vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &v), 0);
    ASSERT_EQ(v.vdevname, ReferenceAlias(list, "eth0")) << "round " << round;
  }
}

}  // namespace
