#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Recording.h"
#include "cli/TraceDecoder.h"

namespace quillwork::cli {

std::unique_ptr<TraceDecoder> makeDecoder(TraceChannel channel);

/// Decodes one channel: its connections, one after the other.
class ChannelTrace {
 public:
  explicit ChannelTrace(TraceChannel channel) : channel_(channel) {}

  std::vector<TraceLine> take(const TraceChunk& chunk, std::string_view bytes);
  /// As TraceDecoder has them.
  std::vector<TraceLine> stalled(TraceTime now);
  [[nodiscard]] std::optional<TraceTime> nextStall() const;
  /// Nothing more comes of the connection.
  std::vector<TraceLine> finish(TraceTime time);

  [[nodiscard]] TraceChannel channel() const { return channel_; }
  [[nodiscard]] bool isConnected() const { return decoder_ != nullptr; }

 private:
  std::vector<TraceLine> connect(TraceTime time);
  std::vector<TraceLine> end(TraceEvent event, TraceTime time);

  TraceChannel channel_;
  /// None when nobody is connected.
  std::unique_ptr<TraceDecoder> decoder_;
  /// Which side has ended, if any has.
  std::optional<TraceEvent> ended_;
};

}  // namespace quillwork::cli
