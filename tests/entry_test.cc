// The process entry, run as the installed vyrvip against a private
// configuration, log folder and cluster tables. None of these runs reaches
// an interface: each one ends before the sequences.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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

}  // namespace
