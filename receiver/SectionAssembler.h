#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "receiver/StreamFile.h"

namespace receiver {

using Section = std::vector<std::uint8_t>;

/// The PID of a packet.
inline std::uint16_t pidOf(Packet packet) {
  return static_cast<std::uint16_t>((packet[1] & 0x1fU) << 8U | packet[2]);
}

/// What was dropped on the way from packets to sections.
struct StreamErrors {
  std::uint64_t damagedPackets = 0;  ///< no sync byte, or marked as damaged by the demodulator
  std::uint64_t lostPackets = 0;     ///< gaps in the continuity counter
  std::uint64_t badSections = 0;     ///< a wrong CRC, or a length that cannot be
};

/// Puts the packets of one PID together to sections (ISO/IEC 13818-1, 2.4.4): unit starts, pointer
/// fields, several sections in a packet, a section over many packets, up to 4,096 bytes. Sections
/// with a wrong CRC are dropped.
class SectionAssembler {
 public:
  using Sink = std::function<void(const Section& section)>;

  /// Takes the next packet of the PID and calls `sink` for each section that it completes.
  void feed(Packet packet, StreamErrors& errors, const Sink& sink);

  /// Forgets a section that has begun: the next packet does not follow the last one.
  void reset();

 private:
  enum class Continuity { next, repeated, broken };

  Continuity follow(Packet packet);
  void append(std::span<const std::uint8_t> bytes, StreamErrors& errors, const Sink& sink);
  void finish(StreamErrors& errors, const Sink& sink);

  Section section_;
  bool collecting_ = false;
  int lastCounter_ = -1;
};

}  // namespace receiver
