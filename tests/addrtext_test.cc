// Address text helpers: the address family and the address/prefix split.
// The newline cut, MAC text and interface lookup are shown through the
// listing parser and alias choice tests.
#include "vip/address/addrtext.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nicCommon/nic_ipck.h"
#include "support/trace_capture.h"
#include "vip/base/globals.h"

namespace {

using Texts = std::vector<std::string>;

// A colon after a '%' (an alias interface) must not make an address IPv6.
TEST(AddressText, FamilyIsDecidedByTheFirstColonBeforeAnyPercent) {
  for (const auto& [text, ipv6] : {std::pair{"fe80::1%eth0", 1}, {"192.0.2.1%eth0:1", 0}}) {
    ipv6flag = 1 - ipv6;
    EXPECT_EQ(0, vip_ipck(text));
    EXPECT_EQ(ipv6, ipv6flag) << text;
    EXPECT_EQ(ipv6, nic_ipck(text)) << text;
  }
  ipv6flag = 0;
}

// Status and fields afterwards; fields a refused text must not write keep
// "old-addr", "old-mask" and -99. A refusal traces one error line.
TEST(AddressText, SplitIntoAddressAndMask) {
  const std::string a45(45, '1');
  const struct {
    std::string text, want;
    const char* error = "";  // the error line, when a contract names it
  } cases[] = {
      {"192.168.10.5/24", "0 192.168.10.5 255.255.255.0 24"},
      {"2001:db8::1/65", "0 2001:db8::1 ffff:ffff:ffff:ffff:8000:: 65"},
      {a45, "0 " + a45 + " old-mask -99"},
      {"192.0.2.1/000000000000024", "0 192.0.2.1 255.255.255.0 24"},
      {a45 + "1/24", "31 old-addr old-mask -99"},
      {"192.0.2.1/0000000000000024", "31 old-addr old-mask -99"},
      {"10.0.0.1/255.255.255.0", "31 10.0.0.1 old-mask 255",
       "Mask is invalid.(mask=255.255.255.0)"},
      {"10.0.0.1/", "31 10.0.0.1 old-mask 0", "Mask is not set."},
      // A prefix beyond the int range never wraps round into a valid one.
      {"10.0.0.1/4294967320", "31 10.0.0.1 old-mask 2147483647",
       "over max mask bit num.(mask bit=2147483647)"},
  };
  for (const auto& c : cases) {
    vyrtest::TraceCapture trace;
    ipv6flag = c.text.find(':') != std::string::npos;
    char addr[46] = "old-addr", mask[46] = "old-mask";
    int masklen = -99;
    const int ret = vip_div_ipmask(c.text.c_str(), addr, mask, &masklen);
    EXPECT_EQ(c.want,
              std::to_string(ret) + " " + addr + " " + mask + " " + std::to_string(masklen));
    const Texts errors = trace.Texts("ERROR");
    EXPECT_EQ(ret != 0, errors.size() == 1) << c.text;
    EXPECT_TRUE(!*c.error || errors == Texts{c.error}) << (errors.empty() ? "" : errors[0]);
  }
  ipv6flag = 0;
}

}  // namespace
