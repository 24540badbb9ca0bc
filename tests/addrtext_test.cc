// Address text helpers: family, address/prefix split, newline cut, MAC text
// and name lookup, as tables of cases.
#include "vip/addrtext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nicCommon/nic_ipck.h"
#include "support/log_lines.h"
#include "support/sh.h"
#include "tracersc/tracersc.h"
#include "vip/globals.h"

namespace {

// Captures the trace lines a helper writes.
class Traced {
 public:
  Traced() : path_(dir_ / "vip.log") { traceopen("vip", 8, 0, path_.c_str()); }
  ~Traced() { traceclose(); }
  std::vector<std::string> Errors() const {
    std::vector<std::string> out;
    for (const auto& l : vyrtest::ReadLogLines(path_)) {
      if (l.level == "ERROR") out.push_back(l.text);
    }
    return out;
  }

 private:
  vyrtest::TempDir dir_;
  std::string path_;
};

TEST(AddressFamily, OnlyColonAndPercentDecide) {
  struct Case {
    const char* text;
    int ipv6;
  };
  const Case cases[] = {
      {"fe80::1%eth0", 1},    {"10.1.1.1%eth0:1", 0},   {"10.1.1.1", 0}, {"::1", 1},
      {"2001:db8::10/64", 1}, {"192.0.2.1/24", 0},      {"%eth0:1", 0},  {"", 0},
      {"not an address", 0},  {"2001:db8::1%va0:3", 1},
  };
  for (const Case& c : cases) {
    ipv6flag = 1 - c.ipv6;
    EXPECT_EQ(0, vip_ipck(c.text)) << c.text;
    EXPECT_EQ(c.ipv6, ipv6flag) << c.text;
    ipv6flag = 7;
    EXPECT_EQ(c.ipv6, nic_ipck(c.text)) << c.text;
    EXPECT_EQ(7, ipv6flag) << "nic_ipck leaves the flag alone: " << c.text;
  }
  ipv6flag = 0;
}

struct SplitCase {
  const char* text;
  int ipv6;
  int ret;
  const char* addr;   // expected addr after the call
  const char* mask;   // expected mask ("<kept>" = unchanged)
  int masklen;        // expected masklen (-99 = unchanged)
  const char* error;  // the error line, or ""
};

constexpr const char* kKept = "<kept>";
constexpr int kKeptLen = -99;

TEST(AddressSplit, TableOfCases) {
  const SplitCase cases[] = {
      {"192.168.10.5/24", 0, 0, "192.168.10.5", "255.255.255.0", 24, ""},
      {"192.0.2.7/32", 0, 0, "192.0.2.7", "255.255.255.255", 32, ""},
      {"192.0.2.7/0", 0, 0, "192.0.2.7", "0.0.0.0", 0, ""},
      {"192.0.2.7/-1", 0, 0, "192.0.2.7", "0.0.0.0", -1, ""},
      {"192.0.2.7/ 25", 0, 0, "192.0.2.7", "255.255.255.128", 25, ""},
      {"192.0.2.7/+9", 0, 0, "192.0.2.7", "255.128.0.0", 9, ""},
      {"fd00::10/64", 1, 0, "fd00::10", "ffff:ffff:ffff:ffff::", 64, ""},
      {"2001:db8::1/127", 1, 0, "2001:db8::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe", 127, ""},
      {"2001:db8::1/128", 1, 0, "2001:db8::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128, ""},
      {"2001:db8::1/65", 1, 0, "2001:db8::1", "ffff:ffff:ffff:ffff:8000::", 65, ""},
      {"2001:db8::1/0", 1, 0, "2001:db8::1", "::", 0, ""},
      {"10.0.0.1", 0, 0, "10.0.0.1", kKept, kKeptLen, ""},
      {"2001:db8::5", 1, 0, "2001:db8::5", kKept, kKeptLen, ""},
      {"10.0.0.1/255.255.255.0", 0, 31, "10.0.0.1", kKept, 255,
       "Mask is invalid.(mask=255.255.255.0)"},
      {"10.0.0.1/24x", 0, 31, "10.0.0.1", kKept, 24, "Mask is invalid.(mask=24x)"},
      {"10.0.0.1/", 0, 31, "10.0.0.1", kKept, 0, "Mask is not set."},
      {"10.0.0.1/33", 0, 31, "10.0.0.1", kKept, 33, "over max mask bit num.(mask bit=33)"},
      {"2001:db8::1/129", 1, 31, "2001:db8::1", kKept, 129, "over max mask bit num.(mask bit=129)"},
      // A prefix beyond the int range never wraps round into a valid one.
      {"10.0.0.1/4294967320", 0, 31, "10.0.0.1", kKept, 2147483647,
       "over max mask bit num.(mask bit=2147483647)"},
  };
  for (const SplitCase& c : cases) {
    Traced t;
    ipv6flag = c.ipv6;
    char addr[46] = "old-addr";
    char mask[46] = "old-mask";
    int masklen = kKeptLen;
    EXPECT_EQ(c.ret, vip_div_ipmask(c.text, addr, mask, &masklen)) << c.text;
    EXPECT_STREQ(c.addr, addr) << c.text;
    EXPECT_STREQ(c.mask == kKept ? "old-mask" : c.mask, mask) << c.text;
    EXPECT_EQ(c.masklen, masklen) << c.text;
    std::vector<std::string> errors = t.Errors();
    if (c.error[0] == '\0') {
      EXPECT_TRUE(errors.empty()) << c.text << ": " << errors[0];
    } else {
      EXPECT_EQ(std::vector<std::string>{c.error}, errors) << c.text;
    }
  }
  ipv6flag = 0;
}

TEST(AddressSplit, OverLongPartsAreRefusedAndNothingIsWritten) {
  const std::string long_addr(46, 'a');  // one more than the field holds
  const std::string fits(45, '1');
  struct Case {
    std::string text;
    int ret;
  };
  const Case cases[] = {
      {long_addr, 31},
      {long_addr + "/24", 31},
      {"192.0.2.1/0000000000000024", 31},  // 16 characters of prefix
      {"192.0.2.1/000000000000024", 0},    // 15 fit
      {fits, 0},
  };
  for (const Case& c : cases) {
    Traced t;
    ipv6flag = 0;
    char addr[46] = "old-addr";
    char mask[46] = "old-mask";
    int masklen = kKeptLen;
    EXPECT_EQ(c.ret, vip_div_ipmask(c.text.c_str(), addr, mask, &masklen)) << c.text;
    if (c.ret == 0) {
      EXPECT_EQ(c.text.substr(0, c.text.find('/')), addr);
      continue;
    }
    EXPECT_STREQ("old-addr", addr) << c.text;
    EXPECT_STREQ("old-mask", mask) << c.text;
    EXPECT_EQ(kKeptLen, masklen) << c.text;
    EXPECT_EQ(1u, t.Errors().size()) << "the refusal is traced: " << c.text;
  }
}

TEST(Chop, CutsAtTheLastNewline) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"eth0 Link encap:Ethernet\n", "eth0 Link encap:Ethernet"},
      {"no newline", "no newline"},
      {"", ""},
      {"\n", ""},
      {"first\nsecond", "first"},
      {"a\nb\n", "a\nb"},
  };
  for (const Case& c : cases) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s", c.in);
    vip_chop(buf);
    EXPECT_STREQ(c.out, buf) << "input: " << c.in;
  }
}

TEST(MacText, SixColonSeparatedHexFields) {
  struct Case {
    const char* text;
    int ret;
    unsigned char bytes[6];
  };
  const Case cases[] = {
      {"00:0C:29:3B:12:34", 0, {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34}},
      {"0:c:29:3b:12:34", 0, {0x00, 0x0c, 0x29, 0x3b, 0x12, 0x34}},
      {"100:0:0:0:0:1", 0, {0x00, 0x00, 0x00, 0x00, 0x00, 0x01}},
      {"aa:BB:cc:DD:ee:FF trailing", 0, {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}},
      {"00-0C-29-3B-12-34", 18, {0, 0, 0, 0, 0, 0}},
      {"00:0C:29:3B:12", 18, {0, 0, 0, 0, 0, 0}},
      {"", 18, {0, 0, 0, 0, 0, 0}},
      {"zz:0C:29:3B:12:34", 18, {0, 0, 0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    Traced t;
    vip_clear_shmbuf();
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(c.ret, vip_crt_macaddr(c.text, mac)) << c.text;
    EXPECT_EQ(0, std::memcmp(c.bytes, mac, 6)) << c.text;
    char desc[128];
    vip_get_shmbuf(desc);
    if (c.ret == 0) {
      EXPECT_STREQ("", desc) << c.text;
      EXPECT_TRUE(t.Errors().empty()) << c.text;
    } else {
      EXPECT_STREQ("Internal error. (status=18)", desc) << c.text;
      EXPECT_EQ(std::vector<std::string>{"mac adderss is invalid."}, t.Errors()) << c.text;
    }
  }
}

TEST(MacText, NullArgumentsAreRefused) {
  Traced t;
  unsigned char mac[6];
  EXPECT_EQ(18, vip_crt_macaddr(nullptr, mac));
  EXPECT_EQ(18, vip_crt_macaddr("00:0C:29:3B:12:34", nullptr));
  EXPECT_EQ((std::vector<std::string>{"mac address is null.", "mac address is null."}), t.Errors());
  char desc[128];
  vip_get_shmbuf(desc);
  EXPECT_STREQ("Internal error. (status=18)", desc);
  vip_clear_shmbuf();
}

TEST(InterfaceName, LookupIgnoresCaseAndNeverMatchesAnAlias) {
  ipaddrinfo list[3] = {};
  std::snprintf(list[0].ifname, sizeof list[0].ifname, "eth0:1");
  std::snprintf(list[1].ifname, sizeof list[1].ifname, "eth0");
  std::snprintf(list[2].ifname, sizeof list[2].ifname, "va0");
  EXPECT_EQ(1, vip_chk_ifname(list, 3, "ETH0"));
  EXPECT_EQ(1, vip_chk_ifname(list, 3, "va0"));
  EXPECT_EQ(1, vip_chk_ifname(list, 3, "eth0:1"));
  EXPECT_EQ(0, vip_chk_ifname(list, 3, "eth1"));
  EXPECT_EQ(0, vip_chk_ifname(list, 1, "eth0")) << "only eth0:1 is inside the count";
  EXPECT_EQ(0, vip_chk_ifname(list, 2, "va0")) << "the count bounds the search";
  EXPECT_EQ(0, vip_chk_ifname(list, 0, "eth0:1"));
}

}  // namespace
