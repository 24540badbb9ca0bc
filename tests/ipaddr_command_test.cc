// Adding and removing the virtual address with the interface tool: a fake
// tool on PATH records its arguments and makes the change with ip inside a
// private network namespace.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "support/netns_fixture.h"
#include "support/sh.h"
#include "vip/ipaddr_change.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using vyrtest::StatusText;

// Logs one line per call, each argument followed by '|'; FAKE_MODE says
// what else to do.
constexpr const char* kFakeTool = R"(#!/bin/sh
for a in "$@"; do printf '%s|' "$a"; done >> "$FAKE_LOG"; echo >> "$FAKE_LOG"
echo "chatter on stdout"; echo "chatter on stderr" >&2
case "$FAKE_MODE" in
  fail) exit 1 ;;
  hang) sleep 30 & echo "$$ $!" > "$FAKE_LOG.pids"; wait; exit 0 ;;
  record) exit 0 ;;
esac
if [ "$2" = add ]; then exec ip -6 addr add "$3" dev "$1"; fi
if [ "$2" = del ]; then exec ip -6 addr del "$3" dev "$1"; fi
if [ "$2" = down ]; then exec ip -4 addr flush dev "${1%%:*}" label "$1"; fi
exec ip -4 addr add "$2/$4" broadcast "$6" dev "${1%%:*}" label "$1"
)";

// Running, or a zombie this process still owes a wait.
bool Alive(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  if (!std::getline(stat, text)) return false;
  const size_t paren = text.rfind(')');
  if (paren == std::string::npos || paren + 2 >= text.size()) return false;
  if (text[paren + 2] != 'Z') return true;
  return std::strtol(text.c_str() + text.find(' ', paren + 3), nullptr, 10) == ::getpid();
}

class IpaddrCommandTest : public vyrtest::AgentNetnsTest {
 protected:
  void SetUp() override {
    AgentNetnsTest::SetUp();
    vyrtest::WriteFile(dir_ / "ifconfig", kFakeTool, 0755);
    IsIfconfig = 1;
  }

  vyrtest::TempDir dir_;
  const std::string log_ = dir_ / "args";
  vyrtest::ScopedEnv path_{"PATH", dir_.path() + ":" + std::getenv("PATH")};
  vyrtest::ScopedEnv log_env_{"FAKE_LOG", log_}, mode_{"FAKE_MODE", "apply"};
};

TEST_F(IpaddrCommandTest, AddAndRemoveGiveTheToolItsArguments) {
  struct Case {
    vdevinfo vdev;
    const char *info_ifname, *family, *shown, *calls;
  };
  Case cases[] = {
      {vyrtest::Vdev4("va0", "va0:0", "192.0.2.10"), "va0:0", "-4",
       "inet 192.0.2.10/24 brd 192.0.2.255",
       "va0:0|192.0.2.10|netmask|255.255.255.0|broadcast|192.0.2.255|up|\nva0:0|down|\n"},
      {vyrtest::Vdev6("va0", "2001:db8::10", 64), "va0", "-6", "inet6 2001:db8::10/64",
       "va0|add|2001:db8::10/64|\nva0|del|2001:db8::10/64|\n"},
  };
  std::snprintf(cases[1].vdev.vdevname, VIP_NAME_LEN, "va0:9");  // never used for IPv6
  for (auto& c : cases) {
    ::unlink(log_.c_str());
    ipv6flag = c.vdev.sipel.masklen != 0 ? 1 : 0;
    ASSERT_EQ(vip_act_ipaddr(&c.vdev, "ifconfig", 5), 0) << StatusText();
    EXPECT_TRUE(HasAddr(c.family, c.shown)) << Addrs(c.family);

    VIP_INFO info{};
    std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "ifconfig");
    std::snprintf(info.ifname, sizeof info.ifname, "%s", c.info_ifname);
    std::snprintf(info.addr, sizeof info.addr, "%s", c.vdev.sipel.addr);
    info.masklen = c.vdev.sipel.masklen;
    info.ifconftout = 5;
    ASSERT_EQ(vip_deact_ipaddr(&c.vdev, &info), 0) << StatusText();
    EXPECT_FALSE(HasAddr(c.family, c.vdev.sipel.addr)) << Addrs(c.family);
    EXPECT_EQ(vyrtest::ReadFile(log_), c.calls);
  }
}

TEST_F(IpaddrCommandTest, FailedOrHangingToolIsAnInternalError) {
  struct Case {
    const char* mode;
    int limit, ret, min_ms, max_ms;
  };
  // A quick failure costs no polling step; a hang is killed at the limit.
  const Case cases[] = {
      {"fail", 5, 3, 0, 500}, {"hang", 1, 23, 950, 2000}, {"hang", 0, 23, 0, 1000}};
  for (const auto& c : cases) {
    ::setenv("FAKE_MODE", c.mode, 1);
    vip_clear_shmbuf();
    vdevinfo v = vyrtest::Vdev4("va0", "va0:0", "192.0.2.10");
    const auto start = Clock::now();
    EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", c.limit), c.ret) << c.mode << c.limit;
    const auto took = Clock::now() - start;
    EXPECT_EQ(StatusText(), "Internal error. (status=" + std::to_string(c.ret) + ")");
    EXPECT_GE(took, milliseconds(c.min_ms)) << c.mode << c.limit;
    EXPECT_LT(took, milliseconds(c.max_ms)) << c.mode << c.limit;

    // The tool and its child; with no time at all the tool may die before
    // it names them. An orphan takes a moment to be reaped.
    long pids[2] = {};  // none for "fail"; /proc/0 does not exist
    (void)std::sscanf(vyrtest::ReadFile(log_ + ".pids").c_str(), "%ld %ld", &pids[0], &pids[1]);
    ::unlink((log_ + ".pids").c_str());
    EXPECT_TRUE(c.limit != 1 || pids[1] != 0) << "the hung tool never ran";
    for (long p : pids) {
      for (int i = 0; i < 50 && Alive(static_cast<pid_t>(p)); ++i) ::usleep(20000);
      EXPECT_FALSE(Alive(static_cast<pid_t>(p))) << "limit " << c.limit << " pid " << p;
    }
  }
}

TEST_F(IpaddrCommandTest, ShellMetacharactersAreNeverExecuted) {
  ::setenv("FAKE_MODE", "record", 1);
  // Whatever a shell ran from these values would write to the log too.
  const std::string odd = dir_ / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  ASSERT_EQ(::mkdir(odd.c_str(), 0755), 0);
  vyrtest::WriteFile(odd + "/ifconfig", kFakeTool, 0755);
  const std::string tool = odd + "/ifconfig";
  struct Case {
    const char *vdevname, *addr;
    int ret;
  };
  const Case cases[] = {{"x;$(id)'\"`", "192.0.2.10", 0},  // a legal device name
                        {"va0 $(echo pwned3 >>$FAKE_LOG)", "192.0.2.10", 11},
                        {"va0:0", "192.0.2.10;echo pwned4 >>$FAKE_LOG", 11},
                        {"va0/0", "192.0.2.10", 11},
                        {"", "192.0.2.10", 11}};
  for (const auto& c : cases) {
    vdevinfo v = vyrtest::Vdev4("va0", c.vdevname, c.addr);
    EXPECT_EQ(vip_act_ipaddr(&v, tool.c_str(), 5), c.ret) << c.vdevname << " " << c.addr;
  }
  // One call, with the name as one word; a refused value runs nothing.
  EXPECT_EQ(vyrtest::ReadFile(log_),
            "x;$(id)'\"`|192.0.2.10|netmask|255.255.255.0|broadcast|192.0.2.255|up|\n");
}

}  // namespace
