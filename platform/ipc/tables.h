// Internal to the IPC library: the layout of the two shared tables. Both are
// zero-filled by the kernel when made; the creator fills the header and sets
// the magic number last.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ipc_keys.h"
#include "vyripc.h"

namespace vyripc {

inline constexpr std::uint32_t kResourceMagic = 0x56595252;  // "VYRR"
inline constexpr std::uint32_t kNodeMagic = 0x5659524e;      // "VYRN"
inline constexpr int kMaxRows = 256;

inline constexpr int kGroupLen = 64;
inline constexpr int kTypeLen = 16;
inline constexpr int kRscLen = 64;

// One resource. The description is double-buffered: a writer fills the slot
// that is not current and then switches `current`, so a writer killed in the
// middle of a copy leaves the previous description intact.
struct ResourceRow {
  char group[kGroupLen];
  char type[kTypeLen];
  char rsc[kRscLen];
  std::uint32_t current;
  std::uint32_t pad;
  char descript[2][SHMRM_DESCRIPT_SIZE];
};

// Both tables begin with this header.
struct TableHeader {
  std::uint32_t magic;
  std::uint32_t pad;
  std::uint64_t key_dev;
  std::uint64_t key_ino;
};

struct ResourceTable {
  TableHeader head;
  std::uint32_t capacity;
  std::uint32_t count;  // rows in use; rows are never removed
  ResourceRow rows[kMaxRows];
};

struct NodeTable {
  TableHeader head;
  std::uint32_t npsimu;  // read and written atomically
  std::uint32_t pad;
};

inline bool BelongsTo(const TableHeader& h, std::uint32_t magic, const Identity& id) {
  return __atomic_load_n(&h.magic, __ATOMIC_ACQUIRE) == magic && h.key_dev == id.dev &&
         h.key_ino == id.ino;
}

inline void Stamp(TableHeader& h, std::uint32_t magic, const Identity& id) {
  h.key_dev = id.dev;
  h.key_ino = id.ino;
  __atomic_store_n(&h.magic, magic, __ATOMIC_RELEASE);
}

// A table of this process: the mapping and how many attaches it counts.
struct Mapping {
  void* addr = nullptr;
  int refs = 0;
};

// Maps the existing table `proj` of the run folder and checks that it was
// made for it. Returns 0 with *addr set, or an error number.
int MapTable(int proj, std::size_t size, std::uint32_t magic, void** addr);

// Counts one attach of `m`, mapping the table on the first. Returns 0 or an
// error number.
int AttachTable(Mapping& m, int proj, std::size_t size, std::uint32_t magic);
// Undoes one attach; unmaps on the last. SHMRM_ERR_NOTINIT when not attached.
int DetachTable(Mapping& m);

}  // namespace vyripc
