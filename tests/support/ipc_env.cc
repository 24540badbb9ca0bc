#include "support/ipc_env.h"

#include <signal.h>
#include <sys/wait.h>

#include <cerrno>

#include "vyripc.h"
#include "vyripc_admin.h"

namespace vyrtest {

IpcRunDir::IpcRunDir() : env_("VYR_RUN_DIR", dir_.path() + "/run") {}

IpcRunDir::~IpcRunDir() {
  sem_leavecrit_ifconfig();
  while (sem_detach() == 0) {
  }
  while (shmnm_detach() == 0) {
  }
  while (shmrm_detach() == 0) {
  }
  int removed = 0;
  vyripc_remove(&removed);
}

ForkedChild::~ForkedChild() { Kill(); }

int ForkedChild::Wait() {
  if (pid_ <= 0) return -1;
  int status = 0;
  pid_t got;
  do {
    got = ::waitpid(pid_, &status, 0);
  } while (got == -1 && errno == EINTR);
  pid_ = -1;
  if (got == -1 || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

void ForkedChild::Kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  Wait();
}

}  // namespace vyrtest
