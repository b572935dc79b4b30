#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "facade/DemuxFacade.h"
#include "receiver/SectionAssembler.h"
#include "receiver/StreamPlayer.h"

namespace receiver {

/// A comparison of a section's bytes with a pattern. docs/profile.md says what each vector means.
struct Pattern {
  std::size_t offset = 0;
  std::vector<unsigned char> value;
  std::vector<unsigned char> mask;
  std::vector<unsigned char> different;
};

/// The demultiplexer facade's section filter on the running stream: keeps the sections that pass
/// until they are read. Its operations come on the library's thread, packets on the stream
/// player's.
class SectionFilter : public middlewarefacade::DemuxFacade, public PacketSink {
 public:
  /// What is kept for a reader; then the oldest go.
  static constexpr std::size_t mostSections = 256;

  /// `streamPlayer`: whose packets it takes from now on. `waitsForReader`: packets wait, for a
  /// second at most, until a reader has made room.
  SectionFilter(StreamPlayer& streamPlayer, bool waitsForReader);
  ~SectionFilter() override;

  void start() override;
  void stop() override;
  void setPid(int pid) override;
  void setTableId(int tableId) override;
  void setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                    const Bytes& third) override;
  /// In milliseconds; negative for none.
  void setTimeOut(long timeOut) override;
  void clearTableId() override;
  void clearPositiveFilter() override;
  void clearLessThanFilter() override;
  void clearXorFilter() override;
  Bytes readSection() override;

  void take(Packet packet) override;
  void interrupted(bool isOther) override;

 private:
  /// What a section is compared with.
  struct Conditions {
    int tableId = -1;
    std::optional<Pattern> positive;
    std::optional<Pattern> greaterThan;
    std::optional<Pattern> lessThan;
    std::optional<Pattern> exclusiveOr;

    [[nodiscard]] bool hold(const Section& section) const;
  };

  template <class Change>
  void change(Change&& change);
  void keep(const Section& section);
  void waitForReader();
  std::optional<Section> takeSection();

  StreamPlayer& streamPlayer_;
  const bool waitsForReader_;
  /// Counts the sections that came and the readers that made room.
  const int arrived_;
  const int taken_;

  std::mutex mutex_;
  bool isRunning_ = false;
  bool hasGivenUp_ = false;
  int pid_ = -1;
  Conditions conditions_;
  std::chrono::milliseconds timeOut_{10'000};
  SectionAssembler assembler_;
  StreamErrors errors_;
  std::deque<Section> sections_;
};

}  // namespace receiver
