// Internal to the IPC library: where the objects live and how they are
// found. Every object is keyed by ftok() on the key file in the run folder,
// one project id per object. ftok keys are only a hash of the file's device
// and inode, so the shared tables also record the identity of the key file
// they were made for; an attach that finds a table of another run folder
// refuses it instead of writing into someone else's table.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace vyripc {

// Project ids of the three objects.
inline constexpr int kProjResourceTable = 'R';
inline constexpr int kProjNodeTable = 'N';
inline constexpr int kProjSemaphores = 'S';

// The semaphore set: the interface-change critical section and the lock
// that keeps the resource table's rows whole.
inline constexpr int kSemIfconfig = 0;
inline constexpr int kSemRows = 1;
inline constexpr int kSemCount = 2;

struct Identity {
  std::uint64_t dev = 0;
  std::uint64_t ino = 0;
  bool operator==(const Identity&) const = default;
};

struct Key {
  key_t key;
  Identity id;
};

// $VYR_RUN_DIR, or /run/vyrcluster.
std::string RunDir();
// The file every key is made from.
std::string KeyPath();

// The key of one object. On failure returns nullopt with errno set
// (ENOENT: the key file does not exist, so nothing was started).
std::optional<Key> KeyFor(int proj);

// Records errno of the last failed system call of this thread, for the
// control tool's messages.
void SetLastErrno(int err);

// Waits on (delta < 0) or posts (delta > 0) one semaphore of the set with
// SEM_UNDO, so the kernel gives back what a killed process held. Retries
// when interrupted by a signal. Returns 0 or errno.
int SemOp(int semid, int index, int delta);

// Finds the semaphore set of the run folder. Returns 0 with *semid set, or
// an error number.
int FindSemaphores(int* semid);

}  // namespace vyripc
