#pragma once

#include <atomic>
#include <cstdint>

#include "ipc/ThreadSafety.h"

namespace quillwork {

/// Counts the threads that use an object, so that the thread that takes the object down can refuse
/// new ones and wait for the last to leave. A gate is closed at first. Any thread may use it; only
/// awaitEmpty() blocks. A gate in static storage needs no construction at run time.
class QUILLWORK_CAPABILITY("gate") Gate {
 public:
  /// A thread's way through the gate for a scope. At a closed gate it is refused and converts to
  /// false.
  class QUILLWORK_SCOPED_CAPABILITY Pass {
   public:
    explicit Pass(Gate& gate) QUILLWORK_ACQUIRE_SHARED(gate)
        : gate_(gate.enter() ? &gate : nullptr) {}
    ~Pass() QUILLWORK_RELEASE() {
      if (gate_ != nullptr) gate_->leave();
    }
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;

    explicit operator bool() const { return gate_ != nullptr; }

   private:
    Gate* gate_;
  };

  constexpr Gate() = default;
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void open() { state_.fetch_and(~shut); }
  void close() { state_.fetch_or(shut); }
  [[nodiscard]] bool isClosed() const { return (state_.load() & shut) != 0; }

  /// Waits until no thread is inside. Close the gate before: an open gate may never be empty.
  void awaitEmpty() QUILLWORK_EXCLUDES(this) {
    for (std::uint32_t seen = state_.load(); (seen & ~shut) != 0; seen = state_.load()) {
      state_.wait(seen);
    }
  }

 private:
  static constexpr std::uint32_t shut = 0x80000000U;

  bool enter() {
    std::uint32_t seen = state_.load();
    do {
      if ((seen & shut) != 0) return false;
    } while (!state_.compare_exchange_weak(seen, seen + 1));
    return true;
  }

  void leave() {
    // A thread waits only for the last one that leaves a closed gate.
    if (state_.fetch_sub(1) == (shut | 1U)) state_.notify_all();
  }

  std::atomic<std::uint32_t> state_{shut};
};

}  // namespace quillwork
