// The short host name, read in a private UTS namespace so that the
// machine's own name is never touched.
#include "value/hostname.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace {

// Sets `name` as the host name inside a new UTS namespace of a child
// process and returns what get_hostname gives there, or the reason why
// the namespace could not be made (prefixed with "skip:").
std::string ShortNameFor(const std::string& name) {
  int fds[2];
  if (::pipe(fds) != 0) return "skip: pipe";
  pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    char out[HOSTNAME_LEN + 16] = {};
    if (::unshare(CLONE_NEWUTS) != 0 || ::sethostname(name.c_str(), name.size()) != 0) {
      std::snprintf(out, sizeof out, "skip: %s", std::strerror(errno));
    } else {
      char buf[HOSTNAME_LEN];
      std::memset(buf, 'z', sizeof buf);
      int ret = get_hostname(buf);
      std::snprintf(out, sizeof out, "%d:%s", ret, buf);
    }
    ssize_t n = ::write(fds[1], out, std::strlen(out));
    ::_exit(n > 0 ? 0 : 1);
  }
  ::close(fds[1]);
  std::string result;
  char buf[512];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof buf)) > 0) result.append(buf, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return result;
}

TEST(HostName, IsCutAtTheFirstDot) {
  struct Case {
    std::string set;
    std::string want;
  };
  const Case cases[] = {
      {"node1.cluster.example.org", "0:node1"},
      {"node2", "0:node2"},
      {"a.b", "0:a"},
      {std::string(64, 'h'), "0:" + std::string(64, 'h')},
  };
  for (const Case& c : cases) {
    std::string got = ShortNameFor(c.set);
    if (got.rfind("skip:", 0) == 0) GTEST_SKIP() << "no UTS namespace: " << got;
    EXPECT_EQ(c.want, got) << c.set;
  }
}

}  // namespace
