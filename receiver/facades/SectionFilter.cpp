#include "receiver/facades/SectionFilter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace receiver {
namespace {

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

using Clock = std::chrono::steady_clock;

/// Waits for the counter and takes what it has counted; false when the time is over. The wait is a
/// plain one, since the library cancels it when the adapter is deleted.
bool awaitCount(int counter, std::optional<Clock::time_point> end) {
  for (;;) {
    int time = -1;
    if (end) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*end - Clock::now()).count();
      time = static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
    }
    pollfd waiting{counter, POLLIN, 0};
    const int ready = poll(&waiting, 1, time);
    if (ready > 0) {
      eventfd_t count = 0;
      eventfd_read(counter, &count);
      return true;
    }
    if (ready == 0) return false;
  }
}

}  // namespace

bool SectionFilter::Conditions::hold(const Section& section) const {
  if (tableId >= 0 && section[0] != tableId) return false;
  for (const auto* const pattern : {&positive, &greaterThan, &lessThan, &exclusiveOr}) {
    if (*pattern && !covers(**pattern, section)) return false;
  }
  return (!positive || compare(*positive, section) == 0) &&
         (!greaterThan || compare(*greaterThan, section) > 0) &&
         (!lessThan || compare(*lessThan, section) < 0) &&
         (!exclusiveOr || passesXor(*exclusiveOr, section));
}

SectionFilter::SectionFilter(StreamPlayer& streamPlayer, bool waitsForReader)
    : streamPlayer_(streamPlayer),
      waitsForReader_(waitsForReader),
      arrived_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      taken_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  streamPlayer_.add(*this);
}

SectionFilter::~SectionFilter() {
  stop();
  streamPlayer_.remove(*this);
  close(arrived_);
  close(taken_);
}

/// Changes what the stream player's thread looks at, and lets it go on where it waits for a reader.
template <class Change>
void SectionFilter::change(Change&& change) {
  {
    const std::lock_guard lock(mutex_);
    change();
  }
  eventfd_write(taken_, 1);
}

void SectionFilter::start() {
  change([this] {
    isRunning_ = true;
    sections_.clear();
    assembler_.reset();
  });
}

void SectionFilter::stop() {
  change([this] {
    isRunning_ = false;
    sections_.clear();
  });
}

void SectionFilter::setPid(int pid) {
  change([&] {
    pid_ = pid;
    sections_.clear();
    assembler_.reset();
  });
}

void SectionFilter::setTableId(int tableId) {
  change([&] { conditions_.tableId = tableId; });
}

void SectionFilter::setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) {
  change([&] { conditions_.positive = makePattern(filterArg, first, second); });
}

void SectionFilter::setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) {
  change([&] { conditions_.greaterThan = makePattern(filterArg, first, second); });
}

void SectionFilter::setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) {
  change([&] { conditions_.lessThan = makePattern(filterArg, first, second); });
}

void SectionFilter::setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                                 const Bytes& third) {
  change([&] { conditions_.exclusiveOr = makePattern(filterArg, first, second, third); });
}

void SectionFilter::setTimeOut(long timeOut) { timeOut_ = std::chrono::milliseconds(timeOut); }

void SectionFilter::clearTableId() {
  change([this] { conditions_.tableId = -1; });
}

void SectionFilter::clearPositiveFilter() {
  change([this] { conditions_.positive.reset(); });
}

void SectionFilter::clearLessThanFilter() {
  change([this] { conditions_.lessThan.reset(); });
}

void SectionFilter::clearXorFilter() {
  change([this] { conditions_.exclusiveOr.reset(); });
}

SectionFilter::Bytes SectionFilter::readSection() {
  std::optional<Clock::time_point> end;
  if (timeOut_.count() >= 0) end = Clock::now() + timeOut_;
  do {
    if (auto section = takeSection()) {
      eventfd_write(taken_, 1);
      return std::move(*section);
    }
    const std::lock_guard lock(mutex_);
    if (!isRunning_) return {};
  } while (awaitCount(arrived_, end));
  return {};
}

/// What passed before a filter was changed has to pass the new one, too.
std::optional<Section> SectionFilter::takeSection() {
  const std::lock_guard lock(mutex_);
  hasGivenUp_ = false;
  while (!sections_.empty()) {
    Section section = std::move(sections_.front());
    sections_.pop_front();
    if (conditions_.hold(section)) return section;
  }
  return std::nullopt;
}

void SectionFilter::take(Packet packet) {
  bool mustWait = false;
  {
    const std::lock_guard lock(mutex_);
    const bool isDamaged = packet[0] != syncByte || (packet[1] & 0x80U) != 0;
    if (!isRunning_ || isDamaged || pidOf(packet) != pid_) return;
    assembler_.feed(packet, errors_, [this](const Section& section) { keep(section); });
    mustWait = waitsForReader_ && !hasGivenUp_ && sections_.size() >= mostSections / 2;
  }
  if (mustWait) waitForReader();
}

void SectionFilter::waitForReader() {
  const auto end = Clock::now() + std::chrono::seconds(1);
  while (awaitCount(taken_, end)) {
    const std::lock_guard lock(mutex_);
    if (sections_.size() < mostSections / 2) return;
  }
  // Whoever reads nothing for so long is not waited for again, until something is read.
  const std::lock_guard lock(mutex_);
  hasGivenUp_ = true;
}

void SectionFilter::keep(const Section& section) {
  if (!conditions_.hold(section)) return;
  if (sections_.size() == mostSections) sections_.pop_front();
  sections_.push_back(section);
  eventfd_write(arrived_, 1);
}

void SectionFilter::interrupted(bool) {
  const std::lock_guard lock(mutex_);
  assembler_.reset();
}

}  // namespace receiver
