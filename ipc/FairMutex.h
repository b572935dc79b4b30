#pragma once

#include <atomic>
#include <cstdint>

#include "ipc/ThreadSafety.h"

namespace quillwork {

/// A non-recursive mutex that passes from one waiting thread to the next in the order in
/// which they came. A client that floods the accept thread with requests would keep all other
/// threads out of a plain mutex, which is free for an instant only between two requests. Usable
/// before any constructor has run. The wait is no cancellation point.
class QUILLWORK_CAPABILITY("mutex") FairMutex {
 public:
  constexpr FairMutex() = default;
  FairMutex(const FairMutex&) = delete;
  FairMutex& operator=(const FairMutex&) = delete;

  void lock() QUILLWORK_ACQUIRE() {
    const std::uint32_t mine = next_.fetch_add(1);
    for (std::uint32_t now = serving_.load(); now != mine; now = serving_.load()) {
      serving_.wait(now);
    }
  }

  void unlock() QUILLWORK_RELEASE() {
    serving_.fetch_add(1);
    serving_.notify_all();
  }

 private:
  std::atomic<std::uint32_t> next_{0};
  std::atomic<std::uint32_t> serving_{0};
};

}  // namespace quillwork
