#pragma once

#include <atomic>
#include <thread>

#include "protocol/ApplicationState.h"

/// Waits until a setApplicationState() call sleeps on its condition: an answer that comes before is
/// lost, as it has to be.
inline void awaitApplicationStateWait() {
  // The number of a condition's waiters is not public. glibc counts eight for each in this field.
  const auto& waiters = quillwork::application_state::applicationStateCondition.__data.__wrefs;
  constexpr unsigned oneWaiter = 8;
  while (__atomic_load_n(&waiters, __ATOMIC_SEQ_CST) < oneWaiter) std::this_thread::yield();
}
