#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "receiver/SectionAssembler.h"

namespace receiver {

/// A stream event that has come due.
struct StreamEvent {
  std::uint16_t id = 0;
  /// Its normal play time in units of 90 kHz; nothing where it is to be done at once.
  std::optional<std::uint64_t> time;
  std::vector<std::uint8_t> data;

  auto operator<=>(const StreamEvent&) const = default;
};

/// The stream events of one component (ISO/IEC 13818-6, 8; sections as in ETSI TS 102 809, B.2.4):
/// each is given out once, however often it is repeated, at once or when the normal play time has
/// come. One thread at a time.
class StreamEvents {
 public:
  /// So many that wait for their time are kept.
  static constexpr std::size_t mostScheduled = 1000;

  /// Takes a section of table 0x3D: the events in it that are due at once.
  std::vector<StreamEvent> take(const Section& section);
  /// The system time clock's base, in units of 90 kHz: the events that have come due by it.
  std::vector<StreamEvent> advance(std::uint64_t clock);

 private:
  struct Reference {
    std::uint64_t clock = 0;
    std::uint64_t time = 0;
    std::uint16_t numerator = 0;
    std::uint16_t denominator = 0;
  };

  [[nodiscard]] std::optional<std::uint64_t> timeAt(std::uint64_t clock) const;

  /// By table id extension: the version that was seen last.
  std::map<std::uint16_t, std::uint8_t> versions_;
  std::optional<Reference> reference_;
  std::set<StreamEvent> scheduled_;
};

}  // namespace receiver
