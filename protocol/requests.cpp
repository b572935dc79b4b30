// The client's requests: one row for each group and type, as docs/protocol.md lists them.

#include <array>
#include <cstdio>

#include "ipc/HostCall.h"
#include "ipc/IpcServer.h"
#include "ipc/Mutex.h"
#include "ipc/Report.h"
#include "protocol/ApplicationState.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/ReplyLists.h"
#include "protocol/message.h"

namespace quillwork {

using manager_state::managerMutex;

namespace {

using Manager = IpcServerManager;
using Listener = IpcServerListener;

/// An element record that keeps the type of the record before it: the count in the list's header.
constexpr std::int32_t keepType = -1;

/// The word that tells the client whether a list follows. In a 32-bit process the record is copied
/// whole, pointers included; a wider pointer does not fit.
std::int32_t referenceWord(const void* list) {
  if constexpr (sizeof list == sizeof(std::int32_t)) {
    return std::bit_cast<std::int32_t>(
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(list)));
  } else {
    return list != nullptr ? 1 : 0;
  }
}

// Where the element of a list goes in its record.

void writeElement(message& record, std::int32_t identifier) { record[3] = identifier; }
void writeElement(message& record, const std::string& text) {
  putShortString(record, firstText, text);
}
void writeElement(message& record, const service& element) { put(record, firstWord, element); }
void writeElement(message& record, const service_component& element) {
  put(record, firstWord, element);
}
void writeElement(message& record, const pmt& element) { put(record, firstWord, element); }
void writeElement(message& record, const system_property& element) {
  put(record, typeWord, element);
}

void writeElement(message& record, const descriptor& element) {
  put(record, firstWord, element.tag);
  record[4] = element.length;
  record[5] = referenceWord(element.data);
}

void writeElement(message& record, const program_event& event) {
  putBytes(record, firstWord, &event, programEventReferences);
  std::size_t position = firstWord + programEventReferences;
  forEachList(event, [&](const auto* list) {
    put(record, position, referenceWord(list));
    position += sizeof(std::int32_t);
  });
}

void reportUnknown(const char* text, std::int32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%d", number);
  printLine(stderr, {text, digits});
}

// What follows a record outside of any record.

void sendTrailing(IpcServer::SendGuard& guard, const std::list<char>& bytes) {
  for (const char& byte : bytes) guard.sendMessage(&byte, 1);
}

void sendTrailing(IpcServer::SendGuard& guard, const std::list<std::string>& texts) {
  for (const std::string& text : texts) {
    const auto length = static_cast<std::uint32_t>(text.size());
    guard.sendMessage(&length, sizeof length);
    guard.sendMessage(text.data(), length);
  }
}

void sendTrailing(IpcServer::SendGuard& guard, program_event& event) {
  forEachList(event, [&](const auto* list) {
    if (list != nullptr) sendTrailing(guard, *list);
  });
  freeLists(event);
}

void sendHeader(IpcServer::SendGuard& guard, message& record, std::size_t count) {
  record.group = LIST_HEADER;
  record.type = static_cast<std::int32_t>(count);
  guard.sendMessage(record);
}

}  // namespace

/// The handlers of the rows. A query's handler writes the answer into the request's own record and
/// sends it back; a broadcast's handler calls every listener and sends nothing.
struct IpcServerManager::Requests {
  using Handler = void (*)(Manager& manager, message& record);

  struct Row {
    message_group group;
    std::int32_t type;
    Handler handler;
  };

  // Building blocks: the numbers are words of the record, the positions bytes.

  // One listener's exception keeps no other one from being told.
  template <class Operation, class... Arguments>
  static void broadcast(Manager& manager, Operation operation, Arguments&... arguments) {
    bool succeeded = true;
    {
      const Lock lock(managerMutex);
      for (Listener* const listener : manager.serverListeners) {
        succeeded = callHost([&] { (listener->*operation)(arguments...); }) && succeeded;
      }
    }
    if (!succeeded) throw ReportedException();
  }

  template <auto query, std::size_t... words>
  static void perform(Manager& manager, message& record) {
    (manager.*query)(record[words]...);
  }

  template <std::size_t answer, auto query, std::size_t... words>
  static void integer(Manager& manager, message& record) {
    record[answer] = (manager.*query)(record[words]...);
    manager.server->sendMessage(record);
  }

  template <std::size_t position, auto query, std::size_t... words>
  static void boolean(Manager& manager, message& record) {
    putBoolean(record, position, (manager.*query)(record[words]...) != 0);
    manager.server->sendMessage(record);
  }

  template <auto query>
  static void text(Manager& manager, message& record) {
    putShortString(record, firstText, (manager.*query)());
    manager.server->sendMessage(record);
  }

  template <auto query>
  static void textForText(Manager& manager, message& record) {
    putShortString(record, secondText, (manager.*query)(getString(record, firstText)));
    manager.server->sendMessage(record);
  }

  template <auto query>
  static void record(Manager& manager, message& record) {
    put(record, firstWord, (manager.*query)());
    manager.server->sendMessage(record);
  }

  template <auto query>
  static void withLevel(Manager& manager, message& record) {
    (manager.*query)(record[3], get<double>(record, secondWord));
  }

  template <auto query>
  static void withBoolean(Manager& manager, message& record) {
    (manager.*query)(record[3], getBoolean(record, secondWord));
  }

  /// Sends a list: a header with the count, then a record for each element.
  template <class Element>
  static void sendList(Manager& manager, message& record, const std::list<Element>& elements,
                       message_group group, std::int32_t type) {
    IpcServer::SendGuard guard(*manager.server);
    sendHeader(guard, record, elements.size());
    for (const Element& element : elements) {
      record.group = group;
      if (type != keepType) record.type = type;
      writeElement(record, element);
      guard.sendMessage(record);
    }
  }

  template <auto query, message_group group, std::int32_t type, std::size_t... words>
  static void list(Manager& manager, message& record) {
    sendList(manager, record, (manager.*query)(record[words]...), group, type);
  }

  template <auto query, std::int32_t type, std::size_t... words>
  static void descriptors(Manager& manager, message& record) {
    OwnedRecords<descriptor> elements((manager.*query)(record[words]...));
    IpcServer::SendGuard guard(*manager.server);
    sendHeader(guard, record, elements->size());
    for (descriptor& element : *elements) {
      record.group = SI;
      record.type = type;
      writeElement(record, element);
      guard.sendMessage(record);
      if (element.data != nullptr) sendTrailing(guard, *element.data);
      freeLists(element);
    }
  }

  // Rows that fit no block.

  static void setVideoProperty(Manager& manager, message& record) {
    auto data = get<video_data>(record, typeWord);
    broadcast(manager, &Listener::setVideoProperty, data);
  }

  static void getMainVideoBounds(Manager& manager, message& record) {
    manager.getMainVideoBounds(record[3], record[4], record[5], record[6]);
    manager.server->sendMessage(record);
  }

  static void getVideoLanguage(Manager& manager, message& record) {
    putShortString(record, firstText, manager.getVideoLanguage(command{record.type}));
    manager.server->sendMessage(record);
  }

  static void getVideoRate(Manager& manager, message& record) {
    record[3] = manager.getVideoRate(command{record.type});
    manager.server->sendMessage(record);
  }

  static void updateGraphicsRegion(Manager& manager, message& record) {
    auto region = get<video_region>(record, firstWord);
    broadcast(manager, &Listener::updateGraphicsRegion, region);
  }

  static void answerApplicationState(Manager&, message& record) {
    application_state::answer(getBoolean(record, firstWord));
  }

  static void setSystemProperty(Manager& manager, message& record) {
    auto property = get<system_property>(record, typeWord);
    broadcast(manager, &Listener::setSystemProperty, property);
  }

  static void removeSystemProperty(Manager& manager, message& record) {
    const std::string name = getString(record, firstText);
    broadcast(manager, &Listener::removeSystemProperty, name);
  }

  static void setVideoAudio(Manager& manager, message& record) {
    const auto data = get<audio_data>(record, typeWord);
    broadcast(manager, &Listener::setVideoAudio, data);
  }

  static void getAllIDs(Manager& manager, message& record) {
    auto request = get<tuner_data>(record, typeWord);
    sendList(manager, record, manager.getAllIDs(request), TUNER, keepType);
  }

  static void umountCarousel(Manager& manager, message& record) {
    manager.umountCarousel(getString(record, firstText));
  }

  static void addCarouselListener(Manager& manager, message&) {
    broadcast(manager, &Listener::addCarouselListener);
  }

  static void removeCarouselListener(Manager& manager, message&) {
    broadcast(manager, &Listener::removeCarouselListener);
  }

  static void getProgramEvent(Manager& manager, message& record) {
    OwnedRecord<program_event> event(manager.getProgramEvent());
    writeElement(record, *event);
    IpcServer::SendGuard guard(*manager.server);
    guard.sendMessage(record);
    sendTrailing(guard, *event);
  }

  // The trailing data of all events comes after the last event's record.
  static void getProgramEvents(Manager& manager, message& record) {
    OwnedRecords<program_event> events(manager.getProgramEvents());
    IpcServer::SendGuard guard(*manager.server);
    sendHeader(guard, record, events->size());
    for (const program_event& event : *events) {
      record.group = SI;
      record.type = 1;
      writeElement(record, event);
      guard.sendMessage(record);
    }
    for (program_event& event : *events) sendTrailing(guard, event);
  }

  static void open(Manager& manager, message& record) {
    const bool opened = manager.open(getString(record, locatorText), record[3]) != 0;
    putBoolean(record, secondWord, opened);
    manager.server->sendMessage(record);
  }

  static void getMediaBounds(Manager& manager, message& record) {
    manager.getMediaBounds(record[3], record[4], record[5], record[6], record[7]);
    manager.server->sendMessage(record);
  }

  static constexpr std::int32_t anyOtherType = -1;

  static constexpr Row rows[] = {
      {VIDEO, 0, setVideoProperty},
      {VIDEO, 1, getMainVideoBounds},
      {VIDEO, 2, setVideoProperty},
      {VIDEO, 3, getVideoLanguage},
      {VIDEO, 4, list<&Manager::getVideoLanguages, VIDEO, keepType>},
      {VIDEO, 5, getVideoLanguage},
      {VIDEO, 6, setVideoProperty},
      {VIDEO, 7, setVideoProperty},
      {VIDEO, 8, setVideoProperty},
      {VIDEO, 9, getVideoRate},
      {VIDEO, 10, getVideoRate},
      {VIDEO, 11, getVideoRate},
      {VIDEO, 12, getVideoRate},
      {VIDEO, 13, getVideoRate},
      {VIDEO, 14, getVideoRate},
      {VIDEO, 15, getVideoRate},
      {VIDEO, 16, getVideoRate},
      {VIDEO, 17, setVideoProperty},
      {VIDEO, 18, updateGraphicsRegion},

      {APPLICATION_STATE, anyOtherType, answerApplicationState},

      {SYSTEM_PROPERTY, 0, textForText<&Manager::getSystemProperty>},
      {SYSTEM_PROPERTY, 1, list<&Manager::getSystemProperties, SYSTEM_PROPERTY, keepType>},
      {SYSTEM_PROPERTY, 2, setSystemProperty},
      {SYSTEM_PROPERTY, 3, removeSystemProperty},

      {AUDIO, anyOtherType, setVideoAudio},

      {TUNER, 0, integer<3, &Manager::getCurrentTransportStreamID>},
      {TUNER, anyOtherType, getAllIDs},

      {CAROUSEL, 0, textForText<&Manager::mountCarousel>},
      {CAROUSEL, 1, umountCarousel},
      {CAROUSEL, 3, addCarouselListener},
      {CAROUSEL, 4, removeCarouselListener},

      {SI, 0, text<&Manager::getSICodingFormat>},
      {SI, 1, getProgramEvents},
      {SI, 2, getProgramEvent},
      {SI, 3, descriptors<&Manager::getProgramEventDescriptors, 3, 5, 6>},
      {SI, 4, list<&Manager::getCASystemIds, SI, 4>},
      {SI, 5, boolean<firstWord, &Manager::isProtectedService>},
      {SI, 6, list<&Manager::getServices, SI, 6>},
      {SI, 7, integer<3, &Manager::getCurrentService>},
      {SI, 8, text<&Manager::getServiceDescription>},
      // The same as type 3: a client never reaches getServiceDescriptors().
      {SI, 9, descriptors<&Manager::getProgramEventDescriptors, 3, 5, 6>},
      {SI, 10, list<&Manager::getServiceComponents, SI, 10, 3>},
      {SI, 11, descriptors<&Manager::getServiceComponentDescriptors, 11, 3>},
      {SI, 12, record<&Manager::getTransportStream>},
      {SI, 13, descriptors<&Manager::getTransportStreamDescriptors, 3, 3>},
      {SI, 14, record<&Manager::getNetwork>},
      {SI, 15, descriptors<&Manager::getNetworkDescriptors, 3>},
      {SI, 16, list<&Manager::getPMTs, SI, 16, 3>},

      {MEDIA, 0, open},
      {MEDIA, 1, integer<4, &Manager::getDuration, 3>},
      {MEDIA, 2, integer<4, &Manager::getCurrentTime, 3>},
      {MEDIA, 3, integer<4, &Manager::setCurrentTime, 3, 4, 5>},
      {MEDIA, 4, perform<&Manager::addMediaListener, 3>},
      {MEDIA, 5, boolean<secondWord, &Manager::play, 3>},
      {MEDIA, 6, perform<&Manager::close, 3>},
      {MEDIA, 7, perform<&Manager::stop, 3>},
      {MEDIA, 8, integer<4, &Manager::setMediaBounds, 3, 4, 5, 6, 7>},
      {MEDIA, 9, getMediaBounds},
      {MEDIA, 10, withBoolean<&Manager::setMediaFreeze>},
      {MEDIA, 11, withLevel<&Manager::setMediaBalanceLevel>},
      {MEDIA, 12, withLevel<&Manager::setMediaSoundLevel>},
      {MEDIA, 13, withBoolean<&Manager::setMediaMute>},
      {MEDIA, 14, withLevel<&Manager::setMediaBassLevel>},
      {MEDIA, 15, withLevel<&Manager::setMediaTrebleLevel>},

      {VERSION, anyOtherType, boolean<firstWord, &Manager::checkVersionFlag, 2>},
  };

  static constexpr std::size_t groups = VERSION + 1;
  static constexpr std::size_t types = 19;
  /// By group and type the number of the row, counted from 1; the last column answers any other
  /// type. Numbers instead of handlers: a quarter of the bytes, and none for the dynamic linker.
  using Index = std::array<std::array<std::uint8_t, types + 1>, groups>;
  using Handlers = std::array<Handler, std::size(rows) + 1>;
  static_assert(std::size(rows) <= UINT8_MAX);

  static constexpr Index makeIndex() {
    Index index{};
    std::uint8_t number = 0;
    for (const Row& row : rows) {
      const std::size_t column =
          row.type == anyOtherType ? types : static_cast<std::size_t>(row.type);
      index[static_cast<std::size_t>(row.group)][column] = ++number;
    }
    return index;
  }

  /// The handlers by the number of their row; none at 0.
  static constexpr Handlers makeHandlers() {
    Handlers handlers{};
    std::size_t number = 0;
    for (const Row& row : rows) handlers[++number] = row.handler;
    return handlers;
  }

  static Handler find(std::uint32_t group, std::uint32_t type);
};

IpcServerManager::Requests::Handler IpcServerManager::Requests::find(std::uint32_t group,
                                                                     std::uint32_t type) {
  static constexpr Index index = makeIndex();
  static constexpr Handlers handlers = makeHandlers();
  const auto& columns = index[group];
  if (type < types && columns[type] != 0) return handlers[columns[type]];
  return handlers[columns[types]];
}

void IpcServerManager::update(message& record) {
  // Before any listener is called: it may wait for a thread that waits for the client that has
  // gone.
  if (server->hasLostItsClient()) application_state::endConnection();
  const auto group = static_cast<std::uint32_t>(record.group);
  if (group >= Requests::groups || group == LIST_HEADER || group == DSMCC_COMMAND) {
    reportUnknown("Unknown message: ", record.group);
    return;
  }
  const auto handler = Requests::find(group, static_cast<std::uint32_t>(record.type));
  if (handler != nullptr) {
    handler(*this, record);
  } else if (group == SI) {
    reportUnknown("Unknown si message type:  ", record.type);
  }
}

void IpcServerManager::update(std::list<message>) {}

}  // namespace quillwork
