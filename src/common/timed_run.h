// Running a blocking job (usually a command) on a worker thread under a
// time limit set by its caller.
//
// The caller hands RunTimed the job and the limit; RunTimed starts the
// worker and waits on a condition variable with a deadline, so it wakes the
// moment the worker ends: a command that takes 5 ms costs 5 ms, while the
// limit stays exact. At the limit the job's command is ended (its process
// group is killed and any read of its output stops), the worker reaps it
// and returns, and RunTimed joins it. RunTimed never returns while the
// worker runs, so a record on the caller's stack stays valid for as long
// as the job can touch it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

#include "common/child_process.h"
#include "unique_fd.h"

namespace vyr {

// What a job and its waiter share. The job starts its commands through it
// (see common/command.h), so that the waiter can end them at the limit.
class WorkerControl {
 public:
  WorkerControl(const WorkerControl&) = delete;
  WorkerControl& operator=(const WorkerControl&) = delete;

  // Job: runs `what` as a child that the waiter can end. Returns nullopt
  // (errno set) when it cannot be started, or ECANCELED when the waiter
  // has already given up.
  std::optional<ChildProcess> StartCommand(const Invocation& what, ChildProcess::Output output);
  // Job: waits for the command started by StartCommand and reaps it.
  // Returns its wait status, or -1 with errno set. Use this rather than
  // child.Wait(), so that a late cancel never signals a reused process id.
  int WaitCommand(ChildProcess& child);
  // Job: the waiter gave up; whatever the job reports now is never seen.
  bool cancelled() const { return cancelled_.load(); }

 private:
  friend struct TimedRunner;
  explicit WorkerControl(std::atomic<int>& done_flag);

  // Sets the completion flag to 1 and wakes the waiter.
  void Finish();
  // True when the job finished before `deadline`.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline);
  // Ends the running command and makes reads of its output stop.
  void Cancel();

  std::atomic<int>& done_flag_;
  std::atomic<bool> cancelled_{false};
  std::mutex lock_;
  std::condition_variable wake_;
  pid_t pgid_ = -1;  // the running command, guarded by lock_
  UniqueFd cancel_event_;
};

enum class TimedOutcome {
  kFinished,    // the job returned within the limit
  kTimedOut,    // the limit passed; the job's command was ended
  kNotStarted,  // no worker thread could be created
};

struct TimedResult {
  TimedOutcome outcome;
  int start_error = 0;  // kNotStarted: the error number of the thread creation
};

// Steps of the caller's own that happen on the caller's thread while the
// worker exists (its trace lines, in their order).
struct TimedRunHooks {
  std::function<void()> started;    // the worker runs; the wait begins
  std::function<void()> timed_out;  // the limit passed; the command is not ended yet
};

// Clears `done_flag`, runs `job` on a new worker thread (which sets the flag
// to 1 as its last act) and waits at most `limit_seconds` for it; a limit of
// 0 or less times out at once, even when the job is quick. Returns with the
// worker joined in every case.
TimedResult RunTimed(std::atomic<int>& done_flag, int limit_seconds,
                     const std::function<void(WorkerControl&)>& job,
                     const TimedRunHooks& hooks = {});

}  // namespace vyr
