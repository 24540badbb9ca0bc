// The control tool as an operator runs it: the built binary, one private
// run folder per test.
#include <string>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
#include "support/sh.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

using vyrtest::IpcRunDir;

const std::string kVyrctl = VYR_BINARY_DIR "/platform/vyrctl/vyrctl";

struct Result {
  int code;
  std::string out;
};

// Standard output and standard error together.
Result Ctl(const std::string& args) {
  Result r;
  r.code = vyrtest::Sh(kVyrctl + " " + args, &r.out);
  return r;
}

// Standard output alone.
Result CtlOut(const std::string& args) {
  Result r;
  r.code = vyrtest::Sh("{ " + kVyrctl + " " + args + " 2>/dev/null; }", &r.out);
  return r;
}

// One run folder taken through its whole life; '@' stands for its path.
// `flag` is the simulation flag the node table must then hold (-1: skip).
TEST(Vyrctl, LifecycleAndNpsimu) {
  IpcRunDir run;
  struct Case {
    const char* args;
    int code;
    const char* out;  // nullptr: not checked
    int flag;
  };
  const Case cases[] = {
      {"status", 3, "vyrctl: not started for @ (run 'vyrctl start')\n", -1},
      {"npsimu on", 3, nullptr, -1},
      {"stop", 0, "vyrctl: not running for @, nothing to stop\n", -1},
      {"start", 0, "vyrctl: started for @\n", -1},
      {"start", 0, "vyrctl: already started for @\n", -1},
      {"status", 0, "", -1},
      {"status --json", 0, "[]\n", -1},
      {"npsimu on", 0, "vyrctl: npsimu on\n", 1},
      {"npsimu", 0, "on\n", -1},
      {"npsimu off", 0, nullptr, 0},
      {"npsimu", 0, "off\n", -1},
      {"stop", 0, "vyrctl: stopped for @\n", -1},
      {"status", 3, nullptr, -1},
  };
  for (const Case& c : cases) {
    Result r = Ctl(c.args);
    EXPECT_EQ(r.code, c.code) << c.args;
    if (c.out != nullptr) {
      std::string want = c.out;
      if (auto at = want.find('@'); at != std::string::npos)
        want.replace(at, 1, run.path() + "/run");
      EXPECT_EQ(r.out, want) << c.args;
    }
    if (int flag = -1; c.flag >= 0) {
      ASSERT_EQ(shmnm_attach(), 0);
      ASSERT_EQ(shmnm_getnpsimuflag(&flag), 0);
      EXPECT_EQ(flag, c.flag) << c.args;
    }
  }
  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT);
}

TEST(Vyrctl, StatusShowsTheStoredRows) {
  IpcRunDir run;
  ASSERT_EQ(Ctl("start").code, 0);
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "vip", "vip1", "Success.", 128), 0);
  // Texts an agent may store that would break a naive line or JSON writer.
  ASSERT_EQ(shmrm_setdescript("grp2", "vip", "odd", "tab\there \"q\" back\\ nl\nend\x01", 128), 0);
  // Valid UTF-8 is kept; broken bytes must not break the JSON.
  ASSERT_EQ(shmrm_setdescript("grp2", "vip", "utf8", "caf\xc3\xa9 \xff \xe2\x82", 128), 0);

  Result r = CtlOut("status");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out,
            "grp1\tvip\tvip1\tSuccess.\n"
            "grp2\tvip\todd\ttab\\there \"q\" back\\\\ nl\\nend\x01\n"
            "grp2\tvip\tutf8\tcaf\xc3\xa9 \xff \xe2\x82\n");

  r = CtlOut("status --json");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out,
            "[\n"
            "  {\"group\": \"grp1\", \"type\": \"vip\", \"resource\": \"vip1\", "
            "\"description\": \"Success.\"},\n"
            "  {\"group\": \"grp2\", \"type\": \"vip\", \"resource\": \"odd\", "
            "\"description\": \"tab\\there \\\"q\\\" back\\\\ nl\\nend\\u0001\"},\n"
            "  {\"group\": \"grp2\", \"type\": \"vip\", \"resource\": \"utf8\", "
            "\"description\": \"caf\xc3\xa9 \\ufffd \\ufffd\\ufffd\"}\n"
            "]\n");
}

TEST(Vyrctl, MisuseShowsUsageAndFails) {
  IpcRunDir run;
  struct Case {
    const char* args;
    const char* complaint;
  } cases[] = {
      {"", ""},
      {"bogus", "vyrctl: unknown command 'bogus'\n"},
      {"start now", "vyrctl: unexpected argument 'now'\n"},
      {"stop -f", "vyrctl: unexpected argument '-f'\n"},
      {"status --xml", "vyrctl: unexpected argument '--xml'\n"},
      {"status --json --json", "vyrctl: unexpected argument '--json'\n"},
      {"npsimu maybe", "vyrctl: npsimu takes 'on' or 'off', not 'maybe'\n"},
      {"npsimu on off", "vyrctl: unexpected argument 'off'\n"},
  };
  for (const Case& c : cases) {
    Result r = Ctl(c.args);
    EXPECT_EQ(r.code, 2) << c.args;
    EXPECT_EQ(r.out.rfind(c.complaint, 0), 0u) << c.args << ": " << r.out;
    EXPECT_NE(r.out.find("usage: vyrctl start\n"), std::string::npos) << c.args;
    // Misuse never starts anything.
    EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT) << c.args;
  }
  Result help = CtlOut("--help");
  EXPECT_EQ(help.code, 0);
  EXPECT_EQ(help.out.rfind("usage: vyrctl start\n", 0), 0u);
}

}  // namespace
