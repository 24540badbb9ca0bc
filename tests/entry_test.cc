// The process entry, run as the installed vyrvip against a private setup (no
// run reaches an interface), and what a terminal shows when a run fails
// (through a pseudo-terminal) against the silence on a pipe (the cluster's).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "support/agent_fixture.h"
#include "support/log_lines.h"

namespace {

// The agent installed with its configuration (no resource has addresses)
// and tables of its own; runs outside any namespace.
class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(env_.ok()) << "installing the build tree failed";
    env_.WriteConfig("");
    ASSERT_EQ(0, env_.Ctl("start"));
  }
  // Runs vyrvip with `args` (no word the shell would act on) behind `wrapper`.
  int Run(const std::string& args, const std::string& wrapper = "") const {
    return env_.Vyrvip("", args + " >/dev/null", nullptr, 0, wrapper);
  }
  // "LEVEL text" of the trace log's lines of `level`, or of all for "".
  std::vector<std::string> Log(const std::string& level = "") const {
    std::vector<std::string> out;
    for (const auto& l : vyrtest::ReadLogLines(env_.dir() + "/log/vip.log")) {
      if (level.empty() || l.level == level) out.push_back(l.level + " " + l.text);
    }
    return out;
  }
  std::string Status() const {
    std::string out;
    return env_.Ctl("status", &out) == 0 ? out : "<status failed>";
  }

  vyrtest::ClusterEnv env_;
};

// No arguments, or a run that is not root's, logs and stores nothing. Any
// other refusal is stored under the names it was given, empty ones too, and
// replaces what an earlier run left in that row.
TEST_F(EntryTest, RefusalsAreStoredUnderTheNamesGiven) {
  EXPECT_EQ(4, Run(""));
  EXPECT_EQ(5,
            Run("--active -r vipR -g grpR", "setpriv --reuid=65534 --regid=65534 --clear-groups"));
  EXPECT_EQ("", vyrtest::ReadFile(env_.dir() + "/log/vip.log"));
  EXPECT_EQ("", Status());
  EXPECT_EQ(4, Run("--add -i va0"));  // manual mode without an address sets no text
  EXPECT_EQ("-\tvip\t-\tSuccess.\n", Status());
  EXPECT_EQ(4, Run("--active"));
  EXPECT_EQ(4, Run("--deactive -g grpA -i va0"));  // no resource
  EXPECT_EQ("-\tvip\t-\tOption was invalid.\ngrpA\tvip\t-\tOption was invalid.\n", Status());
}

// Each run starts from an empty log and must leave `line` in it (lines
// ending in ": " are prefixes). A resource without addresses stops in
// configuration loading with 9, far enough to show the line was understood.
TEST_F(EntryTest, CommandLineMatrix) {
  const std::string n31(31, 'n'), n32(32, 'n'), a81(81, '1');
  const struct {
    std::string args;
    int status;
    std::string line;  // "" for a run that logs no error at all
  } cases[] = {
      {"--DeActive -R vipC -G grpC", 9, "INFO deactive rsc:vipC, grp:grpC"},
      {"--ADD -A 192.0.2.10/33", 31, "ERROR over max mask bit num.(mask bit=33)"},
      {"--del -a 2001:db8::10/129", 31, "ERROR over max mask bit num.(mask bit=129)"},
      {"--active -r -g grp1", 4, "ERROR Invalid option. (-r ?)"},
      {"--deactive -g grpF -r vipF -g", 4, "ERROR Invalid option. (-g ?)"},
      {"--deactive -x%d%s -r vipU -g grpU", 9, "WARN Invalid option. (argv[i] : -x%d%s)"},
      {"--active", 4, "ERROR Invalid option. (argc=2)"},
      {"--add -r vipN -g grpN", 4, ""},
      // Values longer than their fields are refused, never cut.
      {"--ACTIVE -r " + n31 + " -g " + n31, 9, "INFO active   rsc:" + n31 + ", grp:" + n31},
      {"--deactive -r " + n32 + " -g grpL", 4, "ERROR Invalid option. (-r : "},
      {"--deactive -r vipL -g " + n32, 4, "ERROR Invalid option. (-g : "},
      {"--deactive -r vipL -g grpL -i " + n32, 4, "ERROR Invalid option. (-i : "},
      {"--add -a " + a81 + "1", 4, "ERROR Invalid option. (-a : "},
      {"--add -a " + a81, 31, "ERROR vip_div_ipmask failed. (ret=31)"},
  };
  for (const auto& c : cases) {
    vyrtest::WriteFile(env_.dir() + "/log/vip.log", "");
    EXPECT_EQ(c.status, Run(c.args)) << c.args;
    const auto log = Log();
    const bool found = std::ranges::any_of(log, [&c](const std::string& l) {
      return l == c.line || (c.line.ends_with(": ") && l.starts_with(c.line));
    });
    EXPECT_TRUE(c.line.empty() ? Log("ERROR").empty() : found) << c.args;
  }
  // Every run has its row, under the names it had taken when it ended (the
  // last unnamed run is the bad mask, which sets no text).
  EXPECT_EQ(
      "grpC\tvip\tvipC\tInternal error. (status=9)\n-\tvip\t-\tSuccess.\n"
      "grpF\tvip\tvipF\tOption was invalid.\ngrpU\tvip\tvipU\tInternal error. (status=9)\n"
      "grpN\tvip\tvipN\tSuccess.\n" +
          n31 + "\tvip\t" + n31 +
          "\tInternal error. (status=9)\n"
          "-\tvip\tvipL\tOption was invalid.\ngrpL\tvip\tvipL\tOption was invalid.\n",
      Status());
}

const std::string kUsage =
    "usage: vyrvip --add -a ipaddress[/subnet] [-i interface]\n"
    "              --del -a ipaddress\n";

// Runs vyrvip of `env` as root or as nobody, its standard output and error
// on a new pseudo-terminal (through script(1)) or on a pipe: its status and
// what the terminal showed, or what came through the pipe.
std::pair<int, std::string> Spawn(const vyrtest::ClusterEnv& env,
                                  const std::vector<std::string>& args, bool nobody,
                                  bool terminal) {
  std::string line = "env " + env.EnvAssignments() +
                     (nobody ? " setpriv --reuid=65534 --regid=65534 --clear-groups" : "") + " '" +
                     env.prefix() + "/bin/vyrvip'";
  for (const auto& a : args) line += " '" + a + "'";
  if (terminal) line = "script -qefc \"" + line + "\" /dev/null";
  std::string text;
  const int status = vyrtest::Sh(line + " </dev/null", &text);
  std::erase(text, '\r');  // the terminal's newlines are "\r\n"
  return {status, text};
}

using Terminal = vyrtest::CheckEnvTest;

// Every failing run tells the terminal why, with its status and where to
// look; a successful one says nothing. The same runs with standard error on
// a pipe print nothing at all and end with the same status.
TEST_F(Terminal, FailingRunsGiveOneReasonOnATerminalAndNothingOnAPipe) {
  const std::string details = "; details in " + trace_ + ")\n";
  const struct {
    std::vector<std::string> args;
    bool nobody;
    int status;
    std::string shown;
  } cases[] = {
      // clang-format off
      {{}, false, 4, "vyrvip: no mode given: --active, --deactive, --add, --del, --dactive, "
                     "--ddeactive or --test (status 4)\n" + kUsage},
      {{"--active", "-r", "vipT", "-g", "grpT"}, true, 5, "vyrvip: not run as root (status 5)\n"},
      {{"--test", "good"}, true, 1, "vyrvip: not run as root (status 1)\n"},
      {{"--active", "-r", "vipT"}, false, 4,
       "vyrvip: Option was invalid. (status 4" + details + kUsage},
      {{"--add", "-i", "lo", "-r", "vipT"}, false, 4,
       "vyrvip: invalid command line (status 4" + details + kUsage},
      {{"--add", "-a", "192.0.2.5/33", "-i", "lo"}, false, 31,
       "vyrvip: invalid prefix length (status 31" + details},
      {{"--active", "-r", "vipT", "-g", "grpT"}, false, 9,
       "vyrvip: Internal error. (status=9) (status 9" + details},
      {{"--test", "nosuch"}, false, 1,
       "vyrvip: the configuration check failed (status 1; verdict in " + check_ + ", details in " +
       trace_ + ")\n"},
      {{"--test", "good"}, false, 0, ""},
      // clang-format on
  };
  // With the cluster's tables up, a run that wrote no description stores "Success.".
  ASSERT_EQ(0, env_.Ctl("start"));
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(std::pair(c.status, c.shown), Spawn(env_, c.args, c.nobody, true));
    EXPECT_EQ(std::pair(c.status, std::string()), Spawn(env_, c.args, c.nobody, false));
  }
  env_.Ctl("stop");
  EXPECT_NE(std::string::npos, vyrtest::ReadFile(check_).find("Success in a composition check."));
}

// The ping command answers --help with its usage on standard output.
TEST(PingHelp, HelpPrintsTheUsageAndSucceeds) {
  std::string out;
  EXPECT_EQ(0, vyrtest::Sh(VYR_BINARY_DIR "/platform/vyrping/vyrping --help 2>/dev/null", &out));
  EXPECT_EQ(0u, out.rfind("usage: vyrping -c COUNT ADDRESS\n", 0)) << out;
}

}  // namespace
