// The virtual address's record: the address text split, then the device chosen.
#include "vip/address/device_choice.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nicCommon/nic_ipck.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/trace_capture.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"

namespace {

using Texts = std::vector<std::string>;

// Family, status and fields afterwards; fields a refused text must not write
// keep "old-addr", "old-mask" and -99. A refusal traces one error line.
TEST(AddressText, FamilyThenSplitIntoAddressAndMask) {
  const std::string a45(45, '1');
  const struct {
    std::string text, want;
    const char* error = "";  // the error line, when a contract names it
  } cases[] = {
      {"192.168.10.5/24", "0 192.168.10.5 255.255.255.0 24"},
      {"2001:db8::1/65", "0 2001:db8::1 ffff:ffff:ffff:ffff:8000:: 65"},
      // The first colon before any '%' decides: an alias interface's does not.
      {"fe80::1%eth0/64", "0 fe80::1%eth0 ffff:ffff:ffff:ffff:: 64"},
      {"192.0.2.1%eth0:1/24", "0 192.0.2.1%eth0:1 255.255.255.0 24"},
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
    EXPECT_EQ(0, vip_ipck(c.text.c_str()));
    EXPECT_EQ(nic_ipck(c.text.c_str()), ipv6flag);
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

using vyrtest::ListEntry;
using List = std::vector<ipaddrinfo>;

// The names as list entries, then the first name's aliases from `aliases` - 1 down to 0.
List L(std::vector<std::string> names, int aliases = 0) {
  List list;
  for (const auto& name : names) list.push_back(ListEntry(name));
  while (aliases-- > 0) list.push_back(ListEntry(names[0] + ":" + std::to_string(aliases)));
  return list;
}

// The device, mask, broadcast and MAC the address is added and announced with, and the
// description the cluster sees; alias numbers run out after 9999.
TEST(VdevTest, ChoiceAndWhatItFillsIn) {
  vyrtest::ScopedGlobal<int> family{ipv6flag, 0};
  const List eth0 = {ListEntry("eth0", "255.255.0.0", "02:00:00:aa:bb:cc"), ListEntry("eth0:0")};
  const List six = {ListEntry("eth0:1", "0.0.0.0", "02:00:00:00:00:06", 48)};
  struct Case {
    bool ipv6;
    List list;
    const char *name, *mask;
    int ret;
    const char* filled;  // "vdevname|mask or prefix|broadcast|MAC", as far as given
    const char* desc = "";
    ipaddropt opt = {};  // the ipaddr/ settings
  };
  const char* kInvalid = "Internal error. (status=99)";
  const ipaddropt kNoLabel{.nolabel = 1};
  const ipaddropt kNoBroadcast{.broadcast = "none"};
  const ipaddropt kBroadcast{.broadcast = "192.0.2.200"};
  const ipaddropt kBadBroadcast{.broadcast = "192.0.2"};
  const ipaddropt kLabelWins{.nolabel = 1, .label = "web"};
  // clang-format off
  const Case cases[] = {
      {false, eth0, "eth0", "", 0, "eth0:1|255.255.0.0|192.0.255.255|02:00:00:aa:bb:cc"},
      {false, L({"eth0", "ETH0:0", "eth0:2"}), "eth0", "", 0, "eth0:1|"},
      {false, L({"eth0"}), "eth0:3", "255.255.255.128", 0, "eth0:3|255.255.255.128|192.0.2.127|"},
      {false, L({"eth0", "ETH0:3"}), "eth0:3", "", 28, "|"},
      {false, {ListEntry("ETH0", "255.255.0.0")}, "eth0:7", "", 0, "eth0:7|255.255.255.0|192.0.2.255|"},
      {false, L({"abcdefghijklm"}), "abcdefghijklm", "", 0, "abcdefghijklm:0|"},
      {false, L({"abcdefghijklmn"}), "abcdefghijklmn", "", 30, "abcdefghijklmn:0|"},
      {false, L({"abcdefghijklm"}, 10), "abcdefghijklm", "", 30, "abcdefghijklm:10|"},
      {false, L({"eth0"}), "", "", 17, "|"},
      {false, L({"eth0"}, 9999), "eth0", "", 0, "eth0:9999|"},
      {false, L({"eth0"}, 10000), "eth0", "", 17, "|", "Vip interface was not found."},
      // No label, or the label given, instead of a free alias; 15 characters bound it.
      {false, L({"abcdefghijklmn"}, 10), "abcdefghijklmn", "", 0,
       "abcdefghijklmn|255.255.255.0|192.0.2.255|", "", kNoLabel},
      {false, L({"eth0", "ETH0:3"}), "eth0:3", "", 0, "eth0|", "", kNoLabel},
      {false, L({"eth0", "ETH0:3"}), "eth0:3", "", 0, "eth0:web|", "", kLabelWins},
      {false, L({"eth1"}), "eth0", "", 0, "eth0:web|", "", {.label = "web"}},
      {false, L({"abcdefghij"}), "abcdefghij", "", 0, "abcdefghij:web1|", "", {.label = "web1"}},
      {false, L({"abcdefghij"}), "abcdefghij", "", 30, "abcdefghij:web12|", "", {.label = "web12"}},
      {false, L({"eth0"}), "eth0", "", 30, "eth0:a b|", "", {.label = "a b"}},
      {false, eth0, "eth0", "", 0, "eth0:1|255.255.0.0|192.0.2.200|", "", kBroadcast},
      {false, eth0, "eth0", "", 0, "eth0:1|255.255.0.0||02:00:00:aa:bb:cc", "", kNoBroadcast},
      {false, L({"eth1"}), "eth0", "", 0, "eth0|255.255.255.0||", "", kNoBroadcast},
      {false, eth0, "eth0", "", 99, "|255.255.0.0|192.0.255.255|", kInvalid, kBadBroadcast},
      {true, six, "eth0", "", 0, "|48||02:00:00:00:00:06"},
      {true, six, "eth0:1", "", 0, "eth0:1|64||"},
  };
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " with " + std::to_string(c.list.size()) + " entries");
    ipv6flag = c.ipv6 ? 1 : 0;
    vdevinfo v = c.ipv6 ? vyrtest::Vdev6(c.name, "2001:db8::10", 0)
                        : vyrtest::Vdev4(c.name, "", "192.0.2.10", c.mask, "");
    v.opt = c.opt;
    List list = c.list;
    vip_clear_shmbuf();
    EXPECT_EQ(vip_crt_vdevinfo(list.data(), static_cast<int>(list.size()), &v), c.ret);
    // The MAC text, and the bytes the announcement sends, from the same entry.
    const bool same_mac = std::memcmp(v.macaddr, ListEntry("", "", v.smac).macaddr, 6) == 0;
    const std::string filled = std::string(v.vdevname) + "|" +
                               (c.ipv6 ? std::to_string(v.sipel.masklen) : v.sipel.mask) + "|" +
                               v.bcast + "|" + (same_mac ? v.smac : "MAC bytes differ");
    EXPECT_TRUE(filled.starts_with(c.filled)) << filled;
    EXPECT_EQ(vyrtest::StatusText(), c.desc);
  }
}

}  // namespace
