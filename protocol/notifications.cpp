// The records that the library sends to the client on its own, and the one call that waits for an
// answer.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <utility>

#include "ipc/IpcServer.h"
#include "ipc/Report.h"
#include "protocol/ApplicationState.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/message.h"
#include "protocol/operations.h"

namespace quillwork {

namespace {

template <operations::Kind kind, std::size_t position, class Value>
void putField(message& record, const Value& value) {
  using operations::Kind;
  if constexpr (kind == Kind::shortText) {
    putShortString(record, position, value);
  } else if constexpr (kind == Kind::textPart) {
    putBytes(record, position, value.data(), std::min(value.size(), operations::maxTextPart));
  } else {
    static_assert(sizeof value == operations::sizeOf(kind));
    put(record, position, value);
  }
}

/// The record of a notification with its fields, in their order. It starts as zero bytes: no byte
/// of the stack reaches the client.
template <operations::Name name, class... Values>
message makeRecord(const Values&... values) {
  constexpr const operations::Notification& row =
      operations::notifications[operations::notification(name)];
  static_assert(sizeof...(values) == row.content.fields.size());
  message record{};
  record.group = row.group;
  if constexpr (!isAnyOther(row.types)) record.type = row.types.first;
  [&]<std::size_t... index>(std::index_sequence<index...>) {
    (putField<row.content.fields[index].kind, row.content.fields[index].position>(record, values),
     ...);
  }
  (std::index_sequence_for<Values...>());
  return record;
}

/// Runs a notification that needs the manager alive. A manager that is being destroyed sends
/// nothing more.
template <class Notification>
bool notify(Notification&& notification) {
  const Gate::Pass pass(manager_state::notifiers);
  if (pass) return notification();
  errno = EBADF;
  reportFailure("Can't send message");
  return false;
}

/// A sequence of sends. When the host cancels the sending thread in the middle of it, the client
/// could not tell what comes next from the rest, so its connection ends.
struct Sequence {
  explicit Sequence(IpcServer& sender) : server(sender) {}
  ~Sequence() {
    if (!isWhole) server.cutConnection();
  }
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

  IpcServer& server;
  bool isWhole = false;
};

}  // namespace

bool IpcServerManager::endOfMedia(int player) {
  return notify([&] {
    message record = makeRecord<"endOfMedia">(player);
    return server->sendMessage(record);
  });
}

bool IpcServerManager::changeGraphicsSettings(ipcutil::Rectangle_t first,
                                              ipcutil::Rectangle_t second) {
  return notify([&] {
    message record =
        makeRecord<"changeGraphicsSettings">(first.x, first.y, first.width, first.height, second.x,
                                             second.y, second.width, second.height);
    return server->sendMessage(record);
  });
}

bool IpcServerManager::downloadComplete(std::string first, std::string second) {
  return notify([&] {
    message record = makeRecord<"downloadComplete">(first, second);
    return server->sendMessage(record);
  });
}

bool IpcServerManager::sendDsmCCCommand(ipcutil::DsmCCCommand_t command) {
  return notify([&] {
    constexpr std::size_t length = operations::maxTextPart;
    const std::string_view text = command.text;
    // A text of an exact multiple of the part's length ends with an empty part, so that the
    // header's count holds.
    const std::size_t parts = text.size() <= length ? 1 : text.size() / length + 1;
    IpcServer::SendGuard guard(*server);
    Sequence sequence(*server);
    bool sent = true;
    if (parts > 1) {
      message header{};
      header.group = LIST_HEADER;
      header.type = static_cast<std::int32_t>(parts);
      sent = guard.sendMessage(header);
    }
    for (std::size_t part = 0; part < parts; ++part) {
      message record = makeRecord<"sendDsmCCCommand">(command.command_code, command.event_time,
                                                      command.flag, text.substr(part * length));
      sent = guard.sendMessage(record) && sent;
    }
    sequence.isWhole = true;
    return sent;
  });
}

bool IpcServerManager::setApplicationState(state newState) {
  return notify([&] {
    message record = makeRecord<"setApplicationState">(newState);
    std::uint32_t ended = 0;
    {
      // A connection's end is counted once more after its descriptor was closed, which takes the
      // sending side: if the client that gets the record goes, the number will be another one.
      IpcServer::SendGuard guard(*server);
      ended = application_state::endedConnections();
      if (!guard.sendMessage(record)) return false;
    }
    return application_state::await(ended);
  });
}

}  // namespace quillwork
