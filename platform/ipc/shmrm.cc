// The resource table: one row per (group, type, resource) with its status
// description. Rows are written and read under the row semaphore of the set
// (taken with SEM_UNDO, so a writer killed while holding it does not stop
// the others).
#include <sys/shm.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "tables.h"
#include "vyripc_admin.h"

namespace {

using vyripc::ResourceRow;
using vyripc::ResourceTable;

std::mutex state_lock;
vyripc::Mapping table;  // guarded by state_lock
int rows_semid = -1;    // guarded by state_lock

// What a call needs while it works on the table.
struct Handle {
  ResourceTable* t;
  int semid;
};

int Current(Handle* h) {
  std::lock_guard<std::mutex> hold(state_lock);
  if (table.refs == 0) return SHMRM_ERR_NOTINIT;
  *h = Handle{static_cast<ResourceTable*>(table.addr), rows_semid};
  return 0;
}

// Holds the row lock for one scope.
class RowLock {
 public:
  explicit RowLock(int semid) : semid_(semid) {
    ok_ = vyripc::SemOp(semid_, vyripc::kSemRows, -1) == 0;
  }
  ~RowLock() {
    if (ok_) vyripc::SemOp(semid_, vyripc::kSemRows, +1);
  }
  RowLock(const RowLock&) = delete;
  RowLock& operator=(const RowLock&) = delete;
  bool ok() const { return ok_; }

 private:
  int semid_;
  bool ok_;
};

// Any text that fits its field names a row, the empty text included: an
// agent run refused before its names were known still reports its status.
bool ValidName(const char* name, int field) {
  return name != nullptr && std::strlen(name) < static_cast<size_t>(field);
}

bool SameKey(const ResourceRow& r, const char* group, const char* type, const char* rsc) {
  return std::strcmp(r.group, group) == 0 && std::strcmp(r.type, type) == 0 &&
         std::strcmp(r.rsc, rsc) == 0;
}

ResourceRow* FindRow(ResourceTable& t, const char* group, const char* type, const char* rsc) {
  std::uint32_t count = std::min<std::uint32_t>(t.count, vyripc::kMaxRows);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (SameKey(t.rows[i], group, type, rsc)) return &t.rows[i];
  }
  return nullptr;
}

ResourceRow* AddRow(ResourceTable& t, const char* group, const char* type, const char* rsc) {
  if (t.count >= t.capacity || t.count >= vyripc::kMaxRows) return nullptr;
  ResourceRow& r = t.rows[t.count];
  std::memset(&r, 0, sizeof r);
  std::snprintf(r.group, sizeof r.group, "%s", group);
  std::snprintf(r.type, sizeof r.type, "%s", type);
  std::snprintf(r.rsc, sizeof r.rsc, "%s", rsc);
  // Count the row only once its names are complete.
  __atomic_store_n(&t.count, t.count + 1, __ATOMIC_RELEASE);
  return &r;
}

// Writes the new text into the slot that is not current, then switches.
void StoreDescript(ResourceRow& r, const char* text, int size) {
  size_t limit = std::min<size_t>(static_cast<size_t>(size), SHMRM_DESCRIPT_SIZE) - 1;
  size_t len = strnlen(text, limit);
  std::uint32_t next = (r.current & 1u) ^ 1u;
  char* slot = r.descript[next];
  std::memset(slot, 0, SHMRM_DESCRIPT_SIZE);
  std::memcpy(slot, text, len);
  __atomic_store_n(&r.current, next, __ATOMIC_RELEASE);
}

const char* CurrentDescript(const ResourceRow& r) { return r.descript[r.current & 1u]; }

}  // namespace

int shmrm_attach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  int semid = rows_semid;
  if (table.refs == 0) {
    // The row lock lives in the semaphore set; a table without it is unusable.
    int ret = vyripc::FindSemaphores(&semid);
    if (ret != 0) return ret == SHMRM_ERR_NOTINIT ? ret : SHMRM_ERR_SHMCTL;
  }
  int ret = vyripc::AttachTable(table, vyripc::kProjResourceTable, sizeof(ResourceTable),
                                vyripc::kResourceMagic);
  if (ret != 0) return ret;
  rows_semid = semid;
  return 0;
}

int shmrm_detach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  return vyripc::DetachTable(table);
}

int shmrm_setdescript(const char* group, const char* type, const char* rsc, const char* descript,
                      int size) {
  if (!ValidName(group, vyripc::kGroupLen) || !ValidName(type, vyripc::kTypeLen) ||
      !ValidName(rsc, vyripc::kRscLen) || descript == nullptr || size <= 0) {
    return SHMRM_ERR_INVALIDPARAM;
  }
  Handle h{};
  if (int ret = Current(&h); ret != 0) return ret;
  RowLock lock(h.semid);
  if (!lock.ok()) return SHMRM_ERR_SHMCTL;
  ResourceRow* row = FindRow(*h.t, group, type, rsc);
  if (row == nullptr) row = AddRow(*h.t, group, type, rsc);
  if (row == nullptr) return SHMRM_ERR_MAXRSC;
  StoreDescript(*row, descript, size);
  return 0;
}

int shmrm_getdescript(const char* group, const char* type, const char* rsc, char* out, int size) {
  if (group == nullptr || type == nullptr || rsc == nullptr || out == nullptr || size <= 0) {
    return SHMRM_ERR_INVALIDPARAM;
  }
  Handle h{};
  if (int ret = Current(&h); ret != 0) return ret;
  RowLock lock(h.semid);
  if (!lock.ok()) return SHMRM_ERR_SHMCTL;
  const ResourceRow* row = FindRow(*h.t, group, type, rsc);
  if (row == nullptr) return SHMRM_ERR_NOTFOUND;
  std::snprintf(out, static_cast<size_t>(size), "%s", CurrentDescript(*row));
  return 0;
}

int shmrm_listrows(std::vector<ShmrmRow>* rows) {
  if (rows == nullptr) return SHMRM_ERR_INVALIDPARAM;
  Handle h{};
  if (int ret = Current(&h); ret != 0) return ret;
  std::vector<ShmrmRow> copy;
  {
    RowLock lock(h.semid);
    if (!lock.ok()) return SHMRM_ERR_SHMCTL;
    std::uint32_t count = std::min<std::uint32_t>(h.t->count, vyripc::kMaxRows);
    copy.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      const ResourceRow& r = h.t->rows[i];
      // The fields are terminated by construction; strnlen keeps a damaged
      // table from sending us past a field.
      copy.push_back(
          {std::string(r.group, strnlen(r.group, sizeof r.group)),
           std::string(r.type, strnlen(r.type, sizeof r.type)),
           std::string(r.rsc, strnlen(r.rsc, sizeof r.rsc)),
           std::string(CurrentDescript(r), strnlen(CurrentDescript(r), SHMRM_DESCRIPT_SIZE))});
    }
  }
  *rows = std::move(copy);
  return 0;
}
