#include "receiver/SectionFilter.h"

#include <algorithm>
#include <ctime>

namespace receiver {
namespace {

constexpr std::uint8_t syncByte = 0x47;

Pattern makePattern(int filterArg, const std::vector<unsigned char>& value,
                    const std::vector<unsigned char>& mask,
                    const std::vector<unsigned char>& different = {}) {
  return {static_cast<std::size_t>(std::max(filterArg, 0)), value, mask, different};
}

/// The mask's byte; a mask that is too short goes on with ones.
unsigned maskAt(const Pattern& pattern, std::size_t index) {
  return index < pattern.mask.size() ? pattern.mask[index] : 0xffU;
}

/// Whether the section has all the bytes that the pattern looks at.
bool covers(const Pattern& pattern, const Section& section) {
  return pattern.offset + pattern.value.size() <= section.size();
}

/// Compares section and pattern as numbers, first byte first: below 0, 0 or above 0.
int compare(const Pattern& pattern, const Section& section) {
  for (std::size_t index = 0; index < pattern.value.size(); ++index) {
    const unsigned mask = maskAt(pattern, index);
    const int difference = static_cast<int>(section[pattern.offset + index] & mask) -
                           static_cast<int>(pattern.value[index] & mask);
    if (difference != 0) return difference;
  }
  return 0;
}

/// Every masked bit that is not among the different ones is equal, and of those at least one is
/// not.
bool passesXor(const Pattern& pattern, const Section& section) {
  bool anyDifferent = false;
  bool wantsDifferent = false;
  for (std::size_t index = 0; index < pattern.value.size(); ++index) {
    const unsigned changed =
        (section[pattern.offset + index] ^ pattern.value[index]) & maskAt(pattern, index);
    const unsigned different =
        (index < pattern.different.size() ? pattern.different[index] : 0U) & maskAt(pattern, index);
    if ((changed & ~different) != 0) return false;
    wantsDifferent = wantsDifferent || different != 0;
    anyDifferent = anyDifferent || (changed & different) != 0;
  }
  return anyDifferent || !wantsDifferent;
}

}  // namespace

void SectionFilter::start() {
  running_ = true;
  ready_.clear();
  assembler_.reset();
}

void SectionFilter::stop() {
  running_ = false;
  ready_.clear();
}

void SectionFilter::setPid(int pid) {
  pid_ = pid;
  ready_.clear();
  assembler_.reset();
}

void SectionFilter::setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) {
  positive_ = makePattern(filterArg, first, second);
}

void SectionFilter::setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) {
  greaterThan_ = makePattern(filterArg, first, second);
}

void SectionFilter::setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) {
  lessThan_ = makePattern(filterArg, first, second);
}

void SectionFilter::setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                                 const Bytes& third) {
  xor_ = makePattern(filterArg, first, second, third);
}

bool SectionFilter::matches(const Section& section) const {
  if (tableId_ >= 0 && section[0] != tableId_) return false;
  for (const auto* const pattern : {&positive_, &greaterThan_, &lessThan_, &xor_}) {
    if (*pattern && !covers(**pattern, section)) return false;
  }
  return (!positive_ || compare(*positive_, section) == 0) &&
         (!greaterThan_ || compare(*greaterThan_, section) > 0) &&
         (!lessThan_ || compare(*lessThan_, section) < 0) && (!xor_ || passesXor(*xor_, section));
}

SectionFilter::Bytes SectionFilter::readSection() {
  if (!running_) return {};
  const auto begin = std::chrono::steady_clock::now();
  // One turn shows everything that the stream has; a second one can only repeat it.
  for (std::size_t read = 0; read <= stream_.packets();) {
    while (!ready_.empty()) {
      Section section = std::move(ready_.front());
      ready_.pop_front();
      if (matches(section)) return section;
    }
    if (isAtEnd()) break;
    readPacket();
    ++read;
  }
  waitOut(begin);
  return {};
}

void SectionFilter::readPacket() {
  if (position_ == stream_.packets()) {
    position_ = 0;
    assembler_.reset();
  }
  const Packet packet = stream_.packet(position_++);
  const bool isDamaged = packet[0] != syncByte || (packet[1] & 0x80U) != 0;
  if (isDamaged || pidOf(packet) != pid_) return;
  assembler_.feed(packet, errors_, [this](const Section& section) { ready_.push_back(section); });
}

// A plain sleep: the library cancels it when the adapter is deleted.
void SectionFilter::waitOut(std::chrono::steady_clock::time_point begin) const {
  for (;;) {
    const auto left = timeOut_ - (std::chrono::steady_clock::now() - begin);
    if (timeOut_.count() >= 0 && left <= left.zero()) return;
    const auto nap = timeOut_.count() < 0 ? std::chrono::nanoseconds(std::chrono::seconds(60))
                                          : std::chrono::nanoseconds(left);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(nap);
    const timespec time{static_cast<time_t>(seconds.count()),
                        static_cast<long>((nap - seconds).count())};
    nanosleep(&time, nullptr);
  }
}

}  // namespace receiver
