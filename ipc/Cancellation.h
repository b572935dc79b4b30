#pragma once

#include <pthread.h>

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

}  // namespace quillwork
