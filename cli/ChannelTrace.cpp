#include "cli/ChannelTrace.h"

#include <iterator>
#include <utility>

#include "cli/ControlDecoder.h"
#include "cli/SectionDecoder.h"

namespace quillwork::cli {
namespace {

using Lines = std::vector<TraceLine>;

void append(Lines& lines, Lines more) {
  lines.insert(lines.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
}

TraceLine disconnection(TraceEvent event, TraceTime time) {
  TraceLine line;
  line.time = time;
  line.direction = event == TraceEvent::endedByLibrary ? Direction::toClient : Direction::toLibrary;
  line.kind = "disconnection";
  line.fields["by"] = event == TraceEvent::endedByClient    ? "client"
                      : event == TraceEvent::endedByLibrary ? "library"
                                                            : "trace";
  return line;
}

}  // namespace

std::unique_ptr<TraceDecoder> makeDecoder(TraceChannel channel) {
  if (channel == TraceChannel::control) return std::make_unique<ControlDecoder>();
  return std::make_unique<SectionDecoder>();
}

Lines ChannelTrace::take(const TraceChunk& chunk, std::string_view bytes) {
  const TraceTime time(chunk.time);
  if (chunk.event == TraceEvent::connected) return connect(time);
  if (decoder_ == nullptr) return {};
  if (chunk.event == TraceEvent::toLibrary) {
    return decoder_->feed(Direction::toLibrary, bytes, time);
  }
  if (chunk.event == TraceEvent::toClient) {
    return decoder_->feed(Direction::toClient, bytes, time);
  }
  return end(chunk.event, time);
}

Lines ChannelTrace::connect(TraceTime time) {
  Lines lines = finish(time);
  decoder_ = makeDecoder(channel_);
  ended_.reset();
  TraceLine& line = lines.emplace_back();
  line.time = time;
  line.kind = "connection";
  return lines;
}

/// The first side to end has ended the connection; what the other one has still sent comes first.
Lines ChannelTrace::end(TraceEvent event, TraceTime time) {
  Lines lines;
  if (!ended_) lines.push_back(disconnection(event, time));
  const bool isOver = event == TraceEvent::endedByTrace || (ended_ && *ended_ != event);
  ended_ = ended_.value_or(event);
  if (isOver) {
    append(lines, finish(time));
  } else {
    append(lines, decoder_->end(event == TraceEvent::endedByClient ? Direction::toLibrary
                                                                   : Direction::toClient,
                                time));
  }
  return lines;
}

Lines ChannelTrace::stalled(TraceTime now) {
  return decoder_ == nullptr ? Lines() : decoder_->stalled(now);
}

std::optional<TraceTime> ChannelTrace::nextStall() const {
  return decoder_ == nullptr ? std::nullopt : decoder_->nextStall();
}

Lines ChannelTrace::finish(TraceTime time) {
  const auto decoder = std::exchange(decoder_, nullptr);
  return decoder == nullptr ? Lines() : decoder->finish(time);
}

}  // namespace quillwork::cli
