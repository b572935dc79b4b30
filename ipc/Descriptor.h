#pragma once

#include <unistd.h>

#include <utility>

#include "ipc/Cancellation.h"

namespace quillwork {

/// Owns a file descriptor and closes it once.
class Descriptor {
 public:
  constexpr Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  /// The number, or -1 for no descriptor.
  [[nodiscard]] int number() const { return number_; }

  /// Gives the descriptor away: the caller closes the number that this returns.
  [[nodiscard]] int release() { return std::exchange(number_, -1); }

  void close() {
    if (number_ == -1) return;
    // A thread that is cancelled inside close() does not know whether the number is free.
    const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
    ::close(std::exchange(number_, -1));
  }

 private:
  int number_ = -1;
};

}  // namespace quillwork
