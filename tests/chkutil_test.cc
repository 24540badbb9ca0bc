// The property walk and the numeric range check, over real configuration
// files and the shipped vip policy.
#include "chkutil/chkutil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "chklog/chklog.h"
#include "support/check_session.h"
#include "support/trace_capture.h"
#include "vyrxml.h"

namespace {

using vyrtest::CheckLogFile;
using vyrtest::ConfigUnderTest;
using vyrtest::TraceCapture;
using Lines = std::vector<std::string>;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/chkconf/";

// What the recording check functions saw: "<which>:<value>".
Lines calls;

int Record(const char* which, void* value, bool finding) {
  calls.push_back(std::string(which) + ":" + static_cast<const char*>(value));
  if (finding) CHK_LOG(CHK_LEVEL_ERROR, CHK_ID_PROT_ERR, static_cast<const char*>(value));
  return finding ? 1 : 0;
}
int CommonOk(void* v) { return Record("common", v, false); }
int ServerOk(void* v) { return Record("server", v, false); }
int CommonBad(void* v) { return Record("common", v, true); }

// The paths outlive every table; a deque never moves them.
const char* Keep(const std::string& path) {
  static std::deque<std::string> keep;
  return keep.emplace_back(path).c_str();
}

property Text(const char* leaf, check_func common, int required, int size = 82) {
  return property{leaf,
                  CHK_PROP_TEXT,
                  size,
                  Keep(std::string("/root/resource/vip@%s/parameters/") + leaf),
                  Keep(std::string("/root/resource/vip@%s/server@%s/parameters/") + leaf),
                  common,
                  ServerOk,
                  required};
}

TEST(PropertyWalk, ServersRequiredValuesAndStops) {
  struct Case {
    std::string file, rscname;
    std::vector<property> table;
    int ret;
    Lines calls, body{};
    std::string trace{};  // an error line the walk must write
  };
  const std::string kRip = "E [012] Routing Protocol is invalid. (value=";
  const Case cases[] = {
      // node3 has no ip of its own and ip is not required: no call.
      {"three_servers.xml",
       "good",
       {Text("ip", CommonOk, 0), Text("multicast/srcaddr", CommonOk, 1)},
       0,
       {"common:192.0.2.10/24", "server:192.0.2.11/24", "server:2001:db8::12/64",
        "common:198.51.100.2", "server:198.51.100.11", "server:198.51.100.12",
        "server:198.51.100.13"}},
      {"no_server.xml",
       "lonely",
       {Text("ip", CommonOk, 1), Text("protocol", CommonBad, 0)},
       1,
       {"common:192.0.2.50/24", "common:RIPver1"},
       {kRip + "RIPver1)"},
       "There is no server."},
      // The third value does not fit 8 bytes: earlier findings stay, the
      // fourth is never read.
      {"three_servers.xml",
       "good",
       {Text("ip", CommonBad, 0), Text("ifname", CommonBad, 0),
        Text("multicast/dstaddr", CommonOk, 0, 8), Text("protocol", CommonBad, 0)},
       99,
       {"common:192.0.2.10/24", "server:192.0.2.11/24", "server:2001:db8::12/64", "common:eth0"},
       {kRip + "192.0.2.10/24)", kRip + "eth0)"},
       "xmllib_get_value(/root/resource/vip@good/parameters/multicast/dstaddr, 0) failed. (ret=3)"},
  };
  for (const Case& c : cases) {
    ConfigUnderTest config(kData + c.file);
    ASSERT_EQ(config.status(), 0) << c.file;
    TraceCapture trace;
    CheckLogFile log;
    calls.clear();
    EXPECT_EQ(check_properties(c.rscname.c_str(), c.table.data(), static_cast<int>(c.table.size())),
              c.ret)
        << c.file << " " << c.rscname;
    EXPECT_EQ(calls, c.calls) << c.rscname;
    EXPECT_EQ(log.Body(), c.body) << c.rscname;
    if (!c.trace.empty()) {
      EXPECT_TRUE(trace.Contains(c.trace)) << c.trace;
    }
  }
}

TEST(FillPath, SubstitutesValuesAsDataAndRefusesWhatDoesNotFit) {
  const char* args[] = {"vip1", "node2"};
  const char* odd[] = {"%s%n"};
  char out[64];
  EXPECT_TRUE(chk_fill_path(out, sizeof out, "/r/vip@%s/server@%s/ip", args, 2));
  EXPECT_STREQ(out, "/r/vip@vip1/server@node2/ip");
  EXPECT_TRUE(chk_fill_path(out, sizeof out, "/r/vip@%s", odd, 1));
  EXPECT_STREQ(out, "/r/vip@%s%n");
  EXPECT_TRUE(chk_fill_path(out, 14, "/r/vip@%s/x", args, 1));
  for (const char* tmpl : {"/r/%d", "/r/%s/%s", "/r/vip@%s/x"}) {
    std::memset(out, 'x', sizeof out);
    EXPECT_FALSE(chk_fill_path(out, 13, tmpl, args, 1)) << tmpl;
    EXPECT_EQ(out[0], '\0') << tmpl;
  }
  EXPECT_FALSE(chk_fill_path(out, sizeof out, "/r/%s", args, 2)) << "fewer conversions than values";
}

numeric_param Param(const char* name, const char* leaf, const char* index) {
  return numeric_param{name, Keep(std::string("/root/resource/vip@%s/parameters/") + leaf), index};
}

// The ranges come from the shipped vip policy.
TEST(NumericValues, RangesTypeTagsAndUnreadableValues) {
  vyrtest::ScopedEnv policy_dir("VYR_POLICY_DIR", std::string(VYR_SOURCE_DIR) + "/platform/policy");
  ConfigUnderTest config(kData + "numeric.xml");
  ASSERT_EQ(config.status(), 0);
  ASSERT_EQ(xmllib_load_policy("vip"), 0);
  struct Case {
    numeric_param param;
    int value;  // the out-of-range value written; -1 for no finding
  };
  const Case ranges[] = {
      {Param("Interval", "interval_ok", "1"), -1}, {Param("Interval", "interval_high", "1"), 31},
      {Param("Interval", "interval_low", "1"), 0}, {Param("Flag", "flag_two", nullptr), 2},
      {Param("Flag", "flag_one", nullptr), -1},    {Param("Flag", "flag_two", "2"), 2},
      {Param("Switch", "flag_one", "3"), -1},      {Param("Switch", "interval_high", "3"), 31},
  };
  for (const Case& c : ranges) {
    CheckLogFile log;
    EXPECT_EQ(check_numeric_values("num", &c.param, 1, 42), c.value < 0 ? 0 : 1) << c.param.path;
    const std::string line = "E [042] Value of " + std::string(c.param.name) +
                             " is out of range. (value=" + std::to_string(c.value) + ")";
    EXPECT_EQ(log.Body(), c.value < 0 ? Lines{} : Lines{line}) << c.param.path;
  }
  // An unknown type tag skips the parameter; the next is still judged.
  // An unreadable value or bound stops the walk with 99 and judges no more.
  const numeric_param flag = Param("Flag", "flag_two", nullptr);
  const std::pair<numeric_param, std::string> traced[] = {
      {Param("Odd", "odd", "9"), "type tag /root/resource/fip/param9/type is invalid. (value=7)"},
      {Param("Text", "text", nullptr),
       "(/root/resource/vip@num/parameters/text, 1) failed. (ret=9)"},
      {Param("No", "nothing", nullptr), "@num/parameters/nothing, 1) failed. (ret=4)"},
      {Param("NoMax", "interval_ok", "8"),
       "(/root/resource/fip/param8/maximum, 1) failed. (ret=4)"},
      {Param("NoEntry", "interval_ok", "77"),
       "(/root/resource/fip/param77/type, 1) failed. (ret=4)"},
  };
  for (const auto& [param, trace_text] : traced) {
    TraceCapture trace;
    CheckLogFile log;
    const numeric_param params[] = {param, flag};
    const bool skipped = param.index != nullptr && std::string(param.index) == "9";
    EXPECT_EQ(check_numeric_values("num", params, 2, 4), skipped ? 1 : 99) << trace_text;
    EXPECT_EQ(log.Body().size(), skipped ? 1u : 0u) << trace_text;
    EXPECT_TRUE(trace.Contains(trace_text)) << trace_text;
  }
  xmllib_unload_policy("vip");
}

}  // namespace
