#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace receiver {

/// How much memory several parts of the receiver may hold together. Any thread.
class MemoryBudget {
 public:
  /// `limit`: in bytes.
  explicit MemoryBudget(std::uint64_t limit) : limit_(limit) {}

  [[nodiscard]] std::uint64_t limit() const { return limit_; }
  [[nodiscard]] std::uint64_t used() const { return used_; }
  /// Changes whenever memory is given back.
  [[nodiscard]] std::uint64_t releases() const { return releases_; }

  /// False, and nothing is taken, where so many bytes are not left.
  bool take(std::uint64_t bytes);
  void release(std::uint64_t bytes);
  /// Says on the standard error stream that `what` is left out: once, and again only after half of
  /// the budget has been free in between.
  void refuse(const char* what);

 private:
  const std::uint64_t limit_;
  std::atomic<std::uint64_t> used_{0};
  std::atomic<std::uint64_t> releases_{0};
  std::atomic<bool> hasRefused_{false};
};

/// A share of a budget, which it gives back at its end.
class Reservation {
 public:
  Reservation() = default;
  explicit Reservation(std::shared_ptr<MemoryBudget> budget) : budget_(std::move(budget)) {}
  Reservation(Reservation&& other) noexcept
      : budget_(std::move(other.budget_)), bytes_(std::exchange(other.bytes_, 0)) {}
  Reservation& operator=(Reservation&& other) noexcept {
    clear();
    budget_ = std::move(other.budget_);
    bytes_ = std::exchange(other.bytes_, 0);
    return *this;
  }
  ~Reservation() { clear(); }

  /// False, and nothing has changed, where the budget has not so many bytes more.
  bool grow(std::uint64_t bytes) {
    if (!budget_->take(bytes)) return false;
    bytes_ += bytes;
    return true;
  }
  void clear() {
    if (bytes_ != 0) budget_->release(std::exchange(bytes_, 0));
  }

 private:
  std::shared_ptr<MemoryBudget> budget_;
  std::uint64_t bytes_ = 0;
};

}  // namespace receiver
