// The once-per-run decision whether the interface tool is used: fake
// "which" and "ifconfig" scripts alone on PATH, then the machine's own tool.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "nicCommon/nic_ifconfig_probe.h"
#include "support/fake_tool.h"
#include "support/sh.h"
#include "support/trace_capture.h"

namespace {

using std::chrono::milliseconds;

// The first line that shows a layout decides, whatever the listing's exit
// status; switched off, no command runs; no ifconfig, or one that hangs
// past the limit (21, ended with its process group), leaves the kernel.
TEST(IfconfigProbe, LayoutOfTheListingDecidesOncePerRun) {
  vyrtest::TempDir dir;
  const std::string ran = dir / "ran", cat = "/bin/cat '" VYR_TESTDATA_DIR "/ifconfig/";
  vyrtest::WriteScript(dir.path(), "which", "echo which >>" + ran + "; exec /usr/bin/which \"$@\"");
  const struct {
    std::string ifconfig;  // the fake's command; none when empty
    int use, ret, flag;
    const char* ran;
  } cases[] = {
      {"", 0, 0, 0, "which\n"},  // first, while there is no ifconfig on PATH
      {cat + "older_mixed.txt'", 0, 0, 1, "which\n-a\n"},
      {cat + "older_late_address.txt'", 0, 0, 1, "which\n-a\n"},  // address in a later block
      {cat + "older_mixed.txt'; exit 3", 0, 0, 1, "which\n-a\n"},
      {cat + "newer_layout.txt'", 0, 0, 0, "which\n-a\n"},
      {cat + "older_mixed.txt'", 1, 0, 0, ""},
      {"while :; do /bin/sleep 1; done", 0, 21, 0, "which\n-a\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ifconfig + " use=" + std::to_string(c.use));
    vyrtest::WriteFile(ran, "");
    vyrtest::WriteScript(dir.path(), c.ifconfig.empty() ? "not-ifconfig" : "ifconfig",
                         "echo \"$@\" >> '" + ran + "'\n" + c.ifconfig);
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
  EXPECT_TRUE(vyrtest::NoProcessWithin(dir.path(), milliseconds(5000))) << "a tool outlived it";
}

// Without "which" the search fails as the shell would report it (127); a
// chatty "which" prints nothing into the agent's own output.
TEST(IfconfigProbe, SearchFailsLikeTheShellAndStaysQuiet) {
  vyrtest::TempDir dir;
  vyrtest::TraceCapture trace;
  vyrtest::ScopedEnv path("PATH", dir.path());
  int flag = -1;
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 1), 0);
  EXPECT_TRUE(
      trace.Contains("which ifconfig > /dev/null 2>&1 failed,ifconfig does not exist.(ret=127)"));
  vyrtest::WriteScript(dir.path(), "which", "echo noise; echo noise >&2; exit 1");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 1), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(flag, 0);
}

// The machine's own ifconfig, where it prints the newer layout, is not used.
TEST(IfconfigProbe, MachinesOwnIfconfigHasTheNewerLayout) {
  std::string out;
  vyrtest::Sh("ifconfig -a | head -1", &out);
  if (out.find(": flags=") == std::string::npos)
    GTEST_SKIP() << "no newer-layout ifconfig: " << out;
  int flag = -1;
  EXPECT_EQ(nic_chk_isifconfig(&flag, 0, 10), 0);
  EXPECT_EQ(flag, 0);
}

}  // namespace
