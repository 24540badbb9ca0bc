#include "common/timed_worker.h"

#include <signal.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace vyr {

void SetCurrentWorkerControl(WorkerControl* control);  // command.cc

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

TimedWorker::~TimedWorker() {
  if (thread_.joinable()) CancelAndJoin();
}

int TimedWorker::Start(std::function<void(WorkerControl&)> job) {
  try {
    thread_ = std::thread([this, job = std::move(job)] {
      SetCurrentWorkerControl(&control_);
      job(control_);
      SetCurrentWorkerControl(nullptr);
      control_.Finish();
    });
  } catch (const std::system_error& e) {
    return e.code().value() != 0 ? e.code().value() : EAGAIN;
  }
  return 0;
}

void TimedWorker::CancelAndJoin() {
  control_.Cancel();
  Join();
}

void TimedWorker::Join() {
  if (thread_.joinable()) thread_.join();
}

}  // namespace vyr
