// Adding and removing the virtual address with the interface tool: a fake
// tool records its arguments and makes the change with ip inside a private
// network namespace.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/address/ipaddr_change.h"

namespace {

using IpaddrCommandTest = vyrtest::AgentNetnsTest;
using std::chrono::milliseconds;

// Logs one line per call, each argument followed by '|'; FAKE_MODE says
// whether to fail, hang (with a child named after FAKE_MARK) or apply.
constexpr const char* kFakeTool = R"(#!/bin/sh
for a in "$@"; do printf '%s|' "$a"; done >> "$FAKE_LOG"; echo >> "$FAKE_LOG"
case "$FAKE_MODE/$2" in
  fail/*) exit 1 ;;
  hang/*) sh -c 'sleep 30; :' "$FAKE_MARK" & wait ;;
  */add) exec ip -6 addr add "$3" dev "$1" ;;
  */del) exec ip -6 addr del "$3" dev "$1" ;;
  */down) exec ip -4 addr flush dev "${1%%:*}" label "$1" ;;
  *) exec ip -4 addr add "$2/$4" broadcast "$6" dev "${1%%:*}" label "$1" ;;
esac
)";

// The lines' formats: the tool path in double quotes, every other field bare.
constexpr const char* kAdd4 = "\"%s\" %s %s netmask %s broadcast %s up > /dev/null 2>&1";
constexpr const char* kAdd6 = "\"%s\" %s add %s/%d > /dev/null 2>&1";
constexpr const char* kDown4 = "\"%s\" %s down > /dev/null 2>&1";
constexpr const char* kDel6 = "\"%s\" %s del %s/%d > /dev/null 2>&1";

template <typename... Args>
std::string Fmt(const char* format, Args... args) {
  char line[1024];
  std::snprintf(line, sizeof line, format, args...);
  return line;
}

// Each line is its format byte for byte when its fields are plain, and a field the shell would
// act on is quoted: the tool gets exactly its arguments (nothing else runs) and makes the change.
// A name of 16 or more characters reaches the tool too. A failing tool is 3; a hung one is 23 at
// the limit, killed and reaped with its child.
TEST_F(IpaddrCommandTest, LinesFollowTheirFormatsAndTheToolGetsItsArguments) {
  vyrtest::TempDir dir;
  // Whatever a shell ran from these texts would write to the log too.
  const std::string odd = dir / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  const std::string plain = dir / "bin";
  for (const std::string& bin : {odd, plain}) {
    ASSERT_EQ(::mkdir(bin.c_str(), 0755), 0);
    vyrtest::WriteFile(bin + "/ifconfig", kFakeTool, 0755);
  }
  const std::string tool = plain + "/ifconfig", odd_tool = odd + "/ifconfig";
  // As the line shows it between its double quotes.
  const std::string odd_shown =
      dir / "a b;'c\\\"\\$(echo pwned1 >>\\$FAKE_LOG)\\`echo pwned2 >>\\$FAKE_LOG\\`/ifconfig";
  const std::string log = dir / "log", mark = "hungtool" + std::to_string(::getpid());
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  vyrtest::ScopedEnv path{"PATH", odd + ":" + std::getenv("PATH")}, log_env{"FAKE_LOG", log};
  vyrtest::ScopedEnv mark_env{"FAKE_MARK", mark}, mode{"FAKE_MODE", ""};
  const std::string args = "|netmask|255.255.255.0|broadcast|192.0.2.255|up|\n";
  const char *kMask = "255.255.255.0", *kBcast = "192.0.2.255";
  const std::string name = "va0 $(echo pwned3 >>$FAKE_LOG)";
  const std::string addr = "192.0.2.11;echo pwned4 >>$FAKE_LOG";
  const std::string long_name = "va0:0123456789ab";  // 16 characters
  struct Case {
    const char* mode;
    bool remove;  // from the settings, with the tool found on PATH
    vdevinfo vdev;
    std::string tool;
    int limit, ret;
    std::string line, logged;
    std::string shown;  // listed on va0 after an add, gone after a removal
  };
  const Case cases[] = {
      {"apply", false, vyrtest::Vdev4("va0", "va0:0", "192.0.2.10"), tool, 5, 0,
       Fmt(kAdd4, tool.c_str(), "va0:0", "192.0.2.10", kMask, kBcast), "va0:0|192.0.2.10" + args,
       "inet 192.0.2.10/24 brd 192.0.2.255"},
      {"apply", false, vyrtest::Vdev6("va0", "2001:db8::10", 64), odd_tool, 5, 0,
       Fmt(kAdd6, odd_shown.c_str(), "va0", "2001:db8::10", 64), "va0|add|2001:db8::10/64|\n",
       "inet6 2001:db8::10/64"},
      {"apply", false, vyrtest::Vdev4("va0", name.c_str(), "192.0.2.10"), tool, 5, 3,
       Fmt(kAdd4, tool.c_str(), "'va0 $(echo pwned3 >>$FAKE_LOG)'", "192.0.2.10", kMask, kBcast),
       name + "|192.0.2.10" + args, ""},
      {"apply", false, vyrtest::Vdev4("va0", "va0:1", addr.c_str()), tool, 5, 3,
       Fmt(kAdd4, tool.c_str(), "va0:1", "'192.0.2.11;echo pwned4 >>$FAKE_LOG'", kMask, kBcast),
       "va0:1|" + addr + args, ""},
      {"apply", false, vyrtest::Vdev6("va0'", "2001:db8::11", 64), tool, 5, 3,
       Fmt(kAdd6, tool.c_str(), "'va0'\\'''", "2001:db8::11", 64), "va0'|add|2001:db8::11/64|\n",
       ""},
      {"apply", false, vyrtest::Vdev4("va0", long_name.c_str(), "192.0.2.12"), tool, 5, 3,
       Fmt(kAdd4, tool.c_str(), long_name.c_str(), "192.0.2.12", kMask, kBcast),
       long_name + "|192.0.2.12" + args, ""},
      {"fail", false, vyrtest::Vdev4("va0", "va0:2", "192.0.2.13"), tool, 5, 3,
       Fmt(kAdd4, tool.c_str(), "va0:2", "192.0.2.13", kMask, kBcast), "va0:2|192.0.2.13" + args,
       ""},
      {"hang", false, vyrtest::Vdev4("va0", "va0:3", "192.0.2.14"), tool, 1, 23,
       Fmt(kAdd4, tool.c_str(), "va0:3", "192.0.2.14", kMask, kBcast), "va0:3|192.0.2.14" + args,
       ""},
      {"apply", true, vyrtest::Vdev4("va0", "va0:0", "192.0.2.10"), "ifconfig", 5, 0,
       Fmt(kDown4, "ifconfig", "va0:0"), "va0:0|down|\n", "192.0.2.10/"},
      {"apply", true, vyrtest::Vdev6("va0", "2001:db8::10", 64), "ifconfig", 5, 0,
       Fmt(kDel6, "ifconfig", "va0", "2001:db8::10", 64), "va0|del|2001:db8::10/64|\n",
       "2001:db8::10/"},
  };
  for (auto c : cases) {
    SCOPED_TRACE(c.line);
    ::setenv("FAKE_MODE", c.mode, 1);
    ::unlink(log.c_str());
    ipv6flag = c.vdev.sipel.masklen != 0 ? 1 : 0;
    vip_clear_shmbuf();
    vyrtest::TraceCapture trace;
    const auto start = std::chrono::steady_clock::now();
    if (c.remove) {
      VIP_INFO info{};
      info.ifconftout = c.limit;
      info.masklen = c.vdev.sipel.masklen;
      std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "%s", c.tool.c_str());
      std::snprintf(info.ifname, sizeof info.ifname, "%s",
                    ipv6flag ? c.vdev.ifname : c.vdev.vdevname);
      std::snprintf(info.addr, sizeof info.addr, "%s", c.vdev.sipel.addr);
      EXPECT_EQ(vip_deact_ipaddr(&c.vdev, &info), c.ret);
    } else {
      EXPECT_EQ(vip_act_ipaddr(&c.vdev, c.tool.c_str(), c.limit), c.ret);
    }
    const auto took = std::chrono::steady_clock::now() - start;
    if (c.ret == 23) {
      EXPECT_GE(took, milliseconds(950)) << "the limit";
    }
    EXPECT_LT(took, milliseconds(3000)) << "the tool's end, or three times the limit of 1 s";
    EXPECT_TRUE(trace.Contains("system(" + c.line + ")..."));
    EXPECT_EQ(vyrtest::StatusText(),
              c.ret ? "Internal error. (status=" + std::to_string(c.ret) + ")" : "");
    EXPECT_EQ(vyrtest::ReadFile(log), c.logged);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a tool is left running or unreaped";
    const char* family = ipv6flag ? "-6" : "-4";
    if (!c.shown.empty()) {
      EXPECT_EQ(HasAddr(family, c.shown), !c.remove) << Addrs(family);
    }
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(mark, milliseconds(5000))) << "the hung tool's child";
}

}  // namespace
