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
const std::string kMask = "E [008] Subnet mask is invalid. (value=";
const std::string kTop = "E [010] Remove top blank. (value=";
const std::string kNotSet = "E [009] Routing Protocol is not set.";
const std::string kBadIp = "E [006] IP address is invalid. (value=";

TEST(CheckFunctions, ValuesAndTheirFindings) {
  struct Case {
    int (*check)(void*);
    std::string value;
    Lines lines;
  };
  const Case cases[] = {
      {vip_vipaddr_check, "192.168.0.10/24", {}},
      {vip_vipaddr_check, "192.168.0.10", {}},
      {vip_vipaddr_check, "192.168.0.10/33", {kMask + "192.168.0.10/33)"}},
      {vip_vipaddr_check, "192.168.0.10/", {kMask + "192.168.0.10/)"}},
      {vip_vipaddr_check, "192.168.0.10/x", {kMask + "192.168.0.10/x)"}},
      {vip_vipaddr_check, "192.168.0.10/-1", {kMask + "192.168.0.10/-1)"}},
      {vip_vipaddr_check, "/24", {"E [003] Parameter IP address is empty."}},
      {vip_vipaddr_check, "192.168.0.300", {kBadIp + "192.168.0.300)"}},
      {vip_vipaddr_check, "fe80::1/64", {}},
      {vip_vipaddr_check, "fe80::1/129", {kMask + "fe80::1/129)"}},
      {vip_protocol_check, "RIPver2,RIPngver1", {}},
      {vip_protocol_check, "RIPver1,RIPver1", {}},
      {vip_protocol_check, "RIPver1,RIPver2,RIPngver1,RIPngver2,RIPngver3", {}},
      {vip_protocol_check, "RIPver1, RIPver2", {kTop + " RIPver2)"}},
      {vip_protocol_check, "RIPver1 ,RIPver2", {"E [011] Remove tail blank. (value=RIPver1 )"}},
      {vip_protocol_check, "RIPver1,", {kNotSet}},
      {vip_protocol_check, "RIPver1,,", {kNotSet, kNotSet}},
      {vip_protocol_check, "ripver1", {"E [012] Routing Protocol is invalid. (value=ripver1)"}},
      // One finding per element, every element judged.
      {vip_protocol_check,
       " a ,b ,OSPF",
       {kTop + " a )", "E [011] Remove tail blank. (value=b )",
        "E [012] Routing Protocol is invalid. (value=OSPF)"}},
      {vip_protocol_check, "", {"E [003] Parameter Routing Protocol is empty."}},
      {vip_ifname_check, "", {"E [003] Parameter NIC Alias Name is empty."}},
      {vip_destipaddr_check, "198.51.100.1/24", {kBadIp + "198.51.100.1/24)"}},
      {vip_srcipaddr_check, "", {"E [003] Parameter Source IP Address is empty."}},
  };
  for (const Case& c : cases) {
    CheckLogFile log;
    std::string copy = c.value;
    const int ret = c.check(copy.data());
    EXPECT_EQ(log.Body(), c.lines) << '"' << c.value << '"';
    EXPECT_EQ(ret, c.lines.empty() ? 0 : 1) << '"' << c.value << '"';
  }
  for (int value : {0, 1, 30, 31}) {
    CheckLogFile log;
    const bool bad = value == 0 || value == 31;
    EXPECT_EQ(vip_interval_check(&value), bad ? 1 : 0) << value;
    EXPECT_EQ(log.Body(), bad ? Lines{"E [004] Value of Send Interval is out of range. (value=" +
                                      std::to_string(value) + ")"}
                              : Lines{})
        << value;
  }
}

// A running configuration that points the check at one of the files under
// tests/testdata/chkconf, with the shipped policies.
class ConfCheck : public ::testing::Test {
 protected:
  void Use(const std::string& chkconf) {
    vyrtest::WriteFile(dir_ / "cluster.xml",
                       "<root><all><path>" + kData + "</path></all><cluster><check><chkconf>" +
                           chkconf +
                           "</chkconf></check></cluster><resource><vip name=\"dyn\"><parameters>"
                           "<ip>192.0.2.1/24</ip><ifname>va0</ifname></parameters></vip>"
                           "</resource></root>\n");
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0);
    loaded_ = true;
  }
  void SetUp() override { srcipaddrflag = 0; }
  void TearDown() override {
    if (!loaded_) return;
    vip_unload_chkconf();
    xmllib_unload_config();
    xmllib_term();
    loaded_ = false;
  }
  // One whole check run: the check log's block, start and end lines stripped
  // once they are found right.
  int Run(const std::string& rscname, Lines* body) {
    CheckLogFile log(rscname);
    const int ret = vip_conf_check(rscname.c_str());
    *body = log.Close();
    if (body->size() < 2) return -1;
    const std::string tag = "[type : vip][rscname : " + rscname + "]";
    EXPECT_EQ(body->front(), "*****START " + tag);
    EXPECT_EQ(body->back(), "*****END " + tag);
    *body = Lines(body->begin() + 1, body->end() - 1);
    return ret;
  }

  bool loaded_ = false;
  vyrtest::TempDir dir_;
  vyrtest::ScopedEnv config_{"VYR_CONFIG", dir_ / "cluster.xml"};
  vyrtest::ScopedEnv policies_{"VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy"};
};

TEST_F(ConfCheck, WholeRunsGiveTheirFindingsInTableOrder) {
  const std::string kRequired = "E [013] Parameter Source IP Address is required for each server.";
  const std::string kInternal = "E [099] Internal error occurred.";
  struct Case {
    std::string rscname;
    int ret;
    Lines body;
    std::string file = "three_servers.xml";
  };
  const Case cases[] = {
      {"vip1", 1, {kMask + "10.0.0.1/40)", "E [012] Routing Protocol is invalid. (value=RIPv2)"}},
      {"good", 0, {}},
      {"order",
       1,
       {"E [003] Parameter IP address is empty.", kMask + "192.0.2.1/33)",
        "E [003] Parameter NIC Alias Name is empty.", "E [003] Parameter NIC Alias Name is empty.",
        kBadIp + "198.51.100.300)", "E [003] Parameter Source IP Address is empty.",
        kBadIp + "not-an-address)", "E [004] Value of Send Interval is out of range. (value=0)",
        "E [004] Value of Send Interval is out of range. (value=31)", kNotSet,
        "E [012] Routing Protocol is invalid. (value=ripver2)", kTop + " RIPver1)"}},
      // Two of three servers lack a source address: one line; one of one: none.
      {"srcmissing", 1, {kRequired}},
      {"srcmissing", 0, {}, "one_server.xml"},
      // Comment findings stop the check before any (bad) property is read.
      {"nocomment", 1, {"E [097] Path of Comment does not exist."}},
      {"longcomment", 1, {"E [098] Length of Comment is out of range."}},
      {"longproto", 99, {"E [003] Parameter Source IP Address is empty.", kInternal}},
      {"badinterval", 99, {kRequired, kInternal}},
  };
  for (const Case& c : cases) {
    Use(c.file);
    srcipaddrflag = 0;
    Lines body;
    EXPECT_EQ(Run(c.rscname, &body), c.ret) << c.rscname;
    EXPECT_EQ(body, c.body) << c.rscname;
    EXPECT_EQ(hchkconf, nullptr) << "the configuration under check is released";
    TearDown();
  }
}

TEST_F(ConfCheck, MissingConfigurationUnderCheckReturnsTheLoaderStatus) {
  Use("no-such-file.xml");
  void* handle = nullptr;
  const int expected = xmllib_load_pathconfig((kData + "/no-such-file.xml").c_str(), &handle);
  ASSERT_NE(expected, 0);
  TraceCapture trace;
  Lines body;
  EXPECT_EQ(Run("vip1", &body), expected);
  EXPECT_EQ(body, Lines{"E [099] Internal error occurred."});
  EXPECT_TRUE(trace.Contains("vip_load_chkconf() failed. (ret=" + std::to_string(expected) + ")"));
}

TEST_F(ConfCheck, DynamicUpdateSettingsComeFromTheConfigurationUnderCheck) {
  Use("dynamic.xml");
  ASSERT_EQ(vip_load_chkconf(), 0);
  VIP_INFO info{};
  std::snprintf(info.rscname, sizeof info.rscname, "dyn");
  const int saved = actflag;
  actflag = 0;
  const int ret = vip_xml_get_config(&info);
  actflag = saved;
  ASSERT_EQ(ret, 0);
  EXPECT_STREQ(info.addr, "203.0.113.7");
  EXPECT_EQ(info.masklen, 28);
  EXPECT_EQ(info.pingretry, 4);
}

}  // namespace
