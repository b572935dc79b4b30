#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/Patience.h"

/// A sequence of calls as text, "operation(arguments)", written from any thread. Waiting is for the
/// entry itself and fails when it does not come.
class CallLog {
 public:
  template <class... Arguments>
  void add(const std::string& operation, const Arguments&... arguments) {
    std::ostringstream text;
    text << operation << '(';
    [[maybe_unused]] const char* separator = "";
    ((text << std::exchange(separator, ", ") << arguments), ...);
    text << ')';
    const std::lock_guard lock(mutex_);
    calls_.push_back(text.str());
    changed_.notify_all();
  }

  [[nodiscard]] std::vector<std::string> calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

  std::vector<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
  }

  [[nodiscard]] bool awaitCount(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return calls_.size() >= count; });
  }

  [[nodiscard]] bool await(const std::string& call) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] {
      return std::find(calls_.begin(), calls_.end(), call) != calls_.end();
    });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> calls_;
};

/// A text for binary arguments: {42, 00}.
inline std::string hex(const std::vector<unsigned char>& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text = "{";
  for (const unsigned char byte : bytes) {
    if (text.size() > 1) text += ' ';
    text += digits[byte >> 4U];
    text += digits[byte & 15U];
  }
  return text + "}";
}
