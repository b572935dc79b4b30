#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace receiver {

inline constexpr std::size_t packetSize = 188;
inline constexpr std::uint8_t syncByte = 0x47;
using Packet = std::span<const std::uint8_t, packetSize>;

/// What is wrong with a stream file, as one line that names it.
struct StreamError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// An MPEG transport stream (ISO/IEC 13818-1) in a file, mapped into memory.
class StreamFile {
 public:
  /// Throws StreamError for a file that is missing, empty, no transport stream or cut inside a
  /// packet.
  explicit StreamFile(const std::string& path);
  ~StreamFile();
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  [[nodiscard]] std::size_t packets() const { return size_ / packetSize; }
  [[nodiscard]] Packet packet(std::size_t index) const {
    return Packet(data_ + index * packetSize, packetSize);
  }

 private:
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace receiver
