#pragma once

#include <atomic>
#include <cstdint>

#include "ipc/ThreadSafety.h"

namespace quillwork {

/// Counts the threads that are inside something, so that the thread that takes it down can shut the
/// entry and wait for the last of them to leave. Closed at first. Any thread may use it; only
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

  /// Waits until nobody is inside. Ends only behind a closed gate: an open one may never be empty.
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
    // Only the last one out of a closed gate can have somebody waiting for it.
    if (state_.fetch_sub(1) == (shut | 1U)) state_.notify_all();
  }

  std::atomic<std::uint32_t> state_{shut};
};

}  // namespace quillwork
