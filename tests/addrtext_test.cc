// Address text helpers: family, address/prefix split, newline cut, MAC text
// and name lookup, as tables of cases.
#include "vip/addrtext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nicCommon/nic_ipck.h"
#include "support/trace_capture.h"
#include "vip/globals.h"

namespace {

using Texts = std::vector<std::string>;

TEST(AddressFamily, OnlyColonAndPercentDecide) {
  const std::pair<const char*, int> cases[] = {
      {"fe80::1%eth0", 1}, {"10.1.1.1%eth0:1", 0}, {"10.1.1.1", 0},       {"::1", 1},
      {"192.0.2.1/24", 0}, {"%eth0:1", 0},         {"not an address", 0}, {"2001:db8::1%va0:3", 1},
  };
  for (const auto& [text, ipv6] : cases) {
    ipv6flag = 1 - ipv6;
    EXPECT_EQ(0, vip_ipck(text)) << text;
    EXPECT_EQ(ipv6, ipv6flag) << text;
    ipv6flag = 7;
    EXPECT_EQ(ipv6, nic_ipck(text)) << text;
    EXPECT_EQ(7, ipv6flag) << "nic_ipck leaves the flag alone: " << text;
  }
  ipv6flag = 0;
}

// Fields the call must not write keep "old-addr", "old-mask" and -99.
TEST(AddressSplit, TableOfCases) {
  const std::string a46(46, 'a');  // one more than the address field holds
  struct Case {
    std::string text;
    int ipv6, ret;
    std::string addr, mask;
    int masklen;
    const char* error;  // the one error line, "" for none, "*" for any
  };
  const Case cases[] = {
      {"192.168.10.5/24", 0, 0, "192.168.10.5", "255.255.255.0", 24, ""},
      {"192.0.2.7/0", 0, 0, "192.0.2.7", "0.0.0.0", 0, ""},
      {"192.0.2.7/-1", 0, 0, "192.0.2.7", "0.0.0.0", -1, ""},
      {"192.0.2.7/ 25", 0, 0, "192.0.2.7", "255.255.255.128", 25, ""},
      {"192.0.2.7/+9", 0, 0, "192.0.2.7", "255.128.0.0", 9, ""},
      {"2001:db8::1/128", 1, 0, "2001:db8::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128, ""},
      {"2001:db8::1/65", 1, 0, "2001:db8::1", "ffff:ffff:ffff:ffff:8000::", 65, ""},
      {"2001:db8::1/0", 1, 0, "2001:db8::1", "::", 0, ""},
      {"2001:db8::5", 1, 0, "2001:db8::5", "old-mask", -99, ""},
      {std::string(45, '1'), 0, 0, std::string(45, '1'), "old-mask", -99, ""},
      {"192.0.2.1/000000000000024", 0, 0, "192.0.2.1", "255.255.255.0", 24, ""},  // 15 fit
      {"10.0.0.1/255.255.255.0", 0, 31, "10.0.0.1", "old-mask", 255,
       "Mask is invalid.(mask=255.255.255.0)"},
      {"10.0.0.1/24x", 0, 31, "10.0.0.1", "old-mask", 24, "Mask is invalid.(mask=24x)"},
      {"10.0.0.1/", 0, 31, "10.0.0.1", "old-mask", 0, "Mask is not set."},
      {"10.0.0.1/33", 0, 31, "10.0.0.1", "old-mask", 33, "over max mask bit num.(mask bit=33)"},
      {"2001:db8::1/129", 1, 31, "2001:db8::1", "old-mask", 129,
       "over max mask bit num.(mask bit=129)"},
      // A prefix beyond the int range never wraps round into a valid one.
      {"10.0.0.1/4294967320", 0, 31, "10.0.0.1", "old-mask", 2147483647,
       "over max mask bit num.(mask bit=2147483647)"},
      // Over-long parts are refused before anything is written.
      {a46, 0, 31, "old-addr", "old-mask", -99, "*"},
      {a46 + "/24", 0, 31, "old-addr", "old-mask", -99, "*"},
      {"192.0.2.1/0000000000000024", 0, 31, "old-addr", "old-mask", -99, "*"},
  };
  for (const Case& c : cases) {
    vyrtest::TraceCapture trace;
    ipv6flag = c.ipv6;
    char addr[46] = "old-addr";
    char mask[46] = "old-mask";
    int masklen = -99;
    EXPECT_EQ(c.ret, vip_div_ipmask(c.text.c_str(), addr, mask, &masklen)) << c.text;
    EXPECT_EQ(c.addr + " " + c.mask + " " + std::to_string(c.masklen),
              std::string(addr) + " " + mask + " " + std::to_string(masklen))
        << c.text;
    const Texts errors = trace.Texts("ERROR");
    if (std::string(c.error) == "*") {
      EXPECT_EQ(1u, errors.size()) << "the refusal is traced: " << c.text;
    } else {
      EXPECT_EQ(*c.error ? Texts{c.error} : Texts{}, errors) << c.text;
    }
  }
  ipv6flag = 0;
}

TEST(Chop, CutsAtTheLastNewline) {
  const std::pair<const char*, const char*> cases[] = {
      {"eth0 Link encap:Ethernet\n", "eth0 Link encap:Ethernet"},
      {"no newline", "no newline"},
      {"\n", ""},
      {"a\nb\n", "a\nb"},
  };
  for (const auto& [in, out] : cases) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s", in);
    vip_chop(buf);
    EXPECT_STREQ(out, buf) << "input: " << in;
  }
}

TEST(MacText, SixColonSeparatedHexFields) {
  struct Case {
    const char* text;
    unsigned char bytes[6];  // all zero: refused
  };
  const Case cases[] = {
      {"00:0C:29:3B:12:34", {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34}},
      {"0:c:29:3b:12:34", {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34}},
      {"100:0:0:0:0:1", {0x00, 0x00, 0x00, 0x00, 0x00, 0x01}},
      {"aa:BB:cc:DD:ee:FF trailing", {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}},
      {"00-0C-29-3B-12-34", {}},
      {"00:0C:29:3B:12", {}},
      {"zz:0C:29:3B:12:34", {}},
      {nullptr, {}},
  };
  for (const Case& c : cases) {
    const std::string name = c.text ? c.text : "(null)";
    const bool ok = c.bytes[5] != 0;
    vyrtest::TraceCapture trace;
    vip_clear_shmbuf();
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(ok ? 0 : 18, vip_crt_macaddr(c.text, mac)) << name;
    if (c.text) {  // a null text leaves the bytes alone
      EXPECT_EQ(0, std::memcmp(c.bytes, mac, 6)) << name;
    }
    char desc[128];
    vip_get_shmbuf(desc);
    EXPECT_STREQ(ok ? "" : "Internal error. (status=18)", desc) << name;
    const char* error = c.text ? "mac adderss is invalid." : "mac address is null.";
    EXPECT_EQ(ok ? Texts{} : Texts{error}, trace.Texts("ERROR")) << name;
  }
  unsigned char mac[6];
  EXPECT_EQ(18, vip_crt_macaddr("00:0C:29:3B:12:34", nullptr));
  EXPECT_EQ(18, vip_crt_macaddr(nullptr, mac));
  vip_clear_shmbuf();
}

TEST(InterfaceName, LookupIgnoresCaseAndNeverMatchesAnAlias) {
  ipaddrinfo list[3] = {};
  std::snprintf(list[0].ifname, sizeof list[0].ifname, "eth0:1");
  std::snprintf(list[1].ifname, sizeof list[1].ifname, "eth0");
  std::snprintf(list[2].ifname, sizeof list[2].ifname, "va0");
  EXPECT_EQ(1, vip_chk_ifname(list, 3, "ETH0"));
  EXPECT_EQ(1, vip_chk_ifname(list, 3, "eth0:1"));
  EXPECT_EQ(0, vip_chk_ifname(list, 3, "eth1"));
  EXPECT_EQ(0, vip_chk_ifname(list, 1, "eth0")) << "only eth0:1 is inside the count";
  EXPECT_EQ(0, vip_chk_ifname(list, 2, "va0")) << "the count bounds the search";
}

}  // namespace
