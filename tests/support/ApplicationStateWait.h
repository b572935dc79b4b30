#pragma once

#include <atomic>
#include <thread>

#include "protocol/ApplicationState.h"

/// Whether a setApplicationState() call sleeps on its condition.
inline bool isApplicationStateAwaited() {
  // The number of a condition's waiters is not public. glibc counts eight for each in this field.
  const auto& waiters = quillwork::application_state::applicationStateCondition.__data.__wrefs;
  constexpr unsigned oneWaiter = 8;
  return __atomic_load_n(&waiters, __ATOMIC_SEQ_CST) >= oneWaiter;
}

/// Waits until a setApplicationState() call sleeps on its condition: an answer that comes before is
/// lost, as it has to be.
inline void awaitApplicationStateWait() {
  while (!isApplicationStateAwaited()) std::this_thread::yield();
}
