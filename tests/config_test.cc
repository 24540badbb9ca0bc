// Configuration loading: the settings record, this server's values, the
// install directory, the trace log's settings and the library's life cycle,
// against real configuration files.
#include "vip/config.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <sstream>
#include <string>

#include "support/sh.h"
#include "tracersc/tracersc.h"
#include "vip/bindings.h"
#include "vip/globals.h"
#include "vyrxml.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::ScopedEnv;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/config/";
const std::string kShippedPolicies = std::string(VYR_SOURCE_DIR) + "/platform/policy";
const std::string kBarePolicies = kData + "policy-bare";

std::string ShortHostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  std::string host = name;
  return host.substr(0, host.find('.'));
}

// Every field of the record, one "name=value" per line, for readable diffs.
std::string Dump(const VIP_INFO& v) {
  std::ostringstream o;
  o << "addr=" << v.addr << "\nmask=" << v.mask << "\nmasklen=" << v.masklen
    << "\nifname=" << v.ifname << "\npingcmd=" << v.pingcmd << "\npingtout=" << v.pingtout
    << "\npingretry=" << v.pingretry << "\npinginterval=" << v.pinginterval
    << "\npingforce=" << v.pingforce << "\npingallip=" << v.pingallip
    << "\npingnpsimu=" << v.pingnpsimu << "\narpcmd=" << v.arpcmd << "\narpnum=" << v.arpnum
    << "\narpopcode=" << v.arpopcode << "\nifconfcmd=" << v.ifconfcmd
    << "\nifconftout=" << v.ifconftout << "\ncheckifexec=" << v.checkifexec
    << "\ncheckifretry=" << v.checkifretry << "\ncheckifinterval=" << v.checkifinterval
    << "\ncheckiferror=" << v.checkiferror << "\ncheckpiexec=" << v.checkpiexec
    << "\ncheckpiretry=" << v.checkpiretry << "\ncheckpiinterval=" << v.checkpiinterval
    << "\ncheckpierror=" << v.checkpierror << "\nmiiw_method=" << v.miiw_method
    << "\nisMiiw=" << v.isMiiw << "\nifconfuse=" << v.ifconfuse << "\n";
  return o.str();
}

// The record of vip1 on 192.0.2.10/24 at va0 with every default.
VIP_INFO Defaults(bool deactivation) {
  VIP_INFO v{};
  std::snprintf(v.rscname, sizeof v.rscname, "vip1");
  std::snprintf(v.grpname, sizeof v.grpname, "grp1");
  std::snprintf(v.addr, sizeof v.addr, "192.0.2.10");
  std::snprintf(v.mask, sizeof v.mask, "255.255.255.0");
  v.masklen = 24;
  std::snprintf(v.ifname, sizeof v.ifname, "va0");
  std::snprintf(v.pingcmd, sizeof v.pingcmd, "bin/vyrping");
  v.pingtout = 1;
  v.pinginterval = 1;
  std::snprintf(v.arpcmd, sizeof v.arpcmd, "arp");
  v.arpnum = 1;
  v.arpopcode = 1;
  std::snprintf(v.ifconfcmd, sizeof v.ifconfcmd, "ifconfig");
  v.ifconftout = 60;
  if (deactivation) {
    v.checkifexec = 1;
    v.checkifretry = 3;
    v.checkifinterval = 1;
    v.checkpiexec = 1;
    v.checkpiretry = 3;
    v.checkpiinterval = 1;
  }
  return v;
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
    std::string text = ReadFile(kData + name);
    for (std::size_t at; (at = text.find("@HOST@")) != std::string::npos;) {
      text.replace(at, 6, ShortHostName());
    }
    vyrtest::WriteFile(dir_ / "cluster.xml", text);
    config_.emplace("VYR_CONFIG", dir_ / "cluster.xml");
    policy_.emplace("VYR_POLICY_DIR", policies);
    if (open_trace) traceopen("vip", TRACE_DETAIL, 100000000, (dir_ / "trace.log").c_str());
  }

  int Fill(VIP_INFO* v, const char* rsc = "vip1") {
    std::snprintf(v->rscname, sizeof v->rscname, "%s", rsc);
    std::snprintf(v->grpname, sizeof v->grpname, "grp1");
    int ret = vip_xml_init();
    if (ret != 0) return ret;
    return vip_xml_get_config(v);
  }

  // True when a trace line of `level` (ERROR, WARN, INFO, DETAIL) ends in ": <text>".
  bool Traced(const std::string& level, const std::string& text) const {
    std::istringstream in(ReadFile(dir_ / "trace.log"));
    const std::string tail = ": " + text;
    for (std::string line; std::getline(in, line);) {
      if (line.find(" " + level + " ") != std::string::npos && line.size() >= tail.size() &&
          line.compare(line.size() - tail.size(), tail.size(), tail) == 0) {
        return true;
      }
    }
    return false;
  }

  // True when some trace line of `level` contains `needle` anywhere.
  bool TracedSome(const std::string& level, const std::string& needle) const {
    std::istringstream in(ReadFile(dir_ / "trace.log"));
    for (std::string line; std::getline(in, line);) {
      if (line.find(" " + level + " ") != std::string::npos &&
          line.find(needle) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  static std::string Shmbuf() {
    char text[VIP_SHMBUF_LEN];
    vip_get_shmbuf(text);
    return text;
  }

  vyrtest::TempDir dir_;
  std::optional<ScopedEnv> config_, policy_, log_dir_;
};

TEST_F(ConfigLoading, MinimalConfigurationGivesTheDefaultRecord) {
  // With the shipped policies and with policies that hold no defaults at
  // all, the record is the same: the agent's own defaults match them.
  for (const std::string& policies : {kShippedPolicies, kBarePolicies}) {
    for (int mode : {0, 1}) {
      SCOPED_TRACE(policies + (mode ? " deactivation" : " activation"));
      UseConfig("agent-minimal.xml", policies);
      actflag = mode;
      VIP_INFO v{};
      ASSERT_EQ(Fill(&v), 0);
      EXPECT_EQ(Dump(v), Dump(Defaults(mode == 1)));
      EXPECT_STREQ(inspath, "/opt/vyrtest");
      EXPECT_EQ(Shmbuf(), "");
      TearDown();
    }
  }
}

TEST_F(ConfigLoading, SettingsSummariesShowTheValuesRead) {
  UseConfig("agent-minimal.xml", kBarePolicies);
  actflag = 1;
  VIP_INFO v{};
  ASSERT_EQ(Fill(&v), 0);
  EXPECT_TRUE(Traced("INFO", "ping       = cmd:bin/vyrping,to:1,rty:0,itv:1,frc:0,nps:0"));
  EXPECT_TRUE(Traced("INFO", "arp        = cmd:arp,num:1,opcode:1"));
  EXPECT_TRUE(Traced("INFO", "ifconfig   = cmd:ifconfig,to:60"));
  EXPECT_TRUE(Traced("INFO", "chk ifconf = exec:1,rty:3,itv:1,err:0"));
  EXPECT_TRUE(Traced("INFO", "chk ping   = exec:1,rty:3,itv:1,err:0"));
  EXPECT_TRUE(Traced("INFO", "isMiiw=0"));
  EXPECT_TRUE(Traced("INFO", "ip:192.0.2.10, mask:255.255.255.0, ifname:va0"));
  // Each missing value is a warning naming it; the common texts have no
  // resource in their path.
  EXPECT_TRUE(Traced("WARN", "xmllib_get_value(/root/resource/vip/parameters/ping/path) failed."));
  EXPECT_TRUE(Traced("WARN",
                     "xmllib_get_value(/root/resource/vip@vip1/parameters/check/ping/error) "
                     "failed. (ret=4)"));
  // Deactivation does not read the activation probe settings.
  EXPECT_FALSE(Traced("WARN",
                      "xmllib_get_value(/root/resource/vip@vip1/parameters/ping/timeout) "
                      "failed. (ret=4)"));
}

TEST_F(ConfigLoading, ConfiguredValuesFillActivationAndDeactivationFields) {
  UseConfig("agent-full.xml");
  actflag = 0;
  VIP_INFO act{};
  ASSERT_EQ(Fill(&act), 0);
  EXPECT_EQ(Dump(act),
            "addr=2001:db8::10\nmask=ffff:ffff:ffff:ffff::\nmasklen=64\nifname=va0:3\npingcmd=bin/"
            "myping\n"
            "pingtout=5\npingretry=4\npinginterval=2\npingforce=1\npingallip=1\npingnpsimu=1\n"
            "arpcmd=/usr/sbin/arp\narpnum=3\narpopcode=2\nifconfcmd=/sbin/ifconfig\n"
            "ifconftout=7\ncheckifexec=0\ncheckifretry=0\ncheckifinterval=0\ncheckiferror=0\n"
            "checkpiexec=0\ncheckpiretry=0\ncheckpiinterval=0\ncheckpierror=0\nmiiw_method=1\n"
            "isMiiw=1\nifconfuse=1\n");
  EXPECT_TRUE(Traced("INFO", "ping       = cmd:bin/myping,to:5,rty:4,itv:2,frc:1,nps:1"));
  EXPECT_TRUE(Traced("INFO", "isMiiw=1"));
  EXPECT_FALSE(Traced("INFO", "chk ping   = exec:0,rty:8,itv:9,err:1"));
  TearDown();

  // Deactivation keeps its fixed probe settings whatever is configured.
  UseConfig("agent-full.xml");
  actflag = 1;
  VIP_INFO deact{};
  ASSERT_EQ(Fill(&deact), 0);
  EXPECT_EQ(Dump(deact),
            "addr=2001:db8::10\nmask=ffff:ffff:ffff:ffff::\nmasklen=64\nifname=va0:3\npingcmd=bin/"
            "myping\n"
            "pingtout=1\npingretry=0\npinginterval=1\npingforce=0\npingallip=0\npingnpsimu=2\n"
            "arpcmd=/usr/sbin/arp\narpnum=3\narpopcode=2\nifconfcmd=/sbin/ifconfig\n"
            "ifconftout=7\ncheckifexec=0\ncheckifretry=6\ncheckifinterval=4\ncheckiferror=1\n"
            "checkpiexec=0\ncheckpiretry=8\ncheckpiinterval=9\ncheckpierror=1\nmiiw_method=1\n"
            "isMiiw=1\nifconfuse=0\n");
  EXPECT_TRUE(Traced("INFO", "chk ifconf = exec:0,rty:6,itv:4,err:1"));
  EXPECT_TRUE(Traced("INFO", "chk ping   = exec:0,rty:8,itv:9,err:1"));
  EXPECT_TRUE(Traced("INFO", "ip:2001:db8::10, mask:ffff:ffff:ffff:ffff::, ifname:va0:3"));
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
  EXPECT_STREQ(v.ifname, "vb0");
  EXPECT_STREQ(inspath, "/opt/vyrtest");
  EXPECT_EQ(ReadFile(dir_ / "trace.log").find("xmllib_get_srvsep_value"), std::string::npos);
}

TEST_F(ConfigLoading, MissingInstallDirectoryFailsWith32) {
  for (int attached : {0, 1}) {
    SCOPED_TRACE(attached ? "resource table attached" : "no resource table");
    UseConfig("agent-nopath.xml", kBarePolicies);
    VIP_INFO v{};
    std::snprintf(v.rscname, sizeof v.rscname, "vip1");
    EXPECT_EQ(vip_xml_init(), 0);
    shmrmflag = attached;
    EXPECT_EQ(vip_xml_get_config(&v), 32);
    EXPECT_EQ(Shmbuf(), attached ? "Internal error. (status=32)" : "");
    EXPECT_TRUE(Traced("WARN", "xmllib_get_value(/root/all/path) failed. (ret=4)"));
    EXPECT_TRUE(Traced("DETAIL", "xmllib_unload_policy(all) succeeded."));
    TearDown();
    vip_clear_shmbuf();
  }
  // The shipped "all" policy knows the default install directory.
  UseConfig("agent-nopath.xml");
  VIP_INFO v{};
  EXPECT_EQ(Fill(&v), 0);
  EXPECT_STREQ(inspath, "/opt/vyrcluster");
}

TEST_F(ConfigLoading, SinglePathLookupNeedsItsPolicy) {
  UseConfig("agent-minimal.xml");
  ASSERT_EQ(vip_xml_init(), 0);
  char buf[1024] = {};
  int size = sizeof buf;
  EXPECT_EQ(vip_xml_get_path("cluster", "/root/cluster/check/rdrctpath", buf, &size), 0);
  EXPECT_STREQ(buf, "var/check/vip.log");
  EXPECT_EQ(size, 1024);
  shmrmflag = 1;
  EXPECT_EQ(vip_xml_get_path("nosuch", "/root/all/path", buf, &size), 8);
  EXPECT_TRUE(Traced("ERROR", "xmllib_load_policy(nosuch) failed. (ret=2)"));
  EXPECT_EQ(Shmbuf(), "Internal error. (status=8)");
}

TEST_F(ConfigLoading, BadConfigurationFilesStopTheStart) {
  UseConfig("malformed.xml");
  EXPECT_EQ(vip_xml_init(), 7);
  EXPECT_EQ(Shmbuf(), "Internal error. (status=7)");
  EXPECT_EQ(xmliniflag, 1);
  EXPECT_EQ(xmlconflag, 0);
  EXPECT_EQ(std::string(xmllib_last_error()).find(dir_ / "cluster.xml:7:"), 0u)
      << xmllib_last_error();
  // Without a configuration the log is not opened from it.
  EXPECT_EQ(vip_log_init(), 0);
  EXPECT_EQ(loginiflag, 0);
  // Termination ends the library but knows the configuration never loaded.
  EXPECT_EQ(vip_xml_term(), 0);
  EXPECT_EQ(xmliniflag, 0);
  EXPECT_TRUE(Traced("WARN", "Not executed xmllib_load_config()"));
  EXPECT_TRUE(Traced("DETAIL", "xmllib_term() succeeded."));

  // A policy folder without the "vip" policy fails the log start with 8.
  UseConfig("agent-minimal.xml", dir_ / "nopolicies");
  ASSERT_EQ(vip_xml_init(), 0);
  EXPECT_EQ(vip_log_init(), 8);
  EXPECT_EQ(Shmbuf(), "Internal error. (status=8)");
}

TEST_F(ConfigLoading, TermUndoesInitOnce) {
  UseConfig("agent-minimal.xml");
  ASSERT_EQ(vip_xml_init(), 0);
  EXPECT_EQ(xmlconflag, 1);
  EXPECT_EQ(vip_xml_term(), 0);
  EXPECT_EQ(xmliniflag, 0);
  EXPECT_EQ(xmlconflag, 0);
  EXPECT_TRUE(Traced("DETAIL", "xmllib_unload_config() succeeded."));
  EXPECT_TRUE(Traced("DETAIL", "xmllib_term() succeeded."));
  EXPECT_EQ(vip_xml_term(), 0);
  EXPECT_TRUE(Traced("WARN", "Not executed xmllib_init()"));
  char buf[8];
  int size = sizeof buf;
  EXPECT_EQ(xmllib_get_value("/root/all/path", 0, buf, &size), VYR_XMLERR_NOT_INIT);
}

TEST_F(ConfigLoading, TraceLogTakesLevelAndSizeFromTheConfiguration) {
  // Level 2 and a size of 600 bytes in /root/vip/log.
  UseConfig("agent-full.xml", kShippedPolicies, /*open_trace=*/false);
  ASSERT_EQ(vip_xml_init(), 0);
  ASSERT_EQ(vip_log_init(), 0);
  EXPECT_EQ(loginiflag, 1);
  TRACE(TRACE_INFO, "information is above level 2");
  for (int i = 0; i < 10; ++i) TRACE(TRACE_WARNING, "warning number %d", i);
  vip_log_term();
  EXPECT_EQ(loginiflag, 0);
  const std::string log = ReadFile(dir_ / "log/vip.log");
  const std::string old = ReadFile(dir_ / "log/vip.log.1");
  EXPECT_EQ((log + old).find("information is above level 2"), std::string::npos);
  EXPECT_NE(log.find("warning number 9"), std::string::npos);
  EXPECT_FALSE(old.empty()) << "ten lines pass 600 bytes: the log must have been rotated";
  EXPECT_LE(log.size(), 600u);
}

TEST_F(ConfigLoading, DefaultLogSettingsKeepInformationButNotDetail) {
  UseConfig("agent-minimal.xml", kBarePolicies, /*open_trace=*/false);
  ASSERT_EQ(vip_xml_init(), 0);
  ASSERT_EQ(vip_log_init(), 0);
  TRACE(TRACE_INFO, "information line");
  TRACE(TRACE_DETAIL, "detail line");
  vip_log_term();
  const std::string log = ReadFile(dir_ / "log/vip.log");
  EXPECT_NE(log.find("information line"), std::string::npos);
  EXPECT_EQ(log.find("detail line"), std::string::npos);
}

// The shipped example documents every setting at its default value; with
// this server as its "node1" the record is the default record on node1's
// interface.
TEST_F(ConfigLoading, ExampleConfigurationDocumentsTheDefaults) {
  std::string text = ReadFile(std::string(VYR_SOURCE_DIR) + "/docs/cluster.example.xml");
  ASSERT_FALSE(text.empty());
  for (std::size_t at; (at = text.find("\"node1\"")) != std::string::npos;) {
    text.replace(at, 7, "\"" + ShortHostName() + "\"");
  }
  vyrtest::WriteFile(dir_ / "example.xml", text);
  for (int mode : {0, 1}) {
    SCOPED_TRACE(mode ? "deactivation" : "activation");
    ScopedEnv config("VYR_CONFIG", dir_ / "example.xml");
    ScopedEnv policy("VYR_POLICY_DIR", kBarePolicies);
    traceopen("vip", TRACE_DETAIL, 100000000, (dir_ / "trace.log").c_str());
    actflag = mode;
    VIP_INFO v{};
    ASSERT_EQ(Fill(&v), 0);
    VIP_INFO expected = Defaults(mode == 1);
    std::snprintf(expected.ifname, sizeof expected.ifname, "eth0:1");
    EXPECT_EQ(Dump(v), Dump(expected));
    EXPECT_STREQ(inspath, "/opt/vyrcluster");
    // Nothing was missing.
    EXPECT_FALSE(TracedSome("WARN", "xmllib_get_value("));
    TearDown();
  }
}

// The host name decides the server only up to its first dot. Runs in a
// child with a private UTS namespace so the machine's name is untouched.
TEST_F(ConfigLoading, DottedHostNameIsCutAtTheFirstDot) {
  UseConfig("agent-dotted.xml");
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    const char name[] = "node1.example.net";
    if (unshare(CLONE_NEWUTS) != 0 || sethostname(name, sizeof name - 1) != 0) _exit(77);
    VIP_INFO v{};
    std::snprintf(v.rscname, sizeof v.rscname, "vip1");
    int ret = vip_xml_init();
    if (ret == 0) ret = vip_xml_get_config(&v);
    if (ret != 0) _exit(10 + ret);
    _exit(std::strcmp(v.addr, "203.0.113.1") == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no private UTS namespace here";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the address of another server was taken; "
                                       "10+n: the run failed with n";
}

}  // namespace
