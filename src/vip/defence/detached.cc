#include "vip/defence/detached.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace vyr {

void DetachDescriptors(std::initializer_list<int> keep) {
  const int null = ::open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3 && null >= 0; ++fd) ::dup2(null, fd);
  std::vector<int> kept;
  for (int fd : keep) {
    if (fd > 2) kept.push_back(fd);
  }
  if (null > 2 && std::find(kept.begin(), kept.end(), null) == kept.end()) ::close(null);
  std::sort(kept.begin(), kept.end());
  unsigned from = 3;
  for (int fd : kept) {
    const auto at = static_cast<unsigned>(fd);
    if (at > from) ::close_range(from, at - 1, 0);
    from = at + 1;
  }
  ::close_range(from, ~0U, 0);
}

int ForkDetached() {
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    if (::setsid() < 0) ::_exit(1);
    const pid_t grandchild = ::fork();
    if (grandchild != 0) ::_exit(grandchild < 0 ? 1 : 0);
    return 0;
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 1 : -1;
}

}  // namespace vyr
