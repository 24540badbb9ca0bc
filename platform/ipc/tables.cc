#include "tables.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>

namespace vyripc {

int MapTable(int proj, std::size_t size, std::uint32_t magic, void** addr) {
  std::optional<Key> key = KeyFor(proj);
  if (!key) {
    SetLastErrno(errno);
    return errno == ENOENT ? SHMRM_ERR_NOTINIT : SHMRM_ERR_FTOK;
  }
  int shmid = ::shmget(key->key, 0, 0);
  if (shmid == -1) {
    SetLastErrno(errno);
    return SHMRM_ERR_SHMGET;
  }
  struct shmid_ds ds {};
  if (::shmctl(shmid, IPC_STAT, &ds) != 0) {
    SetLastErrno(errno);
    return SHMRM_ERR_SHMCTL;
  }
  if (ds.shm_segsz < size) return SHMRM_ERR_LOADINFO;
  void* p = ::shmat(shmid, nullptr, 0);
  if (p == reinterpret_cast<void*>(-1)) {
    SetLastErrno(errno);
    return SHMRM_ERR_SHMAT;
  }
  if (!BelongsTo(*static_cast<TableHeader*>(p), magic, key->id)) {
    ::shmdt(p);
    return SHMRM_ERR_LOADINFO;
  }
  *addr = p;
  return 0;
}

int AttachTable(Mapping& m, int proj, std::size_t size, std::uint32_t magic) {
  if (m.refs == 0) {
    void* p = nullptr;
    int ret = MapTable(proj, size, magic, &p);
    if (ret != 0) return ret;
    m.addr = p;
  }
  ++m.refs;
  return 0;
}

int DetachTable(Mapping& m) {
  if (m.refs == 0) return SHMRM_ERR_NOTINIT;
  if (m.refs == 1) {
    if (::shmdt(m.addr) != 0) {
      SetLastErrno(errno);
      return SHMRM_ERR_SHMCTL;
    }
    m.addr = nullptr;
  }
  --m.refs;
  return 0;
}

}  // namespace vyripc
