#include "client/ControlChannel.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "protocol/records.h"

namespace quillwork::client {
namespace {

// Bounds on what a reply can make the client allocate.
constexpr std::size_t maxText = 16U << 20U;
constexpr std::size_t maxElements = 1U << 20U;

message makeRequest(message_group group, std::int32_t type,
                    std::initializer_list<std::int32_t> arguments = {}) {
  message request{};
  request.group = group;
  request.type = type;
  std::size_t word = 3;
  for (const std::int32_t argument : arguments) request[word++] = argument;
  return request;
}

message withText(message request, std::size_t position, const std::string& text) {
  if (text.size() > maxShortString) {
    throw Error("'" + text.substr(0, 20) + "...' is longer than the protocol's 254 characters");
  }
  putShortString(request, position, text);
  return request;
}

message withBoolean(message request, std::size_t position, bool value) {
  putBoolean(request, position, value);
  return request;
}

message withDouble(message request, double value) {
  put(request, secondWord, value);
  return request;
}

std::string shortString(const message& record, std::size_t position) {
  const std::string text = getString(record, position);
  return text.substr(0, maxShortString);
}

template <std::size_t Size>
std::array<std::int32_t, Size> words(const message& record, std::size_t first) {
  std::array<std::int32_t, Size> values{};
  for (std::size_t index = 0; index < Size; ++index) values[index] = record[first + index];
  return values;
}

Rectangle rectangle(const message& record, std::size_t first) {
  return {record[first], record[first + 1], record[first + 2], record[first + 3]};
}

Service readService(const message& record) {
  const auto wire = get<service>(record, firstWord);
  return {{wire.value_1, wire.value_2, wire.value_3, wire.value_4, wire.value_5},
          std::string(fieldText(wire.name))};
}

SystemProperty readProperty(const message& record) {
  const auto wire = get<system_property>(record, typeWord);
  return {std::string(fieldText(wire.name)), std::string(fieldText(wire.value))};
}

constexpr std::size_t eventTexts = firstWord + 32;
constexpr std::size_t eventCounts = firstWord + 800;
constexpr std::size_t eventReferences = firstWord + programEventReferences;

ProgramEvent readEvent(const message& record) {
  ProgramEvent event;
  event.values = words<8>(record, 3);
  for (std::size_t index = 0; index < event.texts.size(); ++index) {
    event.texts[index] = shortString(record, eventTexts + index * textFieldSize);
  }
  return event;
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

constexpr std::size_t commandFlag = 24;
constexpr std::size_t commandText = 25;
constexpr std::size_t commandPart = 1920;

std::string readCommandText(const message& record) {
  const std::string text = getString(record, commandText);
  return text.substr(0, commandPart);
}

/// A notification of one record; nothing for other records.
std::optional<Notification> readNotification(const message& record) {
  if (record.group == MEDIA && record.type == 16) return EndOfMedia{record[3]};
  if (record.group == VIDEO && record.type == 17) {
    return GraphicsSettingsChanged{rectangle(record, 3), rectangle(record, 7)};
  }
  if (record.group == CAROUSEL && record.type == 2) {
    return DownloadComplete{shortString(record, firstText), shortString(record, secondText)};
  }
  if (record.group == APPLICATION_STATE) return ApplicationStateRequest{record.type};
  return std::nullopt;
}

}  // namespace

void ControlChannel::tell(const message& request) { channel_.send(&request, sizeof request); }

message ControlChannel::receiveRecord() {
  message record{};
  channel_.receive(&record, sizeof record);
  return record;
}

Notification ControlChannel::receiveCommand(std::size_t parts, message part) {
  StreamEventCommand command{part.type, get<double>(part, secondWord),
                             get<std::uint8_t>(part, commandFlag), readCommandText(part)};
  for (std::size_t index = 1; index < parts; ++index) {
    part = receiveRecord();
    if (part.group != DSMCC_COMMAND) {
      throw Error(channel_.path() + ": the parts of a command are broken off by " + describe(part));
    }
    command.text += readCommandText(part);
    if (command.text.size() > maxText) throw Error(channel_.path() + ": a command is too long");
  }
  return command;
}

/// Takes the record as a notification, the further parts of a command included, which follow it. A
/// header of two or more can open a list or a command: the record behind it tells, and goes into
/// `element` when it belongs to a list.
std::optional<Notification> ControlChannel::takeNotification(const message& record,
                                                             std::optional<message>& element) {
  if (record.group == DSMCC_COMMAND) return receiveCommand(1, record);
  if (record.group != LIST_HEADER || record.type < 2) return readNotification(record);
  element = receiveRecord();
  if (element->group != DSMCC_COMMAND) return std::nullopt;
  return receiveCommand(static_cast<std::size_t>(record.type), *element);
}

ControlChannel::Reply ControlChannel::receiveReply() {
  for (;;) {
    Reply reply{receiveRecord(), std::nullopt};
    const auto notification = takeNotification(reply.record, reply.element);
    if (!notification) return reply;
    if (handler_) handler_(*notification);
  }
}

message ControlChannel::ask(const message& request) {
  tell(request);
  const message record = receiveReply().record;
  if (record.group == request.group && record.type == request.type) return record;
  throw Error(channel_.path() + ": " + describe(request) + " was answered with " +
              describe(record));
}

template <class Element, class Read>
std::vector<Element> ControlChannel::askList(const message& request, std::int32_t elementGroup,
                                             Read&& read) {
  tell(request);
  const Reply reply = receiveReply();
  if (reply.record.group != LIST_HEADER) {
    throw Error(channel_.path() + ": " + describe(request) + " was answered with " +
                describe(reply.record) + " instead of a list");
  }
  std::vector<Element> elements;
  const std::size_t count = boundedCount(channel_.path(), reply.record.type);
  channel_.expect((count - std::min<std::size_t>(count, reply.element ? 1 : 0)) * sizeof(message));
  for (std::size_t index = 0; index < count; ++index) {
    const message record = index == 0 && reply.element ? *reply.element : receiveRecord();
    if (record.group != elementGroup) {
      throw Error(channel_.path() + ": the list for " + describe(request) + " is broken off by " +
                  describe(record));
    }
    elements.push_back(read(record));
  }
  return elements;
}

std::vector<std::uint8_t> ControlChannel::receiveBytes(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  channel_.receive(bytes.data(), size);
  return bytes;
}

void ControlChannel::receiveTrailing(const message& record, ProgramEvent& event) {
  const auto count = [&](std::size_t list) -> std::size_t {
    const bool present = get<std::int32_t>(record, eventReferences + 4 * list) != 0;
    if (!present) return 0;
    return boundedCount(channel_.path(), get<std::int32_t>(record, eventCounts + 4 * list));
  };
  for (std::size_t list = 0; list < 3; ++list) event.byteLists[list] = receiveBytes(count(list));
  for (std::size_t list = 0; list < 3; ++list) {
    for (std::size_t left = count(3 + list); left > 0; --left) {
      std::uint32_t length = 0;
      channel_.receive(&length, sizeof length);
      if (length > maxText) {
        throw Error(channel_.path() + ": a text of " + std::to_string(length) + " bytes");
      }
      std::string& text = event.textLists[list].emplace_back(length, '\0');
      channel_.receive(text.data(), length);
    }
  }
}

// A descriptor's bytes come right behind its record.
std::vector<Descriptor> ControlChannel::askDescriptors(const message& request) {
  return askList<Descriptor>(request, SI, [this](const message& record) {
    Descriptor descriptor{get<std::int16_t>(record, firstWord), {}};
    if (record[5] != 0) {
      descriptor.data = receiveBytes(boundedCount(channel_.path(), record[4]));
    }
    return descriptor;
  });
}

std::optional<Notification> ControlChannel::waitForNotification(std::chrono::milliseconds time) {
  if (!channel_.waitForData(time)) return std::nullopt;
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
    if (parts > maxText / commandPart) throw Error(channel_.path() + ": a command is too long");
    if (channel_.arrived((parts + 1) * sizeof(message)).empty()) return std::nullopt;
  }
  // It is all there, so that nothing waits.
  return waitForNotification({});
}

void ControlChannel::answerApplicationState(bool answer) {
  tell(withBoolean(makeRequest(APPLICATION_STATE, 0), firstWord, answer));
}

void ControlChannel::setVideoBounds(const Rectangle& bounds) {
  tell(makeRequest(VIDEO, 0, {bounds.x, bounds.y, bounds.width, bounds.height}));
}

void ControlChannel::videoPropertyAction() { tell(makeRequest(VIDEO, 2)); }

void ControlChannel::selectVideoLanguage(const std::string& language) {
  tell(withText(makeRequest(VIDEO, 6), firstText, language));
}

void ControlChannel::setVideoFreeze(bool freeze) {
  tell(withBoolean(makeRequest(VIDEO, 7), firstWord, freeze));
}

void ControlChannel::setVideoOption(bool option) {
  tell(withBoolean(makeRequest(VIDEO, 8), firstWord, option));
}

Rectangle ControlChannel::getMainVideoBounds(const Rectangle& given) {
  return rectangle(ask(makeRequest(VIDEO, 1, {given.x, given.y, given.width, given.height})), 3);
}

std::string ControlChannel::getVideoLanguage(std::int32_t command) {
  if (command != 3 && command != 5) throw Error("a language has the command 3 or 5");
  return shortString(ask(makeRequest(VIDEO, command)), firstText);
}

std::vector<std::string> ControlChannel::getVideoLanguages() {
  return askList<std::string>(makeRequest(VIDEO, 4), VIDEO,
                              [](const message& record) { return shortString(record, firstText); });
}

std::int32_t ControlChannel::getVideoProperty(std::int32_t command) {
  if (command < 9 || command > 16) throw Error("a video property has a command from 9 to 16");
  return ask(makeRequest(VIDEO, command))[3];
}

void ControlChannel::updateGraphicsRegion(const Rectangle& region) {
  tell(makeRequest(VIDEO, 18, {region.x, region.y, region.width, region.height}));
}

void ControlChannel::setVideoAudio(std::int32_t selector, double level) {
  tell(withDouble(makeRequest(AUDIO, selector), level));
}

void ControlChannel::setVideoMute(bool mute) {
  tell(withBoolean(makeRequest(AUDIO, 4), secondWord, mute));
}

std::string ControlChannel::getSystemProperty(const std::string& name) {
  return shortString(ask(withText(makeRequest(SYSTEM_PROPERTY, 0), firstText, name)), secondText);
}

std::vector<SystemProperty> ControlChannel::getSystemProperties() {
  return askList<SystemProperty>(makeRequest(SYSTEM_PROPERTY, 1), SYSTEM_PROPERTY, readProperty);
}

void ControlChannel::setSystemProperty(const std::string& name, const std::string& value) {
  tell(withText(withText(makeRequest(SYSTEM_PROPERTY, 2), firstText, name), secondText, value));
}

void ControlChannel::removeSystemProperty(const std::string& name) {
  tell(withText(makeRequest(SYSTEM_PROPERTY, 3), firstText, name));
}

std::int32_t ControlChannel::getCurrentTransportStreamID() { return ask(makeRequest(TUNER, 0))[3]; }

std::vector<std::int32_t> ControlChannel::getAllIDs(std::int32_t kind, std::int32_t argument) {
  if (kind == 0) throw Error("identifier lists have a kind other than 0");
  return askList<std::int32_t>(makeRequest(TUNER, kind, {argument}), TUNER,
                               [](const message& record) { return record[3]; });
}

std::string ControlChannel::mountCarousel(const std::string& locator) {
  return shortString(ask(withText(makeRequest(CAROUSEL, 0), firstText, locator)), secondText);
}

void ControlChannel::umountCarousel(const std::string& locator) {
  tell(withText(makeRequest(CAROUSEL, 1), firstText, locator));
}

void ControlChannel::addCarouselListener() { tell(makeRequest(CAROUSEL, 3)); }

void ControlChannel::removeCarouselListener() { tell(makeRequest(CAROUSEL, 4)); }

std::string ControlChannel::getSICodingFormat() {
  return shortString(ask(makeRequest(SI, 0)), firstText);
}

// The lists of all events come behind the last event's record.
std::vector<ProgramEvent> ControlChannel::getProgramEvents() {
  std::vector<message> records;
  auto events = askList<ProgramEvent>(makeRequest(SI, 1), SI, [&](const message& record) {
    records.push_back(record);
    return readEvent(record);
  });
  for (std::size_t index = 0; index < events.size(); ++index) {
    receiveTrailing(records[index], events[index]);
  }
  return events;
}

ProgramEvent ControlChannel::getProgramEvent() {
  const message record = ask(makeRequest(SI, 2));
  ProgramEvent event = readEvent(record);
  receiveTrailing(record, event);
  return event;
}

std::vector<Descriptor> ControlChannel::getProgramEventDescriptors(std::int32_t first,
                                                                   std::int32_t second) {
  return askDescriptors(makeRequest(SI, 3, {0, 0, first, second}));
}

std::vector<std::int32_t> ControlChannel::getCASystemIds() {
  return askList<std::int32_t>(makeRequest(SI, 4), SI,
                               [](const message& record) { return record[3]; });
}

bool ControlChannel::isProtectedService() { return getBoolean(ask(makeRequest(SI, 5)), firstWord); }

std::vector<Service> ControlChannel::getServices() {
  return askList<Service>(makeRequest(SI, 6), SI, readService);
}

std::int32_t ControlChannel::getCurrentService() { return ask(makeRequest(SI, 7))[3]; }

std::string ControlChannel::getServiceDescription() {
  return shortString(ask(makeRequest(SI, 8)), firstText);
}

std::vector<ServiceComponent> ControlChannel::getServiceComponents(std::int32_t serviceId) {
  return askList<ServiceComponent>(makeRequest(SI, 10, {serviceId}), SI, [](const message& record) {
    return ServiceComponent{words<6>(record, 3)};
  });
}

std::vector<Descriptor> ControlChannel::getServiceComponentDescriptors(std::int32_t component) {
  return askDescriptors(makeRequest(SI, 11, {component}));
}

TransportStream ControlChannel::getTransportStream() {
  const auto wire = get<transport_stream>(ask(makeRequest(SI, 12)), firstWord);
  return {{wire.value_1, wire.value_2, wire.value_3}, wire.real_value, wire.mode};
}

std::vector<Descriptor> ControlChannel::getTransportStreamDescriptors(
    std::int32_t transportStream) {
  return askDescriptors(makeRequest(SI, 13, {transportStream}));
}

Network ControlChannel::getNetwork() {
  const auto wire = get<network>(ask(makeRequest(SI, 14)), firstWord);
  return {wire.network_value, std::string(fieldText(wire.name))};
}

std::vector<Descriptor> ControlChannel::getNetworkDescriptors() {
  return askDescriptors(makeRequest(SI, 15));
}

std::vector<ProgramMap> ControlChannel::getPMTs(std::int32_t program) {
  return askList<ProgramMap>(makeRequest(SI, 16, {program}), SI,
                             [](const message& record) { return ProgramMap{words<4>(record, 3)}; });
}

OpenedMedia ControlChannel::open(const std::string& locator) {
  const message reply = ask(withText(makeRequest(MEDIA, 0), locatorText, locator));
  return {getBoolean(reply, secondWord), reply[3]};
}

std::int32_t ControlChannel::getDuration(std::int32_t player) {
  return ask(makeRequest(MEDIA, 1, {player}))[4];
}

std::int32_t ControlChannel::getCurrentTime(std::int32_t player) {
  return ask(makeRequest(MEDIA, 2, {player}))[4];
}

std::int32_t ControlChannel::setCurrentTime(std::int32_t player, std::int32_t first,
                                            std::int32_t second) {
  return ask(makeRequest(MEDIA, 3, {player, first, second}))[4];
}

void ControlChannel::addMediaListener(std::int32_t player) {
  tell(makeRequest(MEDIA, 4, {player}));
}

bool ControlChannel::play(std::int32_t player) {
  return getBoolean(ask(makeRequest(MEDIA, 5, {player})), secondWord);
}

void ControlChannel::close(std::int32_t player) { tell(makeRequest(MEDIA, 6, {player})); }

void ControlChannel::stop(std::int32_t player) { tell(makeRequest(MEDIA, 7, {player})); }

std::int32_t ControlChannel::setMediaBounds(std::int32_t player, const Rectangle& bounds) {
  return ask(makeRequest(MEDIA, 8, {player, bounds.x, bounds.y, bounds.width, bounds.height}))[4];
}

Rectangle ControlChannel::getMediaBounds(std::int32_t player, const Rectangle& given) {
  return rectangle(
      ask(makeRequest(MEDIA, 9, {player, given.x, given.y, given.width, given.height})), 4);
}

void ControlChannel::setMediaFreeze(std::int32_t player, bool freeze) {
  tell(withBoolean(makeRequest(MEDIA, 10, {player}), secondWord, freeze));
}

void ControlChannel::setMediaBalanceLevel(std::int32_t player, double level) {
  tell(withDouble(makeRequest(MEDIA, 11, {player}), level));
}

void ControlChannel::setMediaSoundLevel(std::int32_t player, double level) {
  tell(withDouble(makeRequest(MEDIA, 12, {player}), level));
}

void ControlChannel::setMediaMute(std::int32_t player, bool mute) {
  tell(withBoolean(makeRequest(MEDIA, 13, {player}), secondWord, mute));
}

void ControlChannel::setMediaBassLevel(std::int32_t player, double level) {
  tell(withDouble(makeRequest(MEDIA, 14, {player}), level));
}

void ControlChannel::setMediaTrebleLevel(std::int32_t player, double level) {
  tell(withDouble(makeRequest(MEDIA, 15, {player}), level));
}

bool ControlChannel::checkVersionFlag(std::int32_t flag) {
  return getBoolean(ask(makeRequest(VERSION, flag)), firstWord);
}

}  // namespace quillwork::client
