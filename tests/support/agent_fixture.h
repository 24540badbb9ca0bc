// The fixture of the end-to-end agent tests: a private pair of network
// namespaces (va0 on the agent's side with 192.0.2.1/24 and 2001:db8::1/64,
// vb0 on the peer with .2 and ::2), an installed cluster with its tables
// started, and helpers to run vyrvip and look at the interfaces.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "support/cluster_env.h"
#include "support/netns.h"

namespace vyrtest {

inline constexpr const char* kCommon =
    "<ping><path>bin/vyrping</path></ping><ifconfig><path>ifconfig</path></ifconfig>";

inline std::string Resource(const std::string& name, const std::string& params) {
  return "<vip name=\"" + name + "\"><parameters>" + params + "</parameters></vip>";
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class AgentE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    pair_ = NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
    ASSERT_TRUE(env_.ok()) << "install failed: " << (InstalledPrefix(&why), why);
    ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.1/24 dev va0 && "
                                "ip -6 addr add 2001:db8::1/64 dev va0 nodad"));
    ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.2/24 dev vb0 && "
                               "ip -6 addr add 2001:db8::2/64 dev vb0 nodad"));
    ASSERT_EQ(0, env_.Ctl("start"));
  }

  std::string AgentAddrs(const char* family = "-4") const {
    std::string out;
    pair_->InAgent(std::string("ip ") + family + " addr show dev va0", &out);
    return out;
  }

  int Run(const std::string& args) const { return env_.Vyrvip(pair_->agent(), args); }

  // Starts capturing one ARP frame on the peer; returns the capture file.
  std::string CaptureArp() const {
    std::string file = env_.dir() + "/arp.txt";
    vyrtest::Sh("(ip netns exec " + pair_->peer() +
                " timeout 15 tcpdump -l -i vb0 -n -e -c 1 'arp and arp[14:4] = arp[24:4]' > '" +
                file + "' 2>&1 &)");
    WaitFor(file, "listening on");
    return file;
  }

  static bool WaitFor(const std::string& file, const std::string& text) {
    for (int i = 0; i < 100; ++i) {
      if (Contains(vyrtest::ReadFile(file), text)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  std::unique_ptr<NetnsPair> pair_;
  ClusterEnv env_;
};

}  // namespace vyrtest
