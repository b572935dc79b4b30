#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

/// The fuzzer's bytes, taken piece by piece. Behind their end everything is zero and empty, so that
/// every input means something.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }

  template <class Value>
  Value take() {
    Value value{};
    const std::string_view bytes = takeBytes(sizeof value);
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }
  /// A number from 0 to `limit` - 1, out of one byte.
  std::size_t takeBelow(std::size_t limit) { return take<std::uint8_t>() % limit; }
  bool takeBoolean() { return takeBelow(2) != 0; }
  /// At most so many bytes.
  std::string_view takeBytes(std::size_t size) {
    const std::string_view bytes = rest_.substr(0, size);
    rest_.remove_prefix(bytes.size());
    return bytes;
  }
  /// A text behind its length of one byte.
  std::string takeText() { return std::string(takeBytes(take<std::uint8_t>())); }
  std::string_view takeRest() { return takeBytes(rest_.size()); }

 private:
  std::string_view rest_;
};
