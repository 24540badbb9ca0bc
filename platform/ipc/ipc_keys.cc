#include "ipc_keys.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "vyripc_admin.h"

namespace vyripc {

namespace {
constexpr const char* kDefaultRunDir = "/run/vyrcluster";
constexpr const char* kKeyFile = "ipc.key";
thread_local int last_errno = 0;
}  // namespace

std::string RunDir() {
  const char* dir = std::getenv("VYR_RUN_DIR");
  if (dir == nullptr || dir[0] == '\0') return kDefaultRunDir;
  return dir;
}

std::string KeyPath() { return RunDir() + "/" + kKeyFile; }

std::optional<Key> KeyFor(int proj) {
  std::string path = KeyPath();
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  key_t key = ::ftok(path.c_str(), proj);
  if (key == -1) return std::nullopt;
  return Key{
      key, Identity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)}};
}

void SetLastErrno(int err) { last_errno = err; }

int SemOp(int semid, int index, int delta) {
  struct sembuf op {};
  op.sem_num = static_cast<unsigned short>(index);
  op.sem_op = static_cast<short>(delta);
  op.sem_flg = SEM_UNDO;
  while (::semop(semid, &op, 1) != 0) {
    if (errno == EINTR) continue;
    int err = errno;
    SetLastErrno(err);
    return err;
  }
  return 0;
}

}  // namespace vyripc

int vyripc_last_errno(void) { return vyripc::last_errno; }

std::string vyripc_run_dir(void) { return vyripc::RunDir(); }
