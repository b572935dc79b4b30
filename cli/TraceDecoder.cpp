#include "cli/TraceDecoder.h"

#include <algorithm>
#include <utility>

namespace quillwork::cli {

namespace {

constexpr Direction directions[] = {Direction::toLibrary, Direction::toClient};

}  // namespace

TraceDecoder::TraceDecoder(std::size_t firstToLibrary, std::size_t firstToClient) {
  side(Direction::toLibrary).wanted = firstToLibrary;
  side(Direction::toClient).wanted = firstToClient;
}

std::vector<TraceLine> TraceDecoder::feed(Direction direction, std::string_view bytes,
                                          TraceTime time) {
  now_ = time;
  if (isGivenUp_) {
    undecoded_ += bytes.size();
    return {};
  }
  Side& from = side(direction);
  from.bytes.append(bytes);
  from.last = time;
  from.isReported = false;
  while (!isGivenUp_ && from.bytes.size() >= from.wanted) {
    const std::string_view item = from.bytes.take(from.wanted);
    from.unit += item;
    take(direction, item);
  }
  if (isGivenUp_) undecoded_ += from.bytes.size();
  return std::exchange(lines_, {});
}

bool TraceDecoder::mustReport(const Side& side) const {
  return !isGivenUp_ && !side.isReported && (side.isUnderWay || side.bytes.size() > 0);
}

std::vector<TraceLine> TraceDecoder::stalled(TraceTime now) {
  for (const Direction direction : directions) {
    const TraceTime time = side(direction).last + patience;
    if (time <= now && mustReport(side(direction))) addIncomplete(direction, time);
  }
  return std::exchange(lines_, {});
}

std::optional<TraceTime> TraceDecoder::nextStall() const {
  std::optional<TraceTime> next;
  for (const Side& side : sides_) {
    const TraceTime time = side.last + patience;
    if (mustReport(side)) next = std::min(next.value_or(time), time);
  }
  return next;
}

std::vector<TraceLine> TraceDecoder::end(Direction direction, TraceTime time) {
  now_ = time;
  if (mustReport(side(direction))) addIncomplete(direction, time);
  auto& open = direction == Direction::toClient ? waiting_ : questions_;
  for (const Request& request : std::exchange(open, {})) addUnanswered(direction, request);
  return std::exchange(lines_, {});
}

std::vector<TraceLine> TraceDecoder::finish(TraceTime time) {
  std::vector<TraceLine> lines = end(Direction::toLibrary, time);
  for (TraceLine& line : end(Direction::toClient, time)) lines.push_back(std::move(line));
  if (undecoded_ > 0) {
    TraceLine& line = lines.emplace_back();
    line.time = time;
    line.kind = "undecoded";
    line.fields["bytes"] = std::exchange(undecoded_, 0);
  }
  return lines;
}

std::size_t TraceDecoder::touched() const {
  return sides_[0].bytes.touched() + sides_[1].bytes.touched();
}

void TraceDecoder::addIncomplete(Direction direction, TraceTime time) {
  Side& from = side(direction);
  from.isReported = true;
  TraceLine& line = lines_.emplace_back();
  line.time = time;
  line.direction = direction;
  line.kind = "incomplete";
  line.operation = from.operation;
  line.fields["received"] = from.unit.size() + from.bytes.size();
  line.fields["expected"] = from.unit.size() + from.wanted + from.behind;
  explain(direction, line.fields);
}

void TraceDecoder::addUnanswered(Direction direction, const Request& request) {
  TraceLine& line = lines_.emplace_back();
  line.time = now_;
  line.direction = direction;
  line.kind = "unanswered";
  line.operation = request.operation;
  line.request = request.number;
  line.after = now_ - request.time;
}

void TraceDecoder::expectNew(Direction direction, std::size_t size) {
  Side& from = side(direction);
  from.wanted = size;
  from.behind = 0;
  from.isUnderWay = false;
  from.operation.clear();
}

void TraceDecoder::expectMore(Direction direction, std::size_t size, const std::string& operation,
                              std::size_t behind) {
  Side& from = side(direction);
  if (size > maxUnit - std::min(maxUnit, from.unit.size() + behind)) {
    giveUp(direction, operation, {{"announced", size}});
    return;
  }
  from.wanted = size;
  from.behind = behind;
  from.operation = operation;
  from.isUnderWay = true;
}

TraceLine& TraceDecoder::add(Direction direction, std::string kind, std::string operation,
                             Json fields) {
  return addFirst(side(direction).unit.size(), direction, std::move(kind), std::move(operation),
                  std::move(fields));
}

TraceLine& TraceDecoder::addFirst(std::size_t size, Direction direction, std::string kind,
                                  std::string operation, Json fields) {
  TraceLine& line = lines_.emplace_back();
  line.time = now_;
  line.direction = direction;
  line.kind = std::move(kind);
  line.operation = std::move(operation);
  line.fields = std::move(fields);
  std::string& unit = side(direction).unit;
  line.bytes = unit.substr(0, size);
  unit.erase(0, size);
  return line;
}

void TraceDecoder::addRequest(std::string operation, Json fields, bool hasReply, Key key) {
  const std::size_t number = ++requests_;
  add(Direction::toLibrary, "request", operation, std::move(fields)).request = number;
  if (!hasReply) return;
  if (waiting_.size() == maxUnanswered) {
    giveUp(Direction::toLibrary, operation, {{"unanswered", maxUnanswered}});
    return;
  }
  waiting_.push_back({std::move(operation), now_, number, key});
}

TraceDecoder::Request TraceDecoder::answer(std::size_t index) {
  for (; index > 0; --index) {
    addUnanswered(Direction::toClient, waiting_.front());
    waiting_.pop_front();
  }
  Request request = std::move(waiting_.front());
  waiting_.pop_front();
  return request;
}

void TraceDecoder::addQuestion(std::string operation) {
  if (questions_.size() == maxUnanswered) {
    giveUp(Direction::toClient, operation, {{"unanswered", maxUnanswered}});
    return;
  }
  questions_.push_back({std::move(operation), now_});
}

void TraceDecoder::answerQuestion() {
  if (!questions_.empty()) questions_.pop_front();
}

void TraceDecoder::giveUp(Direction direction, const std::string& operation, Json fields) {
  add(direction, "undecoded", operation, std::move(fields));
  isGivenUp_ = true;
  waiting_.clear();
  questions_.clear();
}

}  // namespace quillwork::cli
