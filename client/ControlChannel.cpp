#include "client/ControlChannel.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>

#include "client/Fields.h"
#include "protocol/operations.h"

namespace quillwork::client {
namespace {

using operations::Field;
using operations::Request;

// Bounds on what a reply can make the client allocate.
constexpr std::size_t maxText = 16U << 20U;
constexpr std::size_t maxElements = 1U << 20U;

/// From a question to its answer: much longer than a receiver takes from its send to its wait.
constexpr std::chrono::milliseconds answerDelay{20};

template <operations::Name name>
constexpr const operations::Notification& notificationOf =
    operations::notifications[operations::notification(name)];
template <operations::Name notification, operations::Name name>
constexpr Field notified = operations::field(notificationOf<notification>.content, name);

/// The numbers at the front of a content.
template <std::size_t Size>
std::array<std::int32_t, Size> integers(const message& record, const operations::Content& content) {
  std::array<std::int32_t, Size> values{};
  for (std::size_t index = 0; index < Size; ++index) {
    values[index] = readInteger(record, content.fields[index]);
  }
  return values;
}

Rectangle rectangle(const message& record, const operations::Content& content) {
  const auto [x, y, width, height] = integers<4>(record, content);
  return {x, y, width, height};
}

Service readService(const message& record) {
  return {integers<5>(record, rowOf<"getServices">.answer),
          readText(record, answered<"getServices", "name">)};
}

SystemProperty readProperty(const message& record) {
  return {readText(record, answered<"getSystemProperties", "name">),
          readText(record, answered<"getSystemProperties", "value">)};
}

ProgramEvent readEvent(const message& record) {
  const operations::Content& content = rowOf<"getProgramEvent">.answer;
  ProgramEvent event;
  event.values = integers<std::tuple_size_v<decltype(event.values)>>(record, content);
  for (std::size_t index = 0; index < event.texts.size(); ++index) {
    event.texts[index] = readText(record, content.fields[event.values.size() + index]);
  }
  return event;
}

// The bytes of an element's texts.
std::size_t textsOf(const std::string& text) { return text.size(); }
std::size_t textsOf(const Service& service) { return service.name.size(); }
std::size_t textsOf(const SystemProperty& property) {
  return property.name.size() + property.value.size();
}
std::size_t textsOf(const ProgramEvent& event) {
  std::size_t sum = 0;
  for (const std::string& text : event.texts) sum += text.size();
  return sum;
}
template <class Element>
std::size_t textsOf(const Element&) {
  return 0;
}

std::size_t boundedCount(const std::string& path, std::int32_t count) {
  if (count < 0 || static_cast<std::size_t>(count) > maxElements) {
    throw Error(path + ": a list of " + std::to_string(count) + " elements");
  }
  return static_cast<std::size_t>(count);
}

std::string describe(const message& record) {
  return "group " + std::to_string(record.group) + ", type " + std::to_string(record.type);
}

bool isCommandPart(const message& record) {
  return record.group == notificationOf<"sendDsmCCCommand">.group;
}

/// Throws Error for a type whose requests do not reach the operation.
void requireTypeOf(const Request& row, std::int32_t type) {
  const Request* const reached = rowFor(operations::requests, row.group, type);
  if (reached != nullptr && std::string_view(reached->name) == row.name) return;
  throw Error(std::string(row.name) + " cannot be asked for " + std::to_string(type));
}

/// Whether a command of so many records has more text than the client takes: empty parts count,
/// too, or a server could send them for ever.
bool tooManyParts(std::int32_t parts) {
  return static_cast<std::size_t>(parts) > maxText / operations::maxTextPart;
}

/// A notification of one record; nothing for other records.
std::optional<Notification> readNotification(const message& record) {
  const operations::Notification* const row =
      rowFor(operations::notifications, record.group, record.type);
  if (row == &notificationOf<"endOfMedia">) {
    return EndOfMedia{readInteger(record, notified<"endOfMedia", "player">)};
  }
  if (row == &notificationOf<"changeGraphicsSettings">) {
    const auto values = integers<8>(record, row->content);
    return GraphicsSettingsChanged{{values[0], values[1], values[2], values[3]},
                                   {values[4], values[5], values[6], values[7]}};
  }
  if (row == &notificationOf<"downloadComplete">) {
    return DownloadComplete{readText(record, notified<"downloadComplete", "first">),
                            readText(record, notified<"downloadComplete", "second">)};
  }
  if (row == &notificationOf<"setApplicationState">) {
    return ApplicationState{readInteger(record, notified<"setApplicationState", "state">)};
  }
  return std::nullopt;
}

}  // namespace

void ControlChannel::tell(const Request& row, Values values) { send(makeRequest(row, values)); }

void ControlChannel::send(const message& request) {
  kept_ = 0;
  channel_.begin();
  channel_.send(&request, sizeof request);
}

/// The next record, which is there until more is received.
const message& ControlChannel::receiveRecord() {
  return *static_cast<const message*>(channel_.next(sizeof(message)));
}

/// Counts what a reply makes the client keep: no reply may fill the memory.
void ControlChannel::keep(std::size_t bytes) {
  kept_ += bytes;
  if (kept_ > replyLimit_) throw Error(channel_.path() + ": a reply is too long");
}

Notification ControlChannel::receiveDsmCCCommand(std::size_t parts, message part) {
  constexpr Field text = notified<"sendDsmCCCommand", "text">;
  DsmCCCommand command{
      readInteger(part, notified<"sendDsmCCCommand", "commandCode">),
      readReal(part, notified<"sendDsmCCCommand", "eventTime">),
      static_cast<std::uint8_t>(readInteger(part, notified<"sendDsmCCCommand", "flag">)),
      readText(part, text)};
  for (std::size_t index = 1; index < parts; ++index) {
    part = receiveRecord();
    if (!isCommandPart(part)) {
      throw Error(channel_.path() + ": the parts of a command are broken off by " + describe(part));
    }
    command.text += readText(part, text);
    if (command.text.size() > maxText) throw Error(channel_.path() + ": a command is too long");
  }
  return command;
}

/// Takes the record as a notification, the further parts of a command included, which follow it. A
/// header of two or more can open a list or a command: the record behind it tells, and goes into
/// `element` when it belongs to a list.
std::optional<Notification> ControlChannel::takeNotification(const message& record,
                                                             std::optional<message>& element) {
  if (isCommandPart(record)) return receiveDsmCCCommand(1, record);
  if (record.group != LIST_HEADER || record.type < 2) {
    auto notification = readNotification(record);
    if (notification && std::holds_alternative<ApplicationState>(*notification)) {
      asked_ = std::chrono::steady_clock::now();
    }
    return notification;
  }
  element = receiveRecord();
  if (!isCommandPart(*element)) return std::nullopt;
  if (tooManyParts(record.type)) throw Error(channel_.path() + ": a command is too long");
  return receiveDsmCCCommand(static_cast<std::size_t>(record.type), *element);
}

ControlChannel::Reply ControlChannel::receiveReply() {
  for (;;) {
    Reply reply{receiveRecord(), std::nullopt};
    const auto notification = takeNotification(reply.record, reply.element);
    if (!notification) return reply;
    handle(*notification);
  }
}

void ControlChannel::handle(const Notification& notification) {
  if (!handler_) return;
  struct Scope {
    bool& isHandling;
    ~Scope() { isHandling = false; }
  } const scope{isHandling_};
  isHandling_ = true;
  handler_(notification);
}

message ControlChannel::ask(const Request& row, Values values) {
  const message request = makeRequest(row, values);
  send(request);
  const message record = receiveReply().record;
  if (record.group == request.group && record.type == request.type) return record;
  throw Error(channel_.path() + ": " + row.name + " was answered with " + describe(record));
}

std::int32_t ControlChannel::askInteger(const Request& row, Values values) {
  return readInteger(ask(row, values), row.answer.fields[0]);
}

bool ControlChannel::askBoolean(const Request& row, Values values) {
  return readBoolean(ask(row, values), row.answer.fields[0]);
}

std::string ControlChannel::askText(const Request& row, Values values) {
  return readText(ask(row, values), row.answer.fields[0]);
}

template <class Element, class Read>
std::vector<Element> ControlChannel::askList(const Request& row, Values values, Read&& read) {
  tell(row, values);
  const Reply reply = receiveReply();
  if (reply.record.group != LIST_HEADER) {
    throw Error(channel_.path() + ": " + row.name + " was answered with " + describe(reply.record) +
                " instead of a list");
  }
  std::vector<Element> elements;
  const std::size_t count = boundedCount(channel_.path(), reply.record.type);
  channel_.expect((count - std::min<std::size_t>(count, reply.element ? 1 : 0)) * sizeof(message));
  // No more than a piece of the list for a header that promises too much.
  elements.reserve(std::min<std::size_t>(count, 1024));
  for (std::size_t index = 0; index < count; ++index) {
    const message& record = index == 0 && reply.element ? *reply.element : receiveRecord();
    if (record.group != row.group) {
      throw Error(channel_.path() + ": the list of " + row.name + " is broken off by " +
                  describe(record));
    }
    elements.push_back(read(record));
    // Twice its size, since the list grows by doubling.
    keep(2 * sizeof(Element) + textsOf(elements.back()));
  }
  return elements;
}

std::vector<std::int32_t> ControlChannel::askIntegers(const Request& row, Values values) {
  return askList<std::int32_t>(row, values, [&row](const message& record) {
    return readInteger(record, row.answer.fields[0]);
  });
}

std::vector<std::uint8_t> ControlChannel::receiveBytes(std::size_t size) {
  keep(size);
  std::vector<std::uint8_t> bytes(size);
  channel_.receive(bytes.data(), size);
  return bytes;
}

std::size_t ControlChannel::trailingCount(const message& record,
                                          const operations::Trailing& list) const {
  if (get<std::int32_t>(record, list.presence) == 0) return 0;
  return boundedCount(channel_.path(), get<std::int32_t>(record, list.count));
}

std::string ControlChannel::receiveText() {
  std::uint32_t length = 0;
  channel_.receive(&length, sizeof length);
  if (length > maxText) {
    throw Error(channel_.path() + ": a text of " + std::to_string(length) + " bytes");
  }
  keep(sizeof(std::string) + length);
  std::string text(length, '\0');
  channel_.receive(text.data(), length);
  return text;
}

void ControlChannel::receiveTrailing(const message& record, ProgramEvent& event) {
  auto byteList = event.byteLists.begin();
  auto textList = event.textLists.begin();
  for (const operations::Trailing& list : rowOf<"getProgramEvent">.answer.trailing) {
    std::size_t left = trailingCount(record, list);
    if (list.kind == operations::Trailing::Kind::bytes) {
      *byteList++ = receiveBytes(left);
    } else {
      for (; left > 0; --left) textList->push_back(receiveText());
      ++textList;
    }
  }
}

// A descriptor's bytes come right behind its record.
std::vector<Descriptor> ControlChannel::askDescriptors(const Request& row, Values values) {
  return askList<Descriptor>(row, values, [&](const message& record) {
    const auto tag = static_cast<std::int16_t>(readInteger(record, row.answer.fields[0]));
    return Descriptor{tag, receiveBytes(trailingCount(record, row.answer.trailing[0]))};
  });
}

std::optional<Notification> ControlChannel::waitForNotification(std::chrono::milliseconds time) {
  channel_.begin(time);
  if (!channel_.waitFor(sizeof(message))) return std::nullopt;
  // The rest of what has begun to come has the time of any operation.
  channel_.begin();
  const message record = receiveRecord();
  std::optional<message> element;
  if (auto notification = takeNotification(record, element)) return notification;
  throw Error(channel_.path() + ": " + describe(record) + " came without a request");
}

std::optional<Notification> ControlChannel::takeNotification() {
  const auto first = channel_.arrived(sizeof(message));
  if (first.empty()) return std::nullopt;
  message record{};
  std::memcpy(&record, first.data(), sizeof record);
  if (record.group == LIST_HEADER) {
    const std::size_t parts = boundedCount(channel_.path(), record.type);
    if (tooManyParts(record.type)) throw Error(channel_.path() + ": a command is too long");
    if (channel_.arrived((parts + 1) * sizeof(message)).empty()) return std::nullopt;
  }
  // It is all there, so that nothing waits.
  return waitForNotification({});
}

void ControlChannel::answerApplicationState(bool answer) {
  std::this_thread::sleep_until(asked_ + answerDelay);
  const message record = makeRequest(rowOf<"answerApplicationState">, {answer});
  // In the handler the time is that of the operation that called it.
  if (!isHandling_) channel_.begin();
  channel_.send(&record, sizeof record);
}

void ControlChannel::setVideoBounds(const Rectangle& bounds) {
  tell(rowOf<"setVideoBounds">, {bounds.x, bounds.y, bounds.width, bounds.height});
}

void ControlChannel::videoPropertyAction() { tell(rowOf<"videoPropertyAction">); }

void ControlChannel::selectVideoLanguage(const std::string& language) {
  tell(rowOf<"selectVideoLanguage">, {language});
}

void ControlChannel::setVideoFreeze(bool freeze) { tell(rowOf<"setVideoFreeze">, {freeze}); }

void ControlChannel::setVideoOption(bool option) { tell(rowOf<"setVideoOption">, {option}); }

Rectangle ControlChannel::getMainVideoBounds(const Rectangle& given) {
  constexpr const Request& row = rowOf<"getMainVideoBounds">;
  return rectangle(ask(row, {given.x, given.y, given.width, given.height}), row.answer);
}

std::string ControlChannel::getVideoLanguage(std::int32_t command) {
  requireTypeOf(rowOf<"getVideoLanguage">, command);
  return askText(rowOf<"getVideoLanguage">, {command});
}

std::vector<std::string> ControlChannel::getVideoLanguages() {
  return askList<std::string>(rowOf<"getVideoLanguages">, {}, [](const message& record) {
    return readText(record, answered<"getVideoLanguages", "language">);
  });
}

std::int32_t ControlChannel::getVideoProperty(std::int32_t command) {
  requireTypeOf(rowOf<"getVideoProperty">, command);
  return askInteger(rowOf<"getVideoProperty">, {command});
}

void ControlChannel::updateGraphicsRegion(const Rectangle& region) {
  tell(rowOf<"updateGraphicsRegion">, {region.x, region.y, region.width, region.height});
}

void ControlChannel::setVideoAudio(std::int32_t selector, double level) {
  tell(rowOf<"setVideoAudio">, {selector, level});
}

void ControlChannel::setVideoMute(bool mute) { tell(rowOf<"setVideoMute">, {mute}); }

std::string ControlChannel::getSystemProperty(const std::string& name) {
  return askText(rowOf<"getSystemProperty">, {name});
}

std::vector<SystemProperty> ControlChannel::getSystemProperties() {
  return askList<SystemProperty>(rowOf<"getSystemProperties">, {}, readProperty);
}

void ControlChannel::setSystemProperty(const std::string& name, const std::string& value) {
  tell(rowOf<"setSystemProperty">, {name, value});
}

void ControlChannel::removeSystemProperty(const std::string& name) {
  tell(rowOf<"removeSystemProperty">, {name});
}

std::int32_t ControlChannel::getCurrentTransportStreamID() {
  return askInteger(rowOf<"getCurrentTransportStreamID">);
}

std::vector<std::int32_t> ControlChannel::getAllIDs(std::int32_t kind, std::int32_t argument) {
  requireTypeOf(rowOf<"getAllIDs">, kind);
  return askIntegers(rowOf<"getAllIDs">, {kind, argument});
}

std::string ControlChannel::mountCarousel(const std::string& locator) {
  return askText(rowOf<"mountCarousel">, {locator});
}

void ControlChannel::umountCarousel(const std::string& locator) {
  tell(rowOf<"umountCarousel">, {locator});
}

void ControlChannel::addCarouselListener() { tell(rowOf<"addCarouselListener">); }

void ControlChannel::removeCarouselListener() { tell(rowOf<"removeCarouselListener">); }

std::string ControlChannel::getSICodingFormat() { return askText(rowOf<"getSICodingFormat">); }

// The lists of all events come behind the last event's record.
std::vector<ProgramEvent> ControlChannel::getProgramEvents() {
  std::vector<message> records;
  auto events = askList<ProgramEvent>(rowOf<"getProgramEvents">, {}, [&](const message& record) {
    keep(sizeof record);
    records.push_back(record);
    return readEvent(record);
  });
  for (std::size_t index = 0; index < events.size(); ++index) {
    receiveTrailing(records[index], events[index]);
  }
  return events;
}

ProgramEvent ControlChannel::getProgramEvent() {
  const message record = ask(rowOf<"getProgramEvent">);
  ProgramEvent event = readEvent(record);
  receiveTrailing(record, event);
  return event;
}

std::vector<Descriptor> ControlChannel::getProgramEventDescriptors(std::int32_t first,
                                                                   std::int32_t second) {
  return askDescriptors(rowOf<"getProgramEventDescriptors">, {first, second});
}

std::vector<std::int32_t> ControlChannel::getCASystemIds() {
  return askIntegers(rowOf<"getCASystemIds">);
}

bool ControlChannel::isProtectedService() { return askBoolean(rowOf<"isProtectedService">); }

std::vector<Service> ControlChannel::getServices() {
  return askList<Service>(rowOf<"getServices">, {}, readService);
}

std::int32_t ControlChannel::getCurrentService() { return askInteger(rowOf<"getCurrentService">); }

std::string ControlChannel::getServiceDescription() {
  return askText(rowOf<"getServiceDescription">);
}

std::vector<ServiceComponent> ControlChannel::getServiceComponents(std::int32_t service) {
  return askList<ServiceComponent>(
      rowOf<"getServiceComponents">, {service}, [](const message& record) {
        return ServiceComponent{integers<6>(record, rowOf<"getServiceComponents">.answer)};
      });
}

std::vector<Descriptor> ControlChannel::getServiceComponentDescriptors(std::int32_t component) {
  return askDescriptors(rowOf<"getServiceComponentDescriptors">, {component});
}

TransportStream ControlChannel::getTransportStream() {
  constexpr const Request& row = rowOf<"getTransportStream">;
  const message record = ask(row);
  return {integers<3>(record, row.answer),
          static_cast<float>(readReal(record, answered<"getTransportStream", "real_value">)),
          readInteger(record, answered<"getTransportStream", "mode">)};
}

std::vector<Descriptor> ControlChannel::getTransportStreamDescriptors(
    std::int32_t transportStream) {
  return askDescriptors(rowOf<"getTransportStreamDescriptors">, {transportStream});
}

Network ControlChannel::getNetwork() {
  const message record = ask(rowOf<"getNetwork">);
  return {readInteger(record, answered<"getNetwork", "network_value">),
          readText(record, answered<"getNetwork", "name">)};
}

std::vector<Descriptor> ControlChannel::getNetworkDescriptors() {
  return askDescriptors(rowOf<"getNetworkDescriptors">);
}

std::vector<ProgramMap> ControlChannel::getPMTs(std::int32_t program) {
  return askList<ProgramMap>(rowOf<"getPMTs">, {program}, [](const message& record) {
    return ProgramMap{integers<4>(record, rowOf<"getPMTs">.answer)};
  });
}

OpenedMedia ControlChannel::open(const std::string& locator) {
  const message reply = ask(rowOf<"open">, {locator});
  return {readBoolean(reply, answered<"open", "opened">),
          readInteger(reply, answered<"open", "player">)};
}

std::int32_t ControlChannel::getDuration(std::int32_t player) {
  return askInteger(rowOf<"getDuration">, {player});
}

std::int32_t ControlChannel::getCurrentTime(std::int32_t player) {
  return askInteger(rowOf<"getCurrentTime">, {player});
}

std::int32_t ControlChannel::setCurrentTime(std::int32_t player, std::int32_t first,
                                            std::int32_t second) {
  return askInteger(rowOf<"setCurrentTime">, {player, first, second});
}

void ControlChannel::addMediaListener(std::int32_t player) {
  tell(rowOf<"addMediaListener">, {player});
}

bool ControlChannel::play(std::int32_t player) { return askBoolean(rowOf<"play">, {player}); }

void ControlChannel::close(std::int32_t player) { tell(rowOf<"close">, {player}); }

void ControlChannel::stop(std::int32_t player) { tell(rowOf<"stop">, {player}); }

std::int32_t ControlChannel::setMediaBounds(std::int32_t player, const Rectangle& bounds) {
  return askInteger(rowOf<"setMediaBounds">,
                    {player, bounds.x, bounds.y, bounds.width, bounds.height});
}

Rectangle ControlChannel::getMediaBounds(std::int32_t player, const Rectangle& given) {
  constexpr const Request& row = rowOf<"getMediaBounds">;
  return rectangle(ask(row, {player, given.x, given.y, given.width, given.height}), row.answer);
}

void ControlChannel::setMediaFreeze(std::int32_t player, bool freeze) {
  tell(rowOf<"setMediaFreeze">, {player, freeze});
}

void ControlChannel::setMediaBalanceLevel(std::int32_t player, double level) {
  tell(rowOf<"setMediaBalanceLevel">, {player, level});
}

void ControlChannel::setMediaSoundLevel(std::int32_t player, double level) {
  tell(rowOf<"setMediaSoundLevel">, {player, level});
}

void ControlChannel::setMediaMute(std::int32_t player, bool mute) {
  tell(rowOf<"setMediaMute">, {player, mute});
}

void ControlChannel::setMediaBassLevel(std::int32_t player, double level) {
  tell(rowOf<"setMediaBassLevel">, {player, level});
}

void ControlChannel::setMediaTrebleLevel(std::int32_t player, double level) {
  tell(rowOf<"setMediaTrebleLevel">, {player, level});
}

bool ControlChannel::checkVersionFlag(std::int32_t flag) {
  return askBoolean(rowOf<"checkVersionFlag">, {flag});
}

}  // namespace quillwork::client
