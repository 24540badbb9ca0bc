// The node table: this node's npsimu flag.
#include <mutex>

#include "tables.h"
#include "vyripc_admin.h"

namespace {

std::mutex state_lock;
vyripc::Mapping table;  // guarded by state_lock

vyripc::NodeTable* Current() {
  std::lock_guard<std::mutex> hold(state_lock);
  return table.refs > 0 ? static_cast<vyripc::NodeTable*>(table.addr) : nullptr;
}

}  // namespace

int shmnm_attach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  return vyripc::AttachTable(table, vyripc::kProjNodeTable, sizeof(vyripc::NodeTable),
                             vyripc::kNodeMagic);
}

int shmnm_detach(void) {
  std::lock_guard<std::mutex> hold(state_lock);
  return vyripc::DetachTable(table);
}

int shmnm_getnpsimuflag(int* flag) {
  if (flag == nullptr) return SHMRM_ERR_INVALIDPARAM;
  vyripc::NodeTable* t = Current();
  if (t == nullptr) return SHMRM_ERR_NOTINIT;
  *flag = __atomic_load_n(&t->npsimu, __ATOMIC_ACQUIRE) != 0 ? 1 : 0;
  return 0;
}

int shmnm_setnpsimuflag(int flag) {
  if (flag != 0 && flag != 1) return SHMRM_ERR_INVALIDPARAM;
  vyripc::NodeTable* t = Current();
  if (t == nullptr) return SHMRM_ERR_NOTINIT;
  __atomic_store_n(&t->npsimu, static_cast<std::uint32_t>(flag), __ATOMIC_RELEASE);
  return 0;
}
