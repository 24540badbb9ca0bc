#include "support/ipc_env.h"

#include "vyripc.h"
#include "vyripc_admin.h"

namespace vyrtest {

IpcRunDir::IpcRunDir() : env_("VYR_RUN_DIR", dir_.path() + "/run") {}

IpcRunDir::~IpcRunDir() {
  sem_leavecrit_ifconfig();
  while (sem_detach() == 0) continue;
  while (shmnm_detach() == 0) continue;
  while (shmrm_detach() == 0) continue;
  int removed = 0;
  vyripc_remove(&removed);
}

}  // namespace vyrtest
