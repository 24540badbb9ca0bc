// The address capability: the text split, the listing (through the
// interface tool, stand-in scripts, and through the kernel) and the device
// chosen; adding and removing by ioctl, rtnetlink and a stand-in tool that
// logs its arguments; the NIC link check (ethtool on veth, MII on a played PHY).
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "nicCommon/nic_getinfo.h"
#include "nicCommon/nic_ifconfig_probe.h"
#include "nicCommon/nic_ioctl.h"
#include "nicCommon/nic_ipaddr_ioctl.h"
#include "nicCommon/nic_ipck.h"
#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "unique_fd.h"
#include "vip/address/addrtext.h"
#include "vip/address/device_choice.h"
#include "vip/address/ipaddr_change.h"
#include "vip/address/link_check.h"
#include "vip/address/listing.h"
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

using IpaddrTest = vyrtest::AgentNetnsTest;
using std::chrono::milliseconds;

// Makes the next call of one request fail with EIO.
unsigned long fail_request = 0;
int FailingIoctl(int fd, unsigned long request, void* arg) {
  if (request != fail_request) return nic_ioctl_kernel(fd, request, arg);
  fail_request = 0;
  errno = EIO;
  return -1;
}

// A step failing after the address was set leaves none; a failed add is 39, remove 40.
TEST_F(IpaddrTest, FailedChangesAreUndoneAndReported) {
  vyrtest::ScopedGlobal<int> ioctl_way{IsIfconfig, 0};
  vyrtest::ScopedGlobal<NicIoctlFn> seam{nic_ioctl_fn, FailingIoctl};
  const vdevinfo v4 = vyrtest::Vdev4("va0", "va0:1", "192.0.2.10");
  const std::pair<vdevinfo, unsigned long> cases[] = {
      {v4, SIOCSIFNETMASK},
      {v4, SIOCSIFBRDADDR},
      {v4, SIOCSIFFLAGS},
      {vyrtest::Vdev6("va0", "2001:db8::10", 64), SIOCGIFFLAGS},
      {vyrtest::Vdev4("nosuch0", "nosuch0:1", "192.0.2.10"), 0},  // never set at all
  };
  for (auto [v, request] : cases) {
    const char* family = v.sipel.masklen != 0 ? "-6" : "-4";
    SCOPED_TRACE(std::string(v.sipel.addr) + " on " + v.ifname + ", failing " +
                 std::to_string(request));
    ipv6flag = v.sipel.masklen != 0 ? 1 : 0;
    fail_request = request;
    EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 39);
    EXPECT_EQ(fail_request, 0u) << "the failure was never reached";
    EXPECT_EQ(vyrtest::StatusText(), "Add ip(" + std::string(v.sipel.addr) + ") failed.");
    EXPECT_FALSE(HasAddr(family, std::string(v.sipel.addr) + "/")) << Addrs(family);
  }
  vdevinfo absent = vyrtest::Vdev6("va0", "2001:db8::77", 64);
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&absent, &info), 40);
  EXPECT_EQ(vyrtest::StatusText(), "Delete ip(2001:db8::77) failed.");
}

// The record the rtnetlink way gets for an IPv4 address with these options.
vdevinfo Netlink4(const char* vdevname, const char* bcast, ipaddropt opt = {}) {
  vdevinfo v = vyrtest::Vdev4("va0", vdevname, "192.0.2.10", "255.255.255.0", bcast);
  opt.netlink = 1;
  v.opt = opt;
  return v;
}
vdevinfo Netlink6(ipaddropt opt = {}) {
  vdevinfo v = vyrtest::Vdev6("va0", "2001:db8::10", 64);
  opt.netlink = 1;
  v.opt = opt;
  return v;
}

// Each option reaches the kernel, whatever the interface tool setting, and the
// removal by the listed name (no label) takes the address away again.
TEST_F(IpaddrTest, NetlinkOptionsReachTheKernel) {
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  const struct {
    vdevinfo v;
    const char* shown;   // in the address's line
    const char* absent;  // not in it
    bool route;          // the prefix route is there
  } cases[] = {
      {Netlink4("va0", "", {.flags = IFA_F_NOPREFIXROUTE}),
       "192.0.2.10/24 scope global noprefixroute va0\\", "brd", false},
      {Netlink4("va0:web", "192.0.2.200", {.preferred_lft = 0}),
       "192.0.2.10/24 brd 192.0.2.200 scope global deprecated va0:web\\", "noprefixroute", true},
      {Netlink6({.flags = IFA_F_NODAD | IFA_F_NOPREFIXROUTE, .preferred_lft = 0}),
       "2001:db8::10/64 scope global nodad deprecated noprefixroute \\       valid_lft forever "
       "preferred_lft 0sec",
       "tentative", false},
  };
  for (const auto& c : cases) {
    vdevinfo v = c.v;
    const bool six = v.sipel.masklen != 0;
    const char* family = six ? "-6" : "-4";
    SCOPED_TRACE(std::string(v.sipel.addr) + " " + c.shown);
    ipv6flag = six ? 1 : 0;
    ASSERT_EQ(vip_act_ipaddr(&v, "/nonexistent/ifconfig", 5), 0) << vyrtest::StatusText();
    std::string line, routes;
    pair_->InAgent(
        std::string("ip -d -o ") + family + " addr show dev va0 | grep " + v.sipel.addr + "/",
        &line);
    pair_->InAgent(std::string("ip ") + family + " route show dev va0", &routes);
    EXPECT_NE(line.find(c.shown), std::string::npos) << line;
    EXPECT_EQ(line.find(c.absent), std::string::npos) << line;
    EXPECT_EQ(routes.find(six ? "2001:db8::/64" : "192.0.2.0/24") != std::string::npos, c.route)
        << routes;
    vdevinfo listed = v;
    listed.vdevname[0] = '\0';
    VIP_INFO info{};
    EXPECT_EQ(vip_deact_ipaddr(&listed, &info), 0) << vyrtest::StatusText();
    EXPECT_FALSE(HasAddr(family, std::string(v.sipel.addr) + "/")) << Addrs(family);
  }
}

// A missing interface or the kernel's refusal gives 39 or 40, the errno traced.
TEST_F(IpaddrTest, NetlinkFailuresAreReported) {
  vyrtest::TraceCapture trace;
  vdevinfo missing = Netlink4("nosuch0:1", "192.0.2.255");
  std::snprintf(missing.ifname, sizeof missing.ifname, "nosuch0");
  EXPECT_EQ(vip_act_ipaddr(&missing, "ifconfig", 5), 39);
  EXPECT_EQ(vyrtest::StatusText(), "Add ip(192.0.2.10) failed.");
  EXPECT_TRUE(trace.Contains(
      "nic_act_ipaddr_netlink(192.0.2.10 -> nosuch0(nosuch0:1)) failed. (errno=19)"));
  VIP_INFO info{};
  EXPECT_EQ(vip_deact_ipaddr(&missing, &info), 40);
  EXPECT_EQ(vyrtest::StatusText(), "Delete ip(192.0.2.10) failed.");
  EXPECT_TRUE(trace.Contains("nic_deact_ipaddr_netlink(192.0.2.10 -> nosuch0) failed.(errno=19)"));

  // The address already there (EEXIST) and, once gone, not there (EADDRNOTAVAIL).
  vdevinfo v6 = Netlink6({.flags = IFA_F_NODAD});
  ipv6flag = 1;
  ASSERT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 0);
  EXPECT_EQ(vip_act_ipaddr(&v6, "ifconfig", 5), 39);
  EXPECT_TRUE(trace.Contains("RTM_NEWADDR failed.(errno=17)"));
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 0);
  EXPECT_EQ(vip_deact_ipaddr(&v6, &info), 40);
  EXPECT_TRUE(trace.Contains("RTM_DELADDR failed.(errno=99)"));
}

constexpr const char* kTool = VYR_TESTDATA_DIR "/tools/ifconfig-older";

// The lines' formats: the tool path in double quotes, every other field bare.
constexpr const char* kAdd4 = "\"%s\" %s %s netmask %s broadcast %s up > /dev/null 2>&1";
constexpr const char* kAdd6 = "\"%s\" %s add %s/%s > /dev/null 2>&1";
constexpr const char* kDown4 = "\"%s\" %s down > /dev/null 2>&1";
constexpr const char* kDel6 = "\"%s\" %s del %s/%s > /dev/null 2>&1";

// Each line is its format byte for byte, a field the shell would act on quoted;
// the tool gets exactly its arguments (nothing else runs), a 16-character name
// too. A failing tool is 3; a hung one 23 at the limit, reaped with its child.
TEST_F(IpaddrTest, LinesFollowTheirFormatsAndTheToolGetsItsArguments) {
  vyrtest::TempDir dir;
  // Whatever a shell ran from these texts would write to the log too.
  const std::string odd = dir / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  for (const std::string& bin : {odd, dir / "bin"}) {
    ASSERT_EQ(::mkdir(bin.c_str(), 0755), 0);
    vyrtest::WriteFile(bin + "/ifconfig", vyrtest::ReadFile(kTool), 0755);
  }
  // IPv4 adds run the plain path, IPv6 ones the odd path, removals PATH's "ifconfig".
  const std::string plain = dir / "bin/ifconfig", odd_tool = odd + "/ifconfig";
  const std::string odd_shown =
      dir / "a b;'c\\\"\\$(echo pwned1 >>\\$FAKE_LOG)\\`echo pwned2 >>\\$FAKE_LOG\\`/ifconfig";
  const std::string log = dir / "log", mark = "hungtool" + std::to_string(::getpid());
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  vyrtest::ScopedEnv path{"PATH", odd + ":" + std::getenv("PATH")}, log_env{"FAKE_LOG", log};
  vyrtest::ScopedEnv mark_env{"FAKE_MARK", mark}, mode{"FAKE_MODE", ""};
  const struct {
    const char* mode;  // the fake tool's
    const char* format;
    std::string name, addr;
    int ret;
    std::string name_shown = "", addr_shown = "";  // when the line quotes the value
  } cases[] = {
      {"apply", kAdd4, "va0:0", "192.0.2.10", 0},
      {"apply", kAdd6, "va0", "2001:db8::10", 0},
      {"apply", kAdd4, "va0 $(echo pwned3 >>$FAKE_LOG)", "192.0.2.11", 3,
       "'va0 $(echo pwned3 >>$FAKE_LOG)'"},
      {"apply", kAdd4, "va0:1", "192.0.2.11;echo pwned4 >>$FAKE_LOG", 3, "",
       "'192.0.2.11;echo pwned4 >>$FAKE_LOG'"},
      {"apply", kAdd6, "va0'", "2001:db8::11", 3, "'va0'\\'''"},
      {"apply", kAdd4, "va0:0123456789ab", "192.0.2.12", 3},  // 16 characters
      {"hang", kAdd4, "va0:3", "192.0.2.14", 23},
      {"apply", kDown4, "va0:0", "192.0.2.10", 0},
      {"apply", kDel6, "va0", "2001:db8::10", 0},
  };
  for (const auto& c : cases) {
    const bool v6 = c.format == kAdd6 || c.format == kDel6;
    const bool remove = c.format == kDown4 || c.format == kDel6;
    const std::string tool = remove ? "ifconfig" : v6 ? odd_tool : plain;
    const char* shown = remove ? "ifconfig" : v6 ? odd_shown.c_str() : plain.c_str();
    const char* name = (c.name_shown.empty() ? c.name : c.name_shown).c_str();
    const char* addr = (c.addr_shown.empty() ? c.addr : c.addr_shown).c_str();
    char line[1024];
    std::snprintf(line, sizeof line, c.format, shown, name, addr, v6 ? "64" : "255.255.255.0",
                  "192.0.2.255");
    const std::string logged =
        c.name + (v6       ? (remove ? "|del|" : "|add|") + c.addr + "/64|\n"
                  : remove ? "|down|\n"
                           : "|" + c.addr + "|netmask|255.255.255.0|broadcast|192.0.2.255|up|\n");
    SCOPED_TRACE(line);
    ::setenv("FAKE_MODE", c.mode, 1);
    ::unlink(log.c_str());
    ipv6flag = v6;
    vip_clear_shmbuf();
    vyrtest::TraceCapture trace;
    vdevinfo vdev = v6 ? vyrtest::Vdev6(c.name.c_str(), c.addr.c_str(), 64)
                       : vyrtest::Vdev4("va0", c.name.c_str(), c.addr.c_str());
    VIP_INFO info{};
    info.ifconftout = 5;
    info.masklen = vdev.sipel.masklen;
    std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "%s", tool.c_str());
    std::snprintf(info.ifname, sizeof info.ifname, "%s", c.name.c_str());
    std::snprintf(info.addr, sizeof info.addr, "%s", c.addr.c_str());
    const int limit = c.ret == 23 ? 1 : 5;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(remove ? vip_deact_ipaddr(&vdev, &info) : vip_act_ipaddr(&vdev, tool.c_str(), limit),
              c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(c.ret == 23 ? 950 : 0)) << "the limit";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
    EXPECT_TRUE(trace.Contains("system(" + std::string(line) + ")..."));
    EXPECT_EQ(vyrtest::StatusText(),
              c.ret ? "Internal error. (status=" + std::to_string(c.ret) + ")" : "");
    EXPECT_EQ(vyrtest::ReadFile(log), logged);
    EXPECT_TRUE(c.ret != 0 || remove || HasAddr(v6 ? "-6" : "-4", c.addr + "/")) << Addrs("-4");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a tool is left running or unreaped";
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(mark, milliseconds(5000))) << "the hung tool's child";
  EXPECT_FALSE(HasAddr("-4", "192.0.2.") || HasAddr("-6", "2001:db8::")) << Addrs("-4");
}

// The peer's link state decides; bad methods and devices without an ethtool link report fail.
TEST_F(IpaddrTest, LinkCheckPeerStateMethodsAndUnsupportedDevices) {
  vyr::UniqueFd sock(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int fd = sock.get();
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 2), MIIW_RET_SUCCESS);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 3), MIIW_RET_FAIL_PARAM);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", -1), MIIW_RET_FAIL_PARAM);
  ASSERT_EQ(pair_->InPeer("ip link set vb0 down"), 0);
  EXPECT_EQ(vip_miiw_ioctl(&fd, "va0", 2), MIIW_RET_FAIL_NICDOWN);
  // No dummy device type here; an ifb device has no ethtool link report either.
  if (pair_->InAgent("ip link add vyrifb0 type ifb") != 0) GTEST_SKIP() << "no ifb device type";
  EXPECT_EQ(vip_miiw_ioctl(&fd, "vyrifb0", 2), MIIW_RET_FAIL_IOCTL_NOTSUPPORT);
}

// A PHY played through the ioctl seam, without an ethtool link report. mii: 0 no MII requests,
// 1 registers that cannot be read, 2 register 1 reads `basic`, then `status`.
struct Phy {
  int method, mii;
  uint16_t basic, status;
  int ret;
};
const Phy* phy = nullptr;
int reads = 0;

int PlayedIoctl(int, unsigned long request, void* arg) {
  auto* mii = reinterpret_cast<mii_ioctl_data*>(&static_cast<ifreq*>(arg)->ifr_ifru);
  errno = EOPNOTSUPP;
  if (request == SIOCGMIIPHY && phy->mii > 0) {
    mii->phy_id = 7;
  } else if (request == SIOCGMIIREG && phy->mii > 1 && mii->phy_id == 7) {
    mii->val_out = mii->reg_num != 1 ? 0x3100 : reads++ == 0 ? phy->basic : phy->status;
  } else {
    return -1;
  }
  return 0;
}

// Register 1, read twice (basic, then status), decides the link.
TEST(MiiRegisterTest, RegistersDecideTheLink) {
  const Phy cases[] = {
      {1, 2, 0x786d, 0x786d, MIIW_RET_SUCCESS},       // up, nothing wrong
      {1, 2, 0x787d, 0x787d, MIIW_RET_SUCCESS},       // up with remote fault
      {1, 2, 0x7869, 0x786d, MIIW_RET_SUCCESS},       // dropped since the last read, back
      {1, 2, 0x0000, 0x0004, MIIW_RET_SUCCESS},       // register 1 zero, then the link
      {1, 2, 0x7869, 0x7869, MIIW_RET_FAIL_NICDOWN},  // down both times
      {0, 2, 0x7869, 0x7869, MIIW_RET_FAIL_NICDOWN},  // method 0 falls back to the registers
      {1, 1, 0x786d, 0x786d, MIIW_RET_FAIL_IOCTL},
      {1, 0, 0x786d, 0x786d, MIIW_RET_FAIL_IOCTL_NOTSUPPORT},
  };
  vyrtest::ScopedGlobal<NicIoctlFn> seam{nic_ioctl_fn, PlayedIoctl};
  for (const Phy& c : cases) {
    phy = &c;
    reads = 0;
    int fd = 99;
    EXPECT_EQ(vip_miiw_ioctl(&fd, "eth0", c.method), c.ret) << "case " << &c - cases;
  }
}

std::string Cat(std::string f) { return "/bin/cat '" VYR_TESTDATA_DIR "/ifconfig/" + f + "'\n"; }

std::string Print(const std::string& text) { return "printf '%s' '" + text + "'\n"; }

// One entry per block for IPv4 (an alias is a block), one per address for
// IPv6; "-a" follows the configured path's own arguments, each one word; a
// hanging tool is ended with its process group at the limit, no other is.
TEST(IfconfigListing, ToolOutputGivesTheEntriesOrItsCodeAndDescription) {
  vyrtest::TempDir dir;
  const auto tool = [&](const std::string& name, const std::string& body,
                        const std::string& args = "-a") {
    vyrtest::WriteFile(dir / name, "#!/bin/sh\n[ \"$*\" = \"" + args + "\" ] || exit 9\n" + body,
                       0755);
    return dir / name;
  };
  const std::string exits1 = tool("exits1", Cat("older_mixed.txt") + "exit 1\n");
  // Keywords in any case; MAC groups kept as written, the bytes right.
  const std::string caps = tool("caps", Print("eth0 HWADDR 0:c:29:3b:12:34\n INET ADDR:192.0.2.6 "
                                              "MASK:255.0.0.0\n INET6 ADDR: 2001:db8::6/64\n"
                                              " inet6 addr: 2001:db8::7/64\n"));
  std::string seventeen;  // in the order printed
  for (int k = 0; k < 17; ++k) {
    char e[64];
    std::snprintf(e, 64, "eth%d 192.0.2.%d 255.255.255.0 /0 00:0C:29:00:00:%02X\n", k, k + 1, k);
    seventeen += e;
  }
  const struct {
    std::string tool;
    int v6, ret;
    std::string desc, entries;
  } cases[] = {
      {tool("older", Cat("older_mixed.txt")), 0, 0, "untouched",
       "eth0 192.0.2.10 255.255.255.0 /0 00:0C:29:3B:12:34\n"
       "eth0:1 192.0.2.20 255.255.255.0 /0 00:0C:29:3B:12:34\n"
       "eth1 198.51.100.7 255.255.255.128 /0 00:0c:29:3b:12:3e\n"
       "eth2   /0 00:0C:29:3B:12:48\n"
       "lo 127.0.0.1 255.0.0.0 /0 \n"},
      {tool("older", Cat("older_mixed.txt")), 1, 0, "untouched",
       "eth0 fe80::20c:29ff:fe3b:1234 ffff:ffff:ffff:ffff:: /64 00:0C:29:3B:12:34\n"
       "eth0 2001:db8::10 ffff:ffff:ffff:ffff:: /64 00:0C:29:3B:12:34\n"
       "eth0:1   /0 00:0C:29:3B:12:34\n"
       "eth1 2001:db8:1::7 ffff:ffff:ffff:: /48 00:0c:29:3b:12:3e\n"
       "eth2   /0 00:0C:29:3B:12:48\n"
       "lo ::1 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff /128 \n"},
      {tool("it's;$(id)", Cat("seventeen_blocks.txt"), "--older * -a") + "\t--older  *", 0, 0,
       "untouched", seventeen},
      {caps, 0, 0, "untouched", "eth0 192.0.2.6 255.0.0.0 /0 0:c:29:3b:12:34\n"},
      {caps, 1, 0, "untouched",
       "eth0 2001:db8::6 ffff:ffff:ffff:ffff:: /64 0:c:29:3b:12:34\n"
       "eth0 2001:db8::7 ffff:ffff:ffff:ffff:: /64 0:c:29:3b:12:34\n"},
      // "inet6" without "addr:" is no address; an address without a prefix is.
      {tool("v6odd", Print("eth0 Link\n inet6 2001:db8::9/64\neth1\n inet6 addr: 2001:db8::8\n")),
       1, 0, "untouched", "eth0   /0 \neth1 2001:db8::8  /0 \n"},
      {tool("v6bad", Print("eth0 Link\n inet6 addr: 2001:db8::1/129\n")), 1, 31, "untouched", ""},
      {exits1, 0, 3, "Command failed. (" + exits1 + " -a, ret=1)", ""},
      {tool("dashes", Cat("hwaddr_dashes.txt")), 0, 18, "Internal error. (status=18)", ""},
      {std::string(1021, 'x'), 0, 12, "Internal error. (status=12)", ""},
      {tool("hangs", "echo 'eth0 Link'\nwhile :; do sleep 1; done\n"), 0, 23,
       "Internal error. (status=23)", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tool.substr(c.tool.rfind('/') + 1) + " ipv6flag=" + std::to_string(c.v6));
    vyrtest::ScopedGlobal<int> source(IsIfconfig, 1), mode(ipv6flag, c.v6);
    vip_set_shmbuf("untouched");
    ipaddrinfo* list = nullptr;
    int num = -1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(vip_ifconfig_mkth(&list, &num, c.tool.c_str(), c.ret == 23 ? 1 : 5), c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(vyrtest::EntryTexts(list, num), c.entries);
    EXPECT_EQ(num == -1, c.ret == 23) << "the outputs are untouched only at the limit";
    EXPECT_TRUE(c.tool != caps ||
                !std::memcmp(list[num - 1].macaddr, "\x00\x0c\x29\x3b\x12\x34", 6));
    std::free(list);
    EXPECT_EQ(vyrtest::StatusText(), c.desc);
    EXPECT_EQ(took >= milliseconds(1000), c.ret == 23) << "the limit, and only there";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(dir.path(), milliseconds(5000))) << "a tool outlived it";
}

// The first line that shows a layout decides, whatever the exit status; off,
// nothing runs; no ifconfig, a hung one (21) or no "which" (127) leaves the
// kernel; a chatty "which" prints nothing into the agent's own output.
TEST(IfconfigProbe, LayoutOfTheListingDecidesOncePerRun) {
  vyrtest::TempDir dir;
  vyrtest::TraceCapture trace;
  const std::string ran = dir / "ran";
  const std::string which = "echo which >>" + ran + "; exec /usr/bin/which \"$@\"";
  const struct {
    std::string ifconfig, which;  // the fakes' commands; none when empty
    int use, ret, flag;
    const char* ran;
  } cases[] = {
      {"", which, 0, 0, 0, "which\n"},
      {Cat("older_late_address.txt"), which, 0, 0, 1, "which\n-a\n"},  // in a later block
      {Cat("older_mixed.txt") + "exit 3", which, 0, 0, 1, "which\n-a\n"},
      {Cat("newer_layout.txt"), which, 0, 0, 0, "which\n-a\n"},
      {Cat("older_mixed.txt"), which, 1, 0, 0, ""},
      {"while :; do /bin/sleep 1; done", which, 0, 21, 0, "which\n-a\n"},
      {Cat("older_mixed.txt"), "", 0, 0, 0, ""},
      {Cat("older_mixed.txt"), "echo noise; echo noise >&2; exit 1", 0, 0, 0, ""},
  };
  const auto fake = [&dir](const char* name, const std::string& body) {
    ::unlink((dir / name).c_str());
    if (!body.empty()) vyrtest::WriteFile(dir / name, "#!/bin/sh\n" + body, 0755);
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ifconfig + " use=" + std::to_string(c.use) + " which=" + c.which);
    vyrtest::WriteFile(ran, "");
    fake("which", c.which);
    fake("ifconfig", c.ifconfig.empty() ? "" : "echo \"$@\" >> '" + ran + "'\n" + c.ifconfig);
    vyrtest::ScopedEnv path("PATH", dir.path());
    int flag = -1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(nic_chk_isifconfig(&flag, c.use, c.ret == 21 ? 1 : 5), c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(flag, c.flag);
    EXPECT_EQ(vyrtest::ReadFile(ran), c.ran);
    EXPECT_EQ(took >= milliseconds(1000), c.ret == 21) << "the limit, and only there";
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(vyrtest::NoProcessWithin(dir.path(), milliseconds(5000))) << "a tool outlived it";
  EXPECT_TRUE(
      trace.Contains("which ifconfig > /dev/null 2>&1 failed,ifconfig does not exist.(ret=127)"));
}

// An alias carries its interface's MAC text and bytes, lo itself is left
// out, a down device is listed, IPv6 prefix lengths are right; a namespace
// with loopback addresses only fails the listing with 38.
TEST_F(IpaddrTest, KernelEnumerationListsEveryAddressOutsideLoWithItsInterfaceMac) {
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
