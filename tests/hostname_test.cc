// The short host name, read in a private UTS namespace so that the
// machine's own name is never touched.
#include "value/hostname.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>

namespace {

// get_hostname's result ("<ret>:<name>") with `name` set as the host name
// in a child's own UTS namespace; "skip: ..." when none can be made.
std::string ShortNameFor(const std::string& name) {
  int fds[2];
  if (::pipe(fds) != 0) return "skip: pipe";
  pid_t pid = ::fork();
  if (pid == 0) {
    char out[HOSTNAME_LEN + 16] = "skip: unshare";
    char buf[HOSTNAME_LEN];
    std::memset(buf, 'z', sizeof buf);
    if (::unshare(CLONE_NEWUTS) == 0 && ::sethostname(name.c_str(), name.size()) == 0) {
      std::snprintf(out, sizeof out, "%d:%s", get_hostname(buf), buf);
    }
    ::_exit(::write(fds[1], out, std::strlen(out)) > 0 ? 0 : 1);
  }
  ::close(fds[1]);
  char buf[512] = {};
  ssize_t n = ::read(fds[0], buf, sizeof buf - 1);
  ::close(fds[0]);
  ::waitpid(pid, nullptr, 0);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "skip: no answer";
}

TEST(HostName, IsCutAtTheFirstDot) {
  const std::pair<std::string, std::string> cases[] = {
      {"node1.cluster.example.org", "0:node1"},
      {std::string(64, 'h'), "0:" + std::string(64, 'h')},
  };
  for (const auto& [set, want] : cases) {
    std::string got = ShortNameFor(set);
    if (got.rfind("skip:", 0) == 0) GTEST_SKIP() << "no UTS namespace: " << got;
    EXPECT_EQ(got, want) << set;
  }
}

}  // namespace
