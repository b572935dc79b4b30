#include "receiver/StreamEvents.h"

#include <algorithm>

namespace receiver {
namespace {

constexpr std::uint8_t descriptorTable = 0x3d;
constexpr std::uint8_t timeReference = 0x17;
constexpr std::uint8_t streamEvent = 0x1a;
constexpr std::uint64_t timeRange = std::uint64_t{1} << 33U;

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
  const auto extension = static_cast<std::uint16_t>(number(&section[3], 2));
  // The two highest bits: 0 for events at once, 1 for time references, 2 for events by their time.
  const unsigned kind = extension >> 14U;
  const auto version = static_cast<std::uint8_t>(section[5] >> 1U & 31U);
  if ((section[5] & 1U) == 0) return {};
  const auto seen = versions_.find(extension);
  if (seen != versions_.end() && seen->second == version) return {};
  versions_[extension] = version;
  std::vector<StreamEvent> due;
  std::size_t position = header;
  const std::size_t end = section.size() - crc;
  while (position + 2 <= end && position + 2 + section[position + 1] <= end) {
    const std::uint8_t tag = section[position];
    const std::size_t size = section[position + 1];
    const std::uint8_t* const data = &section[position + 2];
    position += 2 + size;
    if (tag == timeReference && size >= 18) {
      reference_ = {timeOf(data + 1), timeOf(data + 9),
                    static_cast<std::uint16_t>(number(data + 14, 2)),
                    static_cast<std::uint16_t>(number(data + 16, 2))};
    } else if (tag == streamEvent && size >= 10) {
      StreamEvent event{
          static_cast<std::uint16_t>(number(data, 2)), std::nullopt, {data + 10, data + size}};
      if (kind == 0) {
        due.push_back(std::move(event));
      } else if (scheduled_.size() < mostScheduled) {
        event.time = timeOf(data + 5);
        scheduled_.insert(std::move(event));
      }
    }
  }
  return due;
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

std::vector<StreamEvent> StreamEvents::advance(std::uint64_t clock) {
  std::vector<StreamEvent> due;
  const auto time = timeAt(clock);
  if (!time) return due;
  for (auto event = scheduled_.begin(); event != scheduled_.end();) {
    if (*event->time <= *time) {
      due.push_back(*event);
      event = scheduled_.erase(event);
    } else {
      ++event;
    }
  }
  std::ranges::sort(due, {}, [](const StreamEvent& event) { return event.time; });
  return due;
}

}  // namespace receiver
