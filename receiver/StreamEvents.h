#pragma once

#include <bitset>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "receiver/SectionAssembler.h"

namespace receiver {

/// A stream event that has come due.
struct StreamEvent {
  std::uint16_t id = 0;
  /// Its normal play time in units of 90 kHz; nothing where it is to be done at once.
  std::optional<std::uint64_t> time;
  std::vector<std::uint8_t> data;

  /// Events with the same number were listed together: in one version of a sub-table.
  std::uint64_t list = 0;

  /// Where it has come from: a service, the tag of one of its components, and a number that differs
  /// when the component's events have begun anew.
  int service = -1;
  int componentTag = -1;
  std::uint64_t beginning = 0;
};

/// The stream events of one component (ISO/IEC 13818-6, 8; sections as in ETSI TS 102 809, B.2.4).
/// The sections of one version of a sub-table are a list of events, and a new version replaces it.
/// An event that is to be done at once is given out with each new version; one that has a time when
/// the normal play time has come, and not again however often it is listed. One thread at a time.
class StreamEvents {
 public:
  /// So many that wait for their time are kept.
  static constexpr std::size_t maxWaiting = 1000;
  /// So many that have had their time are remembered.
  static constexpr std::size_t maxDone = 1000;
  /// Of more sub-tables those that were heard last are remembered.
  static constexpr std::size_t maxSubTables = 1000;

  /// Takes a section of table 0x3D: the events in it that are due at once.
  std::vector<StreamEvent> take(const Section& section);
  /// The system time clock's base, in units of 90 kHz: the events that have come due by it, the
  /// earliest first and those of one time as they were listed. `isDiscontinuous`: a new clock
  /// begins with it.
  std::vector<StreamEvent> advance(std::uint64_t clock, bool isDiscontinuous);

 private:
  struct Reference {
    std::uint64_t clock = 0;
    std::uint64_t time = 0;
    std::uint16_t numerator = 0;
    std::uint16_t denominator = 0;
  };
  struct SubTable {
    std::uint8_t version = 0;
    std::bitset<256> sections;  ///< of this version that have come
    std::uint64_t list = 0;     ///< the number of this version's list
    std::uint64_t heard = 0;    ///< when, in sections
  };
  struct Waiting {
    std::uint16_t extension;
    StreamEvent event;
  };

  SubTable* findNew(std::uint16_t extension, const Section& section);
  void takeReference(const std::uint8_t* descriptor);
  void schedule(std::uint16_t extension, StreamEvent event);
  void followClock(std::uint64_t clock, bool isDiscontinuous);
  [[nodiscard]] std::optional<std::uint64_t> timeAt(std::uint64_t clock) const;

  /// By table id extension.
  std::map<std::uint16_t, SubTable> subTables_;
  std::uint64_t heard_ = 0;
  std::uint64_t lists_ = 0;
  std::optional<std::uint64_t> clock_;
  std::optional<Reference> reference_;
  /// What counts once the clock has begun anew.
  std::optional<Reference> nextReference_;
  std::vector<Waiting> waiting_;
  std::deque<StreamEvent> done_;
};

}  // namespace receiver
