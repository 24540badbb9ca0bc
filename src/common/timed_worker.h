// A worker thread that runs a blocking job (usually a command) under a time
// limit set by its caller.
//
// The caller clears the completion flag, starts the worker and waits with a
// deadline on a condition variable, so it wakes the moment the worker ends:
// a command that takes 5 ms costs 5 ms, while the limit stays exact. At the
// limit the caller cancels: the command's process group is killed, any read
// of its output stops, the worker reaps the process and returns, and the
// caller joins it. Nothing the worker uses outlives the join, so a record on
// the caller's stack stays valid for as long as the worker can touch it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "common/child_process.h"
#include "unique_fd.h"

namespace vyr {

// What the worker and its waiter share.
class WorkerControl {
 public:
  explicit WorkerControl(std::atomic<int>& done_flag);

  // Worker: runs `what` as a child that a cancellation ends. Returns
  // nullopt (errno set) when it cannot be started, or ECANCELED when the
  // waiter has already given up.
  std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output);
  // Worker: waits for the command started by StartCommand and reaps it.
  // Returns its wait status, or -1 with errno set. Use this rather than
  // child.Wait(), so that a late cancel never signals a reused process id.
  int WaitCommand(ChildProcess& child);
  bool cancelled() const { return cancelled_.load(); }

  // Sets the completion flag to 1 and wakes the waiter. Called by
  // TimedWorker after the job returns.
  void Finish();
  bool finished() const { return done_flag_.load() != 0; }

  // Waiter: true when the worker finished before `deadline`.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline);
  // Waiter: ends the running command and makes reads of its output stop.
  void Cancel();

 private:
  std::atomic<int>& done_flag_;
  std::atomic<bool> cancelled_{false};
  std::mutex lock_;
  std::condition_variable wake_;
  pid_t pgid_ = -1;  // the running command, guarded by lock_
  UniqueFd cancel_event_;
};

class TimedWorker {
 public:
  // Clears `done_flag`; the worker sets it to 1 as its last act.
  explicit TimedWorker(std::atomic<int>& done_flag) : control_(done_flag) { done_flag.store(0); }
  TimedWorker(const TimedWorker&) = delete;
  TimedWorker& operator=(const TimedWorker&) = delete;
  // A worker still running is cancelled and joined.
  ~TimedWorker();

  // Starts `job` on a new thread. Returns 0, or the error number when the
  // thread cannot be created.
  int Start(std::function<void(WorkerControl&)> job);

  // Waits until the worker finished or `limit` has passed since this call.
  bool WaitFor(std::chrono::steady_clock::duration limit) {
    return control_.WaitUntil(std::chrono::steady_clock::now() + limit);
  }
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) {
    return control_.WaitUntil(deadline);
  }

  // Ends the command the worker runs and joins the worker.
  void CancelAndJoin();
  // Joins a worker that has finished (or will finish on its own).
  void Join();

  WorkerControl& control() { return control_; }

 private:
  WorkerControl control_;
  std::thread thread_;
};

}  // namespace vyr
