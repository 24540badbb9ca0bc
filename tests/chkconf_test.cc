// The virtual IP checks: every check function on the values operators write,
// and whole check runs of vip_conf_check over configurations under check.
#include "vip/chkconf.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "chklog/chklog.h"
#include "support/check_session.h"
#include "support/trace_capture.h"
#include "vip/config.h"
#include "vip/globals.h"
#include "vyrxml.h"

namespace {

using vyrtest::CheckLogFile;
using vyrtest::TraceCapture;
using Lines = std::vector<std::string>;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/chkconf";

// Runs one check function on a text value; returns its result and the lines
// it wrote.
int CheckText(int (*check)(void*), const std::string& value, Lines* lines) {
  CheckLogFile log;
  std::string copy = value;
  int ret = check(copy.data());
  *lines = log.Body();
  return ret;
}

struct TextCase {
  std::string value;
  Lines lines;
};

void ExpectTextCases(int (*check)(void*), const std::vector<TextCase>& cases) {
  for (const TextCase& c : cases) {
    Lines lines;
    int ret = CheckText(check, c.value, &lines);
    EXPECT_EQ(lines, c.lines) << "value \"" << c.value << "\"";
    EXPECT_EQ(ret, c.lines.empty() ? 0 : 1) << "value \"" << c.value << "\"";
  }
}

class CheckFunctions : public ::testing::Test {
 protected:
  void SetUp() override { srcipaddrflag = 0; }
};

TEST_F(CheckFunctions, IpAddressValues) {
  const std::string mask = "E [008] Subnet mask is invalid. (value=";
  ExpectTextCases(vip_vipaddr_check,
                  {
                      {"192.168.0.10/24", {}},
                      {"192.168.0.10", {}},
                      {"192.168.0.10/33", {mask + "192.168.0.10/33)"}},
                      {"192.168.0.10/", {mask + "192.168.0.10/)"}},
                      {"192.168.0.10/x", {mask + "192.168.0.10/x)"}},
                      {"192.168.0.10/-1", {mask + "192.168.0.10/-1)"}},
                      {"/24", {"E [003] Parameter IP address is empty."}},
                      {"192.168.0.300", {"E [006] IP address is invalid. (value=192.168.0.300)"}},
                      {"fe80::1/64", {}},
                      {"fe80::1/129", {mask + "fe80::1/129)"}},
                      {"2001:db8::1/128", {}},
                      {"192.0.2.1/32", {}},
                      {"192.0.2.1/0", {}},
                      {"2001:db8::zz/64", {"E [006] IP address is invalid. (value=2001:db8::zz)"}},
                  });
}

TEST_F(CheckFunctions, RoutingProtocolValues) {
  ExpectTextCases(
      vip_protocol_check,
      {
          {"RIPver2,RIPngver1", {}},
          {"RIPver1,RIPver1", {}},
          {"RIPver1,RIPver2,RIPngver1,RIPngver2,RIPngver3", {}},
          {"RIPver1, RIPver2", {"E [010] Remove top blank. (value= RIPver2)"}},
          {"RIPver1 ,RIPver2", {"E [011] Remove tail blank. (value=RIPver1 )"}},
          {"RIPver1,\tRIPver2", {"E [010] Remove top blank. (value=\tRIPver2)"}},
          {"RIPver1,", {"E [009] Routing Protocol is not set."}},
          {"RIPver1,,",
           {"E [009] Routing Protocol is not set.", "E [009] Routing Protocol is not set."}},
          {",RIPver1", {"E [009] Routing Protocol is not set."}},
          {"ripver1", {"E [012] Routing Protocol is invalid. (value=ripver1)"}},
          {"RIPv2", {"E [012] Routing Protocol is invalid. (value=RIPv2)"}},
          // One finding per element, every element judged.
          {" a ,b ,OSPF",
           {"E [010] Remove top blank. (value= a )", "E [011] Remove tail blank. (value=b )",
            "E [012] Routing Protocol is invalid. (value=OSPF)"}},
          {"", {"E [003] Parameter Routing Protocol is empty."}},
      });
}

TEST_F(CheckFunctions, SendIntervalBounds) {
  struct Case {
    int value;
    Lines lines;
  } cases[] = {
      {0, {"E [004] Value of Send Interval is out of range. (value=0)"}},
      {1, {}},
      {30, {}},
      {31, {"E [004] Value of Send Interval is out of range. (value=31)"}},
      {-5, {"E [004] Value of Send Interval is out of range. (value=-5)"}},
  };
  for (Case& c : cases) {
    CheckLogFile log;
    int ret = vip_interval_check(&c.value);
    EXPECT_EQ(log.Body(), c.lines) << c.value;
    EXPECT_EQ(ret, c.lines.empty() ? 0 : 1) << c.value;
  }
}

TEST_F(CheckFunctions, NamesAndAddressesMustNotBeEmpty) {
  ExpectTextCases(vip_ifname_check,
                  {{"eth0:1", {}}, {"", {"E [003] Parameter NIC Alias Name is empty."}}});
  ExpectTextCases(
      vip_destipaddr_check,
      {{"198.51.100.1", {}},
       {"2001:db8::1", {}},
       {"", {"E [003] Parameter Destination IP Address is empty."}},
       {"198.51.100.1/24", {"E [006] IP address is invalid. (value=198.51.100.1/24)"}}});
  ExpectTextCases(vip_srcipaddr_check,
                  {{"203.0.113.9", {}},
                   {"", {"E [003] Parameter Source IP Address is empty."}},
                   {"host.example", {"E [006] IP address is invalid. (value=host.example)"}}});
}

TEST_F(CheckFunctions, MissingServerSourceAddressIsWrittenOncePerRun) {
  CheckLogFile log;
  std::string empty;
  std::string bad = "198.51.100.999";
  EXPECT_EQ(vip_srcipaddr_server_check(empty.data()), 1);
  EXPECT_EQ(vip_srcipaddr_server_check(empty.data()), 1);
  EXPECT_EQ(vip_srcipaddr_server_check(bad.data()), 1);
  EXPECT_EQ(vip_srcipaddr_server_check(empty.data()), 1);
  EXPECT_EQ(log.Body(), (Lines{"E [013] Parameter Source IP Address is required for each server.",
                               "E [006] IP address is invalid. (value=198.51.100.999)"}));
}

// A running configuration that points the check at one of the files under
// tests/testdata/chkconf, with the shipped policies.
class ConfCheck : public ::testing::Test {
 protected:
  void Use(const std::string& chkconf) {
    vyrtest::WriteFile(dir_ / "cluster.xml",
                       "<root><all><path>" + kData + "</path></all><cluster><check><chkconf>" +
                           chkconf +
                           "</chkconf></check></cluster>"
                           "<resource><vip name=\"dyn\"><parameters><ip>192.0.2.1/24</ip>"
                           "<ifname>va0</ifname></parameters></vip></resource></root>\n");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
  }
  void SetUp() override { srcipaddrflag = 0; }
  void TearDown() override {
    vip_unload_chkconf();
    xmllib_unload_config();
    xmllib_term();
  }

  // One whole check run: the check log's lines and vip_conf_check's result.
  int Run(const std::string& rscname, Lines* lines) {
    CheckLogFile log(rscname);
    int ret = vip_conf_check(rscname.c_str());
    *lines = log.Close();
    return ret;
  }

  vyrtest::TempDir dir_;
  vyrtest::ScopedEnv config_{"VYR_CONFIG", dir_ / "cluster.xml"};
  vyrtest::ScopedEnv policies_{"VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy"};
};

TEST_F(ConfCheck, BadMaskAndUnknownProtocolBlock) {
  Use("three_servers.xml");
  Lines lines;
  EXPECT_EQ(Run("vip1", &lines), 1);
  EXPECT_EQ(lines, (Lines{"*****START [type : vip][rscname : vip1]",
                          "E [008] Subnet mask is invalid. (value=10.0.0.1/40)",
                          "E [012] Routing Protocol is invalid. (value=RIPv2)",
                          "*****END [type : vip][rscname : vip1]"}));
  // The configuration under check is released again.
  EXPECT_EQ(hchkconf, nullptr);
}

TEST_F(ConfCheck, SoundResourceHasNoFinding) {
  Use("three_servers.xml");
  Lines lines;
  EXPECT_EQ(Run("good", &lines), 0);
  EXPECT_EQ(lines.size(), 2u) << lines.back();
}

TEST_F(ConfCheck, FindingsInTableOrderCommonFirstThenServers) {
  Use("three_servers.xml");
  Lines lines;
  EXPECT_EQ(Run("order", &lines), 1);
  EXPECT_EQ(lines, (Lines{
                       "*****START [type : vip][rscname : order]",
                       "E [003] Parameter IP address is empty.",
                       "E [008] Subnet mask is invalid. (value=192.0.2.1/33)",
                       "E [003] Parameter NIC Alias Name is empty.",
                       "E [003] Parameter NIC Alias Name is empty.",
                       "E [006] IP address is invalid. (value=198.51.100.300)",
                       "E [003] Parameter Source IP Address is empty.",
                       "E [006] IP address is invalid. (value=not-an-address)",
                       "E [004] Value of Send Interval is out of range. (value=0)",
                       "E [004] Value of Send Interval is out of range. (value=31)",
                       "E [009] Routing Protocol is not set.",
                       "E [012] Routing Protocol is invalid. (value=ripver2)",
                       "E [010] Remove top blank. (value= RIPver1)",
                       "*****END [type : vip][rscname : order]",
                   }));
}

TEST_F(ConfCheck, TwoOfThreeServersWithoutSourceAddressGiveOneLine) {
  Use("three_servers.xml");
  Lines lines;
  EXPECT_EQ(Run("srcmissing", &lines), 1);
  EXPECT_EQ(lines, (Lines{"*****START [type : vip][rscname : srcmissing]",
                          "E [013] Parameter Source IP Address is required for each server.",
                          "*****END [type : vip][rscname : srcmissing]"}));
}

TEST_F(ConfCheck, OneServerWithoutSourceAddressIsSound) {
  Use("one_server.xml");
  Lines lines;
  EXPECT_EQ(Run("srcmissing", &lines), 0);
  EXPECT_EQ(lines.size(), 2u);
}

TEST_F(ConfCheck, CommentFindingStopsTheCheck) {
  Use("three_servers.xml");
  // Both resources carry bad values that would be reported if examined.
  struct Case {
    std::string rscname;
    std::string line;
  } cases[] = {
      {"nocomment", "E [097] Path of Comment does not exist."},
      {"longcomment", "E [098] Length of Comment is out of range."},
  };
  for (const Case& c : cases) {
    TraceCapture trace;
    Lines lines;
    EXPECT_EQ(Run(c.rscname, &lines), 1) << c.rscname;
    ASSERT_EQ(lines.size(), 3u) << c.rscname;
    EXPECT_EQ(lines[1], c.line);
    EXPECT_TRUE(trace.Contains("xmllib_get_value(/root/resource/vip@" + c.rscname +
                               "/comment) failed. (ret="))
        << c.rscname;
    EXPECT_FALSE(trace.Contains("check_properties()  ENTRY...")) << c.rscname;
  }
}

TEST_F(ConfCheck, ProtocolTooLongForItsBufferEndsWithInternalError) {
  Use("three_servers.xml");
  TraceCapture trace;
  Lines lines;
  EXPECT_EQ(Run("longproto", &lines), 99);
  EXPECT_EQ(lines, (Lines{"*****START [type : vip][rscname : longproto]",
                          "E [003] Parameter Source IP Address is empty.",
                          "E [099] Internal error occurred.",
                          "*****END [type : vip][rscname : longproto]"}));
  EXPECT_TRUE(trace.Contains("check_properties() failed. (ret=99)"));
}

TEST_F(ConfCheck, UnreadableIntervalKeepsEarlierFindings) {
  Use("three_servers.xml");
  Lines lines;
  EXPECT_EQ(Run("badinterval", &lines), 99);
  EXPECT_EQ(lines, (Lines{"*****START [type : vip][rscname : badinterval]",
                          "E [013] Parameter Source IP Address is required for each server.",
                          "E [099] Internal error occurred.",
                          "*****END [type : vip][rscname : badinterval]"}));
}

TEST_F(ConfCheck, MissingConfigurationUnderCheckReturnsTheLoaderStatus) {
  Use("no-such-file.xml");
  void* handle = nullptr;
  int expected = xmllib_load_pathconfig((kData + "/no-such-file.xml").c_str(), &handle);
  ASSERT_NE(expected, 0);
  TraceCapture trace;
  Lines lines;
  EXPECT_EQ(Run("vip1", &lines), expected);
  EXPECT_EQ(lines,
            (Lines{"*****START [type : vip][rscname : vip1]", "E [099] Internal error occurred.",
                   "*****END [type : vip][rscname : vip1]"}));
  EXPECT_TRUE(
      trace.Contains("xmllib_load_pathconfig() failed. (ret=" + std::to_string(expected) + ")"));
  EXPECT_TRUE(trace.Contains("vip_load_chkconf() failed. (ret=" + std::to_string(expected) + ")"));
}

TEST_F(ConfCheck, LoadSwitchesLookupsAndUnloadSwitchesBack) {
  Use("three_servers.xml");
  char ip[82] = {};
  int size = sizeof ip;
  ASSERT_EQ(xmllib_get_value("/root/resource/vip@dyn/parameters/ip", 0, ip, &size), 0);
  EXPECT_STREQ(ip, "192.0.2.1/24");

  ASSERT_EQ(vip_load_chkconf(), 0);
  EXPECT_NE(hchkconf, nullptr);
  size = sizeof ip;
  EXPECT_EQ(xmllib_get_value("/root/resource/vip@dyn/parameters/ip", 0, ip, &size),
            VYR_XMLERR_NOTEXIST_PATH);
  size = sizeof ip;
  ASSERT_EQ(xmllib_get_value("/root/resource/vip@vip1/parameters/ip", 0, ip, &size), 0);
  EXPECT_STREQ(ip, "10.0.0.1/40");

  vip_unload_chkconf();
  EXPECT_EQ(hchkconf, nullptr);
  vip_unload_chkconf();  // nothing loaded: does nothing
  size = sizeof ip;
  ASSERT_EQ(xmllib_get_value("/root/resource/vip@dyn/parameters/ip", 0, ip, &size), 0);
  EXPECT_STREQ(ip, "192.0.2.1/24");
}

TEST_F(ConfCheck, DynamicUpdateSettingsComeFromTheConfigurationUnderCheck) {
  Use("dynamic.xml");
  ASSERT_EQ(vip_load_chkconf(), 0);
  VIP_INFO info{};
  std::snprintf(info.rscname, sizeof info.rscname, "dyn");
  int saved = actflag;
  actflag = 0;
  int ret = vip_xml_get_config(&info);
  actflag = saved;
  ASSERT_EQ(ret, 0);
  EXPECT_STREQ(info.addr, "203.0.113.7");
  EXPECT_EQ(info.masklen, 28);
  EXPECT_STREQ(info.ifname, "vb9");
  EXPECT_EQ(info.pingretry, 4);
}

}  // namespace
