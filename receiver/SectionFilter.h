#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "facade/DemuxFacade.h"
#include "receiver/SectionAssembler.h"
#include "receiver/StreamFile.h"

namespace receiver {

/// A comparison of a section's bytes with a pattern. docs/receiver.md says what each vector means.
struct Pattern {
  std::size_t offset = 0;
  std::vector<unsigned char> value;
  std::vector<unsigned char> mask;
  std::vector<unsigned char> different;
};

/// The demultiplexer facade's section filter: reads the stream on from where it stopped, as if it
/// were on air while somebody waits for a section.
class SectionFilter : public middlewarefacade::DemuxFacade {
 public:
  SectionFilter(const StreamFile& stream, bool once) : stream_(stream), once_(once) {}

  void start() override;
  void stop() override;
  void setPid(int pid) override;
  void setTableId(int tableId) override { tableId_ = tableId; }
  void setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) override;
  void setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                    const Bytes& third) override;
  /// In milliseconds; negative for none.
  void setTimeOut(long timeOut) override { timeOut_ = std::chrono::milliseconds(timeOut); }
  void clearTableId() override { tableId_ = -1; }
  void clearPositiveFilter() override { positive_.reset(); }
  void clearLessThanFilter() override { lessThan_.reset(); }
  void clearXorFilter() override { xor_.reset(); }
  Bytes readSection() override;

  /// Whether the filter lets the section pass.
  [[nodiscard]] bool matches(const Section& section) const;

 private:
  void readPacket();
  [[nodiscard]] bool isAtEnd() const { return once_ && position_ == stream_.packets(); }
  void waitOut(std::chrono::steady_clock::time_point begin) const;

  const StreamFile& stream_;
  const bool once_;
  bool running_ = false;
  int pid_ = -1;
  int tableId_ = -1;
  std::optional<Pattern> positive_;
  std::optional<Pattern> greaterThan_;
  std::optional<Pattern> lessThan_;
  std::optional<Pattern> xor_;
  std::chrono::milliseconds timeOut_{10'000};
  std::size_t position_ = 0;
  SectionAssembler assembler_;
  StreamErrors errors_;
  std::deque<Section> ready_;
};

}  // namespace receiver
