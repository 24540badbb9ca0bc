// The process entry, run as the built vyrvip binary against a private
// configuration, log folder and cluster tables: command-line matrix, exit
// statuses, trace lines and the stored status description. None of these
// runs reaches an interface: each one ends before the sequences.
#include "vip/entry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <vector>

#include "common/shell.h"
#include "support/log_lines.h"
#include "support/sh.h"

namespace {

const std::string kVyrvip = VYR_BINARY_DIR "/src/vyrvip";
const std::string kVyrctl = VYR_BINARY_DIR "/platform/vyrctl/vyrctl";

// "MAKE: Jan 26 2026 19:06:42": the compiler's build date and time.
bool IsBuildStamp(const std::string& text) {
  static const std::string kShape = "MAKE: Aaa Dd dddd dd:dd:dd";
  if (text.size() != kShape.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    bool ok = false;
    switch (kShape[i]) {
      case 'A':
        ok = std::isupper(c) != 0;
        break;
      case 'a':
        ok = std::islower(c) != 0;
        break;
      case 'D':
        ok = c == ' ' || std::isdigit(c) != 0;
        break;
      case 'd':
        ok = std::isdigit(c) != 0;
        break;
      default:
        ok = text[i] == kShape[i];
    }
    if (!ok) return false;
  }
  return true;
}

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, vyrtest::Sh("test -x '" + kVyrvip + "' && test -x '" + kVyrctl + "'"))
        << "build vyrvip and vyrctl first";
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p '" + dir_ / "log" + "' '" + dir_ / "run" + "'"));
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\"?>\n<root>\n"
        << "  <all><path>" << dir_.path() << "</path></all>\n"
        << "  <vip><log><level>8</level><size>10000000</size></log></vip>\n"
        << "  <cluster><check><rdrctpath>check.log</rdrctpath></check></cluster>\n"
        << "  <resource><vip><parameters></parameters></vip></resource>\n</root>\n";
    vyrtest::WriteFile(dir_ / "cluster.xml", xml.str());
    ASSERT_EQ(0, Ctl("start"));
    started_ = true;
  }

  void TearDown() override {
    if (started_) Ctl("stop");
  }

  std::string Env() const {
    return "VYR_CONFIG=" + vyr::ShellQuote(dir_ / "cluster.xml") +
           " VYR_LOG_DIR=" + vyr::ShellQuote(dir_ / "log") +
           " VYR_RUN_DIR=" + vyr::ShellQuote(dir_ / "run") +
           " VYR_POLICY_DIR=" + vyr::ShellQuote(VYR_SOURCE_DIR "/platform/policy");
  }

  int Ctl(const std::string& args, std::string* out = nullptr) const {
    return vyrtest::Sh("env " + Env() + " " + vyr::ShellQuote(kVyrctl) + " " + args, out);
  }

  // Runs vyrvip with exactly these arguments; `wrapper` goes in front (for
  // example a command that drops root).
  int Run(const std::vector<std::string>& args, const std::string& wrapper = "") const {
    std::string cmd = "env " + Env() + " " + wrapper + " " + vyr::ShellQuote(kVyrvip);
    for (const std::string& a : args) cmd += " " + vyr::ShellQuote(a);
    return vyrtest::Sh(cmd + " >/dev/null");
  }

  // The stored description of (group, resource), or "<none>".
  std::string Description(const std::string& group, const std::string& rsc) const {
    std::string out;
    if (Ctl("status", &out) != 0) return "<status failed>";
    std::istringstream rows(out);
    std::string row;
    const std::string key = group + "\tvip\t" + rsc + "\t";
    while (std::getline(rows, row)) {
      if (row.rfind(key, 0) == 0) return row.substr(key.size());
    }
    return "<none>";
  }

  std::string StatusTable() const {
    std::string out;
    Ctl("status", &out);
    return out;
  }

  std::string LogPath() const { return dir_ / "log/vip.log"; }
  std::vector<vyrtest::LogLine> Lines() const { return vyrtest::ReadLogLines(LogPath()); }

  // Texts of the lines of one level ("" for every level).
  std::vector<std::string> Texts(const std::string& level = "") const {
    std::vector<std::string> out;
    for (const auto& l : Lines()) {
      if (level.empty() || l.level == level) out.push_back(l.text);
    }
    return out;
  }

  bool Logged(const std::string& level, const std::string& text) const {
    auto texts = Texts(level);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }

  std::string Dump() const { return vyrtest::ReadFile(LogPath()); }

  vyrtest::TempDir dir_;
  bool started_ = false;
};

TEST_F(EntryTest, NoArgumentsExitsWith4AndWritesNothing) {
  EXPECT_EQ(4, Run({}));
  EXPECT_EQ("", vyrtest::ReadFile(LogPath()));
  EXPECT_EQ("", StatusTable());
}

TEST_F(EntryTest, StartupBannerAndReturnLine) {
  EXPECT_EQ(9, Run({"--deactive", "-r", "vipB", "-g", "grpB"}));
  auto info = Texts("INFO");
  ASSERT_GE(info.size(), 4u) << Dump();
  EXPECT_EQ("vip rsc starting", info[0]);
  EXPECT_EQ("$Revision: 4 $ $Date: 10/12/22 11:12 $", info[1]);
  EXPECT_TRUE(IsBuildStamp(info[2])) << info[2];
  EXPECT_EQ("deactive rsc:vipB, grp:grpB", info[3]);
  EXPECT_EQ("vipB    : return(ret=9)", info.back());
}

TEST_F(EntryTest, ModeWordsAndOptionsMatchInAnyCapitalisation) {
  // A resource without addresses in the configuration stops in configuration
  // loading with 9: far enough to show the words were understood.
  EXPECT_EQ(9, Run({"--DeActive", "-R", "vipC", "-G", "grpC"})) << Dump();
  EXPECT_TRUE(Logged("INFO", "deactive rsc:vipC, grp:grpC")) << Dump();
  EXPECT_EQ("Internal error. (status=9)", Description("grpC", "vipC"));

  EXPECT_EQ(9, Run({"--ACTIVE", "-g", "grpD", "-R", "vipD"})) << Dump();
  EXPECT_TRUE(Logged("INFO", "active   rsc:vipD, grp:grpD")) << Dump();

  // Manual mode in capitals: the -A value reaches the address split.
  EXPECT_EQ(31, Run({"--ADD", "-A", "192.0.2.10/33"}));
  EXPECT_TRUE(Logged("ERROR", "over max mask bit num.(mask bit=33)")) << Dump();
  EXPECT_TRUE(Logged("ERROR", "vip_div_ipmask failed. (ret=31)")) << Dump();

  // The check-mode word in capitals selects check mode.
  EXPECT_EQ(1, Run({"--TEST"}));
  const std::string check = vyrtest::ReadFile(dir_ / "check.log");
  EXPECT_NE(std::string::npos, check.find("[rscname : ]")) << check;
  EXPECT_NE(std::string::npos, check.find("E [002] Invalid argument.")) << check;
}

TEST_F(EntryTest, TheResourcePrefixStartsAfterTheModeLine) {
  EXPECT_EQ(9, Run({"--active", "-r", "resource-long-name", "-g", "g1"}));
  auto info = Texts("INFO");
  ASSERT_FALSE(info.empty());
  EXPECT_TRUE(Logged("INFO", "active   rsc:resource-long-name, grp:g1")) << Dump();
  EXPECT_EQ("resource: return(ret=9)", info.back());
}

TEST_F(EntryTest, AValueThatBeginsWithADashIsNeverTakenAsAValue) {
  EXPECT_EQ(4, Run({"--active", "-r", "-g", "grp1"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (-r ?)")) << Dump();

  EXPECT_EQ(4, Run({"--active", "-r", "vipE", "-g", "grpE", "-i", "-a"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (-i ?)")) << Dump();
  EXPECT_EQ("Option was invalid.", Description("grpE", "vipE"));

  EXPECT_EQ(4, Run({"--deactive", "-g", "grpF", "-r", "vipF", "-g"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (-g ?)")) << Dump();
  EXPECT_EQ("Option was invalid.", Description("grpF", "vipF"));

  EXPECT_EQ(4, Run({"--add", "-i", "va0", "-a"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (-a ?)")) << Dump();
}

TEST_F(EntryTest, UnknownOptionIsWarnedAndTheRunGoesOn) {
  EXPECT_EQ(9, Run({"--deactive", "-x%d%s", "-r", "vipU", "-g", "grpU", "extra"}));
  EXPECT_TRUE(Logged("WARN", "Invalid option. (argv[i] : -x%d%s)")) << Dump();
  EXPECT_TRUE(Logged("WARN", "Invalid option. (argv[i] : extra)")) << Dump();
  EXPECT_TRUE(Logged("INFO", "deactive rsc:vipU, grp:grpU")) << Dump();
}

TEST_F(EntryTest, RepeatedOptionKeepsTheLastValue) {
  EXPECT_EQ(9, Run({"--deactive", "-r", "first", "-g", "grpR", "-r", "second"}));
  EXPECT_TRUE(Logged("INFO", "deactive rsc:second, grp:grpR")) << Dump();
  EXPECT_EQ("Internal error. (status=9)", Description("grpR", "second"));
  EXPECT_EQ("<none>", Description("grpR", "first"));
}

TEST_F(EntryTest, TooFewArgumentsOrAnUnknownModeAreInvalid) {
  EXPECT_EQ(4, Run({"--active"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (argc=2)")) << Dump();
  EXPECT_EQ(4, Run({"--active", "-r"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option. (argc=3)")) << Dump();

  EXPECT_EQ(4, Run({"--activate", "-r", "vipM", "-g", "grpM"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option.")) << Dump();
  // The mode word is refused before the options are read, so the run has
  // no resource to store a description for.
  EXPECT_EQ("", StatusTable());
}

TEST_F(EntryTest, ClusterModesNeedBothResourceAndGroup) {
  EXPECT_EQ(4, Run({"--active", "-r", "vipA"}));
  EXPECT_TRUE(Logged("ERROR", "Invalid option.")) << Dump();
  EXPECT_FALSE(Logged("INFO", "active   rsc:vipA, grp:")) << "the run stopped before its mode line";

  EXPECT_EQ(4, Run({"--deactive", "-g", "grpA", "-i", "va0"}));
  // The table has no row without a resource name; nothing else was stored.
  EXPECT_EQ("", StatusTable());
}

TEST_F(EntryTest, ManualAddWithoutAddressExitsWith4AndNoText) {
  EXPECT_EQ(4, Run({"--add", "-r", "vipN", "-g", "grpN"}));
  EXPECT_EQ("Success.", Description("grpN", "vipN"));
  EXPECT_TRUE(Texts("ERROR").empty()) << Dump();
  EXPECT_EQ("return(ret=4)", Texts("INFO").back());
}

TEST_F(EntryTest, ManualModeNeitherNeedsNorAnnouncesAResource) {
  EXPECT_EQ(31, Run({"--del", "-a", "2001:db8::10/129", "-g", "grpQ"}));
  EXPECT_TRUE(Logged("ERROR", "over max mask bit num.(mask bit=129)")) << Dump();
  for (const std::string& t : Texts("INFO")) EXPECT_EQ(std::string::npos, t.find("rsc:")) << t;
}

TEST_F(EntryTest, ValuesLongerThanTheirFieldsAreRefusedNotCut) {
  const std::string name31(31, 'n'), name32(32, 'n');
  // Fits: the run goes on to configuration loading.
  EXPECT_EQ(9, Run({"--deactive", "-r", name31, "-g", name31}));
  EXPECT_TRUE(Logged("INFO", "deactive rsc:" + name31 + ", grp:" + name31)) << Dump();

  struct Case {
    std::vector<std::string> args;
    const char* option;
  };
  const Case cases[] = {
      {{"--deactive", "-r", name32, "-g", "grpL"}, "-r"},
      {{"--deactive", "-r", "vipL", "-g", name32}, "-g"},
      {{"--deactive", "-r", "vipL", "-g", "grpL", "-i", name32}, "-i"},
      {{"--add", "-a", "192.0.2.1/24", "-i", name32}, "-i"},
      {{"--add", "-a", std::string(82, '1')}, "-a"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(4, Run(c.args)) << c.option;
    bool traced = false;
    for (const std::string& t : Texts("ERROR")) {
      traced = traced || t.rfind(std::string("Invalid option. (") + c.option + " : ", 0) == 0;
    }
    EXPECT_TRUE(traced) << c.option << "\n" << Dump();
  }
  EXPECT_EQ("Option was invalid.", Description("grpL", "vipL"));
  // A cut name would have stored a row for somebody else's resource.
  EXPECT_EQ("<none>", Description("grpL", name31));
  // 81 characters fit the -a buffer; the address part is then refused.
  EXPECT_EQ(31, Run({"--add", "-a", std::string(81, '1')}));
}

TEST_F(EntryTest, DynamicModeFailsWithTheStatusOfTheConfigurationUnderCheck) {
  const int ret = Run({"--DDeactive", "-r", "vipY", "-g", "grpY"});
  EXPECT_NE(0, ret);
  EXPECT_TRUE(Logged("INFO", "vipY    : Run with dynamic update mode.")) << Dump();
  EXPECT_TRUE(
      Logged("ERROR", "vipY    : vip_load_chkconf() failed. (ret=" + std::to_string(ret) + ")"))
      << Dump();
}

TEST_F(EntryTest, CheckModeWithWrongArgumentCountWritesInvalidArgument) {
  EXPECT_EQ(1, Run({"--test", "vip1", "vip2"}));
  const std::string check = vyrtest::ReadFile(dir_ / "check.log");
  EXPECT_NE(std::string::npos, check.find("*****START [type : vip][rscname : ]")) << check;
  EXPECT_NE(std::string::npos, check.find("E [002] Invalid argument.")) << check;
  EXPECT_EQ("", StatusTable()) << "check mode stores no description";
}

TEST_F(EntryTest, NonRootIsRefusedBeforeAnythingIsAttached) {
  if (vyrtest::Sh("command -v setpriv") != 0) GTEST_SKIP() << "setpriv not installed";
  const std::string nobody = "setpriv --reuid=65534 --regid=65534 --clear-groups";
  EXPECT_EQ(5, Run({"--active", "-r", "vipR", "-g", "grpR"}, nobody));
  EXPECT_EQ(1, Run({"--test", "vipR"}, nobody));
  EXPECT_EQ("", StatusTable());
  EXPECT_EQ("", vyrtest::ReadFile(LogPath()));
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
