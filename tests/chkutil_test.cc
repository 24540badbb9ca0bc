// The property walk and the numeric range check, over real configuration
// files and the shipped vip policy.
#include "chkutil/chkutil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "chklog/chklog.h"
#include "support/check_session.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using vyrtest::CheckLogFile;
using vyrtest::ConfigUnderTest;
using vyrtest::TraceCapture;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/chkconf/";

// What the recording check functions saw: "<which>:<value>".
std::vector<std::string> calls;

int Record(const char* which, void* value, bool finding) {
  calls.push_back(std::string(which) + ":" + static_cast<const char*>(value));
  if (finding) CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, static_cast<const char*>(value));
  return finding ? 1 : 0;
}
int CommonOk(void* v) { return Record("common", v, false); }
int ServerOk(void* v) { return Record("server", v, false); }
int CommonBad(void* v) { return Record("common", v, true); }

property Text(const char* leaf, check_func common, check_func server, int required, int size = 82) {
  static std::deque<std::string> keep;  // the paths outlive the table; a deque never moves them
  keep.push_back(std::string("/root/resource/vip@%s/parameters/") + leaf);
  const char* commonpath = keep.back().c_str();
  keep.push_back(std::string("/root/resource/vip@%s/server@%s/parameters/") + leaf);
  return property{leaf,   CHK_PROP_TEXT, size,    commonpath, keep.back().c_str(),
                  common, server,        required};
}

class PropertyWalk : public ::testing::Test {
 protected:
  void SetUp() override { calls.clear(); }
};

TEST_F(PropertyWalk, SoundValuesGiveZeroAndEveryServerInOrder) {
  ConfigUnderTest config(kData + "three_servers.xml");
  ASSERT_EQ(config.status(), 0);
  CheckLogFile log;
  std::vector<property> table = {Text("ip", CommonOk, ServerOk, 0),
                                 Text("multicast/srcaddr", CommonOk, ServerOk, 1)};
  EXPECT_EQ(check_properties("good", table.data(), 2), 0);
  EXPECT_EQ(calls, (std::vector<std::string>{
                       "common:192.0.2.10/24", "server:192.0.2.11/24", "server:2001:db8::12/64",
                       // node3 has no ip of its own and ip is not required: no call.
                       "common:198.51.100.2", "server:198.51.100.11", "server:198.51.100.12",
                       "server:198.51.100.13"}));
  EXPECT_TRUE(log.Body().empty());
}

TEST_F(PropertyWalk, RequiredValueMissingOnOneOfSeveralServersIsCheckedEmpty) {
  ConfigUnderTest config(kData + "three_servers.xml");
  ASSERT_EQ(config.status(), 0);
  CheckLogFile log;
  property row = Text("multicast/srcaddr", CommonOk, ServerOk, 1);
  EXPECT_EQ(check_properties("srcmissing", &row, 1), 0);
  EXPECT_EQ(calls, (std::vector<std::string>{"common:198.51.100.2", "server:198.51.100.11",
                                             "server:", "server:"}));
}

TEST_F(PropertyWalk, RequiredValueMissingInAOneServerClusterIsNotChecked) {
  ConfigUnderTest config(kData + "one_server.xml");
  ASSERT_EQ(config.status(), 0);
  CheckLogFile log;
  property row = Text("multicast/srcaddr", CommonOk, ServerOk, 1);
  EXPECT_EQ(check_properties("srcmissing", &row, 1), 0);
  EXPECT_EQ(calls, std::vector<std::string>{"common:198.51.100.2"});
}

TEST_F(PropertyWalk, NoServerDefinitionsJudgesCommonValuesOnly) {
  ConfigUnderTest config(kData + "no_server.xml");
  ASSERT_EQ(config.status(), 0);
  TraceCapture trace;
  CheckLogFile log;
  std::vector<property> table = {Text("ip", CommonOk, ServerOk, 1),
                                 Text("protocol", CommonBad, ServerOk, 0)};
  EXPECT_EQ(check_properties("lonely", table.data(), 2), 1);
  EXPECT_EQ(calls, (std::vector<std::string>{"common:192.0.2.50/24", "common:RIPver1"}));
  EXPECT_EQ(trace.Texts("ERROR"), std::vector<std::string>{"There is no server."});
  EXPECT_EQ(log.Body(),
            std::vector<std::string>{"E [012] Routing Protocol is invalid. (value=RIPver1)"});
}

TEST_F(PropertyWalk, UnreadableThirdValueKeepsEarlierFindingsAndStops) {
  ConfigUnderTest config(kData + "three_servers.xml");
  ASSERT_EQ(config.status(), 0);
  TraceCapture trace;
  CheckLogFile log;
  std::vector<property> table = {
      Text("ip", CommonBad, ServerOk, 0),
      Text("ifname", CommonBad, ServerOk, 0),
      // Does not fit 8 bytes: the library reports 3.
      Text("multicast/dstaddr", CommonOk, ServerOk, 0, 8),
      Text("protocol", CommonBad, ServerOk, 0),
  };
  EXPECT_EQ(check_properties("good", table.data(), 4), 99);
  EXPECT_EQ(log.Body(), (std::vector<std::string>{
                            "E [012] Routing Protocol is invalid. (value=192.0.2.10/24)",
                            "E [012] Routing Protocol is invalid. (value=eth0)",
                        }));
  for (const std::string& c : calls) EXPECT_NE(c, "common:RIPver2,RIPngver1");
  EXPECT_TRUE(trace.Contains(
      "xmllib_get_value(/root/resource/vip@good/parameters/multicast/dstaddr, 0) failed. (ret=3)"));
}

TEST(FillPath, SubstitutesInOrderAndRefusesWhatDoesNotFit) {
  const char* args[] = {"vip1", "node2"};
  char out[64];
  EXPECT_TRUE(chk_fill_path(out, sizeof out, "/r/vip@%s/server@%s/ip", args, 2));
  EXPECT_STREQ(out, "/r/vip@vip1/server@node2/ip");
  // A '%' in a value is data, never a conversion.
  const char* odd[] = {"%s%n"};
  EXPECT_TRUE(chk_fill_path(out, sizeof out, "/r/vip@%s", odd, 1));
  EXPECT_STREQ(out, "/r/vip@%s%n");

  struct Case {
    const char* tmpl;
    int nargs;
    int outlen;
  } bad[] = {
      {"/r/%d", 1, 64},        // not a text conversion
      {"/r/%s/%s", 1, 64},     // more conversions than values
      {"/r/%s", 2, 64},        // fewer conversions than values
      {"/r/vip@%s/x", 1, 10},  // does not fit
      {"/r/vip@%s/x", 1, 13},  // one byte short of the terminator
  };
  for (const Case& c : bad) {
    std::memset(out, 'x', sizeof out);
    EXPECT_FALSE(chk_fill_path(out, c.outlen, c.tmpl, args, c.nargs)) << c.tmpl << " " << c.outlen;
    EXPECT_EQ(out[0], '\0') << c.tmpl;
  }
  EXPECT_TRUE(chk_fill_path(out, 14, "/r/vip@%s/x", args, 1));
  EXPECT_STREQ(out, "/r/vip@vip1/x");
}

// The numeric ranges come from the shipped vip policy.
class NumericValues : public ::testing::Test {
 protected:
  NumericValues()
      : policy_dir_("VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy"),
        config_(kData + "numeric.xml") {}
  void SetUp() override {
    ASSERT_EQ(config_.status(), 0);
    ASSERT_EQ(xmllib_load_policy("vip"), 0);
  }
  void TearDown() override { xmllib_unload_policy("vip"); }

  vyrtest::ScopedEnv policy_dir_;
  ConfigUnderTest config_;
};

numeric_param Param(const char* name, const char* leaf, const char* index) {
  static std::deque<std::string> keep;
  keep.push_back(std::string("/root/resource/vip@%s/parameters/") + leaf);
  return numeric_param{name, keep.back().c_str(), index};
}

TEST_F(NumericValues, RangesFromThePolicy) {
  struct Case {
    numeric_param param;
    int result;
    std::vector<std::string> lines;
  };
  const std::vector<Case> cases = {
      {Param("Interval", "interval_ok", "1"), 0, {}},
      {Param("Interval", "interval_high", "1"),
       1,
       {"E [042] Value of Interval is out of range. (value=31)"}},
      {Param("Interval", "interval_low", "1"),
       1,
       {"E [042] Value of Interval is out of range. (value=0)"}},
      {Param("Flag", "flag_two", nullptr), 1, {"E [042] Value of Flag is out of range. (value=2)"}},
      {Param("Flag", "flag_one", nullptr), 0, {}},
      {Param("Flag", "flag_two", "2"), 1, {"E [042] Value of Flag is out of range. (value=2)"}},
      {Param("Switch", "flag_one", "3"), 0, {}},
      {Param("Switch", "interval_high", "3"),
       1,
       {"E [042] Value of Switch is out of range. (value=31)"}},
  };
  for (const Case& c : cases) {
    CheckLogFile log;
    EXPECT_EQ(check_numeric_values("num", &c.param, 1, 42), c.result) << c.param.path;
    EXPECT_EQ(log.Body(), c.lines) << c.param.path;
  }
}

TEST_F(NumericValues, UnknownTypeTagSkipsTheParameter) {
  TraceCapture trace;
  CheckLogFile log;
  numeric_param params[] = {Param("Odd", "odd", "9"), Param("Flag", "flag_two", nullptr)};
  EXPECT_EQ(check_numeric_values("num", params, 2, 4), 1);
  EXPECT_EQ(log.Body(),
            std::vector<std::string>{"E [004] Value of Flag is out of range. (value=2)"});
  EXPECT_TRUE(
      trace.Contains("Value of type tag /root/resource/fip/param9/type is invalid. (value=7)"));
}

TEST_F(NumericValues, UnreadableValueOrBoundStopsWith99) {
  struct Case {
    std::vector<numeric_param> params;
    std::string trace;
  };
  const std::vector<Case> cases = {
      {{Param("Text", "text", nullptr), Param("Flag", "flag_two", nullptr)},
       "xmllib_get_value(/root/resource/vip@num/parameters/text, 1) failed. (ret=9)"},
      {{Param("Missing", "nothing", nullptr)},
       "xmllib_get_value(/root/resource/vip@num/parameters/nothing, 1) failed. (ret=4)"},
      {{Param("NoMax", "interval_ok", "8")},
       "xmllib_get_value(/root/resource/fip/param8/maximum, 1) failed. (ret=4)"},
      {{Param("NoEntry", "interval_ok", "77")},
       "xmllib_get_value(/root/resource/fip/param77/type, 1) failed. (ret=4)"},
  };
  for (const Case& c : cases) {
    TraceCapture trace;
    CheckLogFile log;
    EXPECT_EQ(check_numeric_values("num", c.params.data(), static_cast<int>(c.params.size()), 4),
              99)
        << c.trace;
    // The parameters after the failing one are not judged.
    EXPECT_TRUE(log.Body().empty()) << c.trace;
    EXPECT_TRUE(trace.Contains(c.trace)) << c.trace;
  }
}

}  // namespace
