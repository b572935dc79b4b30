#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "cli/TraceDecoder.h"
#include "protocol/message.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the control channel. What the library sends and
/// nobody asked for is shown as unknown; the bytes behind it are still taken for records.
class ControlDecoder : public TraceDecoder {
 public:
  struct Operation;

  ControlDecoder();

 private:
  using Step = void (ControlDecoder::*)(std::string_view item);

  void take(Direction direction, std::string_view item) override;
  void explain(Direction direction, Json& fields) const override;

  void takeRequest(const message& record);

  void expectRecord();
  /// The next item belongs to what is under way.
  void expectPart(Step step, std::size_t size);
  void takeRecord(std::string_view item);
  template <class Fits>
  [[nodiscard]] std::optional<std::size_t> findWaiting(Fits fits) const;
  void takeReply(const message& record);
  TraceLine& addReply(std::string kind, Json fields);

  void takeHeader(const message& header);
  void takeBehindHeader(std::string_view item);
  void beginCommand(const message& header);
  void beginList(const message& header);
  void expectElements(Step step, std::int32_t count);
  void expectElement();
  void endElement();
  void takeCommandPart(std::string_view item);
  void takeElement(std::string_view item);
  void takeDescriptor(std::string_view data);

  void expectLists();
  bool beginsEventList(std::int32_t count);
  Json& eventList();
  void takeByteList(std::string_view item);
  void takeTextSize(std::string_view item);
  void takeText(std::string_view item);

  Step step_ = &ControlDecoder::takeRecord;
  /// The request whose reply is under way; of a command only the name.
  Request list_;
  Step elementStep_ = nullptr;
  std::int32_t elementsLeft_ = 0;
  /// A header whose list has not begun, or a descriptor's record whose bytes have not come.
  message header_{};
  TraceTime headerTime_{};
  /// The lengths of the lists that have not come yet, of each event.
  std::deque<std::array<std::int32_t, 6>> events_;
  std::size_t eventListIndex_ = 0;
  std::int32_t textsLeft_ = 0;
  /// What has come of the first event's lists.
  Json lists_ = Json::object();
};

}  // namespace quillwork::cli
