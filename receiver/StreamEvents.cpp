#include "receiver/StreamEvents.h"

#include <algorithm>
#include <utility>

namespace receiver {
namespace {

constexpr std::uint8_t descriptorTable = 0x3d;
constexpr std::uint8_t timeReference = 0x17;
constexpr std::uint8_t streamEvent = 0x1a;
constexpr std::uint64_t timeRange = std::uint64_t{1} << 33U;
/// A clock that goes on by more, in units of 90 kHz, is another one.
constexpr std::uint64_t maxStep = 90'000;

/// What the two highest bits of a table id extension say of a section's descriptors.
enum class Kind { atOnce = 0, timeReferences = 1, timed = 2 };

Kind kindOf(std::uint16_t extension) { return static_cast<Kind>(extension >> 14U); }

std::uint64_t number(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t index = 0; index < size; ++index) value = value << 8U | bytes[index];
  return value;
}

/// 33 bits, the lower ones of five bytes.
std::uint64_t timeOf(const std::uint8_t* bytes) { return number(bytes, 5) & (timeRange - 1); }

}  // namespace

std::vector<StreamEvent> StreamEvents::take(const Section& section) {
  constexpr std::size_t header = 8;
  constexpr std::size_t crc = 4;
  if (section.size() < header + crc || section[0] != descriptorTable) return {};
  const bool isCurrent = (section[5] & 1U) != 0;
  const auto extension = static_cast<std::uint16_t>(number(&section[3], 2));
  const SubTable* const table = isCurrent ? findNew(extension, section) : nullptr;
  if (table == nullptr) return {};
  std::vector<StreamEvent> due;
  std::size_t position = header;
  const std::size_t end = section.size() - crc;
  while (position + 2 <= end && position + 2 + section[position + 1] <= end) {
    const std::uint8_t tag = section[position];
    const std::size_t size = section[position + 1];
    const std::uint8_t* const data = &section[position + 2];
    position += 2 + size;
    if (tag == timeReference && size >= 18) takeReference(data);
    if (tag != streamEvent || size < 10) continue;
    StreamEvent event;
    event.id = static_cast<std::uint16_t>(number(data, 2));
    event.data.assign(data + 10, data + size);
    event.list = table->list;
    if (kindOf(extension) == Kind::atOnce) {
      due.push_back(std::move(event));
    } else {
      event.time = timeOf(data + 5);
      schedule(extension, std::move(event));
    }
  }
  return due;
}

/// The section's sub-table, or null where the section has come in this version of it already. What
/// the version before has listed is withdrawn with the first section of another one.
StreamEvents::SubTable* StreamEvents::findNew(std::uint16_t extension, const Section& section) {
  const auto version = static_cast<std::uint8_t>(section[5] >> 1U & 31U);
  if (!subTables_.contains(extension) && subTables_.size() == maxSubTables) {
    subTables_.erase(std::ranges::min_element(
        subTables_, {}, [](const auto& entry) { return entry.second.heard; }));
  }
  const auto [found, isFirst] = subTables_.try_emplace(extension);
  SubTable& table = found->second;
  table.heard = ++heard_;
  if (isFirst || table.version != version) {
    table.version = version;
    table.list = ++lists_;
    table.sections.reset();
    std::erase_if(waiting_, [=](const Waiting& entry) { return entry.extension == extension; });
  }
  if (table.sections[section[6]]) return nullptr;
  table.sections.set(section[6]);
  return &table;
}

/// A normal play time reference descriptor (ISO/IEC 13818-6, 8.1.1).
void StreamEvents::takeReference(const std::uint8_t* descriptor) {
  const Reference reference = {timeOf(descriptor + 1), timeOf(descriptor + 9),
                               static_cast<std::uint16_t>(number(descriptor + 14, 2)),
                               static_cast<std::uint16_t>(number(descriptor + 16, 2))};
  const bool isForNextClock = (descriptor[0] & 0x80U) != 0;
  (isForNextClock ? nextReference_ : reference_) = reference;
}

void StreamEvents::schedule(std::uint16_t extension, StreamEvent event) {
  const auto isSame = [&](const StreamEvent& other) {
    return other.id == event.id && other.time == event.time && other.data == event.data;
  };
  const bool isKnown =
      std::ranges::any_of(done_, isSame) || std::ranges::any_of(waiting_, isSame, &Waiting::event);
  if (!isKnown && waiting_.size() < maxWaiting) waiting_.push_back({extension, std::move(event)});
}

/// The normal play time, as far as it is known and goes on.
std::optional<std::uint64_t> StreamEvents::timeAt(std::uint64_t clock) const {
  if (!reference_ || reference_->denominator == 0 || reference_->numerator == 0) {
    return std::nullopt;
  }
  // The reference may be for a moment that has not come yet.
  const std::uint64_t passed = (clock + timeRange - reference_->clock) % timeRange;
  const bool isBefore = passed > timeRange / 2;
  const std::uint64_t distance = isBefore ? timeRange - passed : passed;
  const std::uint64_t change = distance * reference_->numerator / reference_->denominator;
  if (!isBefore) return reference_->time + change;
  return reference_->time > change ? reference_->time - change : 0;
}

void StreamEvents::followClock(std::uint64_t clock, bool isDiscontinuous) {
  const auto before = std::exchange(clock_, clock);
  const bool jumps = before && (clock + timeRange - *before) % timeRange > maxStep;
  if (isDiscontinuous) {
    // The old reference says nothing of the new clock; one that is repeated counts anew.
    reference_.reset();
    std::erase_if(subTables_,
                  [](const auto& entry) { return kindOf(entry.first) == Kind::timeReferences; });
  }
  if ((isDiscontinuous || jumps) && nextReference_) {
    reference_ = std::exchange(nextReference_, std::nullopt);
  }
}

std::vector<StreamEvent> StreamEvents::advance(std::uint64_t clock, bool isDiscontinuous) {
  followClock(clock, isDiscontinuous);
  std::vector<StreamEvent> due;
  const auto time = timeAt(clock);
  if (!time) return due;
  const auto isDue = [&](const Waiting& entry) { return *entry.event.time <= *time; };
  for (Waiting& entry : waiting_) {
    if (!isDue(entry)) continue;
    due.push_back(entry.event);
    done_.push_back(entry.event);
    if (done_.size() > maxDone) done_.pop_front();
  }
  std::erase_if(waiting_, isDue);
  std::ranges::stable_sort(due, {}, [](const StreamEvent& event) { return event.time; });
  return due;
}

}  // namespace receiver
