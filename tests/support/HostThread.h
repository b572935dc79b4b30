#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "support/Threads.h"

/// A thread of the host's that does one thing and has its answer.
template <class Result>
class HostThread {
 public:
  explicit HostThread(std::function<Result()> work)
      : thread_([this, work = std::move(work)] {
          id_ = threadId();
          result_ = work();
          hasReturned_ = true;
        }) {}
  ~HostThread() {
    if (thread_.joinable()) thread_.join();
  }
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;

  /// The kernel's number of it.
  [[nodiscard]] pid_t id() const {
    while (id_ == 0) std::this_thread::yield();
    return id_;
  }
  [[nodiscard]] bool hasReturned() const { return hasReturned_; }
  /// Waits for it.
  Result result() {
    if (thread_.joinable()) thread_.join();
    return result_;
  }

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> hasReturned_{false};
  Result result_{};
  std::thread thread_;
};

/// What became of a thread of the host's that was cancelled.
struct CancelledWork {
  /// The work was done to its end.
  bool isDone = false;
  /// The cancellation struck behind it.
  bool isCancelled = false;
};

/// A thread of the host's that is cancelled before its work begins, or by cancel(), and reaches a
/// cancellation point of its own only when the work is done.
class CancelledThread {
 public:
  explicit CancelledThread(std::function<void()> work, bool fromTheBeginning = true)
      : work_(std::move(work)), fromTheBeginning_(fromTheBeginning) {
    pthread_create(&thread_, nullptr, run, this);
  }
  CancelledThread(const CancelledThread&) = delete;
  CancelledThread& operator=(const CancelledThread&) = delete;

  [[nodiscard]] pid_t id() const {
    while (id_ == 0) std::this_thread::yield();
    return id_;
  }
  void cancel() const { pthread_cancel(thread_); }
  CancelledWork join() {
    void* end = nullptr;
    pthread_join(thread_, &end);
    return {isDone_, end == PTHREAD_CANCELED};
  }

 private:
  static void* run(void* argument) {
    auto& self = *static_cast<CancelledThread*>(argument);
    self.id_ = threadId();
    if (self.fromTheBeginning_) pthread_cancel(pthread_self());
    self.work_();
    self.isDone_ = true;
    // The host's own next point; where nothing is pending it is passed.
    pthread_testcancel();
    return nullptr;
  }

  const std::function<void()> work_;
  const bool fromTheBeginning_;
  std::atomic<pid_t> id_{0};
  std::atomic<bool> isDone_{false};
  pthread_t thread_{};
};
