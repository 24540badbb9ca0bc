// Configuration loading against real configuration files: the settings
// summaries, this server's values, the failures with their status, and the
// trace log's own settings.
#include "vip/config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "support/sh.h"
#include "support/trace_capture.h"
#include "tracersc/tracersc.h"
#include "vip/bindings.h"
#include "vip/globals.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::ScopedEnv;
using Lines = std::vector<std::string>;

const std::string kData = VYR_TESTDATA_DIR "/config/";
const std::string kShipped = VYR_SOURCE_DIR "/platform/policy";
const std::string kBare = kData + "policy-bare";

class ConfigLoading : public ::testing::Test {
 protected:
  void SetUp() override { log_dir_.emplace("VYR_LOG_DIR", dir_ / "log"); }
  void TearDown() override {
    vip_xml_term();
    vip_log_term();
    trace_.reset();
    xmliniflag = xmlconflag = loginiflag = actflag = shmrmflag = 0;
    std::memset(inspath, 0, sizeof inspath);
    vip_clear_shmbuf();
  }

  // Loads `config` (@HOST@ and "node1" made this server) for resource `rsc`
  // into `v` as activation (mode 0) or deactivation (1); returns the status.
  // Traces at detail level unless `own_log`.
  int Load(const std::string& config, const std::string& policies, VIP_INFO* v, int mode = 0,
           const char* rsc = "vip1", bool own_log = false) {
    TearDown();
    actflag = mode;
    shmrmflag = 1;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const std::string me = std::string(host).substr(0, std::string(host).find('.'));
    std::string text = ReadFile(config[0] == '/' ? config : kData + config);
    for (const char* name : {"@HOST@", "\"node1\""}) {
      for (std::size_t at; (at = text.find(name)) != std::string::npos;) {
        text.replace(at, std::strlen(name), name[0] == '"' ? "\"" + me + "\"" : me);
      }
    }
    vyrtest::WriteFile(dir_ / "cluster.xml", text);
    config_.emplace("VYR_CONFIG", dir_ / "cluster.xml");
    policy_.emplace("VYR_POLICY_DIR", policies);
    if (!own_log) trace_.emplace();
    std::snprintf(v->rscname, sizeof v->rscname, "%s", rsc);
    std::snprintf(v->grpname, sizeof v->grpname, "grp1");
    const int ret = vip_xml_init();
    return ret != 0 ? ret : vip_xml_get_config(v);
  }

  void ExpectTraced(const Lines& lines) const {
    for (const std::string& l : lines) EXPECT_TRUE(trace_->Contains(l)) << l;
  }

  // The record's fields the summaries leave out.
  static std::string Unsummarised(const VIP_INFO& v) {
    return std::to_string(v.masklen) + " " + std::to_string(v.pingallip) + " " +
           std::to_string(v.miiw_method) + " " + std::to_string(v.ifconfuse);
  }

  static std::string Shmbuf() {
    char text[VIP_SHMBUF_LEN];
    vip_get_shmbuf(text);
    return text;
  }

  vyrtest::TempDir dir_;
  std::optional<ScopedEnv> config_, policy_, log_dir_;
  std::optional<vyrtest::TraceCapture> trace_;
};

// The agent's own defaults, the shipped policies' and the documented ones in
// the example configuration must all be the same.
TEST_F(ConfigLoading, MissingSettingsTakeTheirDefaults) {
  const std::string example = VYR_SOURCE_DIR "/docs/cluster.example.xml";
  const struct {
    std::string config, policies, ifname, inspath;
  } cases[] = {{"agent-minimal.xml", kShipped, "va0", "/opt/vyrtest"},
               {"agent-minimal.xml", kBare, "va0", "/opt/vyrtest"},
               {example, kBare, "eth0:1", "/opt/vyrcluster"}};
  for (const auto& c : cases) {
    for (int mode : {0, 1}) {
      SCOPED_TRACE(c.config + " " + c.policies + (mode ? " deactivation" : " activation"));
      VIP_INFO v{};
      ASSERT_EQ(0, Load(c.config, c.policies, &v, mode));
      ExpectTraced({"ping       = cmd:bin/vyrping,to:1,rty:0,itv:1,frc:0,nps:0",
                    "arp        = cmd:arp,num:1,opcode:1", "ifconfig   = cmd:ifconfig,to:60",
                    "isMiiw=0", "ip:192.0.2.10, mask:255.255.255.0, ifname:" + c.ifname});
      if (mode == 1) {
        ExpectTraced(
            {"chk ifconf = exec:1,rty:3,itv:1,err:0", "chk ping   = exec:1,rty:3,itv:1,err:0"});
      }
      EXPECT_EQ("24 0 0 0", Unsummarised(v));
      EXPECT_EQ(c.inspath, inspath);
      EXPECT_FALSE(c.config == example && trace_->Contains(" failed.")) << "a key is missing";
    }
  }
}

// This server's own values win over the resource's; deactivation keeps its
// fixed probe settings whatever is configured.
TEST_F(ConfigLoading, ConfiguredValuesFillActivationAndDeactivationRecords) {
  VIP_INFO act{}, deact{};
  ASSERT_EQ(0, Load("agent-full.xml", kShipped, &act));
  ExpectTraced({"ping       = cmd:bin/myping,to:5,rty:4,itv:2,frc:1,nps:1",
                "arp        = cmd:/usr/sbin/arp,num:3,opcode:2",
                "ifconfig   = cmd:/sbin/ifconfig,to:7", "isMiiw=1",
                "ip:2001:db8::10, mask:ffff:ffff:ffff:ffff::, ifname:va0:3"});
  EXPECT_EQ("64 1 1 1", Unsummarised(act));
  ASSERT_EQ(0, Load("agent-full.xml", kShipped, &deact, 1));
  ExpectTraced({"ping       = cmd:bin/myping,to:1,rty:0,itv:1,frc:0,nps:2",
                "chk ifconf = exec:0,rty:6,itv:4,err:1", "chk ping   = exec:0,rty:8,itv:9,err:1"});
  EXPECT_EQ("64 0 1 0", Unsummarised(deact));
}

// Each failure ends the load with its status and stored description; a
// resource value without a server value is this server's value.
TEST_F(ConfigLoading, MissingOrBadSettingsFailWithTheirStatus) {
  const struct {
    const char *config, *rsc;
    std::string policies;
    int status;
    const char* trace;
  } cases[] = {
      {"agent-minimal.xml", "vip9", kShipped, 9,
       "xmllib_get_srvsep_value(/root/resource/vip@vip9/parameters/ip,ip) failed. (ret=4)"},
      {"agent-noifname.xml", "vip1", kShipped, 9,
       "xmllib_get_srvsep_value(/root/resource/vip@vip1/parameters/ifname,ifname) failed."},
      {"agent-nopath.xml", "vip1", kBare, 32, "xmllib_get_value(/root/all/path) failed. (ret=4)"},
      {"malformed.xml", "vip1", kShipped, 7, "cluster.xml:7:"},
      {"agent-nopath.xml", "vip1", kShipped, 0, "ip:192.0.2.10, mask:255.255.255.0, ifname:va0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.config);
    VIP_INFO v{};
    EXPECT_EQ(c.status, Load(c.config, c.policies, &v, 0, c.rsc));
    EXPECT_EQ(c.status ? "Internal error. (status=" + std::to_string(c.status) + ")" : "",
              Shmbuf());
    ExpectTraced({c.trace});
  }
  EXPECT_STREQ("/opt/vyrcluster", inspath) << "the shipped policy's install directory";
}

// agent-full.xml: level 2 and 600 bytes; without settings: level 3.
TEST_F(ConfigLoading, TraceLogTakesLevelAndSizeFromTheConfiguration) {
  for (const bool full : {true, false}) {
    SCOPED_TRACE(full ? "level 2, 600 bytes" : "defaults");
    VIP_INFO v{};
    Load(full ? "agent-full.xml" : "agent-minimal.xml", kBare, &v, 0, "vip1", /*own_log=*/true);
    ASSERT_EQ(0, vip_log_init());
    TRACE(TRACE_INFO, "information line");
    TRACE(TRACE_DETAIL, "detail line");
    for (int i = 0; i < 10; ++i) TRACE(TRACE_WARNING, "warning number %d", i);
    vip_log_term();
    const std::string log = ReadFile(dir_ / "log/vip.log");
    const std::string all = log + ReadFile(dir_ / "log/vip.log.1");
    EXPECT_EQ(!full, all.find("information line") != std::string::npos);
    EXPECT_EQ(std::string::npos, all.find("detail line"));
    EXPECT_NE(std::string::npos, log.find("warning number 9"));
    EXPECT_LE(log.size(), full ? 600u : 100000u) << "ten lines pass 600 bytes: the log must rotate";
    vyrtest::Sh("rm -rf " + dir_ / "log");
  }
}

}  // namespace
