// The control tool as an operator runs it: the built binary, one private
// run folder per test.
#include <string>
#include <tuple>
#include <utility>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
#include "support/sh.h"
#include "vyripc.h"

namespace {

// Runs the built tool; its exit code, with what it printed in *out.
int Ctl(const std::string& args, std::string* out) {
  return vyrtest::Sh("{ " VYR_BINARY_DIR "/platform/vyrctl/vyrctl " + args + "; }", out);
}

// A wrong message or exit code at a step of a run folder's life ('@' is
// the folder), or an npsimu setting that misses the node table.
TEST(Vyrctl, LifecycleAndNpsimu) {
  vyrtest::IpcRunDir run;
  // Arguments, exit code, output, and the node table's npsimu flag
  // afterwards (-1: not checked).
  const std::tuple<const char*, int, std::string, int> cases[] = {
      {"status", 3, "vyrctl: not started for @ (run 'vyrctl start')\n", -1},
      {"stop", 0, "vyrctl: not running for @, nothing to stop\n", -1},
      {"start", 0, "vyrctl: started for @\n", -1},
      {"start", 0, "vyrctl: already started for @\n", -1},
      {"npsimu on", 0, "vyrctl: npsimu on\n", 1},
      {"npsimu", 0, "on\n", -1},
      {"npsimu off", 0, "vyrctl: npsimu off\n", 0},
      {"stop", 0, "vyrctl: stopped for @\n", -1},
  };
  for (auto [args, code, want, flag] : cases) {
    std::string out;
    if (auto at = want.find('@'); at != std::string::npos) want.replace(at, 1, run / "run");
    EXPECT_EQ(Ctl(args, &out), code) << args;
    EXPECT_EQ(out, want) << args;
    int stored = -1;
    if (flag >= 0 && shmnm_attach() == 0) shmnm_getnpsimuflag(&stored);
    EXPECT_EQ(stored, flag) << args;
  }
  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT) << "stop left the tables behind";
}

// Rows lost to a second start, texts that break the tab rows or the JSON,
// or rows with empty names (runs refused before their names were known)
// that are refused, merged or shown as something else.
TEST(Vyrctl, StatusShowsTheStoredRows) {
  vyrtest::IpcRunDir run;
  std::string out;
  ASSERT_EQ(Ctl("start", &out), 0);
  ASSERT_EQ(shmrm_attach(), 0);
  const char* const rows[][4] = {
      {"grp1", "vip", "vip1", "Success."},
      {"grp2", "vip", "vip1", "a\tb\"c\\d\ne\x01 \xc3\xa9 \xff"},
      {"", "vip", "", "Success."},
      {"grp1", "vip", "", "Option was invalid."},
      {"", "vip", "grp1", "Internal error. (status=9)"},
      {"-", "vip", "vip1", "-"},
      {"", "vip", "", "Option was invalid."},  // replaces the earlier "Success."
  };
  for (const auto& r : rows) ASSERT_EQ(shmrm_setdescript(r[0], r[1], r[2], r[3], 128), 0) << r[3];
  ASSERT_EQ(Ctl("start", &out), 0);
  EXPECT_EQ(Ctl("status", &out), 0);
  EXPECT_EQ(out,
            "grp1\tvip\tvip1\tSuccess.\n"
            "grp2\tvip\tvip1\ta\\tb\"c\\\\d\\ne\x01 \xc3\xa9 \xff\n"
            "-\tvip\t-\tOption was invalid.\n"
            "grp1\tvip\t-\tOption was invalid.\n"
            "-\tvip\tgrp1\tInternal error. (status=9)\n"
            "\\-\tvip\tvip1\t\\-\n");
  EXPECT_EQ(Ctl("status --json", &out), 0);
  const auto json = [](const std::string& group, const std::string& rsc, const std::string& desc) {
    return "{\"group\": \"" + group + "\", \"type\": \"vip\", \"resource\": \"" + rsc +
           "\", \"description\": \"" + desc + "\"}";
  };
  EXPECT_EQ(out, "[\n  " + json("grp1", "vip1", "Success.") + ",\n  " +
                     json("grp2", "vip1", "a\\tb\\\"c\\\\d\\ne\\u0001 \xc3\xa9 \\ufffd") + ",\n  " +
                     json("", "", "Option was invalid.") + ",\n  " +
                     json("grp1", "", "Option was invalid.") + ",\n  " +
                     json("", "grp1", "Internal error. (status=9)") + ",\n  " +
                     json("-", "vip1", "-") + "\n]\n");
  // A name too long for its field is refused, not cut into another row's key.
  EXPECT_EQ(shmrm_setdescript(std::string(64, 'g').c_str(), "vip", "", "x", 128),
            SHMRM_ERR_INVALIDPARAM);
  EXPECT_EQ(shmrm_setdescript(nullptr, "vip", "", "x", 128), SHMRM_ERR_INVALIDPARAM);
}

// Misuse names the fault, shows the usage, exits 2 and starts nothing.
TEST(Vyrctl, MisuseShowsUsageAndFails) {
  vyrtest::IpcRunDir run;
  const std::pair<const char*, std::string> cases[] = {
      {"bogus", "vyrctl: unknown command 'bogus'\n"},
      {"start now", "vyrctl: unexpected argument 'now'\n"},
      {"npsimu maybe", "vyrctl: npsimu takes 'on' or 'off', not 'maybe'\n"},
  };
  std::string out;
  for (const auto& [args, complaint] : cases) {
    EXPECT_EQ(Ctl(args, &out), 2) << args;
    EXPECT_EQ(out.rfind(complaint + "usage: vyrctl start\n", 0), 0u) << args << ": " << out;
    EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT) << args;
  }
  EXPECT_EQ(Ctl("--help 2>/dev/null", &out), 0);
  EXPECT_EQ(out.rfind("usage: vyrctl start\n", 0), 0u) << "help is not on standard output";
}

}  // namespace
