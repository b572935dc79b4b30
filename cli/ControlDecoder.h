#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "cli/TraceDecoder.h"
#include "protocol/message.h"
#include "protocol/operations.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the control channel by the protocol's table. What
/// the library sends and nobody asked for is shown as unknown; the bytes behind it are still taken
/// for records.
class ControlDecoder : public TraceDecoder {
 public:
  ControlDecoder();

 private:
  using Step = void (ControlDecoder::*)(std::string_view item);
  using Lengths = std::array<std::int32_t, 6>;

  void take(Direction direction, std::string_view item) override;
  void explain(Direction direction, Json& fields) const override;

  void takeRequest(const message& record);

  void expectRecord();
  /// The next item belongs to what is under way.
  void expectPart(Step step, std::size_t size);
  void takeRecord(std::string_view item);
  void takeReply(const message& record);
  TraceLine& addReply(std::string kind, Json fields);
  /// The row of the request whose reply is under way.
  [[nodiscard]] const operations::Request& row() const;

  void takeHeader(const message& header);
  void takeBehindHeader(std::string_view item);
  TraceLine& addHeader(std::string kind);
  void beginList();
  void expectElements(Step step);
  void expectElement();
  void endElement();
  void takePart(std::string_view item);
  void takeElement(std::string_view item);

  void expectLists();
  bool beginsList(std::int32_t count);
  Json& list();
  void takeBytes(std::string_view item);
  void takeTextSize(std::string_view item);
  void takeText(std::string_view item);

  Step step_ = &ControlDecoder::takeRecord;
  /// The request whose reply is under way; of a notification in parts only the name.
  Request reply_;
  /// What the last header says, and when it came.
  std::int32_t count_ = 0;
  TraceTime headerTime_{};
  Step elementStep_ = nullptr;
  std::int32_t elementsLeft_ = 0;
  /// The lengths of the lists that have not come yet, for each record that has some.
  std::deque<Lengths> behind_;
  /// Which list of the first of these is under way, and what has come of them.
  std::size_t list_ = 0;
  Json lists_ = Json::object();
  std::int32_t textsLeft_ = 0;
};

}  // namespace quillwork::cli
