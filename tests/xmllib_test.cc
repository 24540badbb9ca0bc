// The XML configuration library, on recorded configuration files and the
// shipped policies.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/sh.h"
#include "vyrxml.h"

namespace {

using vyrtest::ScopedEnv;

const std::string kData = std::string(VYR_TESTDATA_DIR) + "/config/";
const std::string kShippedPolicies = std::string(VYR_SOURCE_DIR) + "/platform/policy";

// The library with a configuration file and a policy folder.
class XmlLib : public ::testing::Test {
 protected:
  void Load(const std::string& config, const std::string& policies = kShippedPolicies) {
    config_.emplace("VYR_CONFIG", config);
    policy_.emplace("VYR_POLICY_DIR", policies);
    ASSERT_EQ(xmllib_init("vip"), 0);
    ASSERT_EQ(xmllib_load_config(), 0) << xmllib_last_error();
  }
  void TearDown() override { xmllib_term(); }

  // A text lookup; the result code and the value (unchanged on failure).
  static int Text(const std::string& path, std::string* value, int size = 1024) {
    std::vector<char> buf(static_cast<std::size_t>(size) + 1, '#');
    buf[static_cast<std::size_t>(size)] = '\0';
    int inout = size;
    int ret = xmllib_get_value(path.c_str(), VYR_XMLTYPE_TEXT, buf.data(), &inout);
    EXPECT_EQ(inout, size) << "the byte size must not change: " << path;
    *value = buf.data();
    return ret;
  }
  static int Int(const std::string& path, int* value, int size = 4) {
    return xmllib_get_value(path.c_str(), VYR_XMLTYPE_INT, value, &size);
  }
  static int Server(const char* server, const std::string& path, std::string* value) {
    char buf[82] = {};
    int size = sizeof buf;
    int ret = xmllib_get_srvsep_value(server, path.c_str(), VYR_XMLTYPE_TEXT, buf, &size);
    *value = buf;
    return ret;
  }
  // The names of an enumeration, read with a buffer of the reported size.
  static int Enum(const std::string& path, std::vector<std::string>* names) {
    int size = 0;
    int ret = xmllib_enum_value(path.c_str(), nullptr, &size);
    if (ret != 0) return ret;
    EXPECT_EQ(size % VYR_XML_ENUM_ENTRY, 0);
    std::vector<char> buf(static_cast<std::size_t>(size), 'x');
    ret = xmllib_enum_value(path.c_str(), buf.data(), &size);
    for (int off = 0; ret == 0 && off < size; off += VYR_XML_ENUM_ENTRY) {
      const char* entry = buf.data() + off;
      names->emplace_back(entry);
      for (int i = static_cast<int>(std::strlen(entry)); i < VYR_XML_ENUM_ENTRY; ++i) {
        EXPECT_EQ(entry[i], '\0') << "entry " << off / VYR_XML_ENUM_ENTRY << " is not NUL-padded";
      }
    }
    return ret;
  }

  std::optional<ScopedEnv> config_;
  std::optional<ScopedEnv> policy_;
};

TEST_F(XmlLib, PathsNameElementsByTagAndNameAttribute) {
  Load(kData + "lookup.xml");
  struct Case {
    const char* path;
    int ret;
    const char* value;
  } cases[] = {
      {"/root/resource/vip@vip1/parameters/ip", 0, "192.0.2.10/24"},
      {"/root/resource/vip@vip2/parameters/ip", 0, "2001:db8::10/64"},
      // The common element is the <vip> without a name.
      {"/root/resource/vip/parameters/ping/path", 0, "bin/common-ping"},
      // The first of two elements with the same name counts.
      {"/root/resource/vip@vip1/parameters/ifname", 0, "va0"},
      // A plain tag never matches a named element, nor the reverse.
      {"/root/resource/vip/parameters/ip", 4, nullptr},
      {"/root/resource/vip@vip1/server/parameters/ip", 0, "198.51.100.99"},
      {"/root/resource/vip@vip1/parameters/nosuch", 4, nullptr},
      {"/root", 0, ""},
      {"", 6, nullptr},
      {"root/resource", 6, nullptr},
      {"/root//resource", 6, nullptr},
      {"/root/resource/vip@", 6, nullptr},
  };
  for (const Case& c : cases) {
    std::string value;
    EXPECT_EQ(Text(c.path, &value), c.ret) << c.path;
    if (c.value) {
      EXPECT_EQ(value, c.value) << c.path;
    } else {
      EXPECT_EQ(value, std::string(1024, '#')) << "buffer written on failure: " << c.path;
    }
  }
}

TEST_F(XmlLib, TextValuesAreExactAndBoundedByTheByteSize) {
  Load(kData + "lookup.xml");
  struct Case {
    const char* key;
    int size, ret;
    std::string value;
  } cases[] = {
      {"comment", 1024, 0, "  two blanks around  "},
      {"escaped", 1024, 0, "a&b <c>"},
      {"cdata", 1024, 0, "x < y"},
      {"ping/selfclosed", 1024, 0, ""},
      // An element with child elements has no text of its own.
      {"ping", 1024, 0, ""},
      // "192.0.2.10/24" is 13 characters: 14 bytes fit, 13 do not.
      {"ip", 14, 0, "192.0.2.10/24"},
      {"ip", 13, 9, std::string(13, '#')},
      {"ping/empty", 1, 0, ""},
      {"ping/empty", 0, 9, ""},
  };
  for (const Case& c : cases) {
    std::string value;
    EXPECT_EQ(Text(std::string("/root/resource/vip@vip1/parameters/") + c.key, &value, c.size),
              c.ret == 9 ? VYR_XMLERR_NOTENOUGH_SIZE : c.ret)
        << c.key << " in " << c.size;
    EXPECT_EQ(value, c.value) << c.key << " in " << c.size;
  }
}

TEST_F(XmlLib, IntegersAreSignedDecimalsWithinIntRange) {
  Load(kData + "lookup.xml");
  struct Case {
    const char* key;
    int ret;
    int value;
  } cases[] = {
      {"retry", 0, 2}, {"interval", 0, -7}, {"max", 0, 2147483647}, {"min", 0, -2147483647 - 1},
      {"over", 9, 0},  {"lead", 9, 0},      {"hex", 9, 0},          {"word", 9, 0},
      {"empty", 5, 0}, {"nosuch", 4, 0},
  };
  for (const Case& c : cases) {
    const std::string path = std::string("/root/resource/vip@vip1/parameters/ping/") + c.key;
    int value = 12345;
    EXPECT_EQ(Int(path, &value), c.ret) << c.key;
    EXPECT_EQ(value, c.ret == 0 ? c.value : 12345) << c.key;
  }
  int value = 0;
  EXPECT_EQ(Int("/root/resource/vip@vip1/parameters/ping/retry", &value, 3),
            VYR_XMLERR_NOTENOUGH_SIZE);
  int size = 4;
  EXPECT_EQ(xmllib_get_value("/root/resource/vip@vip1/parameters/ping/retry", 2, &value, &size),
            VYR_XMLERR_OTHER);
}

TEST_F(XmlLib, CallsOutOfOrderFailWithTheirCodes) {
  char buf[16];
  int size = sizeof buf;
  EXPECT_EQ(xmllib_load_config(), VYR_XMLERR_NOT_INIT);
  EXPECT_EQ(xmllib_get_value("/root", 0, buf, &size), VYR_XMLERR_NOT_INIT);
  EXPECT_EQ(xmllib_init(""), VYR_XMLERR_OTHER);
  ScopedEnv config("VYR_CONFIG", kData + "lookup.xml");
  ASSERT_EQ(xmllib_init("vip"), 0);
  EXPECT_EQ(xmllib_get_value("/root", 0, buf, &size), VYR_XMLERR_NOT_LOAD);
  ASSERT_EQ(xmllib_load_config(), 0);
  EXPECT_EQ(xmllib_unload_config(), 0);
  EXPECT_EQ(xmllib_get_value("/root", 0, buf, &size), VYR_XMLERR_NOT_LOAD);
  EXPECT_EQ(xmllib_unload_config(), VYR_XMLERR_NOT_LOAD);
}

TEST_F(XmlLib, ServerValuesFallBackToTheResourceValue) {
  Load(kData + "lookup.xml");
  const std::string p = "/root/resource/vip@vip1/parameters/";
  struct Case {
    const char* server;
    std::string path;
    int ret;
    const char* value;
  } cases[] = {
      {"node1", p + "ip", 0, "192.0.2.11/24"},
      // node2 has an element of its own, but not this value.
      {"node2", p + "ip", 0, "192.0.2.10/24"},
      {"node2", p + "ifname", 0, "vb0"},
      {"unknown", p + "ip", 0, "192.0.2.10/24"},
      {"node1", "/root/resource/vip@vip2/parameters/ifname", VYR_XMLERR_NOTEXIST_PATH, ""},
      {"a/b", p + "ip", VYR_XMLERR_INVALID_PATH, ""},
  };
  for (const Case& c : cases) {
    std::string value;
    EXPECT_EQ(Server(c.server, c.path, &value), c.ret) << c.server << " " << c.path;
    EXPECT_EQ(value, c.value) << c.server << " " << c.path;
  }
  // The server's own value decides, even when it does not fit.
  char small[8];
  int size = sizeof small;
  EXPECT_EQ(xmllib_get_srvsep_value("node1", (p + "longname").c_str(), 0, small, &size),
            VYR_XMLERR_NOTENOUGH_SIZE);
}

TEST_F(XmlLib, EnumerationListsNamesInDocumentOrder) {
  Load(kData + "lookup.xml");
  std::vector<std::string> names;
  EXPECT_EQ(Enum("/root/resource/vip@vip1/server", &names), 0);
  // The <server> without a name is not listed.
  EXPECT_EQ(names, (std::vector<std::string>{"node1", "node2", "node3"}));

  int size = 0;
  EXPECT_EQ(xmllib_enum_value("/root/resource/vip@vip1/server", nullptr, &size), 0);
  EXPECT_EQ(size, 3 * 256);
  char buf[2 * 256];
  size = sizeof buf;
  EXPECT_EQ(xmllib_enum_value("/root/resource/vip@vip1/server", buf, &size),
            VYR_XMLERR_NOTENOUGH_SIZE);
  EXPECT_EQ(size, 3 * 256);

  size = 0;
  EXPECT_EQ(xmllib_enum_value("/root/resource/vip@vip2/server", nullptr, &size),
            VYR_XMLERR_NOTEXIST_PATH);
  EXPECT_EQ(xmllib_enum_value("/root/resource/vip@vip1/server@node1", nullptr, &size),
            VYR_XMLERR_INVALID_PATH);
}

TEST_F(XmlLib, ShippedPoliciesSupplyDefaultsBehindTheConfiguration) {
  Load(kData + "lookup.xml");
  std::string value;
  EXPECT_EQ(Text("/root/all/path", &value), VYR_XMLERR_NOTEXIST_PATH);
  for (const char* policy : {"all", "cluster", "vip"}) ASSERT_EQ(xmllib_load_policy(policy), 0);
  const std::pair<const char*, const char*> texts[] = {
      {"/root/all/path", "/opt/vyrcluster"},
      {"/root/cluster/check/rdrctpath", "var/check/vip.log"},
      {"/root/cluster/check/chkconf", "etc/chkconf.xml"},
      {"/root/resource/vip/parameters/arp/path", "arp"},
      // The configuration's own value wins over the policy's.
      {"/root/resource/vip/parameters/ping/path", "bin/common-ping"},
  };
  for (const auto& [path, want] : texts) {
    EXPECT_EQ(Text(path, &value), 0) << path;
    EXPECT_EQ(value, want) << path;
  }
  int n = 0;
  EXPECT_EQ(Int("/root/vip/log/size", &n), 0);
  EXPECT_EQ(n, 1000000);
  EXPECT_EQ(xmllib_unload_policy("all"), 0);
  EXPECT_EQ(Text("/root/all/path", &value), VYR_XMLERR_NOTEXIST_PATH);
  EXPECT_EQ(xmllib_unload_policy("all"), VYR_XMLERR_NOT_LOAD);
}

TEST_F(XmlLib, PolicyLoadsAreCountedAndFailuresNameTheFile) {
  Load(kData + "lookup.xml", kData + "policy-extra");
  std::string value;
  ASSERT_EQ(xmllib_load_policy("extra"), 0);
  ASSERT_EQ(xmllib_load_policy("extra"), 0);
  EXPECT_EQ(Text("/root/resource/vip/parameters/arp/path", &value), 0);
  EXPECT_EQ(value, "policy-arp");
  EXPECT_EQ(xmllib_unload_policy("extra"), 0);
  EXPECT_EQ(Text("/root/extra/only", &value), 0) << "still loaded once";
  EXPECT_EQ(value, "from-policy");
  EXPECT_EQ(xmllib_unload_policy("extra"), 0);
  EXPECT_EQ(Text("/root/extra/only", &value), VYR_XMLERR_NOTEXIST_PATH);

  EXPECT_EQ(xmllib_load_policy("nosuch"), VYR_XMLERR_NOT_LOAD);
  EXPECT_NE(std::string(xmllib_last_error()).find(kData + "policy-extra/nosuch.xml: cannot read"),
            std::string::npos)
      << xmllib_last_error();
  EXPECT_EQ(xmllib_load_policy("broken"), VYR_XMLERR_INVALID_XML);
  EXPECT_NE(std::string(xmllib_last_error()).find(kData + "policy-extra/broken.xml:4:"),
            std::string::npos)
      << xmllib_last_error();
  EXPECT_EQ(xmllib_load_policy("../policy-extra/extra"), VYR_XMLERR_INVALID_PATH);
}

TEST_F(XmlLib, ConfigurationUnderCheckReplacesTheRunningOneUntilReleased) {
  Load(kData + "lookup.xml");
  const std::string ip = "/root/resource/vip@vip1/parameters/ip";
  void* handle = nullptr;
  ASSERT_EQ(xmllib_load_pathconfig((kData + "chkconf.xml").c_str(), &handle), 0);
  ASSERT_NE(handle, nullptr);
  std::string value;
  EXPECT_EQ(Text(ip, &value), 0);
  EXPECT_EQ(value, "192.0.2.10/24") << "loading alone does not switch";

  ASSERT_EQ(xmllib_change_config(handle), 0);
  EXPECT_EQ(Text(ip, &value), 0);
  EXPECT_EQ(value, "198.51.100.20/24");
  EXPECT_EQ(Text("/root/resource/vip@vip1/parameters/ifname", &value), VYR_XMLERR_NOTEXIST_PATH);
  // Policies still stand behind the configuration under check.
  ASSERT_EQ(xmllib_load_policy("all"), 0);
  EXPECT_EQ(Text("/root/all/path", &value), 0);
  EXPECT_EQ(value, "/opt/vyrcluster");

  EXPECT_EQ(xmllib_unload_pathconfig(handle), 0);
  EXPECT_EQ(Text(ip, &value), 0);
  EXPECT_EQ(value, "192.0.2.10/24");
  EXPECT_EQ(xmllib_change_config(handle), VYR_XMLERR_INVALID_HANDLE);
  EXPECT_EQ(xmllib_unload_pathconfig(handle), VYR_XMLERR_INVALID_HANDLE);
  EXPECT_EQ(xmllib_change_config(nullptr), VYR_XMLERR_INVALID_HANDLE);

  void* other = nullptr;
  EXPECT_EQ(xmllib_load_pathconfig((kData + "nosuch.xml").c_str(), &other), VYR_XMLERR_NOT_LOAD);
  EXPECT_EQ(other, nullptr);
}

TEST_F(XmlLib, BadConfigurationFilesFailWithFileLineAndReason) {
  struct Case {
    const char* file;
    int ret;
    const char* error;  // the start of the reason
  } cases[] = {
      {"nosuch.xml", VYR_XMLERR_NOT_LOAD, "nosuch.xml: cannot read: No such file or directory"},
      {"malformed.xml", VYR_XMLERR_INVALID_XML, "malformed.xml:7:"},
      {"empty.xml", VYR_XMLERR_INVALID_XML, "empty.xml:1:1: malformed XML"},
  };
  for (const Case& c : cases) {
    ScopedEnv config("VYR_CONFIG", kData + c.file);
    ASSERT_EQ(xmllib_init("vip"), 0);
    EXPECT_EQ(xmllib_load_config(), c.ret) << c.file;
    EXPECT_EQ(std::string(xmllib_last_error()).rfind(kData + c.error, 0), 0u)
        << c.file << ": " << xmllib_last_error();
    char buf[8];
    int size = sizeof buf;
    EXPECT_EQ(xmllib_get_value("/root", 0, buf, &size), VYR_XMLERR_NOT_LOAD) << c.file;
    EXPECT_EQ(xmllib_term(), 0);
  }
  // A good load clears the reason.
  Load(kData + "lookup.xml");
  EXPECT_STREQ(xmllib_last_error(), "");
}

TEST_F(XmlLib, ReloadingReadsTheFileAgain) {
  vyrtest::TempDir dir;
  vyrtest::WriteFile(dir / "c.xml", "<root><a>1</a></root>");
  Load(dir / "c.xml");
  int n = 0;
  vyrtest::WriteFile(dir / "c.xml", "<root><a>2</a></root>");
  ASSERT_EQ(xmllib_load_config(), 0);
  EXPECT_EQ(Int("/root/a", &n), 0);
  EXPECT_EQ(n, 2);
  // A failed reload keeps the configuration that was loaded.
  vyrtest::WriteFile(dir / "c.xml", "<root><a>3</a>");
  EXPECT_EQ(xmllib_load_config(), VYR_XMLERR_INVALID_XML);
  EXPECT_EQ(Int("/root/a", &n), 0);
  EXPECT_EQ(n, 2);
}

}  // namespace
