#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "cli/TraceLine.h"
#include "protocol/message.h"

namespace quillwork::cli {

/// Decodes both directions of one connection of the control channel. What does not fit the protocol
/// is shown as unknown; the bytes behind it are still taken for records.
class ControlDecoder {
 public:
  struct Operation;

  /// Takes the next bytes of one direction and gives what has become complete. A request has to be
  /// fed before its reply.
  std::vector<TraceLine> feed(Direction direction, std::string_view bytes);

 private:
  void decodeRequests();
  bool decodeReply();
  bool decodeHeader(const message& record);
  bool decodeElement(const message& record);
  bool decodeLists();
  void add(Direction direction, std::string kind, std::string operation, Json fields);

  std::string fromClient_;
  std::string fromLibrary_;
  /// Requests without a reply yet.
  std::deque<const Operation*> waiting_;
  /// The list under way, and how many of its elements are missing; of a command its parts.
  const Operation* list_ = nullptr;
  std::int32_t elementsLeft_ = 0;
  bool isCommand_ = false;
  /// Events whose lists have not come yet.
  std::deque<message> events_;
  std::vector<TraceLine> lines_;
};

}  // namespace quillwork::cli
