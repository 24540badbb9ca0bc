// vyrvip --test and the dynamic-update modes, run as the built program with
// a private install folder, configuration, policies and trace log.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/check_session.h"
#include "support/netns.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using Lines = std::vector<std::string>;
using vyrtest::ReadFile;
using vyrtest::SplitLines;
using vyrtest::WriteFile;

const std::string kBinary = std::string(VYR_BINARY_DIR) + "/src/vyrvip";
const std::string kChecked = std::string(VYR_TESTDATA_DIR) + "/chkconf/three_servers.xml";

// A private installation: <dir>/inst is the install folder (/root/all/path),
// <dir>/cluster.xml the running configuration, <dir>/log the trace logs.
class Install {
 public:
  explicit Install(const std::string& rdrctpath = "var/check/vip.log") {
    vyrtest::Sh("mkdir -p \"" + dir_.path() + "/inst/var/check\" \"" + dir_.path() + "/log\"");
    WriteFile(dir_ / "inst/chkconf.xml", ReadFile(kChecked));
    WriteFile(dir_ / "cluster.xml",
              "<root>\n"
              "  <all><path>" +
                  dir_.path() +
                  "/inst</path></all>\n"
                  "  <cluster><check><rdrctpath>" +
                  rdrctpath +
                  "</rdrctpath><chkconf>chkconf.xml</chkconf></check></cluster>\n"
                  "  <vip><log><level>8</level></log></vip>\n"
                  "  <resource><vip name=\"dyn\"><parameters><ip>192.0.2.1/24</ip>"
                  "<ifname>va0</ifname><ping><timeout>0</timeout></ping><arp><retry>0</retry>"
                  "</arp></parameters></vip></resource>\n"
                  "</root>\n");
  }

  std::string CheckLogPath() const { return dir_ / "inst/var/check/vip.log"; }
  std::string ChkconfPath() const { return dir_ / "inst/chkconf.xml"; }
  std::string Env() const {
    return "VYR_CONFIG=\"" + (dir_ / "cluster.xml") +
           "\" VYR_POLICY_DIR=\"" VYR_SOURCE_DIR "/platform/policy\" VYR_LOG_DIR=\"" +
           (dir_ / "log") + "\" VYR_RUN_DIR=\"" + (dir_ / "run") + "\"";
  }
  std::string Command(const std::string& args) const {
    return "env " + Env() + " \"" + kBinary + "\" " + args;
  }
  int Vyrvip(const std::string& args, std::string* out = nullptr) const {
    return vyrtest::Sh(Command(args), out);
  }
  // The texts of the trace log's lines of one level.
  Lines Trace(const std::string& level) const {
    Lines texts;
    for (const std::string& line : SplitLines(ReadFile(dir_ / "log/vip.log"))) {
      vyrtest::TraceLine parsed;
      if (vyrtest::ParseTraceLine(line, &parsed) && parsed.level == level) {
        texts.push_back(parsed.text);
      }
    }
    return texts;
  }

 private:
  vyrtest::TempDir dir_;
};

class CheckMode : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "vyrvip runs as root only";
    if (::access(kBinary.c_str(), X_OK) != 0) GTEST_SKIP() << "no " << kBinary;
  }
};

TEST_F(CheckMode, EachRunAppendsItsBlockAndExitsWithTheVerdict) {
  const std::string good =
      "*****START [type : vip][rscname : good]\n"
      "I [001] Success in a composition check.\n"
      "*****END [type : vip][rscname : good]\n";
  const std::string invalid =
      "*****START [type : vip][rscname : ]\n"
      "E [002] Invalid argument.\n"
      "*****END [type : vip][rscname : ]\n";
  Install inst;
  EXPECT_EQ(inst.Vyrvip("--test good"), 0);
  EXPECT_EQ(inst.Vyrvip("--TEST vip1"), 1) << "the mode word ignores case";
  EXPECT_EQ(inst.Vyrvip("--test"), 1);
  EXPECT_EQ(inst.Vyrvip("--test vip1 good"), 1);
  EXPECT_EQ(ReadFile(inst.CheckLogPath()),
            good +
                "*****START [type : vip][rscname : vip1]\n"
                "E [008] Subnet mask is invalid. (value=10.0.0.1/40)\n"
                "E [012] Routing Protocol is invalid. (value=RIPv2)\n"
                "*****END [type : vip][rscname : vip1]\n" +
                invalid + invalid);
}

TEST_F(CheckMode, MissingCheckLogFolderSendsEveryLineToTheTraceLog) {
  Install inst("no/such/folder/vip.log");
  EXPECT_EQ(inst.Vyrvip("--test vip1"), 1);
  const Lines block = {
      "*****START [type : vip][rscname : vip1]",
      "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
      "E [012] Routing Protocol is invalid. (value=RIPv2)",
      "*****END [type : vip][rscname : vip1]",
  };
  const Lines info = inst.Trace("INFO");
  EXPECT_NE(std::search(info.begin(), info.end(), block.begin(), block.end()), info.end());
  const Lines errors = inst.Trace("ERROR");
  EXPECT_TRUE(std::any_of(errors.begin(), errors.end(), [](const std::string& e) {
    return e.rfind("open(", 0) == 0 &&
           e.find("no/such/folder/vip.log) failed. (errno = 2)") != std::string::npos;
  }));
}

TEST_F(CheckMode, DynamicUpdateWithoutConfigurationUnderCheckExitsWithLoaderStatus) {
  Install inst;
  ASSERT_EQ(::unlink(inst.ChkconfPath().c_str()), 0);
  // What the configuration library answers for a file that is not there.
  void* handle = nullptr;
  ASSERT_EQ(xmllib_init("vip"), 0);
  int expected = xmllib_load_pathconfig(inst.ChkconfPath().c_str(), &handle);
  xmllib_term();
  ASSERT_NE(expected, 0);
  EXPECT_EQ(inst.Vyrvip("--dactive -r dyn -g grp"), expected);
  EXPECT_EQ(inst.Vyrvip("--ddeactive -r dyn -g grp"), expected);
}

TEST_F(CheckMode, DynamicUpdateActivationTakesTheAddressUnderCheck) {
  VYR_NETNS_PAIR_OR_SKIP(pair);
  Install inst;
  WriteFile(inst.ChkconfPath(),
            "<root><resource><vip name=\"dyn\"><parameters><ip>203.0.113.7/28</ip>"
            "<ifname>va0</ifname><ping><timeout>0</timeout></ping><arp><retry>0</retry></arp>"
            "</parameters></vip></resource></root>\n");
  std::string out;
  EXPECT_EQ(pair->InAgent(inst.Command("--dactive -r dyn -g grp"), &out), 0) << out;
  std::string addrs;
  ASSERT_EQ(pair->InAgent("ip -o addr show dev va0", &addrs), 0);
  EXPECT_NE(addrs.find("203.0.113.7/28"), std::string::npos) << addrs;
  EXPECT_EQ(addrs.find("192.0.2.1/"), std::string::npos) << addrs;

  EXPECT_EQ(pair->InAgent(inst.Command("--ddeactive -r dyn -g grp"), &out), 0) << out;
  ASSERT_EQ(pair->InAgent("ip -o addr show dev va0", &addrs), 0);
  EXPECT_EQ(addrs.find("203.0.113.7"), std::string::npos) << addrs;
}

}  // namespace
