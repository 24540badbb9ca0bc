// Private network namespaces for tests that touch interfaces. Nothing here
// ever changes the machine's own interfaces: every device lives in a
// namespace the test created, and the namespaces are deleted when the
// object goes away (stale ones of dead test processes are swept at the next
// creation). Tests use documentation addresses only.
#pragma once

#include <memory>
#include <string>

namespace vyrtest {

// Two namespaces joined by a veth pair: the agent's side (device "va0") and
// a peer (device "vb0") that can hold addresses and watch frames. Both
// devices are up; no address is set.
class NetnsPair {
 public:
  // Null, with the reason in *why, when namespaces cannot be made here
  // (not root, no veth support).
  static std::unique_ptr<NetnsPair> Create(std::string* why);
  ~NetnsPair();
  NetnsPair(const NetnsPair&) = delete;
  NetnsPair& operator=(const NetnsPair&) = delete;

  const std::string& agent() const { return agent_; }
  const std::string& peer() const { return peer_; }
  static constexpr const char* kAgentIf = "va0";
  static constexpr const char* kPeerIf = "vb0";

  // Runs a shell command inside a namespace; returns its exit code.
  int InAgent(const std::string& cmd, std::string* out = nullptr) const;
  int InPeer(const std::string& cmd, std::string* out = nullptr) const;

 private:
  NetnsPair(std::string agent, std::string peer) : agent_(agent), peer_(peer) {}
  std::string agent_;
  std::string peer_;
};

// Moves the calling thread into a namespace (threads it starts follow it)
// and back to where it was on destruction.
class ScopedNetns {
 public:
  explicit ScopedNetns(const std::string& name);
  ~ScopedNetns();
  ScopedNetns(const ScopedNetns&) = delete;
  ScopedNetns& operator=(const ScopedNetns&) = delete;
  bool ok() const { return ok_; }

 private:
  int original_ = -1;
  bool ok_ = false;
};

}  // namespace vyrtest

// Skips the current test with a reason when namespaces are not available.
#define VYR_NETNS_PAIR_OR_SKIP(var)                    \
  std::string var##_why;                               \
  auto var = ::vyrtest::NetnsPair::Create(&var##_why); \
  if (!var) GTEST_SKIP() << "network namespaces: " << var##_why
