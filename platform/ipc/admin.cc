// Making and removing the IPC objects of a run folder. Both run under an
// exclusive lock on the key file, so two `vyrctl start` (or a start and a
// stop) never see each other's half-made objects.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "make_dirs.h"
#include "tables.h"
#include "unique_fd.h"
#include "vyripc_admin.h"

namespace {

using vyripc::Identity;

// The key file, open and locked; closing it drops the lock.
vyr::UniqueFd LockKeyFile(int flags) {
  vyr::UniqueFd key(::open(vyripc::KeyPath().c_str(), flags | O_RDWR | O_CLOEXEC, 0600));
  if (key.valid() && ::flock(key.get(), LOCK_EX) != 0) return vyr::UniqueFd();
  return key;
}

void InitResourceTable(void* p) {
  static_cast<vyripc::ResourceTable*>(p)->capacity = vyripc::kMaxRows;
}

void InitNodeTable(void*) {}

// One shared table: makes it, or checks that the one under its key is ours.
struct TableKind {
  int proj;
  std::size_t size;
  std::uint32_t magic;
  void (*init)(void*);
};

constexpr TableKind kResourceKind{vyripc::kProjResourceTable, sizeof(vyripc::ResourceTable),
                                  vyripc::kResourceMagic, InitResourceTable};
constexpr TableKind kNodeKind{vyripc::kProjNodeTable, sizeof(vyripc::NodeTable), vyripc::kNodeMagic,
                              InitNodeTable};

int Fail(int err, int ret) {
  vyripc::SetLastErrno(err);
  return ret;
}

// Returns 0 with *made set when the table is ready, or an error number.
int EnsureTable(const TableKind& kind, const vyripc::Key& key, bool* made, int* shmid) {
  int id = ::shmget(key.key, kind.size, IPC_CREAT | IPC_EXCL | 0600);
  if (id == -1 && errno != EEXIST) return Fail(errno, SHMRM_ERR_SHMGET);
  *made = id != -1;
  if (!*made) id = ::shmget(key.key, 0, 0);
  if (id == -1) return Fail(errno, SHMRM_ERR_SHMGET);
  void* p = ::shmat(id, nullptr, 0);
  if (p == reinterpret_cast<void*>(-1)) {
    int err = errno;
    if (*made) ::shmctl(id, IPC_RMID, nullptr);
    return Fail(err, SHMRM_ERR_SHMAT);
  }
  auto* head = static_cast<vyripc::TableHeader*>(p);
  int ret = 0;
  if (*made) {
    kind.init(p);
    vyripc::Stamp(*head, kind.magic, key.id);
  } else if (!vyripc::BelongsTo(*head, kind.magic, key.id)) {
    ret = SHMRM_ERR_LOADINFO;
  }
  ::shmdt(p);
  *shmid = id;
  return ret;
}

int EnsureSemaphores(const vyripc::Key& key, bool* made, int* semid) {
  int id = ::semget(key.key, vyripc::kSemCount, IPC_CREAT | IPC_EXCL | 0600);
  if (id == -1 && errno != EEXIST) return Fail(errno, VYRIPC_ERR_SEMGET);
  *made = id != -1;
  if (*made) {
    unsigned short values[vyripc::kSemCount] = {1, 1};
    if (::semctl(id, 0, SETALL, values) != 0) {
      int err = errno;
      ::semctl(id, 0, IPC_RMID);
      *made = false;
      return Fail(err, VYRIPC_ERR_SEMGET);
    }
    *semid = id;
    return 0;
  }
  return vyripc::FindSemaphores(semid);
}

// Whether the table under `key` is one of ours; false when there is none.
bool OwnTable(const TableKind& kind, const vyripc::Key& key, int* shmid, bool* foreign) {
  int id = ::shmget(key.key, 0, 0);
  if (id == -1) return false;
  void* p = ::shmat(id, nullptr, SHM_RDONLY);
  if (p == reinterpret_cast<void*>(-1)) return false;
  bool ours = vyripc::BelongsTo(*static_cast<vyripc::TableHeader*>(p), kind.magic, key.id);
  ::shmdt(p);
  if (!ours) *foreign = true;
  *shmid = id;
  return ours;
}

}  // namespace

int vyripc_create(int* already) {
  vyripc::SetLastErrno(0);
  if (int err = vyr::MakeDirs(vyripc_run_dir()); err != 0) return Fail(err, SHMRM_ERR_FTOK);
  vyr::UniqueFd lock = LockKeyFile(O_CREAT);
  if (!lock.valid()) return Fail(errno, SHMRM_ERR_FTOK);
  auto rkey = vyripc::KeyFor(vyripc::kProjResourceTable);
  auto nkey = vyripc::KeyFor(vyripc::kProjNodeTable);
  auto skey = vyripc::KeyFor(vyripc::kProjSemaphores);
  if (!rkey || !nkey || !skey) return Fail(errno, SHMRM_ERR_FTOK);

  bool made_r = false, made_n = false, made_s = false;
  int shm_r = -1, shm_n = -1, sem = -1;
  int ret = EnsureTable(kResourceKind, *rkey, &made_r, &shm_r);
  if (ret == 0) ret = EnsureTable(kNodeKind, *nkey, &made_n, &shm_n);
  if (ret == 0) ret = EnsureSemaphores(*skey, &made_s, &sem);
  if (ret != 0) {
    // Leave nothing half made behind.
    if (made_r) ::shmctl(shm_r, IPC_RMID, nullptr);
    if (made_n) ::shmctl(shm_n, IPC_RMID, nullptr);
    if (made_s) ::semctl(sem, 0, IPC_RMID);
    return ret;
  }
  if (already != nullptr) *already = !made_r && !made_n && !made_s ? 1 : 0;
  return 0;
}

int vyripc_remove(int* removed) {
  vyripc::SetLastErrno(0);
  int count = 0;
  vyr::UniqueFd lock = LockKeyFile(0);
  if (!lock.valid()) {
    if (removed != nullptr) *removed = 0;
    return errno == ENOENT ? 0 : Fail(errno, SHMRM_ERR_FTOK);
  }
  auto rkey = vyripc::KeyFor(vyripc::kProjResourceTable);
  auto nkey = vyripc::KeyFor(vyripc::kProjNodeTable);
  auto skey = vyripc::KeyFor(vyripc::kProjSemaphores);
  if (!rkey || !nkey || !skey) return Fail(errno, SHMRM_ERR_FTOK);

  // Objects under our keys that another run folder made are left alone;
  // all three keys differ only in the project id, so such a clash covers
  // the semaphore set as well.
  bool foreign = false;
  int id = -1;
  if (OwnTable(kResourceKind, *rkey, &id, &foreign) && ::shmctl(id, IPC_RMID, nullptr) == 0) {
    ++count;
  }
  if (OwnTable(kNodeKind, *nkey, &id, &foreign) && ::shmctl(id, IPC_RMID, nullptr) == 0) {
    ++count;
  }
  if (!foreign) {
    int semid = ::semget(skey->key, 0, 0);
    if (semid != -1 && ::semctl(semid, 0, IPC_RMID) == 0) ++count;
  }
  ::unlink(vyripc::KeyPath().c_str());
  if (removed != nullptr) *removed = count;
  return foreign ? SHMRM_ERR_LOADINFO : 0;
}

const char* vyripc_strerror(int err) {
  switch (err) {
    case 0:
      return "success";
    case SHMRM_ERR_NOTINIT:
      return "not started (run 'vyrctl start') or not attached";
    case SHMRM_ERR_INVALIDPARAM:
      return "invalid parameter";
    case SHMRM_ERR_NOTFOUND:
      return "no such resource";
    case SHMRM_ERR_FTOK:
      return "the key file of the run folder cannot be made or read";
    case SHMRM_ERR_SHMGET:
      return "the shared table does not exist or cannot be made";
    case SHMRM_ERR_SHMAT:
      return "the shared table cannot be mapped";
    case SHMRM_ERR_SHMCTL:
      return "the shared table cannot be controlled or locked";
    case SHMRM_ERR_MAXRSC:
      return "the resource table is full";
    case SHMRM_ERR_LOADINFO:
      return "the IPC objects under this key belong to another run folder";
    case VYRIPC_ERR_SEMGET:
      return "the semaphore set does not exist or cannot be made";
    case VYRIPC_ERR_SEMOP:
      return "a semaphore operation failed";
    case VYRIPC_ERR_HELD:
      return "this process already holds the critical section";
    case VYRIPC_ERR_NOTHELD:
      return "this process does not hold the critical section";
    default:
      return "unknown error";
  }
}
