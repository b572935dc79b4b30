// The client's requests: what each row of operations.h asks of the manager and its listeners.

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ipc/HostCall.h"
#include "ipc/IpcServer.h"
#include "ipc/Mutex.h"
#include "ipc/Report.h"
#include "protocol/ApplicationState.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/ReplyLists.h"
#include "protocol/message.h"
#include "protocol/operations.h"

namespace quillwork {

using manager_state::managerMutex;

namespace {

using Manager = IpcServerManager;
using Listener = IpcServerListener;
using operations::Content;
using operations::Field;
using operations::Kind;
using operations::Reply;

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

std::int32_t& wordAt(message& record, std::size_t position) {
  return record[position / sizeof(std::int32_t)];
}

void reportUnknown(const char* text, std::int32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%d", number);
  printLine(stderr, {text, digits});
}

/// The field for a row's answer, or for the element of its list, that is a single value: the last
/// one, behind the player that open() gives.
constexpr Field lastField(const Content& answer) { return answer.fields[answer.fields.size() - 1]; }

/// Where an answer goes in its record: a domain record as a whole, or a single value.
constexpr std::size_t positionOf(const Content& answer) {
  return answer.recordSize > 0 ? answer.recordPosition : lastField(answer).position;
}

/// Whether an answer of this type is what the row says.
template <class Answer>
constexpr bool fits(const Content& answer) {
  if constexpr (std::is_same_v<Answer, program_event> || std::is_same_v<Answer, descriptor>) {
    return answer.trailing.size() > 0;
  } else if constexpr (std::is_class_v<Answer> && isPlainRecord<Answer>) {
    return answer.recordSize == sizeof(Answer);
  } else if constexpr (std::is_same_v<Answer, std::string>) {
    return lastField(answer).kind == Kind::shortText;
  } else {
    return lastField(answer).kind == Kind::integer || lastField(answer).kind == Kind::boolean;
  }
}

template <std::size_t place>
void write(message& record, std::int32_t number) {
  wordAt(record, place) = number;
}

template <std::size_t place>
void write(message& record, const std::string& text) {
  putShortString(record, place, text);
}

template <std::size_t place, class Record>
requires isPlainRecord<Record>
void write(message& record, const Record& answer) { put(record, place, answer); }

template <std::size_t place>
void write(message& record, const descriptor& element) {
  constexpr Content content(operations::descriptorLayout, place);
  constexpr std::size_t tag = operations::field(content, "tag").position;
  constexpr std::size_t length = operations::field(content, "length").position;
  constexpr std::size_t presence = content.trailing[0].presence;
  put(record, tag, element.tag);
  wordAt(record, length) = element.length;
  wordAt(record, presence) = referenceWord(element.data);
}

template <std::size_t place>
void write(message& record, const program_event& event) {
  putBytes(record, place, &event, programEventReferences);
  std::size_t list = 0;
  forEachList(event, [&](const auto* elements) {
    wordAt(record, place + operations::eventReference(list++)) = referenceWord(elements);
  });
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

void sendTrailing(IpcServer::SendGuard& guard, descriptor& element) {
  if (element.data != nullptr) sendTrailing(guard, *element.data);
  freeLists(element);
}

/// The records of a list on their way to the client. They gather in a piece, which leaves in one
/// send when it is full or when raw bytes follow.
class Pieces {
 public:
  /// Begins with the list's header.
  Pieces(IpcServer::SendGuard& guard, message& record, std::size_t elements)
      : guard_(guard), record_(record) {
    next(LIST_HEADER, static_cast<std::int32_t>(elements));
  }

  /// The next record, with what the one before it holds in the words that the caller does not
  /// write. A negative type leaves the type as it is, too.
  message& next(message_group group, std::int32_t type);

  /// Sends what has gathered.
  void send() {
    if (count_ > 0) guard_.sendMessages(records_, std::exchange(count_, 0));
  }

  /// Sends the rest. What a later request leaves out is as if the list had been sent from the
  /// received record.
  void finish() {
    send();
    record_ = records_[last_];
  }

 private:
  IpcServer::SendGuard& guard_;
  message& record_;
  message records_[IpcServer::SendGuard::maxPiece];
  std::size_t count_ = 0;
  std::size_t filled_ = 0;
  std::size_t last_ = 0;
};

message& Pieces::next(message_group group, std::int32_t type) {
  if (count_ == std::size(records_)) send();
  message& record = records_[count_];
  // A list's elements all write the same words, so that a record of the piece before holds the
  // others already.
  if (count_ == filled_) {
    record = filled_ == 0 ? record_ : records_[filled_ - 1];
    ++filled_;
  }
  last_ = count_++;
  record.group = group;
  if (type >= 0) record.type = type;
  return record;
}

/// Sends a list: a header with the count, then a record for each element. The lists behind a
/// descriptor come with it, those of events behind the last one. The pieces are on the stack here,
/// and in no function that calls the host.
template <std::size_t place, class Element>
[[gnu::noinline]] void sendList(IpcServer& server, message& record, std::list<Element>&& list,
                                message_group group, std::int32_t type) {
  OwnedRecords<Element> elements(std::move(list));
  IpcServer::SendGuard guard(server);
  Pieces pieces(guard, record, elements->size());
  for (Element& element : *elements) {
    write<place>(pieces.next(group, type), element);
    if constexpr (std::is_same_v<Element, descriptor>) {
      if (element.data == nullptr || element.data->empty()) continue;
      pieces.send();
      sendTrailing(guard, element);
    }
  }
  pieces.finish();
  if constexpr (std::is_same_v<Element, program_event>) {
    for (program_event& event : *elements) sendTrailing(guard, event);
  }
}

}  // namespace

/// Binds the rows of operations.h to what they ask of the manager and its listeners.
struct IpcServerManager::Requests {
  using Handler = void (*)(Manager& manager, message& record);

  // The request's fields are the operation's arguments, in their order.

  /// Whether a field of this kind is read as an argument of this type.
  template <class Plain>
  static constexpr bool isReadAs(Kind kind) {
    if constexpr (std::is_same_v<Plain, bool>) return kind == Kind::boolean;
    if constexpr (std::is_same_v<Plain, double>) return kind == Kind::real64;
    if constexpr (std::is_same_v<Plain, std::string>) {
      return kind == Kind::shortText || kind == Kind::longText;
    }
    return kind == Kind::integer;
  }

  /// One argument. A reference is the record's own word, into which the listener answers.
  template <class Parameter, std::size_t position>
  static decltype(auto) argument(message& record) {
    using Plain = std::remove_cvref_t<Parameter>;
    if constexpr (std::is_same_v<Parameter, int&>) {
      return wordAt(record, position);
    } else if constexpr (std::is_same_v<Plain, bool>) {
      return getBoolean(record, position);
    } else if constexpr (std::is_same_v<Plain, std::string>) {
      return getString(record, position);
    } else {
      return get<Plain>(record, position);
    }
  }

  template <std::size_t row>
  static constexpr const Content& requestOf = operations::requests[row].request;

  template <std::size_t row, class Answer, class... Parameters>
  static Answer ask(Manager& manager, message& record, Answer (Manager::*query)(Parameters...)) {
    static_assert(sizeof...(Parameters) == requestOf<row>.fields.size(),
                  "the row has other fields than the operation has arguments");
    return [&]<std::size_t... index>(std::index_sequence<index...>) {
      static_assert(
          (isReadAs<std::remove_cvref_t<Parameters>>(requestOf<row>.fields[index].kind) && ...),
          "a field is of another kind than its argument");
      return std::invoke(query, manager,
                         argument<Parameters, requestOf<row>.fields[index].position>(record)...);
    }
    (std::index_sequence_for<Parameters...>());
  }

  template <std::size_t row, class Answer>
  static Answer ask(Manager& manager, message& record, Answer (*query)(Manager&, message&)) {
    return query(manager, record);
  }

  /// Asks, and answers in the row's form.
  template <std::size_t row, auto query>
  static void perform(Manager& manager, message& record) {
    constexpr Reply reply = operations::requests[row].reply;
    if constexpr (reply == Reply::list || reply == Reply::listFirst) {
      performList<row>(manager, record, ask<row>(manager, record, query));
    } else if constexpr (std::is_void_v<decltype(ask<row>(manager, record, query))>) {
      ask<row>(manager, record, query);
      if constexpr (reply == Reply::record) manager.server->sendMessage(record);
    } else {
      performOne<row>(manager, record, ask<row>(manager, record, query));
    }
  }

  template <std::size_t row, class Element>
  static void performList(Manager& manager, message& record, std::list<Element>&& elements) {
    constexpr const operations::Request& request = operations::requests[row];
    static_assert(fits<Element>(request.answer), "the row has another element");
    static_assert((request.reply == Reply::listFirst) == std::is_same_v<Element, program_event>,
                  "the lists behind events come last, and no others do");
    sendList<positionOf(request.answer)>(*manager.server, record, std::move(elements),
                                         request.group, request.elementType);
  }

  template <std::size_t row, class Answer>
  static void performOne(Manager& manager, message& record, const Answer& result) {
    constexpr const operations::Request& request = operations::requests[row];
    static_assert(request.reply == Reply::record, "the row does not send the answer");
    static_assert(fits<Answer>(request.answer), "the row has another answer");
    if constexpr (std::is_integral_v<Answer>) {
      if constexpr (lastField(request.answer).kind == Kind::boolean) {
        putBoolean(record, positionOf(request.answer), result != 0);
        manager.server->sendMessage(record);
        return;
      }
    }
    answer<positionOf(request.answer)>(manager, record, result);
  }

  template <std::size_t place, class Answer>
  static void answer(Manager& manager, message& record, const Answer& answer) {
    write<place>(record, answer);
    manager.server->sendMessage(record);
  }

  template <std::size_t place>
  static void answer(Manager& manager, message& record, const program_event& answer) {
    OwnedRecord<program_event> event(answer);
    write<place>(record, *event);
    IpcServer::SendGuard guard(*manager.server);
    guard.sendMessage(record);
    sendTrailing(guard, *event);
  }

  /// Calls every listener: one listener's exception keeps no other one from being told.
  template <class Operation, class... Arguments>
  static void callAll(Manager& manager, Operation operation, Arguments&&... arguments) {
    bool succeeded = true;
    {
      const Lock lock(managerMutex);
      for (Listener* const listener : manager.serverListeners) {
        succeeded = callHost([&] { (listener->*operation)(arguments...); }) && succeeded;
      }
    }
    if (!succeeded) throw ReportedException();
  }

  template <void (Listener::*operation)()>
  static void broadcast(Manager& manager, message&) {
    callAll(manager, operation);
  }
  template <auto operation, class Parameter, std::size_t position>
  static void broadcast(Manager& manager, message& record) {
    callAll(manager, operation, argument<Parameter, position>(record));
  }

  // Rows whose fields are not their operation's arguments.

  static int open(Manager& manager, message& record) {
    constexpr const operations::Request& row = operations::requests[operations::request("open")];
    constexpr std::size_t locator = operations::field(row.request, "locator").position;
    constexpr std::size_t player = operations::field(row.answer, "player").position;
    return manager.open(getString(record, locator), wordAt(record, player));
  }

  static std::list<int> getAllIDs(Manager& manager, message& record) {
    auto request = get<tuner_data>(record, operations::requestRecordPosition<tuner_data>);
    return manager.getAllIDs(request);
  }

  static void answerApplicationState(Manager&, message& record) {
    constexpr std::size_t row = operations::request("answerApplicationState");
    application_state::answer(getBoolean(record, requestOf<row>.fields[0].position));
  }

  // The operation of a row: a query of the manager's, a function above, or an operation of the
  // listeners, all of which are called.

  template <std::size_t row, auto query, class Query>
  static constexpr Handler handlerFor(Query) {
    return perform<row, query>;
  }
  template <std::size_t row, auto operation>
  static constexpr Handler handlerFor(void (Listener::*)()) {
    return broadcast<operation>;
  }
  template <std::size_t row, auto operation, class Parameter>
  static constexpr Handler handlerFor(void (Listener::*)(Parameter)) {
    using Plain = std::remove_cvref_t<Parameter>;
    if constexpr (std::is_class_v<Plain> && isPlainRecord<Plain>) {
      return broadcast<operation, Plain, operations::requestRecordPosition<Plain>>;
    } else {
      static_assert(isReadAs<Plain>(requestOf<row>.fields[0].kind));
      return broadcast<operation, Plain, requestOf<row>.fields[0].position>;
    }
  }

  /// What a row does.
  struct Binding {
    std::size_t row;
    Handler handler;
  };
  template <operations::Name name, auto operation>
  static constexpr Binding on{operations::request(name),
                              handlerFor<operations::request(name), operation>(operation)};

  static const Binding bindings[];

  static constexpr std::size_t groups = VERSION + 1;
  /// One more than the highest type of a row.
  static constexpr std::size_t types = [] {
    std::int32_t highest = 0;
    for (const operations::Request& row : operations::requests) {
      if (!isAnyOther(row.types)) highest = std::max(highest, row.types.last);
    }
    return static_cast<std::size_t>(highest) + 1;
  }();
  /// By group and type the number of the binding, counted from 1; the last column answers any other
  /// type. Numbers instead of handlers: a quarter of the bytes, and none for the dynamic linker.
  using Index = std::array<std::array<std::uint8_t, types + 1>, groups>;
  static consteval Index makeIndex();
  static consteval std::uint8_t bindingOf(std::string_view name);
  static Handler find(std::uint32_t group, std::uint32_t type);
};

// Row by row what the requests ask.
constexpr IpcServerManager::Requests::Binding IpcServerManager::Requests::bindings[] = {
    on<"setVideoBounds", &Listener::setVideoProperty>,
    on<"getMainVideoBounds", &Manager::getMainVideoBounds>,
    on<"videoPropertyAction", &Listener::setVideoProperty>,
    on<"getVideoLanguage", &Manager::getVideoLanguage>,
    on<"getVideoLanguages", &Manager::getVideoLanguages>,
    on<"selectVideoLanguage", &Listener::setVideoProperty>,
    on<"setVideoFreeze", &Listener::setVideoProperty>,
    on<"setVideoOption", &Listener::setVideoProperty>,
    on<"getVideoProperty", &Manager::getVideoRate>,
    on<"setVideoProperty", &Listener::setVideoProperty>,
    on<"updateGraphicsRegion", &Listener::updateGraphicsRegion>,

    on<"answerApplicationState", answerApplicationState>,

    on<"getSystemProperty", &Manager::getSystemProperty>,
    on<"getSystemProperties", &Manager::getSystemProperties>,
    on<"setSystemProperty", &Listener::setSystemProperty>,
    on<"removeSystemProperty", &Listener::removeSystemProperty>,

    on<"setVideoSoundLevel", &Listener::setVideoAudio>,
    on<"setVideoBalanceLevel", &Listener::setVideoAudio>,
    on<"setVideoBassLevel", &Listener::setVideoAudio>,
    on<"setVideoTrebleLevel", &Listener::setVideoAudio>,
    on<"setVideoMute", &Listener::setVideoAudio>,
    on<"setVideoAudio", &Listener::setVideoAudio>,

    on<"getCurrentTransportStreamID", &Manager::getCurrentTransportStreamID>,
    on<"getAllIDs", getAllIDs>,

    on<"mountCarousel", &Manager::mountCarousel>,
    on<"umountCarousel", &Manager::umountCarousel>,
    on<"addCarouselListener", &Listener::addCarouselListener>,
    on<"removeCarouselListener", &Listener::removeCarouselListener>,

    on<"getSICodingFormat", &Manager::getSICodingFormat>,
    on<"getProgramEvents", &Manager::getProgramEvents>,
    on<"getProgramEvent", &Manager::getProgramEvent>,
    on<"getProgramEventDescriptors", &Manager::getProgramEventDescriptors>,
    on<"getCASystemIds", &Manager::getCASystemIds>,
    on<"isProtectedService", &Manager::isProtectedService>,
    on<"getServices", &Manager::getServices>,
    on<"getCurrentService", &Manager::getCurrentService>,
    on<"getServiceDescription", &Manager::getServiceDescription>,
    on<"getServiceComponents", &Manager::getServiceComponents>,
    on<"getServiceComponentDescriptors", &Manager::getServiceComponentDescriptors>,
    on<"getTransportStream", &Manager::getTransportStream>,
    on<"getTransportStreamDescriptors", &Manager::getTransportStreamDescriptors>,
    on<"getNetwork", &Manager::getNetwork>,
    on<"getNetworkDescriptors", &Manager::getNetworkDescriptors>,
    on<"getPMTs", &Manager::getPMTs>,

    on<"open", open>,
    on<"getDuration", &Manager::getDuration>,
    on<"getCurrentTime", &Manager::getCurrentTime>,
    on<"setCurrentTime", &Manager::setCurrentTime>,
    on<"addMediaListener", &Manager::addMediaListener>,
    on<"play", &Manager::play>,
    on<"close", &Manager::close>,
    on<"stop", &Manager::stop>,
    on<"setMediaBounds", &Manager::setMediaBounds>,
    on<"getMediaBounds", &Manager::getMediaBounds>,
    on<"setMediaFreeze", &Manager::setMediaFreeze>,
    on<"setMediaBalanceLevel", &Manager::setMediaBalanceLevel>,
    on<"setMediaSoundLevel", &Manager::setMediaSoundLevel>,
    on<"setMediaMute", &Manager::setMediaMute>,
    on<"setMediaBassLevel", &Manager::setMediaBassLevel>,
    on<"setMediaTrebleLevel", &Manager::setMediaTrebleLevel>,

    on<"checkVersionFlag", &Manager::checkVersionFlag>,
};

consteval std::uint8_t IpcServerManager::Requests::bindingOf(std::string_view name) {
  static_assert(std::size(bindings) < UINT8_MAX);
  std::uint8_t number = 0;
  for (const Binding& binding : bindings) {
    ++number;
    if (operations::requests[binding.row].name == name) return number;
  }
  throw "a row of operations.h has no binding";
}

consteval IpcServerManager::Requests::Index IpcServerManager::Requests::makeIndex() {
  Index index{};
  for (const operations::Request& row : operations::requests) {
    auto& columns = index[static_cast<std::size_t>(row.group)];
    const std::uint8_t number = bindingOf(row.name);
    if (isAnyOther(row.types)) {
      columns[types] = number;
    } else {
      for (std::int32_t type = row.types.first; type <= row.types.last; ++type) {
        columns[static_cast<std::size_t>(type)] = number;
      }
    }
  }
  return index;
}

IpcServerManager::Requests::Handler IpcServerManager::Requests::find(std::uint32_t group,
                                                                     std::uint32_t type) {
  static constexpr Index index = makeIndex();
  static constexpr auto handlers = [] {
    std::array<Handler, std::size(bindings)> all{};
    std::ranges::transform(bindings, all.begin(), &Binding::handler);
    return all;
  }();
  const auto& columns = index[group];
  const std::uint8_t number = type < types && columns[type] != 0 ? columns[type] : columns[types];
  return number == 0 ? nullptr : handlers[number - 1U];
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
