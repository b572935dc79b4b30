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

Json unknownFields(const message& record) {
  return {{"group", record.group}, {"type", record.type}};
}

/// Of what has arrived, a part as hexadecimal digits.
std::string hex(const std::string& bytes, std::size_t position, std::size_t size) {
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(bytes.data()) + position;
  return cli::hex(std::span(begin, size));
}

std::optional<message> firstRecord(std::string_view bytes, std::size_t index = 0) {
  if (bytes.size() < (index + 1) * sizeof(message)) return std::nullopt;
  message record{};
  std::memcpy(&record, bytes.data() + index * sizeof record, sizeof record);
  return record;
}

}  // namespace

std::vector<TraceLine> ControlDecoder::feed(Direction direction, std::string_view bytes) {
  if (direction == Direction::toLibrary) {
    fromClient_ += bytes;
    decodeRequests();
  } else {
    fromLibrary_ += bytes;
    while (decodeReply()) {
    }
  }
  return std::exchange(lines_, {});
}

void ControlDecoder::add(Direction direction, std::string kind, std::string operation,
                         Json fields) {
  lines_.push_back({direction, std::move(kind), std::move(operation), std::move(fields)});
}

void ControlDecoder::decodeRequests() {
  while (const auto record = firstRecord(fromClient_)) {
    fromClient_.erase(0, sizeof(message));
    const Operation* const operation = find(operations, *record);
    if (operation == nullptr) {
      add(Direction::toLibrary, "unknown", "", unknownFields(*record));
      continue;
    }
    add(Direction::toLibrary, "request", operation->name, readFields(*record, operation->request));
    if (operation->reply != Reply::none) waiting_.push_back(operation);
  }
}

/// One record, or what comes behind records; false when it has not all arrived.
bool ControlDecoder::decodeReply() {
  if (elementsLeft_ == 0 && !events_.empty()) return decodeLists();
  const auto record = firstRecord(fromLibrary_);
  if (!record) return false;
  if (elementsLeft_ > 0) return decodeElement(*record);
  if (record->group == LIST_HEADER) return decodeHeader(*record);
  fromLibrary_.erase(0, sizeof(message));
  if (const Operation* const notification = find(notifications, *record)) {
    add(Direction::toClient, "notification", notification->name,
        readFields(*record, notification->request));
    return true;
  }
  const Operation* const operation = waiting_.empty() ? nullptr : waiting_.front();
  if (operation == nullptr || find(operations, *record) != operation) {
    add(Direction::toClient, "unknown", "", unknownFields(*record));
    return true;
  }
  waiting_.pop_front();
  add(Direction::toClient, "reply", operation->name, readFields(*record, operation->answer));
  if (operation->reply == Reply::event) {
    list_ = operation;
    events_.push_back(*record);
  }
  return true;
}

/// A header of two or more can open a command: the record behind it tells.
bool ControlDecoder::decodeHeader(const message& record) {
  const bool hasList = !waiting_.empty() && (waiting_.front()->reply == Reply::list ||
                                             waiting_.front()->reply == Reply::descriptors ||
                                             waiting_.front()->reply == Reply::events);
  isCommand_ = !hasList;
  if (hasList && record.type >= 2) {
    const auto next = firstRecord(fromLibrary_, 1);
    if (!next) return false;
    isCommand_ = next->group == DSMCC_COMMAND;
  }
  fromLibrary_.erase(0, sizeof(message));
  elementsLeft_ = std::max(record.type, 0);
  const char* name = "sendDsmCCCommand";
  if (!isCommand_) {
    list_ = waiting_.front();
    waiting_.pop_front();
    name = list_->name;
  }
  add(Direction::toClient, "list", name, {{"count", record.type}});
  return true;
}

bool ControlDecoder::decodeElement(const message& record) {
  if (isCommand_) {
    fromLibrary_.erase(0, sizeof(message));
    --elementsLeft_;
    add(Direction::toClient, "notification", "sendDsmCCCommand",
        readFields(record, find(notifications, record) != nullptr ? "w2:code d16:time l25:text"
                                                                  : "w0:group w2:type"));
    return true;
  }
  if (list_->reply == Reply::descriptors) {
    const std::size_t size =
        record[5] != 0 && record[4] > 0 ? static_cast<std::size_t>(record[4]) : 0;
    if (fromLibrary_.size() < sizeof(message) + size) return false;
    add(Direction::toClient, "element", list_->name,
        {{"tag", get<std::int16_t>(record, firstWord)},
         {"data", hex(fromLibrary_, sizeof(message), size)}});
    fromLibrary_.erase(0, sizeof(message) + size);
  } else {
    fromLibrary_.erase(0, sizeof(message));
    add(Direction::toClient, "element", list_->name, readFields(record, list_->answer));
    if (list_->reply == Reply::events) events_.push_back(record);
  }
  --elementsLeft_;
  return true;
}

/// The six lists of the next event: bytes first, then texts, each with its length.
bool ControlDecoder::decodeLists() {
  constexpr std::size_t counts = 812;
  constexpr std::size_t references = 836;
  const message& event = events_.front();
  std::size_t position = 0;
  Json fields = Json::object();
  for (std::size_t list = 0; list < 6; ++list) {
    const bool isPresent = get<std::int32_t>(event, references + 4 * list) != 0;
    const std::int32_t count = isPresent ? get<std::int32_t>(event, counts + 4 * list) : 0;
    if (list < 3) {
      const std::size_t size = count > 0 ? static_cast<std::size_t>(count) : 0;
      if (fromLibrary_.size() < position + size) return false;
      fields["byte_list_" + std::to_string(list + 1)] = hex(fromLibrary_, position, size);
      position += size;
      continue;
    }
    Json texts = Json::array();
    for (std::int32_t index = 0; index < count; ++index) {
      std::uint32_t size = 0;
      if (fromLibrary_.size() < position + sizeof size) return false;
      std::memcpy(&size, fromLibrary_.data() + position, sizeof size);
      position += sizeof size;
      if (fromLibrary_.size() - position < size) return false;
      texts.push_back(text(fromLibrary_.substr(position, size)));
      position += size;
    }
    fields["text_list_" + std::to_string(list - 2)] = std::move(texts);
  }
  fromLibrary_.erase(0, position);
  events_.pop_front();
  add(Direction::toClient, "bytes", list_->name, std::move(fields));
  return true;
}

}  // namespace quillwork::cli
