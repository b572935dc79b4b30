#include "cli/ControlDecoder.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

namespace quillwork::cli {

/// A row of the protocol. Json are words "w", truth values "b", real numbers "d", short strings
/// "s" and strings to the record's end "l", each with its word or byte and its name.
struct ControlDecoder::Operation {
  enum class Reply { none, record, list, descriptors, event, events };

  [[nodiscard]] bool hasList() const {
    return reply == Reply::list || reply == Reply::descriptors || reply == Reply::events;
  }

  std::int32_t group;
  std::int32_t type;
  const char* name;
  const char* request = "";
  Reply reply = Reply::none;
  const char* answer = "";
};

namespace {

using Operation = ControlDecoder::Operation;
using Reply = Operation::Reply;

constexpr std::int32_t anyType = -1;

constexpr const char* rectangleAt3 = "w3:x w4:y w5:width w6:height";
constexpr const char* rectangleAt4 = "w4:x w5:y w6:width w7:height";
constexpr const char* serviceFields =
    "w3:value_1 w4:value_2 w5:value_3 w6:value_4 w7:value_5 s36:name";
constexpr const char* eventFields =
    "w3:value_1 w4:value_2 w5:value_3 w6:value_4 w7:value_5 w8:value_6 w9:value_7 w10:value_8 "
    "s44:text_1 s299:text_2 s554:text_3";

constexpr Operation operations[] = {
    {VIDEO, 0, "setVideoBounds", rectangleAt3},
    {VIDEO, 1, "getMainVideoBounds", rectangleAt3, Reply::record, rectangleAt3},
    {VIDEO, 2, "videoPropertyAction"},
    {VIDEO, 3, "getVideoLanguage", "", Reply::record, "s12:language"},
    {VIDEO, 4, "getVideoLanguages", "", Reply::list, "s12:language"},
    {VIDEO, 5, "getVideoLanguage", "", Reply::record, "s12:language"},
    {VIDEO, 6, "selectVideoLanguage", "l12:language"},
    {VIDEO, 7, "setVideoFreeze", "b12:freeze"},
    {VIDEO, 8, "setVideoOption", "b12:option"},
    {VIDEO, 9, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 10, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 11, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 12, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 13, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 14, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 15, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 16, "getVideoProperty", "", Reply::record, "w3:value"},
    {VIDEO, 17, "setVideoProperty"},
    {VIDEO, 18, "updateGraphicsRegion", rectangleAt3},
    {APPLICATION_STATE, anyType, "answerApplicationState", "b12:answer"},
    {SYSTEM_PROPERTY, 0, "getSystemProperty", "s12:name", Reply::record, "s267:value"},
    {SYSTEM_PROPERTY, 1, "getSystemProperties", "", Reply::list, "s12:name s267:value"},
    {SYSTEM_PROPERTY, 2, "setSystemProperty", "s12:name s267:value"},
    {SYSTEM_PROPERTY, 3, "removeSystemProperty", "s12:name"},
    {AUDIO, 4, "setVideoMute", "b16:mute"},
    {AUDIO, anyType, "setVideoAudio", "w2:selector d16:level"},
    {TUNER, 0, "getCurrentTransportStreamID", "", Reply::record, "w3:transport_stream"},
    {TUNER, anyType, "getAllIDs", "w2:kind w3:key", Reply::list, "w3:id"},
    {CAROUSEL, 0, "mountCarousel", "s12:locator", Reply::record, "s267:answer"},
    {CAROUSEL, 1, "umountCarousel", "s12:locator"},
    {CAROUSEL, 3, "addCarouselListener"},
    {CAROUSEL, 4, "removeCarouselListener"},
    {SI, 0, "getSICodingFormat", "", Reply::record, "s12:coding_format"},
    {SI, 1, "getProgramEvents", "", Reply::events, eventFields},
    {SI, 2, "getProgramEvent", "", Reply::event, eventFields},
    {SI, 3, "getProgramEventDescriptors", "w5:service w6:event", Reply::descriptors},
    {SI, 4, "getCASystemIds", "", Reply::list, "w3:id"},
    {SI, 5, "isProtectedService", "", Reply::record, "b12:protected"},
    {SI, 6, "getServices", "", Reply::list, serviceFields},
    {SI, 7, "getCurrentService", "", Reply::record, "w3:service"},
    {SI, 8, "getServiceDescription", "", Reply::record, "s12:description"},
    {SI, 9, "getProgramEventDescriptors", "w5:service w6:event", Reply::descriptors},
    {SI, 10, "getServiceComponents", "w3:service", Reply::list,
     "w3:value_1 w4:value_2 w5:value_3 w6:value_4 w7:value_5 w8:value_6"},
    {SI, 11, "getServiceComponentDescriptors", "w3:component", Reply::descriptors},
    {SI, 12, "getTransportStream", "", Reply::record,
     "w3:value_1 w4:value_2 w5:value_3 f28:real_value w8:mode"},
    {SI, 13, "getTransportStreamDescriptors", "w3:transport_stream", Reply::descriptors},
    {SI, 14, "getNetwork", "", Reply::record, "w3:network_value s16:name"},
    {SI, 15, "getNetworkDescriptors", "", Reply::descriptors},
    {SI, 16, "getPMTs", "w3:program", Reply::list, "w3:value_1 w4:value_2 w5:value_3 w6:value_4"},
    {MEDIA, 0, "open", "l16:locator", Reply::record, "w3:player b16:opened"},
    {MEDIA, 1, "getDuration", "w3:player", Reply::record, "w4:duration"},
    {MEDIA, 2, "getCurrentTime", "w3:player", Reply::record, "w4:time"},
    {MEDIA, 3, "setCurrentTime", "w3:player w4:first w5:second", Reply::record, "w4:answer"},
    {MEDIA, 4, "addMediaListener", "w3:player"},
    {MEDIA, 5, "play", "w3:player", Reply::record, "b16:played"},
    {MEDIA, 6, "close", "w3:player"},
    {MEDIA, 7, "stop", "w3:player"},
    {MEDIA, 8, "setMediaBounds", "w3:player w4:x w5:y w6:width w7:height", Reply::record,
     "w4:answer"},
    {MEDIA, 9, "getMediaBounds", "w3:player", Reply::record, rectangleAt4},
    {MEDIA, 10, "setMediaFreeze", "w3:player b16:freeze"},
    {MEDIA, 11, "setMediaBalanceLevel", "w3:player d16:level"},
    {MEDIA, 12, "setMediaSoundLevel", "w3:player d16:level"},
    {MEDIA, 13, "setMediaMute", "w3:player b16:mute"},
    {MEDIA, 14, "setMediaBassLevel", "w3:player d16:level"},
    {MEDIA, 15, "setMediaTrebleLevel", "w3:player d16:level"},
    {VERSION, anyType, "checkVersionFlag", "w2:flag", Reply::record, "b12:set"},
};

constexpr Operation notifications[] = {
    {VIDEO, 17, "changeGraphicsSettings",
     "w3:x_1 w4:y_1 w5:width_1 w6:height_1 w7:x_2 w8:y_2 w9:width_2 w10:height_2"},
    {APPLICATION_STATE, anyType, "setApplicationState", "w2:state"},
    {CAROUSEL, 2, "downloadComplete", "s12:first s267:second"},
    {MEDIA, 16, "endOfMedia", "w3:player"},
    {DSMCC_COMMAND, anyType, "sendDsmCCCommand", "w2:code d16:time y24:flag l25:text"},
};

const Operation* find(std::span<const Operation> rows, const message& record) {
  const auto row = std::ranges::find_if(rows, [&](const Operation& candidate) {
    return candidate.group == record.group &&
           (candidate.type == record.type || candidate.type == anyType);
  });
  return row == rows.end() ? nullptr : &*row;
}

Json field(const message& record, char kind, std::size_t position) {
  switch (kind) {
    case 'b':
      return getBoolean(record, position);
    case 'd':
      return get<double>(record, position);
    case 'f':
      return get<float>(record, position);
    case 'y':
      return get<std::uint8_t>(record, position);
    case 's':
      return text(getString(record, position).substr(0, maxShortString + 1));
    case 'l':
      return text(getString(record, position));
    default:
      return record[position];
  }
}

Json readFields(const message& record, std::string_view specification) {
  Json fields = Json::object();
  while (!specification.empty()) {
    const std::string_view one = specification.substr(0, specification.find(' '));
    specification.remove_prefix(std::min(one.size() + 1, specification.size()));
    const std::size_t colon = one.find(':');
    std::size_t position = 0;
    std::from_chars(one.data() + 1, one.data() + colon, position);
    fields[std::string(one.substr(colon + 1))] = field(record, one.front(), position);
  }
  return fields;
}

Json kindOf(const message& record) { return {{"group", record.group}, {"type", record.type}}; }

bool isCommandPart(const message& record) { return record.group == DSMCC_COMMAND; }

/// What the library prints for a request that it drops; of most it says nothing.
std::string printedFor(const message& record) {
  const bool isGroup = std::ranges::any_of(
      operations, [&](const Operation& row) { return row.group == record.group; });
  if (!isGroup) return "Unknown message: " + std::to_string(record.group);
  if (record.group == SI) return "Unknown si message type:  " + std::to_string(record.type);
  return "";
}

/// How many bytes are behind a descriptor's record.
std::size_t sizeBehind(const message& descriptor) {
  return descriptor[5] != 0 && descriptor[4] > 0 ? static_cast<std::size_t>(descriptor[4]) : 0;
}

std::string hex(std::string_view bytes) {
  return cli::hex(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

Json descriptorFields(const message& descriptor, std::string_view data) {
  return {{"tag", get<std::int16_t>(descriptor, firstWord)}, {"data", hex(data)}};
}

constexpr std::size_t byteLists = 3;

/// How long the lists of an event are, none less than 0.
std::array<std::int32_t, 6> listsOf(const message& event) {
  constexpr std::size_t counts = 812;
  constexpr std::size_t references = 836;
  std::array<std::int32_t, 6> lists{};
  for (std::size_t list = 0; list < lists.size(); ++list) {
    const bool isPresent = get<std::int32_t>(event, references + 4 * list) != 0;
    if (isPresent) lists[list] = std::max(get<std::int32_t>(event, counts + 4 * list), 0);
  }
  return lists;
}

std::string nameOf(std::size_t list) {
  return list < byteLists ? "byte_list_" + std::to_string(list + 1)
                          : "text_list_" + std::to_string(list - byteLists + 1);
}

message recordOf(std::string_view item) {
  message record{};
  std::memcpy(&record, item.data(), sizeof record);
  return record;
}

}  // namespace

ControlDecoder::ControlDecoder() : TraceDecoder(sizeof(message), sizeof(message)) {}

void ControlDecoder::take(Direction direction, std::string_view item) {
  if (direction == Direction::toLibrary) {
    takeRequest(recordOf(item));
  } else {
    (this->*step_)(item);
  }
}

void ControlDecoder::explain(Direction direction, Json& fields) const {
  if (direction == Direction::toClient && elementsLeft_ > 0) {
    fields["elements_left"] = elementsLeft_;
  }
}

void ControlDecoder::takeRequest(const message& record) {
  if (const Operation* const operation = find(operations, record)) {
    addRequest(operation->name, readFields(record, operation->request),
               operation->reply != Reply::none,
               static_cast<std::size_t>(operation - std::begin(operations)));
    return;
  }
  Json fields = kindOf(record);
  const std::string printed = printedFor(record);
  if (!printed.empty()) fields["printed"] = printed;
  add(Direction::toLibrary, "dropped", "", std::move(fields));
}

void ControlDecoder::expectRecord() {
  step_ = &ControlDecoder::takeRecord;
  expectNew(Direction::toClient, sizeof(message));
}

void ControlDecoder::expectPart(Step step, std::size_t size) {
  step_ = step;
  expectMore(Direction::toClient, size, list_.operation);
}

void ControlDecoder::takeRecord(std::string_view item) {
  const message record = recordOf(item);
  if (record.group == LIST_HEADER) {
    takeHeader(record);
  } else if (const Operation* const notification = find(notifications, record)) {
    add(Direction::toClient, "notification", notification->name,
        readFields(record, notification->request));
  } else {
    takeReply(record);
  }
}

/// The first request that waits and could have this reply.
template <class Fits>
std::optional<std::size_t> ControlDecoder::findWaiting(Fits fits) const {
  const auto request = std::ranges::find_if(
      waiting(), [&](const Request& candidate) { return fits(operations[candidate.row]); });
  if (request == waiting().end()) return std::nullopt;
  return static_cast<std::size_t>(request - waiting().begin());
}

void ControlDecoder::takeReply(const message& record) {
  const Operation* const operation = find(operations, record);
  const auto request = findWaiting(
      [&](const Operation& candidate) { return &candidate == operation && !candidate.hasList(); });
  if (!request) {
    add(Direction::toClient, "unknown", "", kindOf(record));
    return;
  }
  list_ = answer(*request);
  addReply("reply", readFields(record, operation->answer)).after = now() - list_.time;
  if (operation->reply != Reply::event) return;
  events_.push_back(listsOf(record));
  expectLists();
}

TraceLine& ControlDecoder::addReply(std::string kind, Json fields) {
  TraceLine& line = add(Direction::toClient, std::move(kind), list_.operation, std::move(fields));
  line.request = list_.number;
  return line;
}

/// A header of two or more can open a command: the record behind it tells.
void ControlDecoder::takeHeader(const message& header) {
  list_ = {};
  headerTime_ = now();
  if (header.type >= 2) {
    expectPart(&ControlDecoder::takeBehindHeader, sizeof(message));
    header_ = header;
  } else {
    beginList(header);
  }
}

void ControlDecoder::takeBehindHeader(std::string_view item) {
  const message record = recordOf(item);
  if (isCommandPart(record)) {
    beginCommand(header_);
  } else {
    beginList(header_);
  }
  if (!isGivenUp()) (this->*step_)(item);
}

void ControlDecoder::beginCommand(const message& header) {
  addFirst(sizeof header, Direction::toClient, "list", "sendDsmCCCommand", {{"count", header.type}})
      .time = headerTime_;
  list_.operation = "sendDsmCCCommand";
  expectElements(&ControlDecoder::takeCommandPart, header.type);
}

void ControlDecoder::beginList(const message& header) {
  const auto request = findWaiting([](const Operation& operation) { return operation.hasList(); });
  if (!request) {
    addFirst(sizeof header, Direction::toClient, "unknown", "", {{"count", header.type}});
    expectRecord();
    return;
  }
  list_ = answer(*request);
  TraceLine& line = addFirst(sizeof header, Direction::toClient, "list", list_.operation,
                             {{"count", header.type}});
  line.request = list_.number;
  line.time = headerTime_;
  line.after = headerTime_ - list_.time;
  expectElements(&ControlDecoder::takeElement, header.type);
}

void ControlDecoder::expectElements(Step step, std::int32_t count) {
  if (count > maxElements) {
    giveUp(Direction::toClient, list_.operation, {{"announced_elements", count}});
    return;
  }
  elementStep_ = step;
  elementsLeft_ = std::max(count, 0);
  expectElement();
}

void ControlDecoder::expectElement() {
  if (elementsLeft_ > 0) {
    expectPart(elementStep_, sizeof(message));
  } else {
    expectLists();
  }
}

void ControlDecoder::endElement() {
  --elementsLeft_;
  expectElement();
}

void ControlDecoder::takeCommandPart(std::string_view item) {
  const message record = recordOf(item);
  add(Direction::toClient, "notification", "sendDsmCCCommand",
      isCommandPart(record) ? readFields(record, "w2:code d16:time l25:text") : kindOf(record));
  endElement();
}

void ControlDecoder::takeElement(std::string_view item) {
  const message record = recordOf(item);
  const Operation& operation = operations[list_.row];
  if (operation.reply == Reply::descriptors && sizeBehind(record) > 0) {
    header_ = record;
    expectPart(&ControlDecoder::takeDescriptor, sizeBehind(record));
    return;
  }
  addReply("element", operation.reply == Reply::descriptors ? descriptorFields(record, "")
                                                            : readFields(record, operation.answer));
  if (operation.reply == Reply::events) events_.push_back(listsOf(record));
  endElement();
}

void ControlDecoder::takeDescriptor(std::string_view data) {
  addReply("element", descriptorFields(header_, data));
  endElement();
}

/// The six lists of each event: bytes first, then texts, each with its length.
void ControlDecoder::expectLists() {
  while (!events_.empty()) {
    for (; eventListIndex_ < events_.front().size(); ++eventListIndex_) {
      if (beginsEventList(events_.front()[eventListIndex_])) return;
    }
    addReply("bytes", std::exchange(lists_, Json::object()));
    events_.pop_front();
    eventListIndex_ = 0;
  }
  expectRecord();
}

/// Whether there is something in it to wait for.
bool ControlDecoder::beginsEventList(std::int32_t count) {
  const bool isText = eventListIndex_ >= byteLists;
  eventList() = isText ? Json::array() : Json("");
  if (count == 0) return false;
  textsLeft_ = count;
  if (isText && count > maxElements) {
    giveUp(Direction::toClient, list_.operation, {{"announced_elements", count}});
  } else if (isText) {
    expectPart(&ControlDecoder::takeTextSize, sizeof(std::uint32_t));
  } else {
    expectPart(&ControlDecoder::takeByteList, static_cast<std::size_t>(count));
  }
  return true;
}

Json& ControlDecoder::eventList() { return lists_[nameOf(eventListIndex_)]; }

void ControlDecoder::takeByteList(std::string_view item) {
  eventList() = hex(item);
  ++eventListIndex_;
  expectLists();
}

void ControlDecoder::takeTextSize(std::string_view item) {
  std::uint32_t size = 0;
  std::memcpy(&size, item.data(), sizeof size);
  expectPart(&ControlDecoder::takeText, size);
}

void ControlDecoder::takeText(std::string_view item) {
  eventList().push_back(text(std::string(item)));
  if (--textsLeft_ > 0) {
    expectPart(&ControlDecoder::takeTextSize, sizeof(std::uint32_t));
  } else {
    ++eventListIndex_;
    expectLists();
  }
}

}  // namespace quillwork::cli
