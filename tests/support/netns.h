// Private network namespaces for tests that touch interfaces: they go away
// with the object (and those of dead test processes at the next creation).
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>

#include "support/sh.h"
#include "unique_fd.h"

namespace vyrtest {

// Two namespaces joined by a veth pair, both ends up and without addresses:
// the agent's side (device "va0") and a peer (device "vb0").
class NetnsPair {
  struct Key {};  // only Create makes one

 public:
  NetnsPair(Key, const std::string& base) : agent_(base + "-a"), peer_(base + "-p") {}
  // Null, with the reason in *why, where namespaces cannot be made.
  static std::unique_ptr<NetnsPair> Create(std::string* why) {
    static std::atomic<int> counter{0};
    if (::geteuid() != 0) {
      *why = "not root";
      return nullptr;
    }
    // Names are vyrt-<pid>-<n>-<side>: first delete those of processes that died.
    Sh("for n in $(ip netns list | grep -o '^vyrt-[0-9]*-[^ ]*'); do p=${n#vyrt-}; "
       "kill -0 ${p%%-*} 2>/dev/null || ip netns del $n; done");
    auto pair = std::make_unique<NetnsPair>(
        Key{}, "vyrt-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1)));
    const std::string made = "a=" + pair->agent_ + " p=" + pair->peer_ +
                             "; ip netns add $a && ip netns add $p && ip link add va0 netns $a "
                             "type veth peer name vb0 netns $p && ip -n $a link set lo up && "
                             "ip -n $a link set va0 up && ip -n $p link set lo up && "
                             "ip -n $p link set vb0 up";
    if (Sh(made, why) != 0) pair.reset();  // its destructor deletes what was made
    return pair;
  }
  ~NetnsPair() { Sh("ip netns del " + agent_ + "; ip netns del " + peer_); }
  NetnsPair(const NetnsPair&) = delete;
  NetnsPair& operator=(const NetnsPair&) = delete;

  const std::string& agent() const { return agent_; }
  const std::string& peer() const { return peer_; }

  // 192.0.2.1/24 and 2001:db8::1/64 on va0, .2 and ::2 on vb0; 0 on success.
  int AddAddresses() const {
    return InAgent(
               "ip addr add 192.0.2.1/24 dev va0 && ip -6 addr add 2001:db8::1/64 dev va0 nodad") |
           InPeer(
               "ip addr add 192.0.2.2/24 dev vb0 && ip -6 addr add 2001:db8::2/64 dev vb0 nodad");
  }

  // The MAC addresses of va0 and vb0, as "xx:xx:xx:xx:xx:xx".
  std::string AgentMac() const { return Mac(agent_, "va0"); }
  std::string PeerMac() const { return Mac(peer_, "vb0"); }

  // A shell command inside a namespace; its exit code.
  int InAgent(const std::string& cmd, std::string* out = nullptr) const {
    return Sh("ip netns exec " + agent_ + " sh -c '" + cmd + "'", out);
  }
  int InPeer(const std::string& cmd, std::string* out = nullptr) const {
    return Sh("ip netns exec " + peer_ + " sh -c '" + cmd + "'", out);
  }

 private:
  static std::string Mac(const std::string& ns, const char* dev) {
    std::string out;
    Sh("ip netns exec " + ns + " cat /sys/class/net/" + dev + "/address", &out);
    return out.substr(0, out.find('\n'));
  }

  std::string agent_;
  std::string peer_;
};

// Moves the calling thread (and threads it starts) into a namespace, and back.
class ScopedNetns {
 public:
  explicit ScopedNetns(const std::string& name) {
    vyr::UniqueFd target(::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC));
    ok_ = original_.valid() && target.valid() && ::setns(target.get(), CLONE_NEWNET) == 0;
  }
  ~ScopedNetns() {
    if (ok_) ::setns(original_.get(), CLONE_NEWNET);
  }
  bool ok() const { return ok_; }

 private:
  vyr::UniqueFd original_{::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)};
  bool ok_ = false;
};

// The base of every namespace test: a private pair, deleted after the test
// also when it fails; skipped where namespaces cannot be made.
class NetnsTest : public ::testing::Test {
 protected:
  void SetUp() override { SetUpNamespaces(); }
  // Derived SetUp()s call this; they return when IsSkipped() or HasFatalFailure().
  void SetUpNamespaces() {
    std::string why;
    pair_ = NetnsPair::Create(&why);
    if (!pair_) GTEST_SKIP() << "network namespaces: " << why;
  }

  // One line per address of va0 (`ip -o`), family "-4", "-6" or "" for both.
  std::string Addrs(const char* family = "") const {
    std::string out;
    pair_->InAgent(std::string("ip -o ") + family + " addr show dev va0", &out);
    return out;
  }
  bool HasAddr(const char* family, const std::string& text) const {
    return Addrs(family).find(text) != std::string::npos;
  }

  std::unique_ptr<NetnsPair> pair_;
};

}  // namespace vyrtest
