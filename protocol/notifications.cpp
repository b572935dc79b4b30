// The records that the library sends to the client on its own, and the one call that waits for an
// answer.

#include <cerrno>
#include <cstdint>

#include "ipc/IpcServer.h"
#include "ipc/Report.h"
#include "protocol/ApplicationState.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/message.h"

namespace quillwork {

namespace {

constexpr std::int32_t endOfMediaType = 16;
constexpr std::int32_t graphicsSettingsType = 17;
constexpr std::int32_t downloadCompleteType = 2;

constexpr std::size_t flagPosition = 24;
constexpr std::size_t longTextPosition = 25;
constexpr std::size_t longTextField = 1928;
constexpr std::size_t longTextPart = 1920;

/// A record that starts as zero bytes: no byte of the stack reaches the client.
message blankRecord(message_group group, std::int32_t type) {
  message record{};
  record.group = group;
  record.type = type;
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
    message record = blankRecord(MEDIA, endOfMediaType);
    record[3] = player;
    return server->sendMessage(record);
  });
}

bool IpcServerManager::changeGraphicsSettings(ipcutil::Rectangle_t first,
                                              ipcutil::Rectangle_t second) {
  return notify([&] {
    message record = blankRecord(VIDEO, graphicsSettingsType);
    put(record, firstWord, first);
    put(record, firstWord + sizeof first, second);
    return server->sendMessage(record);
  });
}

bool IpcServerManager::downloadComplete(std::string first, std::string second) {
  return notify([&] {
    message record = blankRecord(CAROUSEL, downloadCompleteType);
    putShortString(record, firstText, first);
    putShortString(record, secondText, second);
    return server->sendMessage(record);
  });
}

bool IpcServerManager::sendDsmCCCommand(ipcutil::DsmCCCommand_t command) {
  return notify([&] {
    const std::string& text = command.text;
    message record = blankRecord(DSMCC_COMMAND, command.command_code);
    put(record, secondWord, command.event_time);
    put(record, flagPosition, command.flag);
    // A text of an exact multiple of the part's length ends with an empty part, so that the
    // header's count holds.
    const std::size_t parts = text.size() <= longTextPart ? 1 : text.size() / longTextPart + 1;
    IpcServer::SendGuard guard(*server);
    Sequence sequence(*server);
    bool sent = true;
    if (parts > 1) {
      message header = blankRecord(LIST_HEADER, static_cast<std::int32_t>(parts));
      sent = guard.sendMessage(header);
    }
    for (std::size_t part = 0; part < parts; ++part) {
      char field[longTextField] = {};
      text.copy(field, longTextPart, part * longTextPart);
      put(record, longTextPosition, field);
      sent = guard.sendMessage(record) && sent;
    }
    sequence.isWhole = true;
    return sent;
  });
}

bool IpcServerManager::setApplicationState(state newState) {
  return notify([&] {
    message record = blankRecord(APPLICATION_STATE, static_cast<std::int32_t>(newState));
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
