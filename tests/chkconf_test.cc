// The check mode: check functions, policy ranges, runs, the check log's
// fall-back; then vyrvip --test and the dynamic-update modes run as the built
// program with a private install folder, configuration, policies and trace log.
#include "vip/check/chkconf.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "chklog/chklog.h"
#include "chkutil/chkutil.h"
#include "support/agent_fixture.h"
#include "support/log_lines.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kMask = "E [008] Subnet mask is invalid. (value=";
const std::string kNotSet = "E [009] Routing Protocol is not set.";

// Runs `check` in a check log for `rscname`: its result and the lines logged.
std::pair<int, Lines> CheckLogged(const std::string& rscname, const std::function<int()>& check) {
  vyrtest::TempDir dir;
  const std::string path = dir / "check.log";
  EXPECT_EQ(chk_log_init("vip", rscname.c_str(), path.c_str()), 0) << path;
  const int ret = check();
  chk_log_term("vip", rscname.c_str());
  Lines lines;
  std::istringstream in(vyrtest::ReadFile(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  if (lines.size() >= 2) lines = {lines.begin() + 1, lines.end() - 1};
  return {ret, lines};
}

int Interval(void* text) {
  int value = std::stoi(static_cast<const char*>(text));
  return vip_interval_check(&value);
}

// A wrong verdict or finding text for the address, protocol and interval values.
TEST(CheckFunctions, ValuesAndTheirFindings) {
  const std::tuple<int (*)(void*), std::string, Lines> cases[] = {
      {vip_vipaddr_check, "192.168.0.10/24", {}},
      {vip_vipaddr_check, "192.168.0.10", {}},
      {vip_vipaddr_check, "192.168.0.10/33", {kMask + "192.168.0.10/33)"}},
      {vip_vipaddr_check, "192.168.0.10/-1", {kMask + "192.168.0.10/-1)"}},
      {vip_vipaddr_check, "/24", {"E [003] Parameter IP address is empty."}},
      {vip_vipaddr_check,
       "192.168.0.300",
       {"E [006] IP address is invalid. (value=192.168.0.300)"}},
      {vip_vipaddr_check, "fe80::1/64", {}},
      {vip_vipaddr_check, "fe80::1/129", {kMask + "fe80::1/129)"}},
      {vip_protocol_check, "RIPver2,RIPngver1", {}},
      {vip_protocol_check, "RIPver1, RIPver2", {"E [010] Remove top blank. (value= RIPver2)"}},
      {vip_protocol_check, "RIPver1 ,RIPver2", {"E [011] Remove tail blank. (value=RIPver1 )"}},
      {vip_protocol_check, "RIPver1,,", {kNotSet, kNotSet}},
      {vip_protocol_check, "ripver1", {"E [012] Routing Protocol is invalid. (value=ripver1)"}},
      {Interval, "0", {"E [004] Value of Send Interval is out of range. (value=0)"}},
      {Interval, "1", {}},
      {Interval, "30", {}},
      {Interval, "31", {"E [004] Value of Send Interval is out of range. (value=31)"}},
  };
  for (const auto& [check, value, lines] : cases) {
    std::string copy = value;
    EXPECT_EQ(CheckLogged("t", [&check = check, &copy] { return check(copy.data()); }),
              std::make_pair(lines.empty() ? 0 : 1, lines))
        << '"' << value << '"';
  }
}

// A wrong verdict, a lost or extra finding, or the checked configuration left loaded.
TEST(ConfCheck, WholeRunsGiveTheirVerdictAndFindings) {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv config("VYR_CONFIG", dir / "cluster.xml");
  vyrtest::ScopedEnv policies("VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy");
  vyrtest::WriteFile(dir / "cluster.xml",
                     "<root><all><path>" VYR_TESTDATA_DIR
                     "/chkconf</path></all><cluster><check>"
                     "<chkconf>three_servers.xml</chkconf></check></cluster></root>\n");
  ASSERT_EQ(xmllib_init("vip"), 0);
  ASSERT_EQ(xmllib_load_config(), 0);
  const std::pair<std::string, std::pair<int, Lines>> cases[] = {
      // Two of three servers lack a source address: one line.
      {"srcmissing", {1, {"E [013] Parameter Source IP Address is required for each server."}}},
      // The comment is judged first; the bad properties are never examined.
      {"nocomment", {1, {"E [097] Path of Comment does not exist."}}},
      {"longcomment", {1, {"E [098] Length of Comment is out of range."}}},
      // Defence and address change settings: sound at their range ends, faults in order.
      {"defence", {0, {}}},
      {"baddefence",
       {1,
        {"E [004] Value of NA Retry is out of range. (value=11)",
         "E [014] Value of DAD Timeout is not a number. (value=2s)",
         "E [003] Parameter ARP Probe Timeout is empty.",
         "E [004] Value of DAD Probe is out of range. (value=20001)",
         "E [004] Value of ARP Background is out of range. (value=2)",
         "E [004] Value of Rtnetlink is out of range. (value=2)",
         "E [004] Value of Preferred Lifetime is out of range. (value=-2)",
         "E [014] Value of ARP Check Timeout is not a number. (value=0.2)",
         "E [004] Value of ARP Check Background is out of range. (value=3)",
         "E [007] NIC alias is invalid. (value=a b)",
         "E [006] IP address is invalid. (value=192.0.2)"}}},
      {"negdefence",
       {1,
        {"E [004] Value of ARP Probe Timeout is out of range. (value=-1)",
         "E [004] Value of ARP Interval is out of range. (value=-1)",
         "E [007] NIC alias is invalid. (value=abcdefghijklmn)"}}},
      {"longproto",
       {99, {"E [003] Parameter Source IP Address is empty.", "E [099] Internal error occurred."}}},
  };
  for (const auto& [rscname, outcome] : cases) {
    EXPECT_EQ(
        CheckLogged(rscname, [&rscname = rscname] { return vip_conf_check(rscname.c_str()); }),
        outcome)
        << rscname;
    EXPECT_EQ(hchkconf, nullptr) << rscname << ": the configuration under check stays loaded";
  }
  xmllib_term();
}

// A value outside its range that passes, a range taken from the wrong policy
// entry, or an unreadable value that does not end the check with 99.
TEST(NumericValues, JudgedAgainstThePolicyRanges) {
  vyrtest::ScopedEnv config("VYR_CONFIG", VYR_TESTDATA_DIR "/chkconf/numeric.xml");
  vyrtest::ScopedEnv policies("VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy");
  ASSERT_EQ(xmllib_init("vip"), 0);
  ASSERT_EQ(xmllib_load_config(), 0);
  ASSERT_EQ(xmllib_load_policy("vip"), 0);
  const std::string kRange = "E [042] Value of P is out of range. (value=";
  // param1: 1 to 30; param2, param3 and no index: 0 to 1.
  const std::tuple<std::string, const char*, std::pair<int, std::vector<std::string>>> cases[] = {
      {"interval_ok", "1", {0, {}}},
      {"interval_high", "1", {1, {kRange + "31)"}}},
      {"interval_low", "1", {1, {kRange + "0)"}}},
      {"flag_two", nullptr, {1, {kRange + "2)"}}},
      {"flag_two", "2", {1, {kRange + "2)"}}},
      {"flag_one", "3", {0, {}}},
      {"nothing", nullptr, {99, {}}},
  };
  for (const auto& [leaf, index, outcome] : cases) {
    const std::string path = "/root/resource/vip@%s/parameters/" + leaf;
    const numeric_param param{"P", path.c_str(), index};
    EXPECT_EQ(CheckLogged("num", [&] { return check_numeric_values("num", &param, 1, 42); }),
              outcome)
        << leaf;
  }
  xmllib_term();  // releases the configuration and policy too
}

// A file 8 bytes short of its size limit takes the start of the first line (a
// short write, no errno) and refuses the rest and every later line with EFBIG.
TEST(ChkLog, FailedWritesGoToTheTraceLog) {
  vyrtest::TempDir dir;
  constexpr rlim_t kLimit = 65536;
  const std::string path = dir / "limited";
  vyrtest::WriteFile(path, std::string(kLimit - 8, 'x'));
  vyrtest::TraceCapture trace;
  const pid_t pid = ::fork();
  if (pid == 0) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit lim{kLimit, kLimit};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) ::_exit(99);
    const int init = chk_log_init("vip", "vip1", path.c_str());
    const int write = CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_MASK_ERR, "10.0.0.1/40");
    ::_exit(init * 100 + write * 10 + chk_log_term("vip", "vip1"));
  }
  int status = -1;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 11) << "opened; 2 lines failed";
  EXPECT_EQ(trace.Texts("ERROR"), Lines(3, "write() failed. (errno = 27)"));
  EXPECT_EQ(trace.Texts("INFO"), (Lines{"*****START [type : vip][rscname : vip1]",
                                        "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                                        "*****END [type : vip][rscname : vip1]"}));
  EXPECT_EQ(vyrtest::ReadFile(path).substr(kLimit - 10), "xx*****STA") << "the short write";
}

const std::string kVip1 =
    "E [008] Subnet mask is invalid. (value=10.0.0.1/40)\n"
    "E [012] Routing Protocol is invalid. (value=RIPv2)\n";

std::string Dyn(const std::string& ip) {
  return vyrtest::Resource("dyn", vyrtest::OnVa0(ip, vyrtest::kNoProbe + vyrtest::kNoArp));
}

class CheckMode : public vyrtest::CheckEnvTest {
 protected:
  void SetUp() override { SetUpCheck(Dyn("192.0.2.1/24")); }
  std::string Vyrvip(const std::string& args) const { return env_.VyrvipLine(args); }
};

// Each run appends its whole block to a 0644 file, earlier blocks kept, and
// exits with its verdict; a wrong argument count is "Invalid argument.".
TEST_F(CheckMode, EachRunAppendsItsBlockAndExitsWithTheVerdict) {
  // Arguments, the resource name of the block, exit status, lines of the block.
  const std::tuple<std::string, std::string, int, std::string> runs[] = {
      {"--test good", "good", 0, "I [001] Success in a composition check.\n"},
      {"--TEST vip1", "vip1", 1, kVip1},
      {"--test", "", 1, "E [002] Invalid argument.\n"},
      {"--test vip1 good", "", 1, "E [002] Invalid argument.\n"},
  };
  std::string expected;
  for (const auto& [args, rscname, status, body] : runs) {
    const std::string tag = "[type : vip][rscname : " + rscname + "]\n";
    expected += "*****START " + tag + body + "*****END " + tag;
    EXPECT_EQ(vyrtest::Sh("umask 0; " + Vyrvip(args)), status) << args;
    EXPECT_EQ(vyrtest::ReadFile(check_), expected) << args;
  }
  struct stat st {};
  ASSERT_EQ(::stat(check_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

// A check log that cannot be opened loses no line: all go to the trace log.
TEST_F(CheckMode, MissingCheckLogFolderSendsEveryLineToTheTraceLog) {
  vyrtest::Sh("rmdir '" + env_.prefix() + "/var/check'");
  EXPECT_EQ(vyrtest::Sh(Vyrvip("--test vip1")), 1);
  std::string info;
  bool open_traced = false;
  for (const vyrtest::LogLine& l : vyrtest::ReadLogLines(trace_)) {
    if (l.level == "INFO") info += l.text + "\n";
    open_traced |= l.level == "ERROR" && l.text == "open(" + check_ + ") failed. (errno = 2)";
  }
  EXPECT_TRUE(open_traced);
  const std::string tag = "[type : vip][rscname : vip1]\n";
  EXPECT_NE(info.find("*****START " + tag + kVip1 + "*****END " + tag), std::string::npos) << info;
}

// Dynamic update adds and removes the address under check, not the running
// one; without a loadable configuration under check it exits with the
// loader's status rather than falling back to the running configuration.
TEST_F(CheckMode, DynamicUpdateTakesTheAddressUnderCheckOrNone) {
  SetUpNamespaces();
  if (IsSkipped()) return;
  vyrtest::WriteFile(chkconf_, "<root><resource>" + Dyn("203.0.113.7/28") + "</resource></root>\n");
  std::string out;
  EXPECT_EQ(pair_->InAgent(Vyrvip("--dactive -r dyn -g grp"), &out), 0) << out;
  EXPECT_TRUE(HasAddr("", "203.0.113.7/28")) << Addrs();
  EXPECT_FALSE(HasAddr("", "192.0.2.1/")) << Addrs();
  EXPECT_EQ(pair_->InAgent(Vyrvip("--ddeactive -r dyn -g grp"), &out), 0) << out;
  EXPECT_FALSE(HasAddr("", "203.0.113.7")) << Addrs();
  ASSERT_EQ(::unlink(chkconf_.c_str()), 0);
  for (const char* mode : {"--dactive", "--ddeactive"}) {
    EXPECT_EQ(vyrtest::Sh(Vyrvip(std::string(mode) + " -r dyn -g grp")), VYR_XMLERR_NOT_LOAD)
        << mode;
  }
}

}  // namespace
