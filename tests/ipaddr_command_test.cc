// Adding and removing the virtual address with the interface tool: the
// stand-in tool records its arguments and makes the change with ip inside a
// private network namespace.
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

constexpr const char* kTool = VYR_TESTDATA_DIR "/tools/ifconfig-older";

// The lines' formats: the tool path in double quotes, every other field bare.
constexpr const char* kAdd4 = "\"%s\" %s %s netmask %s broadcast %s up > /dev/null 2>&1";
constexpr const char* kAdd6 = "\"%s\" %s add %s/%d > /dev/null 2>&1";
constexpr const char* kDown4 = "\"%s\" %s down > /dev/null 2>&1";
constexpr const char* kDel6 = "\"%s\" %s del %s/%d > /dev/null 2>&1";

// Each line is its format byte for byte when its fields are plain; a field the shell would act
// on is quoted. Either way the tool gets exactly its arguments (nothing else runs) and makes the
// change; a name of 16 or more characters reaches it too. A failing tool is 3; a hung one is 23
// at the limit, killed and reaped with its child.
TEST_F(IpaddrCommandTest, LinesFollowTheirFormatsAndTheToolGetsItsArguments) {
  vyrtest::TempDir dir;
  // Whatever a shell ran from these texts would write to the log too.
  const std::string odd = dir / "a b;'c\"$(echo pwned1 >>$FAKE_LOG)`echo pwned2 >>$FAKE_LOG`";
  for (const std::string& bin : {odd, dir / "bin"}) {
    ASSERT_EQ(::mkdir(bin.c_str(), 0755), 0);
    vyrtest::WriteFile(bin + "/ifconfig", vyrtest::ReadFile(kTool), 0755);
  }
  // The IPv4 adds run the plain path, the IPv6 ones the odd path (shown between the double
  // quotes as below), the removals "ifconfig" from PATH.
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
      {"fail", kAdd4, "va0:2", "192.0.2.13", 3},
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
    if (v6) {
      std::snprintf(line, sizeof line, c.format, shown, name, addr, 64);
    } else {
      std::snprintf(line, sizeof line, c.format, shown, name, addr, "255.255.255.0", "192.0.2.255");
    }
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

}  // namespace
