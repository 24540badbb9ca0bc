// The timed listing through a fake interface tool: real scripts run by
// path, the result codes and status descriptions the cluster sees, the time
// limit, and no process left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/fake_tool.h"
#include "support/sh.h"
#include "vip/globals.h"
#include "vip/listing.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using vyrtest::ScopedGlobal;

struct ListFree {
  void operator()(ipaddrinfo* list) const { std::free(list); }
};

std::string Recorded(const std::string& name) {
  return std::string(VYR_TESTDATA_DIR) + "/ifconfig/" + name;
}

std::string Description() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

// One call of the timed listing through the tool, as the sequences make it.
struct Listing {
  int ret = -1;
  std::unique_ptr<ipaddrinfo, ListFree> list;
  int num = -1;
  milliseconds took{};
  std::string description;
};

Listing RunListing(const std::string& tool, int timeout, int v6 = 0) {
  ScopedGlobal<int> source(IsIfconfig, 1);
  ScopedGlobal<int> mode(ipv6flag, v6);
  vip_set_shmbuf("untouched");
  Listing out;
  ipaddrinfo* raw = reinterpret_cast<ipaddrinfo*>(&out);  // must stay unless set
  const auto start = Clock::now();
  out.ret = vip_ifconfig_mkth(&raw, &out.num, tool.c_str(), timeout);
  out.took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  if (raw != reinterpret_cast<ipaddrinfo*>(&out)) out.list.reset(raw);
  out.description = Description();
  return out;
}

class IfconfigListing : public ::testing::Test {
 protected:
  std::string Tool(const std::string& name, const std::string& body) {
    return vyrtest::WriteScript(dir_.path(), name, body);
  }
  // A tool that prints a recorded output; it fails when not given "-a".
  std::string Printing(const std::string& file) {
    return Tool("ifconfig-" + file,
                "[ \"$#\" = 1 ] && [ \"$1\" = -a ] || exit 9\ncat '" + Recorded(file) + "'\n");
  }
  vyrtest::TempDir dir_;
};

TEST_F(IfconfigListing, PrintedOutputBecomesTheListInBothModes) {
  const std::string tool = Printing("older_mixed.txt");
  Listing v4 = RunListing(tool, 60);
  ASSERT_EQ(v4.ret, 0) << v4.description;
  ASSERT_EQ(v4.num, 5);
  EXPECT_STREQ(v4.list.get()[1].ifname, "eth0:1");
  EXPECT_STREQ(v4.list.get()[1].sipel.addr, "192.0.2.20");
  EXPECT_EQ(v4.description, "untouched") << "success writes no description";
  // The tool ends at once: the wait must not cost a polling step, let
  // alone the 60 s limit.
  EXPECT_LT(v4.took, milliseconds(500));

  Listing v6 = RunListing(tool, 60, 1);
  ASSERT_EQ(v6.ret, 0);
  ASSERT_EQ(v6.num, 6);
  EXPECT_STREQ(v6.list.get()[1].sipel.addr, "2001:db8::10");
  EXPECT_EQ(v6.list.get()[3].sipel.masklen, 48);
}

TEST_F(IfconfigListing, SeventeenBlocksThroughTheTool) {
  Listing l = RunListing(Printing("seventeen_blocks.txt"), 5);
  ASSERT_EQ(l.ret, 0);
  ASSERT_EQ(l.num, 17);
  for (int k = 0; k < 17; ++k) {
    EXPECT_EQ(std::string(l.list.get()[k].ifname), "eth" + std::to_string(k));
  }
}

TEST_F(IfconfigListing, ToolFailuresGiveTheirCodeAndDescription) {
  const std::string exits1 = Tool("exits1", "cat '" + Recorded("older_mixed.txt") + "'\nexit 1\n");
  Listing failed = RunListing(exits1, 5);
  EXPECT_EQ(failed.ret, 3);
  EXPECT_EQ(failed.description, "Command failed. (" + exits1 + " -a, ret=1)");
  EXPECT_EQ(failed.list, nullptr);
  EXPECT_EQ(failed.num, 0) << "a failed listing gives back an empty list";

  Listing dashes = RunListing(Printing("hwaddr_dashes.txt"), 5);
  EXPECT_EQ(dashes.ret, 18);
  EXPECT_EQ(dashes.description, "Internal error. (status=18)");
  EXPECT_EQ(dashes.list, nullptr);

  // Kills its whole process group, the shell that ran it included.
  const std::string killed = Tool("killed", "echo 'eth0 Link'\nkill -9 0\n");
  Listing signalled = RunListing(killed, 5);
  EXPECT_EQ(signalled.ret, 11);
  EXPECT_EQ(signalled.description.rfind("Command failed. (pclose(" + killed + " -a), errno=", 0),
            0u)
      << signalled.description;

  const std::string missing = dir_ / "no-such-tool";
  Listing absent = RunListing(missing, 5);
  EXPECT_EQ(absent.ret, 3) << "the shell reports a missing tool with 127";
  EXPECT_EQ(absent.description, "Command failed. (" + missing + " -a, ret=127)");

  Listing silent = RunListing(Tool("silent", "exit 0\n"), 5);
  EXPECT_EQ(silent.ret, 0);
  EXPECT_EQ(silent.num, 0) << "empty output is an empty list";

  Listing toolong = RunListing(std::string(1021, 'x'), 5);
  EXPECT_EQ(toolong.ret, 12);
  EXPECT_EQ(toolong.description, "Internal error. (status=12)");
}

TEST_F(IfconfigListing, PathIsOneWordForTheShell) {
  ASSERT_EQ(::mkdir((dir_ / "my tools").c_str(), 0755), 0);
  const std::string odd =
      vyrtest::WriteScript(dir_ / "my tools", "it's;ifconfig",
                           "[ \"$#\" = 1 ] && [ \"$1\" = -a ] || exit 9\ncat '" +
                               Recorded("seventeen_blocks.txt") + "'\n");
  Listing l = RunListing(odd, 5);
  EXPECT_EQ(l.ret, 0) << l.description;
  EXPECT_EQ(l.num, 17);
}

// A hanging tool (one that already printed a block, and one that prints
// nothing under a limit of 0) gives 23 at the limit and is ended.
TEST_F(IfconfigListing, HangingToolTimesOutAndIsEnded) {
  struct Case {
    const char* stem;
    const char* body;
    int limit;
  };
  const Case cases[] = {
      {"vyrhang", "echo 'eth0 Link encap:Ethernet'\nwhile :; do sleep 1; done\n", 1},
      {"vyrzero", "exec sleep 30\n", 0},
  };
  for (const Case& c : cases) {
    const std::string marker = vyrtest::UniqueMarker(c.stem);
    Listing l = RunListing(Tool(marker, c.body), c.limit);
    EXPECT_EQ(l.ret, 23) << c.stem;
    EXPECT_EQ(l.description, "Internal error. (status=23)") << c.stem;
    EXPECT_EQ(l.num, -1) << "the outputs are not touched at the time limit";
    EXPECT_EQ(l.list, nullptr) << c.stem;
    EXPECT_GE(l.took, milliseconds(1000 * c.limit)) << c.stem;
    EXPECT_LT(l.took, milliseconds(1000 * c.limit + 1500)) << c.stem;
    EXPECT_TRUE(vyrtest::NoProcessWithin(marker, milliseconds(2000))) << c.stem << " outlived it";
  }
}

}  // namespace
