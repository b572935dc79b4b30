#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/ByteQueue.h"
#include "cli/TraceLine.h"

namespace quillwork::cli {

/// Decodes both directions of one connection, in items: a channel's decoder says how many bytes the
/// next item has, and gets it when it is there. A decoder keeps `maxUnit` bytes of a direction at
/// most; where more are announced, it says so and decodes nothing more of the connection.
class TraceDecoder {
 public:
  /// The bytes of one request, record or element with all that is behind it.
  static constexpr std::size_t maxUnit = 64U << 20U;
  /// The elements of one list.
  static constexpr std::int32_t maxElements = 1 << 20;
  /// Requests without a reply yet, and likewise questions.
  static constexpr std::size_t maxUnanswered = 1U << 16U;
  /// How long the rest of an item may take.
  static constexpr std::chrono::seconds patience{1};

  virtual ~TraceDecoder() = default;

  /// Takes the next bytes of one direction and gives what has become complete. A request has to be
  /// fed before its reply.
  std::vector<TraceLine> feed(Direction direction, std::string_view bytes, TraceTime time = {});
  /// What has stayed incomplete for longer than the patience lasts, once for each time.
  std::vector<TraceLine> stalled(TraceTime now);
  /// When stalled() has something to say, unless something comes before.
  [[nodiscard]] std::optional<TraceTime> nextStall() const;
  /// One direction has ended: what is incomplete stays so, and the side that has ended answers
  /// nothing more.
  std::vector<TraceLine> end(Direction direction, TraceTime time);
  /// Both have.
  std::vector<TraceLine> finish(TraceTime time);

  /// How many bytes the decoder has copied or looked at so far.
  [[nodiscard]] std::size_t touched() const;

 protected:
  /// What a channel's decoder knows a request by.
  struct Key {
    std::size_t row;
    std::int32_t type;
  };
  struct Request {
    std::string operation;
    TraceTime time{};
    std::size_t number = 0;
    Key key{};
  };

  /// The first item of both directions.
  TraceDecoder(std::size_t firstToLibrary, std::size_t firstToClient);

  /// The next item of the direction has arrived.
  virtual void take(Direction direction, std::string_view item) = 0;
  /// Says more of what is incomplete.
  virtual void explain(Direction /*direction*/, Json& /*fields*/) const {}

  /// The next item begins something new.
  void expectNew(Direction direction, std::size_t size);
  /// The next item belongs to the operation under way, and at least `behind` bytes follow it.
  void expectMore(Direction direction, std::size_t size, const std::string& operation,
                  std::size_t behind = 0);
  /// Makes a line of what has been taken since the last one.
  TraceLine& add(Direction direction, std::string kind, std::string operation, Json fields);
  /// Of what was taken since the last line, only so many bytes belong to this one.
  TraceLine& addFirst(std::size_t size, Direction direction, std::string kind,
                      std::string operation, Json fields);
  /// Makes the line of a request, which waits for its reply when it has one.
  void addRequest(std::string operation, Json fields, bool hasReply, Key key);
  /// The index of the oldest request that waits and fits.
  template <class Fits>
  [[nodiscard]] std::optional<std::size_t> findWaiting(Fits fits) const {
    const auto request = std::ranges::find_if(waiting_, fits, &Request::key);
    if (request == waiting_.end()) return std::nullopt;
    return static_cast<std::size_t>(request - waiting_.begin());
  }
  /// The operation of the oldest one; empty when none waits.
  [[nodiscard]] std::string nextOperation() const {
    return waiting_.empty() ? "" : waiting_.front().operation;
  }
  /// The reply begins to the waiting request of that index: those before it get none any more.
  Request answer(std::size_t index);
  /// The library's last notification asks the client something.
  void addQuestion(std::string operation);
  /// The oldest question has its answer; where none is open, it answers nothing.
  void answerQuestion();
  [[nodiscard]] TraceTime now() const { return now_; }
  [[nodiscard]] bool isGivenUp() const { return isGivenUp_; }
  /// Ends the decoding; the fields say why.
  void giveUp(Direction direction, const std::string& operation, Json fields);

 private:
  struct Side {
    ByteQueue bytes;
    std::size_t wanted;
    std::size_t behind = 0;
    /// What was taken since the last line.
    std::string unit;
    /// Something is under way whose rest is missing, and what.
    bool isUnderWay = false;
    std::string operation;
    /// When the last bytes came, and whether it was said that no more have come.
    TraceTime last{};
    bool isReported = false;
  };

  Side& side(Direction direction) { return sides_[static_cast<std::size_t>(direction)]; }
  [[nodiscard]] bool mustReport(const Side& side) const;
  void addIncomplete(Direction direction, TraceTime time);
  void addUnanswered(Direction direction, const Request& request);

  std::array<Side, 2> sides_;
  std::deque<Request> waiting_;
  std::deque<Request> questions_;
  std::size_t requests_ = 0;
  bool isGivenUp_ = false;
  std::uint64_t undecoded_ = 0;
  TraceTime now_{};
  std::vector<TraceLine> lines_;
};

}  // namespace quillwork::cli
