#pragma once

#include <pthread.h>

#include "ipc/Lock.h"

namespace quillwork {

/// Sets the calling thread's cancellation state for a scope.
class CancellationScope {
 public:
  /// `state` is PTHREAD_CANCEL_ENABLE or PTHREAD_CANCEL_DISABLE.
  explicit CancellationScope(int state) { pthread_setcancelstate(state, &before_); }
  ~CancellationScope() { pthread_setcancelstate(before_, nullptr); }
  CancellationScope(const CancellationScope&) = delete;
  CancellationScope& operator=(const CancellationScope&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

/// True on a thread that is stopped by cancellation while it waits for a CancellableMutex: the
/// control channel's accept thread, which sets it. On every other thread such a wait is none of the
/// library's business to end.
inline thread_local bool lockWaitsAreCancellable = false;

/// A non-recursive mutex whose wait can be cancelled. Whoever stops the accept thread holds the
/// manager mutex while it joins it; a plain mutex wait is no cancellation point, so the two would
/// wait for each other for ever. Zero-initialised; needs no construction or destruction at run
/// time.
class CancellableMutex {
 public:
  void lock() {
    const Lock guard(guard_);
    if (!held_) {
      held_ = true;
      return;
    }
    const CancellationScope scope(lockWaitsAreCancellable ? PTHREAD_CANCEL_ENABLE
                                                          : PTHREAD_CANCEL_DISABLE);
    while (held_) pthread_cond_wait(&released_, &guard_);
    held_ = true;
  }

  void unlock() {
    const Lock guard(guard_);
    held_ = false;
    pthread_cond_signal(&released_);
  }

 private:
  pthread_mutex_t guard_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t released_ = PTHREAD_COND_INITIALIZER;
  bool held_ = false;
};

}  // namespace quillwork
