// Adding and removing the virtual address with the interface tool: a fake
// tool on PATH records its arguments and makes the change with ip inside a
// private network namespace.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/netns.h"
#include "support/sh.h"
#include "vip/globals.h"
#include "vip/ipaddr_change.h"

namespace {

using Clock = std::chrono::steady_clock;
using Args = std::vector<std::string>;

// Records "--" and then one argument per line; FAKE_MODE says what to do.
constexpr const char* kFakeTool = R"(#!/bin/sh
{ echo "--"; for a in "$@"; do printf '%s\n' "$a"; done; } >> "$FAKE_LOG"
echo "chatter on stdout"; echo "chatter on stderr" >&2
case "$FAKE_MODE" in
  fail) exit 1 ;;
  hang) sleep 30 & echo "$$ $!" > "$FAKE_PIDS"; wait; exit 0 ;;
  record) exit 0 ;;
esac
if [ "$2" = add ]; then exec ip -6 addr add "$3" dev "$1"; fi
if [ "$2" = del ]; then exec ip -6 addr del "$3" dev "$1"; fi
if [ "$2" = down ]; then exec ip -4 addr flush dev "${1%%:*}" label "$1"; fi
exec ip -4 addr add "$2/$4" broadcast "$6" dev "${1%%:*}" label "$1"
)";

std::string Desc() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

// The argument lists of every call, in order.
std::vector<Args> Calls(const std::string& log) {
  std::vector<Args> calls;
  std::istringstream in(vyrtest::ReadFile(log));
  std::string line;
  while (std::getline(in, line)) {
    if (line == "--") {
      calls.emplace_back();
    } else if (!calls.empty()) {
      calls.back().push_back(line);
    }
  }
  return calls;
}

// Running, or a zombie we still owe a wait.
bool Alive(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  if (!std::getline(stat, text)) return false;
  const size_t paren = text.rfind(')');
  if (paren == std::string::npos || paren + 2 >= text.size()) return false;
  if (text[paren + 2] != 'Z') return true;
  return std::strtol(text.c_str() + text.find(' ', paren + 3), nullptr, 10) == ::getpid();
}

class IpaddrCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    pair_ = vyrtest::NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
    inside_ = std::make_unique<vyrtest::ScopedNetns>(pair_->agent());
    ASSERT_TRUE(inside_->ok());
    vyrtest::WriteFile(dir_ / "ifconfig", kFakeTool, 0755);
    path_ = std::make_unique<vyrtest::ScopedEnv>("PATH", dir_.path() + ":" + std::getenv("PATH"));
    log_ = std::make_unique<vyrtest::ScopedEnv>("FAKE_LOG", dir_ / "args");
    pids_ = std::make_unique<vyrtest::ScopedEnv>("FAKE_PIDS", dir_ / "pids");
    Mode("apply");
    IsIfconfig = 1;
    ipv6flag = 0;
    vip_clear_shmbuf();
  }
  void TearDown() override {
    ipv6flag = 0;
    mode_.reset();
    inside_.reset();
    pair_.reset();
  }

  void Mode(const char* mode) {
    mode_.reset();  // restores the old value first
    mode_ = std::make_unique<vyrtest::ScopedEnv>("FAKE_MODE", mode);
  }
  std::vector<Args> Calls() const { return ::Calls(dir_ / "args"); }
  std::string Addrs(const char* family) {
    std::string out;
    pair_->InAgent(std::string("ip -o ") + family + " addr show dev va0", &out);
    return out;
  }

  vdevinfo Ipv4Record() {
    vdevinfo v{};
    std::snprintf(v.ifname, sizeof v.ifname, "va0");
    std::snprintf(v.vdevname, sizeof v.vdevname, "va0:0");
    std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "192.0.2.10");
    std::snprintf(v.sipel.mask, sizeof v.sipel.mask, "255.255.255.0");
    std::snprintf(v.bcast, sizeof v.bcast, "192.0.2.255");
    return v;
  }

  vyrtest::TempDir dir_;
  std::unique_ptr<vyrtest::NetnsPair> pair_;
  std::unique_ptr<vyrtest::ScopedNetns> inside_;
  std::unique_ptr<vyrtest::ScopedEnv> path_, log_, pids_, mode_;
};

TEST_F(IpaddrCommandTest, Ipv4AddAndRemoveGiveTheToolItsArguments) {
  vdevinfo v = Ipv4Record();
  ASSERT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0) << Desc();
  EXPECT_NE(Addrs("-4").find("inet 192.0.2.10/24 brd 192.0.2.255"), std::string::npos)
      << Addrs("-4");

  VIP_INFO info{};
  std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "ifconfig");
  std::snprintf(info.ifname, sizeof info.ifname, "va0:0");
  std::snprintf(info.addr, sizeof info.addr, "192.0.2.10");
  info.ifconftout = 5;
  ASSERT_EQ(vip_deact_ipaddr(&v, &info), 0) << Desc();
  EXPECT_EQ(Addrs("-4").find("192.0.2.10"), std::string::npos) << Addrs("-4");

  const std::vector<Args> expected = {
      {"va0:0", "192.0.2.10", "netmask", "255.255.255.0", "broadcast", "192.0.2.255", "up"},
      {"va0:0", "down"}};
  EXPECT_EQ(Calls(), expected);
}

TEST_F(IpaddrCommandTest, Ipv6AddAndRemoveNameTheInterface) {
  ipv6flag = 1;
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "va0");
  std::snprintf(v.vdevname, sizeof v.vdevname, "va0:9");  // never used for IPv6
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "2001:db8::10");
  v.sipel.masklen = 64;
  ASSERT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0) << Desc();
  EXPECT_NE(Addrs("-6").find("inet6 2001:db8::10/64"), std::string::npos) << Addrs("-6");

  VIP_INFO info{};
  std::snprintf(info.ifconfcmd, sizeof info.ifconfcmd, "ifconfig");
  std::snprintf(info.ifname, sizeof info.ifname, "va0");
  std::snprintf(info.addr, sizeof info.addr, "2001:db8::10");
  info.masklen = 64;
  info.ifconftout = 5;
  ASSERT_EQ(vip_deact_ipaddr(&v, &info), 0) << Desc();
  EXPECT_EQ(Addrs("-6").find("2001:db8::10"), std::string::npos) << Addrs("-6");

  const std::vector<Args> expected = {{"va0", "add", "2001:db8::10/64"},
                                      {"va0", "del", "2001:db8::10/64"}};
  EXPECT_EQ(Calls(), expected);
}

TEST_F(IpaddrCommandTest, ToolExitingWith1Gives3) {
  Mode("fail");
  vdevinfo v = Ipv4Record();
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 3);
  EXPECT_EQ(Desc(), "Internal error. (status=3)");
}

TEST_F(IpaddrCommandTest, QuickToolCostsNoPollingStep) {
  Mode("record");
  vdevinfo v = Ipv4Record();
  const auto start = Clock::now();
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 5), 0);
  const auto took = Clock::now() - start;
  std::printf(
      "quick tool: %lld ms\n",
      static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()));
  EXPECT_LT(took, std::chrono::milliseconds(500));
}

TEST_F(IpaddrCommandTest, HangingToolIsKilledAtTheLimit) {
  Mode("hang");
  vdevinfo v = Ipv4Record();
  const auto start = Clock::now();
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 1), 23);
  const auto took = Clock::now() - start;
  EXPECT_EQ(Desc(), "Internal error. (status=23)");
  EXPECT_GE(took, std::chrono::milliseconds(950));
  EXPECT_LT(took, std::chrono::milliseconds(2000));

  long tool = 0, sleeper = 0;
  ASSERT_EQ(std::sscanf(vyrtest::ReadFile(dir_ / "pids").c_str(), "%ld %ld", &tool, &sleeper), 2);
  // The group was killed; give an orphaned grandchild a moment to be reaped.
  for (int i = 0; i < 50 && (Alive(static_cast<pid_t>(tool)) || Alive(static_cast<pid_t>(sleeper)));
       ++i) {
    ::usleep(20000);
  }
  EXPECT_FALSE(Alive(static_cast<pid_t>(tool)));
  EXPECT_FALSE(Alive(static_cast<pid_t>(sleeper)));
}

TEST_F(IpaddrCommandTest, LimitOfZeroTimesOutAtOnce) {
  Mode("hang");
  vdevinfo v = Ipv4Record();
  const auto start = Clock::now();
  EXPECT_EQ(vip_act_ipaddr(&v, "ifconfig", 0), 23);
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(Desc(), "Internal error. (status=23)");
}

TEST_F(IpaddrCommandTest, ShellMetacharactersAreNeverExecuted) {
  Mode("record");
  // Anything the shell would run lands in the test's folder.
  char here[4096];
  ASSERT_NE(::getcwd(here, sizeof here), nullptr);
  ASSERT_EQ(::chdir(dir_.path().c_str()), 0);
  struct Back {
    const char* to;
    ~Back() { (void)!::chdir(to); }
  } back{here};
  // A tool folder whose name is full of shell syntax.
  const std::string odd = dir_ / "a b;'c\"$(touch pwned1)`touch pwned2`";
  vyrtest::ScopedEnv d("D", odd);
  ASSERT_EQ(vyrtest::Sh("mkdir -p \"$D\" && cp '" + (dir_ / "ifconfig") + "' \"$D/ifconfig\""), 0);
  const std::string tool = odd + "/ifconfig";

  vdevinfo v = Ipv4Record();
  std::snprintf(v.vdevname, sizeof v.vdevname, "x;$(id)'\"`");  // legal device name
  ASSERT_EQ(vip_act_ipaddr(&v, tool.c_str(), 5), 0) << Desc();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0][0], "x;$(id)'\"`");

  // Values that cannot be a device name or an address are refused.
  struct Refused {
    const char* vdevname;
    const char* addr;
  };
  const Refused refused[] = {{"va0 $(touch pwned3)", "192.0.2.10"},
                             {"va0:0", "192.0.2.10;touch pwned4"},
                             {"va0/0", "192.0.2.10"},
                             {"", "192.0.2.10"}};
  for (const auto& r : refused) {
    vdevinfo bad = Ipv4Record();
    std::snprintf(bad.vdevname, sizeof bad.vdevname, "%s", r.vdevname);
    std::snprintf(bad.sipel.addr, sizeof bad.sipel.addr, "%s", r.addr);
    EXPECT_EQ(vip_act_ipaddr(&bad, tool.c_str(), 5), 11) << r.vdevname << " " << r.addr;
  }
  EXPECT_EQ(Calls().size(), 1u) << "a refused value must not run the tool";
  std::string found;
  vyrtest::Sh("ls '" + dir_.path() + "' | grep -x 'pwned[0-9]'", &found);
  EXPECT_EQ(found, "");
}

}  // namespace
