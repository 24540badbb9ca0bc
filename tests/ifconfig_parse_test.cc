// Reading recorded "ifconfig -a" output of the older layout into address
// lists, in IPv4 and IPv6 mode, without running anything.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "support/fake_tool.h"
#include "support/sh.h"
#include "vip/globals.h"
#include "vip/listing_parse.h"

namespace {

struct Parsed {
  int ret = -1;
  std::unique_ptr<ipaddrinfo, decltype(&std::free)> list{nullptr, &std::free};
  int num = -1;
  const ipaddrinfo& operator[](int k) const { return list.get()[k]; }
};

Parsed Parse(const std::string& text, int v6) {
  vyrtest::ScopedGlobal<int> mode(ipv6flag, v6);
  Parsed out;
  ipaddrinfo* raw = nullptr;
  out.ret = vyr::ParseIfconfigText(text, &raw, &out.num);
  out.list.reset(raw);
  return out;
}

std::string Recorded(const std::string& name) {
  return vyrtest::ReadFile(std::string(VYR_TESTDATA_DIR) + "/ifconfig/" + name);
}

std::string Ntop(int family, const void* a) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(family, a, text, sizeof text);
  return text;
}

const unsigned char kEth0Mac[6] = {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34};

struct Want {
  const char* ifname;
  const char* addr;
  const char* mask;
  int masklen;
  const char* smac;
};

// Both modes read the same recording: one entry per block in IPv4 mode, one
// per address in IPv6 mode; blocks without an address still give an entry.
TEST(IfconfigParse, RecordedOutputInBothModes) {
  const Want v4[] = {
      {"eth0", "192.0.2.10", "255.255.255.0", 0, "00:0C:29:3B:12:34"},
      {"eth0:1", "192.0.2.20", "255.255.255.0", 0, "00:0C:29:3B:12:34"},
      {"eth1", "198.51.100.7", "255.255.255.128", 0, "00:0c:29:3b:12:3e"},
      {"eth2", "", "", 0, "00:0C:29:3B:12:48"},
      {"lo", "127.0.0.1", "255.0.0.0", 0, ""},
  };
  const Want v6[] = {
      {"eth0", "fe80::20c:29ff:fe3b:1234", "ffff:ffff:ffff:ffff::", 64, "00:0C:29:3B:12:34"},
      {"eth0", "2001:db8::10", "ffff:ffff:ffff:ffff::", 64, "00:0C:29:3B:12:34"},
      {"eth0:1", "", "", 0, "00:0C:29:3B:12:34"},
      {"eth1", "2001:db8:1::7", "ffff:ffff:ffff::", 48, "00:0c:29:3b:12:3e"},
      {"eth2", "", "", 0, "00:0C:29:3B:12:48"},
      {"lo", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128, ""},
  };
  for (int mode : {0, 1}) {
    Parsed p = Parse(Recorded("older_mixed.txt"), mode);
    ASSERT_EQ(p.ret, 0);
    ASSERT_EQ(p.num, mode ? 6 : 5);
    for (int k = 0; k < p.num; ++k) {
      const ipaddrinfo& e = p[k];
      const Want& w = mode ? v6[k] : v4[k];
      SCOPED_TRACE(std::string(w.ifname) + " " + w.addr);
      EXPECT_STREQ(e.ifname, w.ifname);
      EXPECT_EQ(e.index, static_cast<unsigned>(k));
      EXPECT_STREQ(e.sipel.addr, w.addr);
      EXPECT_STREQ(e.sipel.mask, w.mask);
      EXPECT_EQ(e.sipel.masklen, w.masklen);
      EXPECT_STREQ(e.smac, w.smac);
      const std::string bin = mode ? Ntop(AF_INET6, &e.nipel6.addr) : Ntop(AF_INET, &e.nipel.addr);
      EXPECT_EQ(bin, w.addr[0] ? w.addr : (mode ? "::" : "0.0.0.0"));
    }
    // An alias (IPv4) and a second address (IPv6) carry the block's MAC bytes.
    EXPECT_EQ(std::memcmp(p[1].macaddr, kEth0Mac, 6), 0);
  }
}

TEST(IfconfigParse, MalformedInputStopsTheListing) {
  char desc[VIP_SHMBUF_LEN];
  for (int mode : {0, 1}) {
    vip_set_shmbuf("before");
    Parsed dashes = Parse(Recorded("hwaddr_dashes.txt"), mode);
    EXPECT_EQ(dashes.ret, 18);
    EXPECT_EQ(dashes.list, nullptr) << "no partial list on failure";
    EXPECT_EQ(dashes.num, -1);
    vip_get_shmbuf(desc);
    EXPECT_STREQ(desc, "Internal error. (status=18)");
  }
  vip_set_shmbuf("kept");
  Parsed prefix = Parse("eth0      Link encap:Ethernet\n   inet6 addr: 2001:db8::1/129\n", 1);
  EXPECT_EQ(prefix.ret, 31);
  EXPECT_EQ(prefix.list, nullptr);
  vip_get_shmbuf(desc);
  EXPECT_STREQ(desc, "kept") << "a bad prefix leaves the description alone";
}

TEST(IfconfigParse, TokenRulesOfTheOlderLayout) {
  struct Case {
    const char* name;
    const char* text;
    int v6, num;
    const char* addr;  // of the last entry
  } const cases[] = {
      {"inet at line end", "eth0 Link\n          inet\n          addr:192.0.2.5\n", 0, 1, ""},
      {"keywords ignore case", "eth0 HWADDR 0:c:29:3b:12:34\n INET ADDR:192.0.2.6 MASK:255.0.0.0\n",
       0, 1, "192.0.2.6"},
      {"lines before the first block", "  inet addr:192.0.2.7\n\neth0 Link\n", 0, 1, ""},
      {"no block, no list", "\n   \n", 0, 0, nullptr},
      {"inet6 without addr:", "eth0 Link\n inet6 2001:db8::9/64\n", 1, 1, ""},
      {"inet6 addr: at line end", "eth0 Link\n inet6 addr:\n 2001:db8::9/64\n", 1, 1, ""},
      {"no prefix", "eth0 Link\n inet6 addr: 2001:db8::8 Scope:Global\n", 1, 1, "2001:db8::8"},
      {"tabs", "eth0\tLink\n\tinet\taddr:192.0.2.9\tMask:255.255.255.0\n", 0, 1, "192.0.2.9"},
  };
  for (const Case& c : cases) {
    Parsed p = Parse(c.text, c.v6);
    ASSERT_EQ(p.ret, 0) << c.name;
    ASSERT_EQ(p.num, c.num) << c.name;
    if (c.addr == nullptr) {
      EXPECT_EQ(p.list, nullptr) << c.name;
    } else {
      EXPECT_STREQ(p[p.num - 1].sipel.addr, c.addr) << c.name;
    }
  }
  // Short MAC groups are kept as written and still give the right bytes.
  Parsed p = Parse(cases[1].text, 0);
  EXPECT_STREQ(p[0].smac, "0:c:29:3b:12:34");
  EXPECT_EQ(std::memcmp(p[0].macaddr, kEth0Mac, 6), 0);
  EXPECT_STREQ(p[0].sipel.mask, "255.0.0.0");
}

TEST(IfconfigParse, TenThousandBlocksParseInLinearTime) {
  std::string text;
  for (int k = 0; k < 10000; ++k) {
    char block[512];
    std::snprintf(block, sizeof block,
                  "eth%-6d Link encap:Ethernet  HWaddr 00:0C:29:00:%02X:%02X  \n"
                  "          inet addr:198.51.100.%d  Bcast:198.51.100.255  Mask:255.255.255.0\n"
                  "          inet6 addr: 2001:db8::%x/64 Scope:Global\n"
                  "          UP BROADCAST RUNNING MULTICAST  MTU:1500  Metric:1\n\n",
                  k, k / 256, k % 256, k % 250, k);
    text += block;
  }
  // CPU time, not wall time: the machine may be busy with other work.
  const std::clock_t start = std::clock();
  Parsed p = Parse(text, 0);
  const double took_ms = 1e3 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  ASSERT_EQ(p.ret, 0);
  ASSERT_EQ(p.num, 10000);
  EXPECT_STREQ(p[9999].ifname, "eth9999");
  EXPECT_STREQ(p[9999].sipel.addr, "198.51.100.249");
#if defined(__SANITIZE_ADDRESS__)
  EXPECT_LT(took_ms, 500);
#else
  EXPECT_LT(took_ms, 50);
#endif
}

}  // namespace
