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

using vyrtest::ScopedGlobal;

struct ListFree {
  void operator()(ipaddrinfo* list) const { std::free(list); }
};
using List = std::unique_ptr<ipaddrinfo, ListFree>;

std::string Recorded(const std::string& name) {
  return vyrtest::ReadFile(std::string(VYR_TESTDATA_DIR) + "/ifconfig/" + name);
}

// Parses `text` in the given mode; the result code, the list and its count.
struct Parsed {
  int ret = -1;
  List list;
  int num = -1;
};

Parsed Parse(const std::string& text, int v6) {
  ScopedGlobal<int> mode(ipv6flag, v6);
  Parsed out;
  ipaddrinfo* raw = nullptr;
  out.ret = vyr::ParseIfconfigText(text, &raw, &out.num);
  out.list.reset(raw);
  return out;
}

double ThreadCpuMs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

std::string V4(in_addr a) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
}

std::string V6(const in6_addr& a) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, &a, text, sizeof text);
  return text;
}

struct Want4 {
  const char* ifname;
  const char* addr;
  const char* mask;
  const char* smac;
};

struct Want6 {
  const char* ifname;
  const char* addr;
  const char* mask;
  int masklen;
  const char* smac;
};

const unsigned char kEth0Mac[6] = {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34};

TEST(IfconfigParse, Ipv4ModeGivesOneEntryPerBlockWithAliasesAndLoopback) {
  Parsed p = Parse(Recorded("older_mixed.txt"), 0);
  ASSERT_EQ(p.ret, 0);
  const Want4 want[] = {
      {"eth0", "192.0.2.10", "255.255.255.0", "00:0C:29:3B:12:34"},
      {"eth0:1", "192.0.2.20", "255.255.255.0", "00:0C:29:3B:12:34"},
      {"eth1", "198.51.100.7", "255.255.255.128", "00:0c:29:3b:12:3e"},
      {"eth2", "", "", "00:0C:29:3B:12:48"},
      {"lo", "127.0.0.1", "255.0.0.0", ""},
  };
  ASSERT_EQ(p.num, 5);
  for (int k = 0; k < p.num; ++k) {
    const ipaddrinfo& e = p.list.get()[k];
    SCOPED_TRACE(want[k].ifname);
    EXPECT_STREQ(e.ifname, want[k].ifname);
    EXPECT_EQ(e.index, static_cast<unsigned>(k));
    EXPECT_STREQ(e.sipel.addr, want[k].addr);
    EXPECT_STREQ(e.sipel.mask, want[k].mask);
    EXPECT_STREQ(e.smac, want[k].smac);
    EXPECT_EQ(e.sipel.masklen, 0);
    EXPECT_EQ(V6(e.nipel6.addr), "::");
    if (want[k].addr[0] != '\0') {
      EXPECT_EQ(V4(e.nipel.addr), want[k].addr);
      EXPECT_EQ(V4(e.nipel.mask), want[k].mask);
    } else {
      EXPECT_EQ(e.nipel.addr.s_addr, 0u);
      EXPECT_EQ(e.nipel.mask.s_addr, 0u);
    }
  }
  EXPECT_EQ(std::memcmp(p.list.get()[1].macaddr, kEth0Mac, 6), 0);
  const unsigned char eth1[6] = {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x3e};
  EXPECT_EQ(std::memcmp(p.list.get()[2].macaddr, eth1, 6), 0);
  const unsigned char none[20] = {};
  EXPECT_EQ(std::memcmp(p.list.get()[4].macaddr, none, sizeof none), 0);
}

TEST(IfconfigParse, Ipv6ModeGivesOneEntryPerAddressAndKeepsBlocksWithout) {
  Parsed p = Parse(Recorded("older_mixed.txt"), 1);
  ASSERT_EQ(p.ret, 0);
  const Want6 want[] = {
      {"eth0", "fe80::20c:29ff:fe3b:1234", "ffff:ffff:ffff:ffff::", 64, "00:0C:29:3B:12:34"},
      {"eth0", "2001:db8::10", "ffff:ffff:ffff:ffff::", 64, "00:0C:29:3B:12:34"},
      {"eth0:1", "", "", 0, "00:0C:29:3B:12:34"},
      {"eth1", "2001:db8:1::7", "ffff:ffff:ffff::", 48, "00:0c:29:3b:12:3e"},
      {"eth2", "", "", 0, "00:0C:29:3B:12:48"},
      {"lo", "::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128, ""},
  };
  ASSERT_EQ(p.num, 6);
  for (int k = 0; k < p.num; ++k) {
    const ipaddrinfo& e = p.list.get()[k];
    SCOPED_TRACE(std::string(want[k].ifname) + " " + want[k].addr);
    EXPECT_STREQ(e.ifname, want[k].ifname);
    EXPECT_EQ(e.index, static_cast<unsigned>(k));
    EXPECT_STREQ(e.sipel.addr, want[k].addr);
    EXPECT_STREQ(e.sipel.mask, want[k].mask);
    EXPECT_EQ(e.sipel.masklen, want[k].masklen);
    EXPECT_STREQ(e.smac, want[k].smac);
    EXPECT_EQ(e.nipel.addr.s_addr, 0u) << "IPv4 lines give nothing in IPv6 mode";
    EXPECT_EQ(V6(e.nipel6.addr), want[k].addr[0] ? want[k].addr : "::");
    EXPECT_EQ(V6(e.nipel6.mask), want[k].mask[0] ? want[k].mask : "::");
  }
  // The second address of eth0 carries the block's hardware address bytes.
  EXPECT_EQ(std::memcmp(p.list.get()[1].macaddr, kEth0Mac, 6), 0);
}

TEST(IfconfigParse, MalformedInputStopsTheListing) {
  char before[128];
  vip_set_shmbuf("before");
  Parsed dashes = Parse(Recorded("hwaddr_dashes.txt"), 0);
  EXPECT_EQ(dashes.ret, 18);
  EXPECT_EQ(dashes.list, nullptr) << "no partial list on failure";
  EXPECT_EQ(dashes.num, -1);
  vip_get_shmbuf(before);
  EXPECT_STREQ(before, "Internal error. (status=18)");

  // Dashes fail in IPv6 mode too: the hardware address is read in both.
  EXPECT_EQ(Parse(Recorded("hwaddr_dashes.txt"), 1).ret, 18);

  vip_set_shmbuf("kept");
  Parsed prefix =
      Parse("eth0      Link encap:Ethernet\n          inet6 addr: 2001:db8::1/129\n", 1);
  EXPECT_EQ(prefix.ret, 31);
  EXPECT_EQ(prefix.list, nullptr);
  vip_get_shmbuf(before);
  EXPECT_STREQ(before, "kept") << "a bad prefix leaves the description alone";
}

TEST(IfconfigParse, TokenRulesOfTheOlderLayout) {
  struct Case {
    const char* name;
    const char* text;
    int v6;
    int num;
    const char* addr;  // of the last entry
  };
  const Case cases[] = {
      {"inet at line end takes nothing from the next line",
       "eth0 Link\n          inet\n          addr:192.0.2.5\n", 0, 1, ""},
      {"keywords ignore case",
       "eth0 HWADDR 00:0c:29:3b:12:34\n INET ADDR:192.0.2.6 MASK:255.0.0.0\n", 0, 1, "192.0.2.6"},
      {"lines before the first block are ignored", "  inet addr:192.0.2.7\n\neth0 Link\n", 0, 1,
       ""},
      {"no block, no list", "\n   \n", 0, 0, nullptr},
      {"inet6 without addr: takes nothing", "eth0 Link\n inet6 2001:db8::9/64\n", 1, 1, ""},
      {"inet6 addr: at line end takes nothing", "eth0 Link\n inet6 addr:\n 2001:db8::9/64\n", 1, 1,
       ""},
      {"address without prefix", "eth0 Link\n inet6 addr: 2001:db8::8 Scope:Global\n", 1, 1,
       "2001:db8::8"},
      {"tabs separate tokens", "eth0\tLink\n\tinet\taddr:192.0.2.9\tMask:255.255.255.0\n", 0, 1,
       "192.0.2.9"},
  };
  for (const Case& c : cases) {
    Parsed p = Parse(c.text, c.v6);
    ASSERT_EQ(p.ret, 0) << c.name;
    ASSERT_EQ(p.num, c.num) << c.name;
    if (c.addr == nullptr) {
      EXPECT_EQ(p.list, nullptr) << c.name;
    } else {
      EXPECT_STREQ(p.list.get()[p.num - 1].sipel.addr, c.addr) << c.name;
    }
  }
}

TEST(IfconfigParse, MaskAndHardwareAddressOfTheBlockLine) {
  Parsed p = Parse("eth0 Link encap:Ethernet HWaddr 0:c:29:3b:12:34 Mask:255.255.0.0\n", 0);
  ASSERT_EQ(p.ret, 0);
  ASSERT_EQ(p.num, 1);
  EXPECT_STREQ(p.list.get()->smac, "0:c:29:3b:12:34");
  EXPECT_EQ(std::memcmp(p.list.get()->macaddr, kEth0Mac, 6), 0);
  EXPECT_STREQ(p.list.get()->sipel.mask, "255.255.0.0");
}

TEST(IfconfigParse, TenThousandBlocksParseInLinearTime) {
  std::string text;
  for (int k = 0; k < 10000; ++k) {
    char block[512];
    std::snprintf(block, sizeof block,
                  "eth%-6d Link encap:Ethernet  HWaddr 00:0C:29:00:%02X:%02X  \n"
                  "          inet addr:198.51.100.%d  Bcast:198.51.100.255  Mask:255.255.255.0\n"
                  "          inet6 addr: 2001:db8::%x/64 Scope:Global\n"
                  "          UP BROADCAST RUNNING MULTICAST  MTU:1500  Metric:1\n"
                  "          RX packets:0 errors:0 dropped:0 overruns:0 frame:0\n\n",
                  k, k / 256, k % 256, k % 250, k);
    text += block;
  }
  // CPU time of this thread: the machine may be busy with other work.
  const double start = ThreadCpuMs();
  Parsed p = Parse(text, 0);
  const double took = ThreadCpuMs() - start;
  ASSERT_EQ(p.ret, 0);
  ASSERT_EQ(p.num, 10000);
  EXPECT_STREQ(p.list.get()[9999].ifname, "eth9999");
  EXPECT_STREQ(p.list.get()[9999].sipel.addr, "198.51.100.249");
#if defined(__SANITIZE_ADDRESS__)
  const double budget = 500;
#else
  const double budget = 50;
#endif
  EXPECT_LT(took, budget);
  std::printf("10000 blocks parsed in %.1f ms of CPU time\n", took);
}

}  // namespace
