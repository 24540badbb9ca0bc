// Many agents on one interface at once, round after round: the critical
// section must hand out one alias per address and nothing may be left over.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/agent_fixture.h"
#include "support/stress_util.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::Resource;

constexpr int kAgents = 32;
constexpr int kRounds = 20;

std::string Address(int i) { return "198.51.100." + std::to_string(100 + i); }

class StressAgents : public AgentE2E {
 protected:
  // Runs one mode for every resource at once; the exit codes by resource.
  std::vector<int> RunAll(const std::string& mode) {
    std::vector<int> codes(kAgents, -1);
    std::vector<std::thread> agents;
    for (int i = 0; i < kAgents; ++i) {
      agents.emplace_back([&, i] {
        codes[static_cast<size_t>(i)] = Run(mode + " -r vip" + std::to_string(i) + " -g grp1");
      });
    }
    for (auto& agent : agents) agent.join();
    return codes;
  }

  // Alias label of each virtual address in `addrs` ("ip -4 addr" output).
  static std::set<std::string> Labels(const std::string& addrs, std::string* missing) {
    std::set<std::string> labels;
    for (int i = 0; i < kAgents; ++i) {
      std::string needle = "inet " + Address(i) + "/24 ";
      size_t at = addrs.find(needle);
      if (at == std::string::npos) {
        *missing += Address(i) + " ";
        continue;
      }
      size_t eol = addrs.find('\n', at);
      size_t label = addrs.rfind(' ', eol);
      labels.insert(addrs.substr(label + 1, eol - label - 1));
    }
    return labels;
  }
};

TEST_F(StressAgents, ThirtyTwoAgentsTwentyRoundsLeaveNothingBehind) {
  std::string resources;
  for (int i = 0; i < kAgents; ++i) {
    // No probe, no frames, no ping confirmation: the rounds measure the
    // critical section and the listing, not the mandated waits.
    resources += Resource("vip" + std::to_string(i),
                          "<ip>" + Address(i) +
                              "/24</ip><ifname>va0</ifname><ping><timeout>0</timeout></ping>"
                              "<arp><retry>0</retry></arp>"
                              "<check><ping><execute>0</execute></ping></check>");
  }
  env_.WriteConfig(resources, vyrtest::kCommon, 2);

  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<int> up = RunAll("--active");
    for (int i = 0; i < kAgents; ++i) EXPECT_EQ(0, up[static_cast<size_t>(i)]) << "vip" << i;

    std::string missing;
    std::string addrs = AgentAddrs();
    std::set<std::string> labels = Labels(addrs, &missing);
    EXPECT_EQ("", missing) << addrs;
    EXPECT_EQ(static_cast<size_t>(kAgents), labels.size())
        << "every address on an alias of its own:\n"
        << addrs;
    for (const std::string& label : labels) EXPECT_EQ(0u, label.rfind("va0:", 0)) << label;

    std::vector<int> down = RunAll("--deactive");
    for (int i = 0; i < kAgents; ++i) EXPECT_EQ(0, down[static_cast<size_t>(i)]) << "vip" << i;
    addrs = AgentAddrs();
    EXPECT_FALSE(Contains(addrs, "198.51.100.")) << addrs;
    EXPECT_TRUE(Contains(addrs, "192.0.2.1/24")) << "the interface's own address stays";
    EXPECT_EQ("", vyrtest::ProcessesMatching(env_.prefix() + "/bin/")) << "no process left";
    if (HasFailure()) break;  // one broken round tells the story
  }
}

}  // namespace
