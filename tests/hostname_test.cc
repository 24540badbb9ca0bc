// The short host name, read in a private UTS namespace of this test process
// so that the machine's own name is never touched.
#include "value/hostname.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <string>

namespace {

// A name not cut at its first dot, or a full-length name cut short.
TEST(HostName, IsCutAtTheFirstDot) {
  if (::unshare(CLONE_NEWUTS) != 0) GTEST_SKIP() << "no private UTS namespace";
  const std::string full(64, 'h');
  const struct {
    std::string name, want;
  } cases[] = {{"node1.cluster.example.org", "node1"}, {full, full}};
  for (const auto& c : cases) {
    ASSERT_EQ(0, ::sethostname(c.name.c_str(), c.name.size()));
    std::string buf(HOSTNAME_LEN, 'z');
    EXPECT_EQ(0, get_hostname(buf.data()));
    EXPECT_EQ(c.want, buf.c_str());
  }
}

}  // namespace
