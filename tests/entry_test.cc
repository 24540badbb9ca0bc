// The process entry, run as the built vyrvip binary against a private
// configuration, log folder and cluster tables. None of these runs reaches
// an interface: each one ends before the sequences.
#include "vip/entry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "common/shell.h"
#include "support/log_lines.h"
#include "support/sh.h"

namespace {

const std::string kVyrvip = VYR_BINARY_DIR "/src/vyrvip";
const std::string kVyrctl = VYR_BINARY_DIR "/platform/vyrctl/vyrctl";

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, vyrtest::Sh("test -x '" + kVyrvip + "' && test -x '" + kVyrctl + "'"))
        << "build vyrvip and vyrctl first";
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p '" + dir_ / "log" + "' '" + dir_ / "run" + "'"));
    vyrtest::WriteFile(dir_ / "cluster.xml",
                       "<root><all><path>" + dir_.path() +
                           "</path></all><vip><log><level>8</level></log></vip>"
                           "<cluster><check><rdrctpath>check.log</rdrctpath></check></cluster>"
                           "<resource><vip><parameters></parameters></vip></resource></root>\n");
    env_ = "env VYR_CONFIG=" + vyr::ShellQuote(dir_ / "cluster.xml") +
           " VYR_LOG_DIR=" + vyr::ShellQuote(dir_ / "log") +
           " VYR_RUN_DIR=" + vyr::ShellQuote(dir_ / "run") +
           " VYR_POLICY_DIR=" + vyr::ShellQuote(VYR_SOURCE_DIR "/platform/policy") + " ";
    ASSERT_EQ(0, vyrtest::Sh(env_ + kVyrctl + " start"));
    started_ = true;
  }
  void TearDown() override {
    if (started_) vyrtest::Sh(env_ + kVyrctl + " stop");
  }

  // Runs vyrvip with exactly these arguments behind an optional `wrapper`.
  int Run(const std::vector<std::string>& args, const std::string& wrapper = "") const {
    std::string cmd = env_ + wrapper + " " + vyr::ShellQuote(kVyrvip);
    for (const std::string& a : args) cmd += " " + vyr::ShellQuote(a);
    return vyrtest::Sh(cmd + " >/dev/null");
  }
  std::string StatusTable() const {
    std::string out;
    return vyrtest::Sh(env_ + kVyrctl + " status", &out) == 0 ? out : "<status failed>";
  }
  // The stored description of (group, resource), or "<none>".
  std::string Description(const std::string& group, const std::string& rsc) const {
    std::istringstream rows(StatusTable());
    const std::string key = group + "\tvip\t" + rsc + "\t";
    for (std::string row; std::getline(rows, row);) {
      if (row.rfind(key, 0) == 0) return row.substr(key.size());
    }
    return "<none>";
  }
  std::string LogPath() const { return dir_ / "log/vip.log"; }
  std::string Dump() const { return vyrtest::ReadFile(LogPath()); }
  // Texts of the lines of one level.
  std::vector<std::string> Texts(const std::string& level) const {
    std::vector<std::string> out;
    for (const auto& l : vyrtest::ReadLogLines(LogPath())) {
      if (l.level == level) out.push_back(l.text);
    }
    return out;
  }
  // Some line of `level` is `text` (or contains it when `part`).
  bool Logged(const std::string& level, const std::string& text, bool part = false) const {
    auto t = Texts(level);
    return std::any_of(t.begin(), t.end(), [&](const std::string& s) {
      return part ? s.find(text) != std::string::npos : s == text;
    });
  }

  vyrtest::TempDir dir_;
  std::string env_;
  bool started_ = false;
};

TEST_F(EntryTest, RefusedBeforeAnyResourceStoresAndLogsNothing) {
  EXPECT_EQ(4, Run({}));
  EXPECT_EQ("", Dump());
  EXPECT_EQ(4, Run({"--activate", "-r", "vipM", "-g", "grpM"}));  // unknown mode word
  EXPECT_EQ(4, Run({"--deactive", "-g", "grpA", "-i", "va0"}));   // no resource
  EXPECT_EQ("", StatusTable());
  if (vyrtest::Sh("command -v setpriv") != 0) GTEST_SKIP() << "setpriv not installed";
  vyrtest::WriteFile(LogPath(), "");
  const std::string nobody = "setpriv --reuid=65534 --regid=65534 --clear-groups";
  EXPECT_EQ(5, Run({"--active", "-r", "vipR", "-g", "grpR"}, nobody));
  EXPECT_EQ(1, Run({"--test", "vipR"}, nobody));
  EXPECT_EQ("", StatusTable());
  EXPECT_EQ("", Dump());
}

TEST_F(EntryTest, StartupBannerAndReturnLine) {
  EXPECT_EQ(9, Run({"--deactive", "-r", "vipB", "-g", "grpB"}));
  auto info = Texts("INFO");
  ASSERT_GE(info.size(), 4u) << Dump();
  EXPECT_EQ("vip rsc starting", info[0]);
  EXPECT_EQ("$Revision: 4 $ $Date: 10/12/22 11:12 $", info[1]);
  EXPECT_TRUE(info[2].rfind("MAKE: ", 0) == 0 && info[2].size() == 26) << info[2];
  EXPECT_EQ("deactive rsc:vipB, grp:grpB", info[3]);
  EXPECT_EQ("vipB    : return(ret=9)", info.back());
}

// Each run starts from an empty log and must leave `line` among the lines
// of `level`. A resource without addresses stops in configuration loading
// with 9, far enough to show the command line was understood.
TEST_F(EntryTest, CommandLineMatrix) {
  const std::string n31(31, 'n'), n32(32, 'n'), a81(81, '1');
  struct Case {
    std::string cmd;  // split at spaces
    int status;
    const char* level;
    std::string line;
    bool part = false;
  };
  const Case cases[] = {
      {"--DeActive -R vipC -G grpC", 9, "INFO", "deactive rsc:vipC, grp:grpC"},
      {"--ACTIVE -g grpD -R vipD", 9, "INFO", "active   rsc:vipD, grp:grpD"},
      {"--ADD -A 192.0.2.10/33", 31, "ERROR", "over max mask bit num.(mask bit=33)"},
      {"--del -a 2001:db8::10/129 -g grpQ", 31, "ERROR", "over max mask bit num.(mask bit=129)"},
      {"--active -r resource-long-name -g g1", 9, "INFO", "resource: return(ret=9)"},
      {"--active -r -g grp1", 4, "ERROR", "Invalid option. (-r ?)"},
      {"--active -r vipE -g grpE -i -a", 4, "ERROR", "Invalid option. (-i ?)"},
      {"--deactive -g grpF -r vipF -g", 4, "ERROR", "Invalid option. (-g ?)"},
      {"--add -i va0 -a", 4, "ERROR", "Invalid option. (-a ?)"},
      {"--deactive -x%d%s -r vipU -g grpU extra", 9, "WARN", "Invalid option. (argv[i] : -x%d%s)"},
      {"--deactive -r vipU -g grpU extra", 9, "WARN", "Invalid option. (argv[i] : extra)"},
      {"--deactive -r first -g grpR -r second", 9, "INFO", "deactive rsc:second, grp:grpR"},
      {"--active", 4, "ERROR", "Invalid option. (argc=2)"},
      {"--active -r", 4, "ERROR", "Invalid option. (argc=3)"},
      {"--active -r vipA", 4, "ERROR", "Invalid option."},
      {"--add -r vipN -g grpN", 4, "INFO", "return(ret=4)"},
      // Values longer than their fields are refused, never cut.
      {"--deactive -r " + n31 + " -g " + n31, 9, "INFO", "deactive rsc:" + n31 + ", grp:" + n31},
      {"--deactive -r " + n32 + " -g grpL", 4, "ERROR", "Invalid option. (-r : ", true},
      {"--deactive -r vipL -g " + n32, 4, "ERROR", "Invalid option. (-g : ", true},
      {"--deactive -r vipL -g grpL -i " + n32, 4, "ERROR", "Invalid option. (-i : ", true},
      {"--add -a 192.0.2.1/24 -i " + n32, 4, "ERROR", "Invalid option. (-i : ", true},
      {"--add -a " + a81 + "1", 4, "ERROR", "Invalid option. (-a : ", true},
      {"--add -a " + a81, 31, "ERROR", "vip_div_ipmask failed. (ret=31)"},  // fits the field
  };
  for (const Case& c : cases) {
    std::istringstream words(c.cmd);
    std::vector<std::string> args;
    for (std::string w; words >> w;) args.push_back(w);
    vyrtest::WriteFile(LogPath(), "");
    EXPECT_EQ(c.status, Run(args)) << c.cmd;
    EXPECT_TRUE(Logged(c.level, c.line, c.part)) << c.cmd << "\n" << Dump();
    if (c.cmd.rfind("--del", 0) == 0 || c.cmd.rfind("--add -r", 0) == 0) {
      // Manual mode announces no resource; add without -a fails with no text.
      EXPECT_FALSE(Logged("INFO", "rsc:", true)) << Dump();
      EXPECT_TRUE(c.status != 4 || Texts("ERROR").empty()) << Dump();
    }
  }
  EXPECT_EQ("Internal error. (status=9)", Description("grpC", "vipC"));
  EXPECT_EQ("Option was invalid.", Description("grpE", "vipE"));
  EXPECT_EQ("Option was invalid.", Description("grpF", "vipF"));
  EXPECT_EQ("Internal error. (status=9)", Description("grpR", "second"));
  EXPECT_EQ("<none>", Description("grpR", "first"));
  EXPECT_EQ("Success.", Description("grpN", "vipN"));
  EXPECT_EQ("Option was invalid.", Description("grpL", "vipL"));
  EXPECT_EQ("<none>", Description("grpL", n31)) << "a cut name would store a row";
}

TEST_F(EntryTest, CheckModeAndDynamicMode) {
  EXPECT_EQ(1, Run({"--TEST"}));
  EXPECT_EQ(1, Run({"--test", "vip1", "vip2"}));
  const std::string check = vyrtest::ReadFile(dir_ / "check.log");
  EXPECT_NE(std::string::npos, check.find("*****START [type : vip][rscname : ]")) << check;
  EXPECT_NE(std::string::npos, check.find("E [002] Invalid argument.")) << check;
  EXPECT_EQ("", StatusTable()) << "check mode stores no description";

  const int ret = Run({"--DDeactive", "-r", "vipY", "-g", "grpY"});
  EXPECT_NE(0, ret);
  EXPECT_TRUE(Logged("INFO", "vipY    : Run with dynamic update mode.")) << Dump();
  EXPECT_TRUE(
      Logged("ERROR", "vipY    : vip_load_chkconf() failed. (ret=" + std::to_string(ret) + ")"))
      << Dump();
}

TEST(EntryUsage, PrintsTheManualModeUsage) {
  testing::internal::CaptureStdout();
  vip_usage();
  EXPECT_EQ(
      "usage: vyrvip --add -a ipaddress[/subnet] [-i interface]\n"
      "              --del -a ipaddress\n",
      testing::internal::GetCapturedStdout());
}

}  // namespace
