#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "receiver/Source.h"

namespace receiver {

/// Who takes the packets of the stream that is played. Called on the stream player's thread, which
/// says what an exception is about and goes on.
class PacketSink {
 public:
  PacketSink() = default;
  PacketSink(const PacketSink&) = delete;
  PacketSink& operator=(const PacketSink&) = delete;
  virtual ~PacketSink() = default;

  virtual void take(Packet packet) = 0;
  /// The next packet does not follow the last one: the stream begins anew. `isOther`: what comes
  /// has nothing to do with what was.
  virtual void interrupted(bool isOther) = 0;
  /// The stream has been played to its end.
  virtual void ended() {}
};

/// The program clock reference of a packet (ISO/IEC 13818-1, 2.4.3.5) in units of 27 MHz.
std::optional<std::uint64_t> programClock(Packet packet);

/// Plays a stream as if it came off air: hands its packets to the sinks at the times that its clock
/// gives them.
class StreamPlayer {
 public:
  struct Settings {
    bool isFast = false;         ///< without any pace
    bool isLooped = false;       ///< begins again at the end
    double bitRate = 1'000'000;  ///< bits a second of a stream without a clock
  };

  StreamPlayer(std::unique_ptr<Source> source, Settings settings);
  ~StreamPlayer();
  StreamPlayer(const StreamPlayer&) = delete;
  StreamPlayer& operator=(const StreamPlayer&) = delete;

  /// Borrows the sink until remove(). Packets go to the sinks in the order of add().
  void add(PacketSink& sink);
  /// No call into the sink is under way afterwards.
  void remove(PacketSink& sink);

  void start();
  /// Ends the stream player's thread; once.
  void stop();
  /// Tunes anew: the stream begins from its start where it can.
  void retune();

 private:
  using Clock = std::chrono::steady_clock;

  void run();
  bool playNext();
  void complain(const std::exception& error);
  bool isAsked();
  bool fill();
  [[nodiscard]] bool keepsPace() const { return settings_.isFast || source_->keepsPace(); }
  Clock::duration spanOf(std::optional<std::uint64_t> clock);
  void play(Clock::duration span);
  bool waitUntil(Clock::time_point time);
  enum class Next { nothing, same, another };
  Next waitForNext();
  void begin(bool isOther);
  template <class Call>
  void forEachSink(Call&& call);

  const std::unique_ptr<Source> source_;
  const Settings settings_;

  std::mutex sinksMutex_;
  std::vector<PacketSink*> sinks_;

  std::mutex mutex_;
  std::condition_variable changed_;
  bool isStopped_ = false;
  bool isRetuned_ = false;

  /// What is played next: the packets up to one with a clock reference.
  std::vector<std::uint8_t> batch_;
  bool hasPlayed_ = false;  ///< since the source began
  bool isEarly_ = false;    ///< it ends where the source has no more yet
  std::optional<std::uint16_t> clockPid_;
  std::optional<std::uint64_t> lastClock_;
  std::optional<std::uint64_t> nextClock_;
  Clock::duration packetTime_{};
  Clock::time_point due_;
  std::string complaint_;  ///< the last one, which is not repeated
  std::thread thread_;
};

}  // namespace receiver
