// The semaphore set and the interface-change critical section.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "ipc_keys.h"
#include "vyripc.h"

namespace vyripc {

int FindSemaphores(int* semid) {
  std::optional<Key> key = KeyFor(kProjSemaphores);
  if (!key) {
    SetLastErrno(errno);
    return errno == ENOENT ? SHMRM_ERR_NOTINIT : SHMRM_ERR_FTOK;
  }
  int id = ::semget(key->key, 0, 0);
  if (id == -1) {
    SetLastErrno(errno);
    return VYRIPC_ERR_SEMGET;
  }
  struct semid_ds ds {};
  if (::semctl(id, 0, IPC_STAT, &ds) != 0) {
    SetLastErrno(errno);
    return VYRIPC_ERR_SEMGET;
  }
  if (ds.sem_nsems != kSemCount) return SHMRM_ERR_LOADINFO;
  *semid = id;
  return 0;
}

}  // namespace vyripc

namespace {

std::mutex state_lock;
int sem_refs = 0;  // guarded by state_lock
int sem_id = -1;   // guarded by state_lock
// The process that holds the section. A forked child inherits the variable
// but not the kernel's undo record, so the pid tells them apart.
std::atomic<pid_t> holder{0};

int CurrentSemid() {
  std::lock_guard<std::mutex> hold(state_lock);
  return sem_refs > 0 ? sem_id : -1;
}

int Leave(int semid) {
  if (vyripc::SemOp(semid, vyripc::kSemIfconfig, +1) != 0) return VYRIPC_ERR_SEMOP;
  holder.store(0);
  return 0;
}

}  // namespace

int sem_attach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  if (sem_refs == 0) {
    int id = -1;
    int ret = vyripc::FindSemaphores(&id);
    if (ret != 0) return ret;
    sem_id = id;
  }
  ++sem_refs;
  return 0;
}

int sem_detach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  if (sem_refs == 0) return SHMRM_ERR_NOTINIT;
  if (sem_refs == 1) {
    // Nobody else may wait until this process ends for a section it forgot.
    if (holder.load() == ::getpid()) Leave(sem_id);
    sem_id = -1;
  }
  --sem_refs;
  return 0;
}

int sem_entercrit_ifconfig(void) {
  int semid = CurrentSemid();
  if (semid == -1) return SHMRM_ERR_NOTINIT;
  if (holder.load() == ::getpid()) return VYRIPC_ERR_HELD;
  if (vyripc::SemOp(semid, vyripc::kSemIfconfig, -1) != 0) return VYRIPC_ERR_SEMOP;
  holder.store(::getpid());
  return 0;
}

int sem_leavecrit_ifconfig(void) {
  int semid = CurrentSemid();
  if (semid == -1) return SHMRM_ERR_NOTINIT;
  if (holder.load() != ::getpid()) return VYRIPC_ERR_NOTHELD;
  return Leave(semid);
}
