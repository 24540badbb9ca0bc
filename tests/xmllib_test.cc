// The XML configuration library on recorded configuration files: lookups as
// the agent and the check mode make them, and files that cannot be used.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "support/sh.h"
#include "vyrxml.h"

namespace {

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/config/";
const std::string kVip1 = "/root/resource/vip@vip1/parameters/";
constexpr int kText = VYR_XMLTYPE_TEXT, kInt = VYR_XMLTYPE_INT;

// Reads `path` (for `server` when given) into a buffer of exactly `size`
// bytes: the text, the integer in decimal, or "error N".
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

struct Case {
  std::string path, want;
  int type = kText, size = 1024;
  std::string server = "";
};

class XmlLib : public ::testing::Test {
 protected:
  void Load(const std::string& config) {
    config_.emplace("VYR_CONFIG", kData + config);
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0) << xmllib_last_error();
  }
  void TearDown() override { xmllib_term(); }

  std::optional<vyrtest::ScopedEnv> config_;
};

// A wrong element, a changed text, a value that overruns its buffer, or a
// server's value that does not come first with the resource's as fall-back.
TEST_F(XmlLib, LookupsFollowThePathSyntaxValueRulesAndServerFallBack) {
  Load("lookup.xml");
  const Case cases[] = {
      {kVip1 + "ip", "192.0.2.10/24"},
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
      // This server's own value first, then the resource's value.
      {kVip1 + "ip", "192.0.2.11/24", kText, 1024, "node1"},
      // node2 has an element of its own, but not this value.
      {kVip1 + "ip", "192.0.2.10/24", kText, 1024, "node2"},
      {kVip1 + "ip", "192.0.2.10/24", kText, 1024, "unknown"},
      {"/root/resource/vip@vip2/parameters/ifname", "error 4", kText, 1024, "node1"},
      // The server's own value decides, even when it does not fit.
      {kVip1 + "longname", "error 3", kText, 8, "node1"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Lookup(c.path, c.type, c.size, c.server), c.want) << c.server << c.path;
  }
}

// A bad file fails with its code and a reason naming file and line, and
// leaves nothing to read.
TEST_F(XmlLib, BadConfigurationFilesFailWithFileLineAndReason) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"nosuch.xml", VYR_XMLERR_NOT_LOAD, "nosuch.xml: cannot read: No such file or directory"},
      {"malformed.xml", VYR_XMLERR_INVALID_XML, "malformed.xml:7:"},
      {"empty.xml", VYR_XMLERR_INVALID_XML, "empty.xml:1:1: malformed XML"},
  };
  for (const auto& [file, ret, reason] : cases) {
    config_.emplace("VYR_CONFIG", kData + file);
    ASSERT_EQ(xmllib_init("vip"), 0);
    EXPECT_EQ(xmllib_load_config(), ret) << file;
    EXPECT_EQ(std::string(xmllib_last_error()).rfind(kData + reason, 0), 0u) << xmllib_last_error();
    EXPECT_EQ(Lookup("/root"), "error 2") << file;
    xmllib_term();
  }
}

}  // namespace
