// Configuration loading: the settings record, this server's values, the
// install directory, the trace log's settings and the library's life cycle,
// against real configuration files.
#include "vip/config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/log_lines.h"
#include "support/sh.h"
#include "tracersc/tracersc.h"
#include "vip/bindings.h"
#include "vip/globals.h"
#include "vyrxml.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::ScopedEnv;
using vyrtest::Sh;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/config/";
const std::string kShippedPolicies = std::string(VYR_SOURCE_DIR) + "/platform/policy";
const std::string kBarePolicies = kData + "policy-bare";

std::string ShortHostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  std::string host = name;
  return host.substr(0, host.find('.'));
}

// The fields the settings summaries leave out.
std::string Unsummarised(const VIP_INFO& v) {
  return "masklen=" + std::to_string(v.masklen) + ",allip=" + std::to_string(v.pingallip) +
         ",miiw=" + std::to_string(v.miiw_method) + ",ifconfuse=" + std::to_string(v.ifconfuse);
}

// The summaries of vip1 on 192.0.2.10/24 at `ifname` with every default.
std::vector<std::string> DefaultSummaries(bool deactivation, const std::string& ifname = "va0") {
  std::vector<std::string> lines = {"ping       = cmd:bin/vyrping,to:1,rty:0,itv:1,frc:0,nps:0",
                                    "arp        = cmd:arp,num:1,opcode:1",
                                    "ifconfig   = cmd:ifconfig,to:60", "isMiiw=0",
                                    "ip:192.0.2.10, mask:255.255.255.0, ifname:" + ifname};
  if (deactivation) {
    lines.push_back("chk ifconf = exec:1,rty:3,itv:1,err:0");
    lines.push_back("chk ping   = exec:1,rty:3,itv:1,err:0");
  }
  return lines;
}

class ConfigLoading : public ::testing::Test {
 protected:
  void SetUp() override {
    actflag = 0;
    nomuseflag = 0;
    shmrmflag = 0;
    std::memset(inspath, 0, sizeof inspath);
    vip_clear_shmbuf();
    log_dir_.emplace("VYR_LOG_DIR", dir_ / "log");
  }
  void TearDown() override {
    vip_xml_term();
    vip_log_term();
    traceclose();
    xmliniflag = xmlconflag = loginiflag = 0;
    shmrmflag = 0;
  }

  // Points the library at a test configuration (@HOST@ replaced by this
  // server's name) and a policy folder, and opens a detail-level trace.
  void UseConfig(const std::string& name, const std::string& policies = kShippedPolicies,
                 bool open_trace = true) {
    std::string text = ReadFile(name[0] == '/' ? name : kData + name);
    for (std::size_t at; (at = text.find("@HOST@")) != std::string::npos;) {
      text.replace(at, 6, ShortHostName());
    }
    vyrtest::WriteFile(dir_ / "cluster.xml", text);
    config_.emplace("VYR_CONFIG", dir_ / "cluster.xml");
    policy_.emplace("VYR_POLICY_DIR", policies);
    std::remove((dir_ / "trace.log").c_str());
    if (open_trace) traceopen("vip", TRACE_DETAIL, 100000000, (dir_ / "trace.log").c_str());
  }

  int Fill(VIP_INFO* v, const char* rsc = "vip1") {
    std::snprintf(v->rscname, sizeof v->rscname, "%s", rsc);
    std::snprintf(v->grpname, sizeof v->grpname, "grp1");
    int ret = vip_xml_init();
    if (ret != 0) return ret;
    return vip_xml_get_config(v);
  }

  // True when a trace line of `level` (ERROR, WARN, INFO, DETAIL) ends in `text`.
  bool Traced(const std::string& level, const std::string& text) const {
    for (const vyrtest::LogLine& l : vyrtest::ReadLogLines(dir_ / "trace.log")) {
      if (l.level == level && l.text.ends_with(text)) return true;
    }
    return false;
  }

  void ExpectSummaries(const std::vector<std::string>& lines) const {
    for (const std::string& l : lines) EXPECT_TRUE(Traced("INFO", l)) << l;
  }

  static std::string Shmbuf() {
    char text[VIP_SHMBUF_LEN];
    vip_get_shmbuf(text);
    return text;
  }

  vyrtest::TempDir dir_;
  std::optional<ScopedEnv> config_, policy_, log_dir_;
};

TEST_F(ConfigLoading, MinimalConfigurationGivesTheDefaults) {
  // The shipped policies and policies without any defaults give the same
  // record: the agent's own defaults match them.
  for (const std::string& policies : {kShippedPolicies, kBarePolicies}) {
    for (int mode : {0, 1}) {
      SCOPED_TRACE(policies + (mode ? " deactivation" : " activation"));
      UseConfig("agent-minimal.xml", policies);
      actflag = mode;
      VIP_INFO v{};
      ASSERT_EQ(Fill(&v), 0);
      ExpectSummaries(DefaultSummaries(mode == 1));
      EXPECT_EQ(Unsummarised(v), "masklen=24,allip=0,miiw=0,ifconfuse=0");
      EXPECT_STREQ(inspath, "/opt/vyrtest");
      EXPECT_EQ(Shmbuf(), "");
      if (mode == 1 && policies == kBarePolicies) {
        // Each missing value is a warning naming it; deactivation does not
        // read the activation probe settings.
        EXPECT_TRUE(Traced("WARN",
                           "xmllib_get_value(/root/resource/vip/parameters/ping/path) "
                           "failed."));
        EXPECT_FALSE(Traced("WARN",
                            "xmllib_get_value(/root/resource/vip@vip1/parameters/ping/timeout) "
                            "failed. (ret=4)"));
      }
      TearDown();
    }
  }
}

TEST_F(ConfigLoading, ConfiguredValuesFillActivationAndDeactivationFields) {
  UseConfig("agent-full.xml");
  VIP_INFO act{};
  ASSERT_EQ(Fill(&act), 0);
  ExpectSummaries({"ping       = cmd:bin/myping,to:5,rty:4,itv:2,frc:1,nps:1",
                   "arp        = cmd:/usr/sbin/arp,num:3,opcode:2",
                   "ifconfig   = cmd:/sbin/ifconfig,to:7", "isMiiw=1",
                   "ip:2001:db8::10, mask:ffff:ffff:ffff:ffff::, ifname:va0:3"});
  EXPECT_EQ(Unsummarised(act), "masklen=64,allip=1,miiw=1,ifconfuse=1");
  EXPECT_FALSE(Traced("INFO", "chk ping   = exec:0,rty:8,itv:9,err:1"));
  TearDown();

  // Deactivation keeps its fixed probe settings whatever is configured.
  UseConfig("agent-full.xml");
  actflag = 1;
  VIP_INFO deact{};
  ASSERT_EQ(Fill(&deact), 0);
  ExpectSummaries({"ping       = cmd:bin/myping,to:1,rty:0,itv:1,frc:0,nps:2",
                   "chk ifconf = exec:0,rty:6,itv:4,err:1",
                   "chk ping   = exec:0,rty:8,itv:9,err:1"});
  EXPECT_EQ(Unsummarised(deact), "masklen=64,allip=0,miiw=1,ifconfuse=0");
}

TEST_F(ConfigLoading, MissingServerAddressOrInterfaceFailsWith9) {
  struct Case {
    const char* config;
    const char* rsc;
    const char* trace;
  } cases[] = {
      {"agent-minimal.xml", "vip9",
       "xmllib_get_srvsep_value(/root/resource/vip@vip9/parameters/ip,ip) failed. (ret=4)"},
      {"agent-noifname.xml", "vip1",
       "xmllib_get_srvsep_value(/root/resource/vip@vip1/parameters/ifname,ifname) failed. "
       "(ret=4)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.config);
    UseConfig(c.config);
    VIP_INFO v{};
    EXPECT_EQ(Fill(&v, c.rsc), 9);
    EXPECT_EQ(Shmbuf(), "Internal error. (status=9)");
    EXPECT_TRUE(Traced("ERROR", c.trace));
    EXPECT_STREQ(inspath, "") << "nothing is read after the failure";
    TearDown();
    vip_clear_shmbuf();
  }
}

TEST_F(ConfigLoading, ManualModeLooksUpNeitherAddressNorInterface) {
  UseConfig("agent-minimal.xml");
  VIP_INFO v{};
  std::snprintf(v.addr, sizeof v.addr, "198.51.100.7");
  std::snprintf(v.ifname, sizeof v.ifname, "vb0");
  // vip9 has no address anywhere: a lookup would fail with 9.
  ASSERT_EQ(Fill(&v, "vip9"), 0);
  EXPECT_STREQ(v.addr, "198.51.100.7");
  EXPECT_EQ(ReadFile(dir_ / "trace.log").find("xmllib_get_srvsep_value"), std::string::npos);
}

TEST_F(ConfigLoading, MissingInstallDirectoryFailsWith32) {
  UseConfig("agent-nopath.xml", kBarePolicies);
  VIP_INFO v{};
  shmrmflag = 1;
  EXPECT_EQ(Fill(&v), 32);
  EXPECT_EQ(Shmbuf(), "Internal error. (status=32)");
  EXPECT_TRUE(Traced("WARN", "xmllib_get_value(/root/all/path) failed. (ret=4)"));
  TearDown();
  // The shipped "all" policy knows the default install directory.
  UseConfig("agent-nopath.xml");
  EXPECT_EQ(Fill(&v), 0);
  EXPECT_STREQ(inspath, "/opt/vyrcluster");
}

TEST_F(ConfigLoading, PolicyLookupAndBadFilesFailWithTheirStatus) {
  UseConfig("agent-minimal.xml");
  ASSERT_EQ(vip_xml_init(), 0);
  char buf[1024] = {};
  int size = sizeof buf;
  EXPECT_EQ(vip_xml_get_path("cluster", "/root/cluster/check/rdrctpath", buf, &size), 0);
  EXPECT_STREQ(buf, "var/check/vip.log");
  shmrmflag = 1;
  EXPECT_EQ(vip_xml_get_path("nosuch", "/root/all/path", buf, &size), 8);
  EXPECT_TRUE(Traced("ERROR", "xmllib_load_policy(nosuch) failed. (ret=2)"));
  EXPECT_EQ(Shmbuf(), "Internal error. (status=8)");
  TearDown();

  // A policy folder without the "vip" policy fails the log start with 8.
  vip_clear_shmbuf();
  UseConfig("agent-minimal.xml", dir_ / "nopolicies");
  ASSERT_EQ(vip_xml_init(), 0);
  EXPECT_EQ(vip_log_init(), 8);
  EXPECT_EQ(Shmbuf(), "Internal error. (status=8)");
  TearDown();

  UseConfig("malformed.xml");
  EXPECT_EQ(vip_xml_init(), 7);
  EXPECT_EQ(Shmbuf(), "Internal error. (status=7)");
  EXPECT_EQ(std::string(xmllib_last_error()).find(dir_ / "cluster.xml:7:"), 0u)
      << xmllib_last_error();
  // Termination ends the library but knows the configuration never loaded.
  EXPECT_EQ(vip_xml_term(), 0);
  EXPECT_TRUE(Traced("WARN", "Not executed xmllib_load_config()"));
  EXPECT_TRUE(Traced("DETAIL", "xmllib_term() succeeded."));
  EXPECT_EQ(xmllib_get_value("/root/all/path", 0, buf, &size), VYR_XMLERR_NOT_INIT);
}

TEST_F(ConfigLoading, TraceLogTakesLevelAndSizeFromTheConfiguration) {
  // agent-full.xml: level 2 and 600 bytes; without settings: level 3.
  for (const bool full : {true, false}) {
    SCOPED_TRACE(full ? "level 2, 600 bytes" : "defaults");
    UseConfig(full ? "agent-full.xml" : "agent-minimal.xml", kBarePolicies, /*open_trace=*/false);
    ASSERT_EQ(vip_xml_init(), 0);
    ASSERT_EQ(vip_log_init(), 0);
    TRACE(TRACE_INFO, "information line");
    TRACE(TRACE_DETAIL, "detail line");
    for (int i = 0; i < 10; ++i) TRACE(TRACE_WARNING, "warning number %d", i);
    vip_log_term();
    const std::string log = ReadFile(dir_ / "log/vip.log");
    const std::string all = log + ReadFile(dir_ / "log/vip.log.1");
    EXPECT_EQ(all.find("information line") != std::string::npos, !full);
    EXPECT_EQ(all.find("detail line"), std::string::npos);
    EXPECT_NE(log.find("warning number 9"), std::string::npos);
    EXPECT_LE(log.size(), full ? 600u : 100000u) << "ten lines pass 600 bytes: the log must rotate";
    Sh("rm -rf " + dir_ / "log");
    TearDown();
  }
}

// The shipped example documents every setting at its default value; with
// this server as its "node1" it gives the defaults on node1's interface.
TEST_F(ConfigLoading, ExampleConfigurationDocumentsTheDefaults) {
  std::string text = ReadFile(std::string(VYR_SOURCE_DIR) + "/docs/cluster.example.xml");
  ASSERT_FALSE(text.empty());
  for (std::size_t at; (at = text.find("\"node1\"")) != std::string::npos;) {
    text.replace(at, 7, "\"@HOST@\"");
  }
  vyrtest::WriteFile(dir_ / "example.xml", text);
  for (int mode : {0, 1}) {
    SCOPED_TRACE(mode ? "deactivation" : "activation");
    UseConfig(dir_ / "example.xml", kBarePolicies);
    actflag = mode;
    VIP_INFO v{};
    ASSERT_EQ(Fill(&v), 0);
    ExpectSummaries(DefaultSummaries(mode == 1, "eth0:1"));
    EXPECT_STREQ(inspath, "/opt/vyrcluster");
    EXPECT_EQ(ReadFile(dir_ / "trace.log").find(" failed."), std::string::npos)
        << "a key is missing";
    TearDown();
  }
}

}  // namespace
