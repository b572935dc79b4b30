#include "receiver/SectionStore.h"

#include <utility>

#include "receiver/bitstream.h"

namespace receiver {
namespace {

/// Whether two sections differ in their version and CRC only.
bool sameContent(const Section& one, const Section& other) {
  constexpr std::size_t versionByte = 5;
  if (one.size() != other.size()) return false;
  const std::size_t end = one.size() - PSI_CRC_SIZE;
  for (std::size_t index = 0; index < end; ++index) {
    const std::uint8_t mask = index == versionByte ? 0xc1 : 0xff;
    if (((one[index] ^ other[index]) & mask) != 0) return false;
  }
  return true;
}

bool goesWithThePat(std::uint8_t tableId) {
  return tableId == PAT_TABLE_ID || tableId == PMT_TABLE_ID;
}

}  // namespace

SectionStore::Change SectionStore::put(const SubTable& table, const Section& section, Time now,
                                       std::size_t further) {
  Change change;
  const std::uint8_t number = psi_get_section(section.data());
  auto entry = tables_.find(table);
  Kept* kept = nullptr;
  if (entry != tables_.end()) {
    const auto found = entry->second.find(number);
    if (found != entry->second.end()) kept = &found->second;
  }
  change.isNew = kept == nullptr || !sameContent(*kept->section, section);
  // All that can run out of memory comes before anything changes. Those who read the section before
  // keep it.
  auto held = kept != nullptr && *kept->section == section
                  ? kept->section
                  : std::make_shared<const Section>(section.begin(), section.end());
  if (kept != nullptr) {
    kept->heard->time = now;
    kept->heard->put = ++puts_;
    heard_.splice(heard_.end(), heard_, kept->heard);
  } else {
    std::list<Heard> heard = {{table, number, now, puts_ + 1}};
    Numbers fresh;
    kept = &fresh.emplace(number, Kept{held, heard.begin()}).first->second;
    // Last, and without any effect where it throws. The elements stay where they are.
    if (entry == tables_.end()) entry = tables_.try_emplace(table).first;
    entry->second.merge(fresh);
    heard_.splice(heard_.end(), heard);
    ++puts_;
  }
  const std::size_t cost = overhead + section.size() + further;
  bytes_ += cost - std::exchange(kept->cost, cost);
  kept->section = std::move(held);
  Numbers& numbers = entry->second;
  for (auto beyond = numbers.upper_bound(psi_get_lastsection(section.data()));
       beyond != numbers.end();) {
    beyond = erase(numbers, beyond);
  }
  while (bytes_ > maxBytes_) {
    const std::optional<std::uint8_t> dropped = dropOldest();
    if (!dropped) break;
    change.mapHasGone = change.mapHasGone || *dropped == PMT_TABLE_ID;
  }
  return change;
}

/// The table id of what had to go. The PAT, which all else hangs on, stays: it is bounded by its
/// own form.
std::optional<std::uint8_t> SectionStore::dropOldest() {
  const auto oldest = std::ranges::find_if(
      heard_, [](const Heard& heard) { return heard.table.tableId != PAT_TABLE_ID; });
  if (oldest == heard_.end()) return std::nullopt;
  const std::uint8_t tableId = oldest->table.tableId;
  drop(oldest);
  return tableId;
}

void SectionStore::drop(std::list<Heard>::const_iterator heard) {
  const auto entry = tables_.find(heard->table);
  erase(entry->second, entry->second.find(heard->number));
  if (entry->second.empty()) tables_.erase(entry);
}

bool SectionStore::expire(Time oldest) {
  bool hasGone = false;
  while (!heard_.empty() && heard_.front().time < oldest) {
    if (goesWithThePat(heard_.front().table.tableId)) {
      heard_.front().time = oldest;
      heard_.splice(heard_.end(), heard_, heard_.begin());
      continue;
    }
    drop(heard_.begin());
    hasGone = true;
  }
  return hasGone;
}

void SectionStore::clear() {
  tables_.clear();
  heard_.clear();
  bytes_ = 0;
}

std::optional<SubTable> SectionStore::copy(const std::optional<SubTable>& behind, std::size_t count,
                                           std::vector<HeldSection>& sections) const {
  auto entry = behind ? tables_.upper_bound(*behind) : tables_.begin();
  std::optional<SubTable> last;
  for (; entry != tables_.end(); ++entry) {
    if (sections.size() >= count) return last;
    for (const auto& [number, kept] : entry->second) {
      sections.push_back({entry->first, kept.section});
    }
    last = entry->first;
  }
  return std::nullopt;
}

std::uint64_t SectionStore::newest(const Numbers& numbers) {
  std::uint64_t put = 0;
  for (const auto& [number, kept] : numbers) put = std::max(put, kept.heard->put);
  return put;
}

SectionStore::Tables::iterator SectionStore::erase(Tables::iterator entry) {
  for (auto kept = entry->second.begin(); kept != entry->second.end();) {
    kept = erase(entry->second, kept);
  }
  return tables_.erase(entry);
}

SectionStore::Numbers::iterator SectionStore::erase(Numbers& numbers, Numbers::iterator kept) {
  bytes_ -= kept->second.cost;
  heard_.erase(kept->second.heard);
  return numbers.erase(kept);
}

}  // namespace receiver
