#include "receiver/StreamPlayer.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "receiver/Complaint.h"
#include "receiver/SectionAssembler.h"

namespace receiver {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t clockRate = 27'000'000;
/// The base of 33 bits wraps, in units of 27 MHz.
constexpr std::uint64_t clockRange = (std::uint64_t{1} << 33U) * 300;
/// Clock references come every tenth of a second at most; what takes longer is a new clock.
constexpr std::uint64_t longestStep = clockRate;
/// A stream of which so many packets have no clock has none.
constexpr std::size_t mostPackets = 5'000;
/// How long a source is left alone that was empty when it began again.
constexpr auto emptyPause = 1s;

}  // namespace

std::optional<std::uint64_t> programClock(Packet packet) {
  const bool hasAdaptation = (packet[3] & 0x20U) != 0;
  if (packet[0] != syncByte || !hasAdaptation || packet[4] < 7 || (packet[5] & 0x10U) == 0) {
    return std::nullopt;
  }
  std::uint64_t base = 0;
  for (std::size_t index = 6; index < 10; ++index) base = base << 8U | packet[index];
  base = base << 1U | packet[10] >> 7U;
  const unsigned extension = (packet[10] & 1U) << 8U | packet[11];
  return base * 300 + extension;
}

StreamPlayer::StreamPlayer(std::unique_ptr<Source> source, Settings settings)
    : source_(std::move(source)), settings_(settings) {}

StreamPlayer::~StreamPlayer() { stop(); }

void StreamPlayer::add(PacketSink& sink) {
  const std::lock_guard lock(sinksMutex_);
  sinks_.push_back(&sink);
}

void StreamPlayer::remove(PacketSink& sink) {
  const std::lock_guard lock(sinksMutex_);
  std::erase(sinks_, &sink);
}

void StreamPlayer::start() {
  thread_ = std::thread([this] { run(); });
  pthread_setname_np(thread_.native_handle(), "player");
}

void StreamPlayer::stop() {
  {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
  }
  if (source_ != nullptr) source_->interrupt();
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void StreamPlayer::retune() {
  const std::lock_guard lock(mutex_);
  isRetuned_ = true;
  changed_.notify_all();
}

void StreamPlayer::run() {
  due_ = Clock::now();
  for (;;) {
    while (!isAsked() && playNext()) {
    }
    const Next next = waitForNext();
    if (next == Next::nothing) return;
    begin(next == Next::another);
  }
}

/// False at the stream's end.
bool StreamPlayer::playNext() {
  try {
    if (!fill()) return false;
    hasPlayed_ = true;
    play(spanOf(nextClock_));
  } catch (const std::exception& error) {
    complain(error);
  }
  return true;
}

/// What goes wrong with a packet, such as memory that has run out, ends neither the stream nor the
/// process.
void StreamPlayer::complain(const std::exception& error) {
  if (complaint_ == error.what()) return;
  complaint_ = error.what();
  receiver::complain("a part of the stream is lost: {}", complaint_);
}

bool StreamPlayer::isAsked() {
  const std::lock_guard lock(mutex_);
  return isStopped_ || isRetuned_;
}

StreamPlayer::Next StreamPlayer::waitForNext() {
  const auto hasWish = [this] { return isStopped_ || isRetuned_; };
  std::unique_lock lock(mutex_);
  if (!hasWish()) {
    // A source that has nothing any more, such as a file that was emptied, is not asked all the
    // time.
    const bool isEmpty = settings_.isLooped && !std::exchange(hasPlayed_, false);
    if (isEmpty) changed_.wait_for(lock, emptyPause, hasWish);
    if (settings_.isLooped && !hasWish() && source_->rewind()) return Next::same;
  }
  if (!hasWish()) {
    lock.unlock();
    forEachSink([](PacketSink& sink) { sink.ended(); });
    lock.lock();
    changed_.wait(lock, hasWish);
  }
  if (isStopped_) return Next::nothing;
  isRetuned_ = false;
  source_->rewind();
  return Next::another;
}

void StreamPlayer::begin(bool isOther) {
  lastClock_.reset();
  due_ = Clock::now();
  forEachSink([isOther](PacketSink& sink) { sink.interrupted(isOther); });
}

template <class Call>
void StreamPlayer::forEachSink(Call&& call) {
  const std::lock_guard lock(sinksMutex_);
  for (PacketSink* const sink : sinks_) {
    try {
      call(*sink);
    } catch (const std::exception& error) {
      complain(error);
    }
  }
}

/// Reads on to the next clock reference; false at the stream's end.
bool StreamPlayer::fill() {
  batch_.clear();
  nextClock_.reset();
  isEarly_ = false;
  while (batch_.size() < mostPackets * packetSize) {
    const auto packet = source_->next();
    if (!packet) break;
    batch_.insert(batch_.end(), packet->begin(), packet->end());
    const auto clock = programClock(*packet);
    // The first clock that comes is followed, until it comes no more.
    if (clock && !clockPid_) clockPid_ = pidOf(*packet);
    if (clock && clockPid_ == pidOf(*packet)) {
      nextClock_ = clock;
      return true;
    }
    // Whoever waits for the source does not make others wait for what has come.
    isEarly_ = !source_->isReady();
    if (isEarly_) return true;
  }
  clockPid_.reset();
  return !batch_.empty();
}

/// How long the packets last.
StreamPlayer::Clock::duration StreamPlayer::spanOf(std::optional<std::uint64_t> clock) {
  if (isEarly_) return {};
  const auto packets = static_cast<std::int64_t>(batch_.size() / packetSize);
  const auto before = std::exchange(lastClock_, clock);
  if (clock && before) {
    const std::uint64_t step = (*clock + clockRange - *before) % clockRange;
    if (step > 0 && step <= longestStep) {
      const std::chrono::nanoseconds span(static_cast<std::int64_t>(step * 1000 / 27));
      packetTime_ = span / packets;
      return span;
    }
  }
  // Before the first clock; or after a break in it, at the pace from before.
  if (clock) return packetTime_ * packets;
  const double seconds = static_cast<double>(batch_.size()) * 8 / settings_.bitRate;
  return packetTime_ != packetTime_.zero()
             ? packetTime_ * packets
             : std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void StreamPlayer::play(Clock::duration span) {
  const std::size_t packets = batch_.size() / packetSize;
  if (keepsPace()) span = {};
  for (std::size_t index = 0; index < packets; ++index) {
    const auto due =
        due_ + span * static_cast<std::int64_t>(index) / static_cast<std::int64_t>(packets);
    // The processor wakes for several packets at once.
    if (!keepsPace() && due > Clock::now() + 2ms && !waitUntil(due)) return;
    const Packet packet(batch_.data() + index * packetSize, packetSize);
    forEachSink([packet](PacketSink& sink) { sink.take(packet); });
  }
  due_ += span;
  // Whoever was held up, by a source or a suspended machine, does not hurry afterwards.
  due_ = std::max(due_, Clock::now() - 500ms);
}

/// False when the player is to do something else.
bool StreamPlayer::waitUntil(Clock::time_point time) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_until(lock, time, [this] { return isStopped_ || isRetuned_; });
}

}  // namespace receiver
