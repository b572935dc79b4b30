#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "receiver/StreamFile.h"

namespace receiver {

/// Finds the packets of a transport stream among bytes: packets of 188 bytes, of 192 (a time stamp
/// of 4 bytes before each, as in M2TS files) or of 204 (16 bytes of error correction behind each).
/// Follows them over damaged sync bytes, and finds them again behind bytes too many or too few.
class PacketFramer {
 public:
  /// The next packet, valid until bytes are added; nothing until more bytes are there.
  std::optional<Packet> next();

  /// Room for at least so many further bytes; add() says how many have been written there.
  std::span<std::uint8_t> room(std::size_t size);
  void add(std::size_t size) { end_ += size; }
  /// No byte comes behind those that were added.
  void end() { hasEnded_ = true; }
  /// Forgets everything.
  void reset();

  /// How many bytes of a packet begin the next one; 0 until packets are found.
  [[nodiscard]] std::size_t stride() const { return stride_; }
  /// Where the sync byte of the next packet is in all bytes that were added.
  [[nodiscard]] std::uint64_t position() const { return passed_ + begin_; }
  /// Whether packets have been found.
  [[nodiscard]] bool hasFound() const { return hasFound_; }
  /// How many bytes that were added belong to no packet so far, and which.
  [[nodiscard]] std::size_t left() const { return end_ > begin_ ? end_ - begin_ : 0; }
  [[nodiscard]] std::span<const std::uint8_t> unread() const {
    return std::span(buffer_).subspan(std::min(begin_, end_), left());
  }

 private:
  enum class Finding { yes, no, unknown };

  [[nodiscard]] bool isSync(std::size_t place) const { return buffer_[place] == syncByte; }
  bool find();
  [[nodiscard]] Finding beginsAt(std::size_t place, std::size_t stride) const;
  [[nodiscard]] Finding goesOn() const;

  std::vector<std::uint8_t> buffer_;
  /// A packet's place can lie behind the end, where the bytes between packets are still to come.
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::uint64_t passed_ = 0;  ///< bytes that are in the buffer no more
  std::size_t stride_ = 0;
  std::size_t lastStride_ = packetSize;
  std::size_t searchedFrom_ = 0;
  bool hasFound_ = false;
  bool hasEnded_ = false;
};

/// What bytes in which no packets were found begin with, for people.
std::string describeBytes(std::span<const std::uint8_t> bytes);

}  // namespace receiver
