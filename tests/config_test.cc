// The configuration on recorded files: the XML library, the agent's settings
// and their failures, the trace log's settings, and the short host name.
#include "vip/settings/config.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "support/sh.h"
#include "support/trace_capture.h"
#include "tracersc/tracersc.h"
#include "value/hostname.h"
#include "vip/base/globals.h"
#include "vip/settings/bindings.h"
#include "vyrxml.h"

namespace {

using vyrtest::ScopedEnv;

const std::string kData = VYR_TESTDATA_DIR "/config/";
const std::string kShipped = VYR_SOURCE_DIR "/platform/policy";
const std::string kBare = kData + "policy-bare";

class ConfigLoading : public ::testing::Test {
 protected:
  void TearDown() override {
    vip_xml_term();
    vip_log_term();
    trace_.reset();
    xmliniflag = xmlconflag = loginiflag = actflag = shmrmflag = 0;
    std::memset(inspath, 0, sizeof inspath);
    vip_clear_shmbuf();
  }

  // Loads `config` (@HOST@ and "node1" made this server) for `rsc`; its status.
  int Load(const std::string& config, const std::string& policies, VIP_INFO* v, int mode = 0,
           const char* rsc = "vip1", bool trace = true) {
    TearDown();
    actflag = mode;
    shmrmflag = 1;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const std::string me(host, std::strcspn(host, "."));
    vyrtest::Sh("sed -e 's/@HOST@/" + me + "/' -e 's/\"node1\"/\"" + me + "\"/' '" +
                (config[0] == '/' ? config : kData + config) + "' > " + dir_ / "cluster.xml");
    policy_.emplace("VYR_POLICY_DIR", policies);
    if (trace) trace_.emplace();
    std::snprintf(v->rscname, sizeof v->rscname, "%s", rsc);
    std::snprintf(v->grpname, sizeof v->grpname, "grp1");
    const int ret = vip_xml_init();
    return ret != 0 ? ret : vip_xml_get_config(v);
  }

  vyrtest::TempDir dir_;
  ScopedEnv config_{"VYR_CONFIG", dir_ / "cluster.xml"}, log_dir_{"VYR_LOG_DIR", dir_ / "log"};
  std::optional<ScopedEnv> policy_;
  std::optional<vyrtest::TraceCapture> trace_;
};

// One load per case: status, description, settings summaries and the other
// fields ("|" joins them), or the failure's trace line. Defaults, policies and
// example agree; this server's values win over the resource's, which stand in;
// deactivation keeps its fixed probe settings whatever is set.
TEST_F(ConfigLoading, SettingsSummariesDefaultsAndFailures) {
  const std::string example = VYR_EXAMPLE_CONFIG;
  const std::string act =
      "ping       = cmd:bin/vyrping,to:1,rty:0,itv:1,frc:0,nps:0|arp        = cmd:arp,num:1,"
      "opcode:1|";
  // Activation alone reads the settings that defend the address.
  const std::string defence =
      "defence    = na:0,dad:0,arpprobe:0,dadprobe:0|announce   = itv:0,bg:0|";
  const std::string ifconfig =
      "lock       = short:0|ipaddr     = netlink:0,nodad:0,noprefixroute:0,preferred_lft:-1,"
      "nolabel:0,label:,broadcast:|ifconfig   = cmd:ifconfig,to:60|";
  const std::string chk =
      "chk ifconf = exec:1,rty:3,itv:1,err:0|chk ping   = exec:1,rty:3,itv:1,err:0|"
      "chk arp    = to:0,bg:0|";
  const std::string va0 = "isMiiw=0|ip:192.0.2.10, mask:255.255.255.0, ifname:va0|24 0 0 0 ";
  const std::string eth =
      "isMiiw=0|ip:192.0.2.10, mask:255.255.255.0, ifname:eth0:1|24 0 0 0 /opt/vyrcluster";
  const std::string arp = "arp        = cmd:/usr/sbin/arp,num:3,opcode:2|";
  const std::string tools = "ifconfig   = cmd:/sbin/ifconfig,to:7|";
  const std::string v6 = "isMiiw=1|ip:2001:db8::10, mask:ffff:ffff:ffff:ffff::, ifname:va0:3|64 ";
  const struct {
    std::string config, policies;
    int mode, status;
    std::string want;
    const char* rsc = "vip1";
  } cases[] = {
      {"agent-minimal.xml", kBare, 1, 0, act + ifconfig + chk + va0 + "/opt/vyrtest"},
      {example, kBare, 0, 0, act + defence + ifconfig + eth},
      {example, kBare, 1, 0, act + ifconfig + chk + eth},
      {"agent-full.xml", kShipped, 0, 0,
       "ping       = cmd:bin/myping,to:5,rty:4,itv:2,frc:1,nps:1|" + arp +
           "defence    = na:3,dad:2000,arpprobe:1000,dadprobe:200|announce   = itv:200,bg:1|"
           "lock       = short:1|ipaddr     = netlink:1,nodad:1,noprefixroute:1,preferred_lft:0,"
           "nolabel:1,label:web,broadcast:none|" +
           tools + v6 + "1 1 1 /opt/vyrtest"},
      {"agent-full.xml", kShipped, 1, 0,
       "ping       = cmd:bin/myping,to:1,rty:0,itv:1,frc:0,nps:2|" + arp +
           "lock       = short:1|ipaddr     = netlink:1,nodad:0,noprefixroute:0,preferred_lft:-1,"
           "nolabel:0,label:,broadcast:|" +
           tools +
           "chk ifconf = exec:0,rty:6,itv:4,err:1|chk ping   = exec:0,rty:8,itv:9,err:1|"
           "chk arp    = to:200,bg:1|" +
           v6 + "0 1 0 /opt/vyrtest"},
      {"agent-nopath.xml", kShipped, 0, 0, act + defence + ifconfig + va0 + "/opt/vyrcluster"},
      {"agent-minimal.xml", kShipped, 0, 9,
       "xmllib_get_srvsep_value(/root/resource/vip@vip9/parameters/ip,ip) failed. (ret=4)", "vip9"},
      {"agent-noifname.xml", kShipped, 0, 9,
       "xmllib_get_srvsep_value(/root/resource/vip@vip1/parameters/ifname,ifname) failed."},
      {"agent-nopath.xml", kBare, 0, 32, "xmllib_get_value(/root/all/path) failed. (ret=4)"},
      {"malformed.xml", kShipped, 0, 7, "cluster.xml:7:"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.config + (c.mode ? " deactivation" : " activation"));
    VIP_INFO v{};
    EXPECT_EQ(c.status, Load(c.config, c.policies, &v, c.mode, c.rsc));
    char shmbuf[VIP_SHMBUF_LEN];
    vip_get_shmbuf(shmbuf);
    EXPECT_EQ(c.status ? "Internal error. (status=" + std::to_string(c.status) + ")" : "", shmbuf);
    std::string got;
    for (const std::string& t : trace_->Texts("INFO")) got += t + "|";
    // The record's fields the summaries leave out, and the install directory.
    got += std::to_string(v.masklen) + " " + std::to_string(v.pingallip) + " " +
           std::to_string(v.miiw_method) + " " + std::to_string(v.ifconfuse) + " " + inspath;
    EXPECT_TRUE(c.status ? trace_->Contains(c.want) : c.want == got) << got;
    EXPECT_FALSE(c.config == example && trace_->Contains(" failed.")) << "a key is missing";
  }
}

// agent-full.xml's level 2 keeps no information lines; ten rotate its 600 bytes.
TEST_F(ConfigLoading, TraceLogTakesLevelAndSizeFromTheConfiguration) {
  VIP_INFO v{};
  Load("agent-full.xml", kBare, &v, 0, "vip1", /*trace=*/false);
  ASSERT_EQ(0, vip_log_init());
  TRACE(TRACE_INFO, "information line");
  for (int i = 0; i < 10; ++i) TRACE(TRACE_WARNING, "warning number %d", i);
  vip_log_term();
  const std::string log = vyrtest::ReadFile(dir_ / "log/vip.log");
  EXPECT_EQ(std::string::npos,
            (log + vyrtest::ReadFile(dir_ / "log/vip.log.1")).find("information"));
  EXPECT_NE(std::string::npos, log.find("warning number 9"));
  EXPECT_LE(log.size(), 600u);
}

const std::string kVip1 = "/root/resource/vip@vip1/parameters/";
constexpr int kText = VYR_XMLTYPE_TEXT, kInt = VYR_XMLTYPE_INT;

// `path` (of `server`) read into exactly `size` bytes: text, integer or "error N".
std::string Lookup(const std::string& path, int type = kText, int size = 1024,
                   const std::string& server = "") {
  int number = 0;
  std::vector<char> text(static_cast<std::size_t>(size));
  void* out = type == kInt ? static_cast<void*>(&number) : text.data();
  int ret = server.empty()
                ? xmllib_get_value(path.c_str(), type, out, &size)
                : xmllib_get_srvsep_value(server.c_str(), path.c_str(), type, out, &size);
  if (ret != 0) return "error " + std::to_string(ret);
  if (type == kInt) return std::to_string(number);
  return std::string(text.data(), strnlen(text.data(), text.size()));
}

// A bad file that loads or leaves something to read, a reason without file and
// line; a wrong element or text, an overrun buffer, or a wrong server fall-back.
TEST(XmlLib, BadFilesThenLookupsByPathValueRulesAndServer) {
  std::optional<vyrtest::ScopedEnv> config;
  const std::tuple<const char*, int, const char*> bad[] = {
      {"nosuch.xml", VYR_XMLERR_NOT_LOAD, "nosuch.xml: cannot read: No such file or directory"},
      {"malformed.xml", VYR_XMLERR_INVALID_XML, "malformed.xml:7:"},
      {"empty.xml", VYR_XMLERR_INVALID_XML, "empty.xml:1:1: malformed XML"},
  };
  for (const auto& [file, ret, reason] : bad) {
    config.emplace("VYR_CONFIG", kData + file);
    ASSERT_EQ(xmllib_init("vip"), 0);
    EXPECT_EQ(xmllib_load_config(), ret) << file;
    EXPECT_EQ(std::string(xmllib_last_error()).rfind(kData + reason, 0), 0u) << xmllib_last_error();
    EXPECT_EQ(Lookup("/root"), "error 2") << file;
    xmllib_term();
  }
  config.emplace("VYR_CONFIG", kData + "lookup.xml");
  ASSERT_EQ(xmllib_init("vip"), 0);
  ASSERT_EQ(xmllib_load_config(), 0) << xmllib_last_error();
  const struct {
    std::string path, want;
    int type = kText, size = 1024;
    std::string server = "";
  } cases[] = {
      // The <vip> without a name holds the settings common to every resource.
      {"/root/resource/vip/parameters/ping/path", "bin/common-ping"},
      {"/root/resource/vip/parameters/ip", "error 4"},
      // Texts exactly as written: the check mode judges the blanks.
      {kVip1 + "comment", "  two blanks around  "},
      {kVip1 + "ping/empty", "", kText, 1},
      {kVip1 + "ip", "192.0.2.10/24", kText, 14},
      {kVip1 + "ip", "error 3", kText, 13},
      {kVip1 + "ping/interval", "-7", kInt, 4},
      {kVip1 + "ping/over", "error 9", kInt, 4},
      {kVip1 + "ping/hex", "error 9", kInt, 4},
      {kVip1 + "ping/empty", "error 5", kInt, 4},
      {kVip1 + "ping/retry", "error 3", kInt, 3},
      // This server's value first, else the resource's (node2's element lacks it).
      {kVip1 + "ip", "192.0.2.11/24", kText, 1024, "node1"},
      {kVip1 + "ip", "192.0.2.10/24", kText, 1024, "node2"},
      {kVip1 + "ip", "192.0.2.10/24", kText, 1024, "unknown"},
      {"/root/resource/vip@vip2/parameters/ifname", "error 4", kText, 1024, "node1"},
      // The server's own value decides, even when it does not fit.
      {kVip1 + "longname", "error 3", kText, 8, "node1"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Lookup(c.path, c.type, c.size, c.server), c.want) << c.server << c.path;
  }
  xmllib_term();
}

// A name not cut at its first dot, or a full-length name cut short.
TEST(HostName, IsCutAtTheFirstDot) {
  if (::unshare(CLONE_NEWUTS) != 0) GTEST_SKIP() << "no private UTS namespace";
  const std::string full(64, 'h');
  using Case = std::pair<std::string, std::string>;  // name, the name wanted
  for (const auto& [name, want] : {Case{"node1.cluster.example.org", "node1"}, Case{full, full}}) {
    ASSERT_EQ(0, ::sethostname(name.c_str(), name.size()));
    std::string buf(HOSTNAME_LEN, 'z');
    EXPECT_EQ(0, get_hostname(buf.data()));
    EXPECT_EQ(want, buf.c_str());
  }
}

}  // namespace
