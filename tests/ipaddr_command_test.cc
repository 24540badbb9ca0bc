// Adding and removing the virtual address with the interface tool: a fake
// tool records its arguments and makes the change with ip inside a private
// network namespace.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "support/fake_tool.h"
#include "support/netns_fixture.h"
#include "support/sh.h"
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

// Each command line gives the tool exactly its arguments and makes the change; a value with
// shell metacharacters runs nothing but the tool; a failing tool is 3; a hung one is 23 at the
// limit, killed and reaped with its child.
TEST_F(IpaddrCommandTest, ToolArgumentsFailuresAndTimeOut) {
  vyrtest::TempDir dir;
  // Whatever a shell ran from these texts would write to the log too.
  const std::string bin = dir / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  ASSERT_EQ(::mkdir(bin.c_str(), 0755), 0);
  vyrtest::WriteFile(bin + "/ifconfig", kFakeTool, 0755);
  const std::string log = dir / "log", mark = "hungtool" + std::to_string(::getpid());
  vyrtest::ScopedGlobal<int> tool_way{IsIfconfig, 1};
  vyrtest::ScopedEnv path{"PATH", bin + ":" + std::getenv("PATH")}, log_env{"FAKE_LOG", log};
  vyrtest::ScopedEnv mark_env{"FAKE_MARK", mark}, mode{"FAKE_MODE", ""};
  const std::string args = "|192.0.2.10|netmask|255.255.255.0|broadcast|192.0.2.255|up|\n";
  struct Case {
    const char* mode;
    vdevinfo vdev;
    int limit, ret;
    std::string logged;
  };
  const Case cases[] = {
      {"apply", vyrtest::Vdev4("va0", "va0:0", "192.0.2.10"), 5, 0, "va0:0" + args},
      {"apply", vyrtest::Vdev6("va0", "2001:db8::10", 64), 5, 0, "va0|add|2001:db8::10/64|\n"},
      {"apply", vyrtest::Vdev4("va0", "va0 $(echo pwned3 >>$FAKE_LOG)", "192.0.2.10"), 5, 11, ""},
      {"apply", vyrtest::Vdev4("va0", "va0:1", "192.0.2.10;echo pwned4 >>$FAKE_LOG"), 5, 11, ""},
      {"fail", vyrtest::Vdev4("va0", "va0:2", "192.0.2.10"), 5, 3, "va0:2" + args},
      {"hang", vyrtest::Vdev4("va0", "va0:3", "192.0.2.10"), 1, 23, "va0:3" + args},
  };
  for (auto c : cases) {
    SCOPED_TRACE(std::string(c.mode) + " " + c.vdev.vdevname + " " + c.vdev.sipel.addr);
    ::setenv("FAKE_MODE", c.mode, 1);
    ::unlink(log.c_str());
    ipv6flag = c.vdev.sipel.masklen != 0 ? 1 : 0;
    vip_clear_shmbuf();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(vip_act_ipaddr(&c.vdev, (bin + "/ifconfig").c_str(), c.limit), c.ret);
    const auto took = std::chrono::steady_clock::now() - start;
    if (c.ret == 23) {
      EXPECT_GE(took, milliseconds(950)) << "the limit";
    }
    EXPECT_LT(took, milliseconds(2500)) << "the tool's end, or the limit of 1 s";
    EXPECT_EQ(vyrtest::StatusText(),
              c.ret ? "Internal error. (status=" + std::to_string(c.ret) + ")" : "");
    EXPECT_EQ(vyrtest::ReadFile(log), c.logged);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a tool is left running or unreaped";
  }
  EXPECT_TRUE(vyrtest::NoProcessWithin(mark, milliseconds(5000))) << "the hung tool's child";
  EXPECT_TRUE(HasAddr("-4", "inet 192.0.2.10/24 brd 192.0.2.255")) << Addrs("-4");
  EXPECT_TRUE(HasAddr("-6", "inet6 2001:db8::10/64")) << Addrs("-6");

  // Removal, from the settings, with the tool found on PATH.
  ::setenv("FAKE_MODE", "apply", 1);
  ::unlink(log.c_str());
  for (const char* addr : {"192.0.2.10", "2001:db8::10"}) {
    VIP_INFO info{};
    info.ifconftout = 5;
    ipv6flag = info.masklen = addr[0] == '2' ? 64 : 0;
    std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "ifconfig");
    std::snprintf(info.ifname, sizeof info.ifname, "%s", ipv6flag ? "va0" : "va0:0");
    std::snprintf(info.addr, sizeof info.addr, "%s", addr);
    vdevinfo unused{};
    EXPECT_EQ(vip_deact_ipaddr(&unused, &info), 0) << addr;
  }
  EXPECT_EQ(vyrtest::ReadFile(log), "va0:0|down|\nva0|del|2001:db8::10/64|\n");
  EXPECT_FALSE(HasAddr("-4", "192.0.2.10/") || HasAddr("-6", "2001:db8::10/")) << Addrs("-4");
}

}  // namespace
