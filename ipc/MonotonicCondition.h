#pragma once

#include <pthread.h>

#include <ctime>

#include "ipc/Mutex.h"

namespace quillwork {

/// A condition whose deadline the receiver's wall clock cannot move: that clock jumps when the
/// broadcast's time arrives. The calling threads must not be cancellable.
class MonotonicCondition {
 public:
  MonotonicCondition() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~MonotonicCondition() { pthread_cond_destroy(&condition_); }
  MonotonicCondition(const MonotonicCondition&) = delete;
  MonotonicCondition& operator=(const MonotonicCondition&) = delete;

  void signal() { pthread_cond_signal(&condition_); }

  /// Waits for a signal; false when the deadline has passed.
  bool waitUntil(Mutex& mutex, const timespec& deadline) QUILLWORK_REQUIRES(mutex) {
    return pthread_cond_timedwait(&condition_, mutex.native(), &deadline) == 0;
  }

  /// The time `nanoseconds` from now; less than a second.
  static timespec deadlineIn(long nanoseconds) {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_nsec += nanoseconds;
    if (time.tv_nsec >= 1'000'000'000) {
      time.tv_nsec -= 1'000'000'000;
      ++time.tv_sec;
    }
    return time;
  }

 private:
  pthread_cond_t condition_;
};

}  // namespace quillwork
