#include "support/netns.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <sstream>

#include "support/sh.h"

namespace vyrtest {

namespace {

std::atomic<int> counter{0};

// Deletes namespaces left behind by test processes that died.
void SweepStale() {
  std::string names;
  Sh("ip netns list 2>/dev/null | awk '{print $1}' | grep '^vyrt-'", &names);
  std::istringstream in(names);
  std::string name;
  while (std::getline(in, name)) {
    // vyrt-<pid>-<n>-<side>
    long pid = std::strtol(name.c_str() + 5, nullptr, 10);
    if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0) Sh("ip netns del " + name);
  }
}

}  // namespace

std::unique_ptr<NetnsPair> NetnsPair::Create(std::string* why) {
  if (::geteuid() != 0) {
    if (why) *why = "not root";
    return nullptr;
  }
  SweepStale();
  const std::string base =
      "vyrt-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
  std::unique_ptr<NetnsPair> pair(new NetnsPair(base + "-a", base + "-p"));
  std::string out;
  const std::string a = pair->agent_, p = pair->peer_;
  if (Sh("ip netns add " + a + " && ip netns add " + p, &out) != 0 ||
      Sh("ip link add " + std::string(kAgentIf) + " netns " + a + " type veth peer name " +
             kPeerIf + " netns " + p,
         &out) != 0 ||
      Sh("ip -n " + a + " link set lo up && ip -n " + a + " link set " + kAgentIf +
             " up && ip -n " + p + " link set lo up && ip -n " + p + " link set " + kPeerIf + " up",
         &out) != 0) {
    if (why) *why = "cannot create namespaces: " + out;
    return nullptr;  // the destructor deletes what was made
  }
  return pair;
}

NetnsPair::~NetnsPair() {
  Sh("ip netns del " + agent_ + " 2>/dev/null");
  Sh("ip netns del " + peer_ + " 2>/dev/null");
}

int NetnsPair::InAgent(const std::string& cmd, std::string* out) const {
  return Sh("ip netns exec " + agent_ + " sh -c '" + cmd + "'", out);
}

int NetnsPair::InPeer(const std::string& cmd, std::string* out) const {
  return Sh("ip netns exec " + peer_ + " sh -c '" + cmd + "'", out);
}

ScopedNetns::ScopedNetns(const std::string& name) {
  original_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  int target = ::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
  if (original_ >= 0 && target >= 0) ok_ = ::setns(target, CLONE_NEWNET) == 0;
  if (target >= 0) ::close(target);
}

ScopedNetns::~ScopedNetns() {
  if (original_ >= 0) {
    if (ok_) ::setns(original_, CLONE_NEWNET);
    ::close(original_);
  }
}

}  // namespace vyrtest
