// What a person at a terminal reads when vyrvip fails, seen through a
// pseudo-terminal; and the silence of the same runs when standard error is a
// pipe, as it is under the cluster.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/agent_fixture.h"

namespace {

using vyrtest::ReadFile;

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
  EXPECT_NE(std::string::npos, ReadFile(check_).find("Success in a composition check."));
}

// The ping command answers --help with its usage on standard output.
TEST(PingHelp, HelpPrintsTheUsageAndSucceeds) {
  std::string out;
  EXPECT_EQ(0, vyrtest::Sh(VYR_BINARY_DIR "/platform/vyrping/vyrping --help 2>/dev/null", &out));
  EXPECT_EQ(0u, out.rfind("usage: vyrping -c COUNT ADDRESS\n", 0)) << out;
}

}  // namespace
