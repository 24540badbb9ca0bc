#include "common/timed_run.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

namespace vyr {

WorkerControl::WorkerControl(std::atomic<int>& done_flag)
    : done_flag_(done_flag), cancel_event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

std::optional<ChildProcess> WorkerControl::StartCommand(const Invocation& what,
                                                        ChildProcess::Output output) {
  std::lock_guard<std::mutex> hold(lock_);
  if (cancelled_.load()) {
    errno = ECANCELED;
    return std::nullopt;
  }
  // Started under the lock, so that a cancel either comes before (and the
  // command never starts) or finds the process group registered.
  auto child = ChildProcess::Start(what, output, cancel_event_.get());
  if (child) pgid_ = child->pid();
  return child;
}

int WorkerControl::WaitCommand(ChildProcess& child) {
  child.WaitExited();
  {
    std::lock_guard<std::mutex> hold(lock_);
    pgid_ = -1;
  }
  return child.Wait();
}

void WorkerControl::Finish() {
  {
    std::lock_guard<std::mutex> hold(lock_);
    done_flag_.store(1);
  }
  wake_.notify_all();
}

bool WorkerControl::WaitUntil(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock<std::mutex> hold(lock_);
  return wake_.wait_until(hold, deadline, [this] { return done_flag_.load() != 0; });
}

void WorkerControl::Cancel() {
  std::lock_guard<std::mutex> hold(lock_);
  cancelled_.store(true);
  if (cancel_event_.valid()) {
    const uint64_t one = 1;
    ssize_t ignored = ::write(cancel_event_.get(), &one, sizeof one);
    (void)ignored;
  }
  // The worker reaps the process; until it has, the group id cannot be reused.
  if (pgid_ > 0) ::kill(-pgid_, SIGKILL);
}

// The waiter's side of a timed run; a friend of WorkerControl.
struct TimedRunner {
  static TimedResult Run(std::atomic<int>& done_flag, int limit_seconds,
                         const std::function<void(WorkerControl&)>& job,
                         const TimedRunHooks& hooks) {
    done_flag.store(0);
    WorkerControl control(done_flag);
    std::thread worker;
    try {
      worker = std::thread([&control, &job] {
        job(control);
        control.Finish();
      });
    } catch (const std::system_error& e) {
      return {TimedOutcome::kNotStarted, e.code().value() != 0 ? e.code().value() : EAGAIN};
    }
    if (hooks.started) hooks.started();
    const bool finished =
        limit_seconds > 0 &&
        control.WaitUntil(std::chrono::steady_clock::now() + std::chrono::seconds(limit_seconds));
    if (!finished) {
      if (hooks.timed_out) hooks.timed_out();
      control.Cancel();
    }
    worker.join();
    return {finished ? TimedOutcome::kFinished : TimedOutcome::kTimedOut};
  }
};

TimedResult RunTimed(std::atomic<int>& done_flag, int limit_seconds,
                     const std::function<void(WorkerControl&)>& job, const TimedRunHooks& hooks) {
  return TimedRunner::Run(done_flag, limit_seconds, job, hooks);
}

}  // namespace vyr
