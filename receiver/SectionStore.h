#pragma once

#include <algorithm>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "receiver/SectionAssembler.h"

namespace receiver {

/// What tells one sub-table from another.
struct SubTable {
  std::uint16_t pid;
  std::uint8_t tableId;
  std::uint16_t extension;
  std::uint32_t further;  ///< transport stream and network where the extension does not suffice
  auto operator<=>(const SubTable&) const = default;
};

/// A section as it is shared with whoever reads it.
struct HeldSection {
  SubTable table;
  std::shared_ptr<const Section> section;
};

/// The newest section of each number of each sub-table, within a bound: beyond it, the section goes
/// that has not come for the longest time. One thread at a time.
class SectionStore {
 public:
  /// Of the time in which sections have come.
  using Time = std::chrono::milliseconds;

  /// What a section costs besides its bytes.
  static constexpr std::size_t overhead = 256;

  explicit SectionStore(std::size_t maxBytes) : maxBytes_(maxBytes) {}

  struct Change {
    bool isNew = false;       ///< the content was not known; a new version alone is none
    bool mapHasGone = false;  ///< a program map had to go for want of room
  };
  /// Keeps a section of the long form whose number is not beyond the last one that it names, and
  /// drops those of its sub-table that are. `further`: bytes that count besides its own. Where
  /// memory has run out, it throws and changes nothing.
  Change put(const SubTable& table, const Section& section, Time now, std::size_t further = 0);

  /// Drops what has not come since `oldest`, but no PAT and no PMT: these go with the next PAT.
  /// True where something has gone.
  bool expire(Time oldest);

  /// `shallGo`: called with each sub-table and the number of its newest put().
  template <class Predicate>
  void eraseIf(Predicate&& shallGo) {
    for (auto entry = tables_.begin(); entry != tables_.end();) {
      entry = shallGo(entry->first, newest(entry->second)) ? erase(entry) : std::next(entry);
    }
  }
  void clear();

  /// Appends the sections of the sub-tables behind the one given, in order, until there are `count`
  /// or more of them. Returns the last sub-table, nothing where there are no more.
  std::optional<SubTable> copy(const std::optional<SubTable>& behind, std::size_t count,
                               std::vector<HeldSection>& sections) const;
  /// Calls `visit(table, section)` for each.
  template <class Visitor>
  void forEach(Visitor&& visit) const {
    for (const auto& [table, numbers] : tables_) {
      for (const auto& [number, kept] : numbers) visit(table, *kept.section);
    }
  }

  /// Of all put() so far.
  [[nodiscard]] std::uint64_t puts() const { return puts_; }
  /// With what the sections cost besides.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  struct Heard {
    SubTable table;
    std::uint8_t number;
    Time time;
    std::uint64_t put;
  };
  struct Kept {
    std::shared_ptr<const Section> section;
    std::list<Heard>::iterator heard;
    std::size_t cost = 0;
  };
  using Numbers = std::map<std::uint8_t, Kept>;
  using Tables = std::map<SubTable, Numbers>;

  [[nodiscard]] static std::uint64_t newest(const Numbers& numbers);
  Tables::iterator erase(Tables::iterator entry);
  Numbers::iterator erase(Numbers& numbers, Numbers::iterator kept);
  std::optional<std::uint8_t> dropOldest();
  void drop(std::list<Heard>::const_iterator heard);

  const std::size_t maxBytes_;
  std::size_t bytes_ = 0;
  std::uint64_t puts_ = 0;
  Tables tables_;
  std::list<Heard> heard_;  ///< the one that has not come for the longest time first
};

}  // namespace receiver
