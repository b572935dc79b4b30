#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "protocol/message.h"
#include "protocol/records.h"

/// What passes on the two channels, said once: a row for each request of the control channel, for
/// each notification and for each request of the section-filter channel. The dispatcher, the client
/// library, the trace, the fuzzers and protocol.json read these rows; docs/protocol.md describes
/// them for people.
///
/// The library looks rows and fields up by their names in constant expressions alone, so that no
/// name reaches the shared object.
namespace quillwork::operations {

/// How a field's bytes are read.
enum class Kind : std::uint8_t {
  integer,    ///< 4 bytes, signed
  halfWord,   ///< 2 bytes, signed
  byte,       ///< 1 byte, unsigned
  boolean,    ///< 1 byte: 0 is false, any other value true; 0 or 1 is written
  real32,     ///< IEEE 754 binary32
  real64,     ///< IEEE 754 binary64
  shortText,  ///< 255 bytes: at most 254 characters, filled up with zero bytes
  longText,   ///< up to the first zero byte, at the latest to the end of the record
  textPart,   ///< 1928 bytes: at most 1920 characters, filled up with zero bytes
};

/// The characters of a Kind::textPart, and the bytes of its field.
inline constexpr std::size_t maxTextPart = 1920;
inline constexpr std::size_t textPartSize = 1928;

/// A value in a record.
struct Field {
  const char* name = "";
  Kind kind = Kind::integer;
  /// In bytes from the record's start.
  std::size_t position = 0;
  /// What the number counts; empty where it is the middleware's own affair.
  const char* unit = "";
};

/// Bytes that a field covers. A long text has no size of its own: one byte at least.
constexpr std::size_t sizeOf(Kind kind) {
  switch (kind) {
    case Kind::halfWord:
      return 2;
    case Kind::byte:
    case Kind::boolean:
    case Kind::longText:
      return 1;
    case Kind::real64:
      return 8;
    case Kind::shortText:
      return textFieldSize;
    case Kind::textPart:
      return textPartSize;
    default:
      return 4;
  }
}

/// A list behind a record, outside of any record. It is there if the word at `presence` is not
/// zero, and has as many elements as the word at `count` says.
struct Trailing {
  enum class Kind : std::uint8_t {
    bytes,
    texts,  ///< for each a 4-byte length, then its characters
  };

  const char* name = "";
  Kind kind = Kind::bytes;
  /// In bytes from the record's start.
  std::size_t count = 0;
  std::size_t presence = 0;
};

/// Some values in a fixed order: arrays of different lengths cannot stand in one row.
template <class Value, std::size_t Capacity>
class Values {
 public:
  constexpr Values() = default;
  constexpr Values(std::initializer_list<Value> values) {
    for (const Value& value : values) values_[size_++] = value;
  }
  constexpr const Value* begin() const { return values_.data(); }
  constexpr const Value* end() const { return values_.data() + size_; }
  [[nodiscard]] constexpr std::size_t size() const { return size_; }
  constexpr const Value& operator[](std::size_t index) const { return values_[index]; }
  constexpr Value& operator[](std::size_t index) { return values_[index]; }

 private:
  std::array<Value, Capacity> values_{};
  std::size_t size_ = 0;
};

/// A domain record of records.h as it travels: the positions count from its own start.
struct Layout {
  const char* name = "";
  std::size_t size = 0;
  Values<Field, 11> fields;
  Values<Trailing, 6> trailing;
};

/// What a record carries behind its group and type.
struct Content {
  constexpr Content() = default;
  constexpr Content(std::initializer_list<Field> values) : fields(values) {}
  /// A domain record at a byte position.
  constexpr Content(const Layout& layout, std::size_t at)
      : fields(layout.fields),
        trailing(layout.trailing),
        record(layout.name),
        recordSize(layout.size),
        recordPosition(at) {
    for (std::size_t index = 0; index < fields.size(); ++index) fields[index].position += at;
    for (std::size_t index = 0; index < trailing.size(); ++index) {
      trailing[index].count += at;
      trailing[index].presence += at;
    }
  }

  /// In the order of the operation's arguments or of the domain record.
  Values<Field, 11> fields;
  /// In the order in which they are sent.
  Values<Trailing, 6> trailing;
  /// The domain record that these fields are, if they are one; its size and position in bytes.
  const char* record = "";
  std::size_t recordSize = 0;
  std::size_t recordPosition = 0;
};

/// How a request is answered.
enum class Reply : std::uint8_t {
  none,
  record,  ///< the request's own record, with its group and type
  list,    ///< a header with the count, a record for each element, its trailing lists behind each
  listFirst,  ///< the same, but all trailing lists behind the last record, in the records' order
};

/// The types of a request or notification.
struct Types {
  constexpr Types(std::int32_t one) : first(one), last(one) {}
  constexpr Types(std::int32_t lowest, std::int32_t highest) : first(lowest), last(highest) {}

  [[nodiscard]] constexpr bool contain(std::int32_t type) const {
    return first <= type && type <= last;
  }

  std::int32_t first;
  std::int32_t last;
};
/// Any type for which the group has no row of its own.
inline constexpr Types anyOther{INT32_MIN, INT32_MAX};
constexpr bool isAnyOther(const Types& types) {
  return types.first == anyOther.first && types.last == anyOther.last;
}

// The type of a list's element records. Their group is the request's.
/// The count of the list's header stays in the type's place.
inline constexpr std::int32_t keepsCount = -1;
/// The domain record begins at the type's place.
inline constexpr std::int32_t ofTheRecord = -2;

/// A request of the control channel.
struct Request {
  message_group group;
  Types types;
  /// Several rows of one name are one operation.
  const char* name;
  Content request = {};
  Reply reply = Reply::none;
  /// Of the reply, or of each element of the list.
  Content answer = {};
  std::int32_t elementType = 0;
};

/// A record that the library sends on its own. One that carries a Kind::textPart comes as a list
/// when its text is longer than a part: a header with the number of records, two at least, then
/// each record whole, with the next part of the text; the last part may be empty.
struct Notification {
  message_group group;
  Types types;
  const char* name;
  Content content = {};
};

/// A request of the section-filter channel; its code is its index. Behind the code comes the
/// number, if there is one, then each vector: a count and that number of bytes.
struct SectionFilterRequest {
  const char* name;
  /// Empty for none.
  const char* number = "";
  /// What the listener is called with when the number does not arrive.
  std::int32_t numberIfCut = 0;
  Values<const char*, 3> vectors = {};
  /// The answer is a count and that number of bytes.
  bool isAnswered = false;
};

// Positions that many rows share, in bytes from the record's start.
inline constexpr std::size_t typePosition = offsetof(message, type);
inline constexpr std::size_t payloadPosition = offsetof(message, payload);
inline constexpr std::size_t secondTextPosition = payloadPosition + textFieldSize;

/// Where a domain record that a listener is given as a whole begins in its request, in bytes.
template <class Record>
inline constexpr std::size_t requestRecordPosition = typePosition;
template <>
inline constexpr std::size_t requestRecordPosition<video_region> = payloadPosition;

// Builders of fields. A word is counted in units of 4 bytes from the record's start.

constexpr std::size_t word(std::size_t index) { return index * sizeof(std::int32_t); }

constexpr Field integer(const char* name, std::size_t position, const char* unit = "") {
  return {name, Kind::integer, position, unit};
}
constexpr Field boolean(const char* name, std::size_t position) {
  return {name, Kind::boolean, position};
}
constexpr Field real(const char* name, std::size_t position) {
  return {name, Kind::real64, position};
}
constexpr Field shortText(const char* name, std::size_t position) {
  return {name, Kind::shortText, position};
}
constexpr Field longText(const char* name, std::size_t position) {
  return {name, Kind::longText, position};
}

// The domain records.

inline constexpr Layout serviceLayout{
    "service",
    sizeof(service),
    {integer("value_1", offsetof(service, value_1)), integer("value_2", offsetof(service, value_2)),
     integer("value_3", offsetof(service, value_3)), integer("value_4", offsetof(service, value_4)),
     integer("value_5", offsetof(service, value_5)), shortText("name", offsetof(service, name))},
    {}};

inline constexpr Layout serviceComponentLayout{
    "service_component",
    sizeof(service_component),
    {integer("value_1", offsetof(service_component, value_1)),
     integer("value_2", offsetof(service_component, value_2)),
     integer("value_3", offsetof(service_component, value_3)),
     integer("value_4", offsetof(service_component, value_4)),
     integer("value_5", offsetof(service_component, value_5)),
     integer("value_6", offsetof(service_component, value_6))},
    {}};

inline constexpr Layout pmtLayout{
    "pmt",
    sizeof(pmt),
    {integer("value_1", offsetof(pmt, value_1)), integer("value_2", offsetof(pmt, value_2)),
     integer("value_3", offsetof(pmt, value_3)), integer("value_4", offsetof(pmt, value_4))},
    {}};

inline constexpr Layout networkLayout{"network",
                                      sizeof(network),
                                      {integer("network_value", offsetof(network, network_value)),
                                       shortText("name", offsetof(network, name))},
                                      {}};

inline constexpr Layout transportStreamLayout{
    "transport_stream",
    sizeof(transport_stream),
    {integer("value_1", offsetof(transport_stream, value_1)),
     integer("value_2", offsetof(transport_stream, value_2)),
     integer("value_3", offsetof(transport_stream, value_3)),
     {"real_value", Kind::real32, offsetof(transport_stream, real_value)},
     integer("mode", offsetof(transport_stream, mode))},
    {}};

inline constexpr Layout systemPropertyLayout{"system_property",
                                             sizeof(system_property),
                                             {shortText("name", offsetof(system_property, name)),
                                              shortText("value", offsetof(system_property, value))},
                                             {}};

/// On the wire every list reference has 4 bytes.
constexpr std::size_t eventReference(std::size_t list) {
  return programEventReferences + list * sizeof(std::int32_t);
}
inline constexpr Layout programEventLayout{
    "program_event",
    programEventSize,
    {integer("value_1", offsetof(program_event, value_1)),
     integer("value_2", offsetof(program_event, value_2)),
     integer("value_3", offsetof(program_event, value_3)),
     integer("value_4", offsetof(program_event, value_4)),
     integer("value_5", offsetof(program_event, value_5)),
     integer("value_6", offsetof(program_event, value_6)),
     integer("value_7", offsetof(program_event, value_7)),
     integer("value_8", offsetof(program_event, value_8)),
     shortText("text_1", offsetof(program_event, text_1)),
     shortText("text_2", offsetof(program_event, text_2)),
     shortText("text_3", offsetof(program_event, text_3))},
    {{"byte_list_1", Trailing::Kind::bytes, offsetof(program_event, byte_list_1_count),
      eventReference(0)},
     {"byte_list_2", Trailing::Kind::bytes, offsetof(program_event, byte_list_2_count),
      eventReference(1)},
     {"byte_list_3", Trailing::Kind::bytes, offsetof(program_event, byte_list_3_count),
      eventReference(2)},
     {"text_list_1", Trailing::Kind::texts, offsetof(program_event, text_list_1_count),
      eventReference(3)},
     {"text_list_2", Trailing::Kind::texts, offsetof(program_event, text_list_2_count),
      eventReference(4)},
     {"text_list_3", Trailing::Kind::texts, offsetof(program_event, text_list_3_count),
      eventReference(5)}}};

/// On the wire a tag, the number of the bytes, and a word that says whether they follow.
inline constexpr Layout descriptorLayout{
    "descriptor",
    12,
    {{"tag", Kind::halfWord, 0}, integer("length", 4, "bytes")},
    {{"data", Trailing::Kind::bytes, 4, 8}}};

// Contents that several rows share.

inline constexpr Content player{integer("player", word(3))};
inline constexpr Content descriptorElement{descriptorLayout, payloadPosition};
inline constexpr Content eventRecord{programEventLayout, payloadPosition};
inline constexpr Content propertyRecord{systemPropertyLayout, typePosition};
inline constexpr Content rectangle{integer("x", word(3), "px"), integer("y", word(4), "px"),
                                   integer("width", word(5), "px"),
                                   integer("height", word(6), "px")};
inline constexpr Content playerRectangle{
    integer("player", word(3)), integer("x", word(4), "px"), integer("y", word(5), "px"),
    integer("width", word(6), "px"), integer("height", word(7), "px")};
inline constexpr Content playerLevel{integer("player", word(3)), real("level", word(4))};
inline constexpr Content level{real("level", word(4))};
inline constexpr Content videoCommand{integer("command", typePosition)};
inline constexpr Content language{shortText("language", payloadPosition)};
inline constexpr Content eventArguments{integer("first", word(5)), integer("second", word(6))};

// clang-format off

/// The client's requests.
inline constexpr Request requests[] = {
    {VIDEO, 0, "setVideoBounds", rectangle},
    {VIDEO, 1, "getMainVideoBounds", rectangle, Reply::record, rectangle},
    {VIDEO, 2, "videoPropertyAction"},
    {VIDEO, 3, "getVideoLanguage", videoCommand, Reply::record, language},
    {VIDEO, 4, "getVideoLanguages", {}, Reply::list, language, keepsCount},
    {VIDEO, 5, "getVideoLanguage", videoCommand, Reply::record, language},
    {VIDEO, 6, "selectVideoLanguage", {longText("language", payloadPosition)}},
    {VIDEO, 7, "setVideoFreeze", {boolean("freeze", word(3))}},
    {VIDEO, 8, "setVideoOption", {boolean("option", word(3))}},
    {VIDEO, {9, 16}, "getVideoProperty", videoCommand, Reply::record, {integer("value", word(3))}},
    {VIDEO, 17, "setVideoProperty"},
    {VIDEO, 18, "updateGraphicsRegion", rectangle},

    {APPLICATION_STATE, anyOther, "answerApplicationState", {boolean("answer", word(3))}},

    {SYSTEM_PROPERTY, 0, "getSystemProperty", {shortText("name", payloadPosition)},
     Reply::record, {shortText("value", secondTextPosition)}},
    {SYSTEM_PROPERTY, 1, "getSystemProperties", {}, Reply::list, propertyRecord, ofTheRecord},
    {SYSTEM_PROPERTY, 2, "setSystemProperty", propertyRecord},
    {SYSTEM_PROPERTY, 3, "removeSystemProperty", {shortText("name", payloadPosition)}},

    {AUDIO, 0, "setVideoSoundLevel", level},
    {AUDIO, 1, "setVideoBalanceLevel", level},
    {AUDIO, 2, "setVideoBassLevel", level},
    {AUDIO, 3, "setVideoTrebleLevel", level},
    {AUDIO, 4, "setVideoMute", {boolean("mute", word(4))}},
    {AUDIO, anyOther, "setVideoAudio", {integer("selector", typePosition), real("level", word(4))}},

    {TUNER, 0, "getCurrentTransportStreamID", {}, Reply::record,
     {integer("transportStreamId", word(3))}},
    {TUNER, anyOther, "getAllIDs", {integer("kind", typePosition), integer("key", word(3))},
     Reply::list, {integer("id", word(3))}, keepsCount},

    {CAROUSEL, 0, "mountCarousel", {shortText("locator", payloadPosition)},
     Reply::record, {shortText("answer", secondTextPosition)}},
    {CAROUSEL, 1, "umountCarousel", {shortText("locator", payloadPosition)}},
    {CAROUSEL, 3, "addCarouselListener"},
    {CAROUSEL, 4, "removeCarouselListener"},

    {SI, 0, "getSICodingFormat", {}, Reply::record, {shortText("codingFormat", payloadPosition)}},
    {SI, 1, "getProgramEvents", {}, Reply::listFirst, eventRecord, 1},
    {SI, 2, "getProgramEvent", {}, Reply::record, eventRecord},
    {SI, 3, "getProgramEventDescriptors", eventArguments, Reply::list, descriptorElement, 3},
    {SI, 4, "getCASystemIds", {}, Reply::list, {integer("caSystemId", word(3))}, 4},
    {SI, 5, "isProtectedService", {}, Reply::record, {boolean("isProtected", word(3))}},
    {SI, 6, "getServices", {}, Reply::list, {serviceLayout, payloadPosition}, 6},
    {SI, 7, "getCurrentService", {}, Reply::record, {integer("serviceId", word(3))}},
    {SI, 8, "getServiceDescription", {}, Reply::record,
     {shortText("description", payloadPosition)}},
    // The same operation again: a client never reaches a service's own descriptors.
    {SI, 9, "getProgramEventDescriptors", eventArguments, Reply::list, descriptorElement, 3},
    {SI, 10, "getServiceComponents", {integer("serviceId", word(3))},
     Reply::list, {serviceComponentLayout, payloadPosition}, 10},
    {SI, 11, "getServiceComponentDescriptors", {integer("component", word(3))},
     Reply::list, descriptorElement, 11},
    {SI, 12, "getTransportStream", {}, Reply::record, {transportStreamLayout, payloadPosition}},
    {SI, 13, "getTransportStreamDescriptors", {integer("transportStream", word(3))},
     Reply::list, descriptorElement, 3},
    {SI, 14, "getNetwork", {}, Reply::record, {networkLayout, payloadPosition}},
    {SI, 15, "getNetworkDescriptors", {}, Reply::list, descriptorElement, 3},
    {SI, 16, "getPMTs", {integer("program", word(3))},
     Reply::list, {pmtLayout, payloadPosition}, 16},

    {MEDIA, 0, "open", {longText("locator", word(4))},
     Reply::record, {integer("player", word(3)), boolean("opened", word(4))}},
    {MEDIA, 1, "getDuration", player, Reply::record, {integer("duration", word(4))}},
    {MEDIA, 2, "getCurrentTime", player, Reply::record, {integer("time", word(4))}},
    {MEDIA, 3, "setCurrentTime",
     {integer("player", word(3)), integer("first", word(4)), integer("second", word(5))},
     Reply::record, {integer("answer", word(4))}},
    {MEDIA, 4, "addMediaListener", player},
    {MEDIA, 5, "play", player, Reply::record, {boolean("played", word(4))}},
    {MEDIA, 6, "close", player},
    {MEDIA, 7, "stop", player},
    {MEDIA, 8, "setMediaBounds", playerRectangle, Reply::record, {integer("answer", word(4))}},
    {MEDIA, 9, "getMediaBounds", playerRectangle, Reply::record,
     {integer("x", word(4), "px"), integer("y", word(5), "px"), integer("width", word(6), "px"),
      integer("height", word(7), "px")}},
    {MEDIA, 10, "setMediaFreeze", {integer("player", word(3)), boolean("freeze", word(4))}},
    {MEDIA, 11, "setMediaBalanceLevel", playerLevel},
    {MEDIA, 12, "setMediaSoundLevel", playerLevel},
    {MEDIA, 13, "setMediaMute", {integer("player", word(3)), boolean("mute", word(4))}},
    {MEDIA, 14, "setMediaBassLevel", playerLevel},
    {MEDIA, 15, "setMediaTrebleLevel", playerLevel},

    {VERSION, anyOther, "checkVersionFlag", {integer("flag", typePosition)},
     Reply::record, {boolean("isSet", word(3))}},
};

/// What the library sends on its own.
inline constexpr Notification notifications[] = {
    {VIDEO, 17, "changeGraphicsSettings",
     {integer("x_1", word(3), "px"), integer("y_1", word(4), "px"),
      integer("width_1", word(5), "px"), integer("height_1", word(6), "px"),
      integer("x_2", word(7), "px"), integer("y_2", word(8), "px"),
      integer("width_2", word(9), "px"), integer("height_2", word(10), "px")}},
    {APPLICATION_STATE, anyOther, "setApplicationState", {integer("state", typePosition)}},
    {CAROUSEL, 2, "downloadComplete",
     {shortText("first", payloadPosition), shortText("second", secondTextPosition)}},
    {MEDIA, 16, "endOfMedia", player},
    {DSMCC_COMMAND, anyOther, "sendDsmCCCommand",
     {integer("commandCode", typePosition), real("eventTime", word(4)), {"flag", Kind::byte, 24},
      {"text", Kind::textPart, 25}}},
};

// clang-format on

/// The section-filter channel's requests.
inline constexpr SectionFilterRequest sectionFilterRequests[] = {
    {"start"},
    {"stop"},
    {"set_pid", "pid", -1},
    {"set_table_id", "tableId", -1},
    {"set_positive_filter", "filterArg", 0, {"first", "second"}},
    {"set_greater_than_filter", "filterArg", 0, {"first", "second"}},
    {"set_less_than_filter", "filterArg", 0, {"first", "second"}},
    {"set_xor_filter", "filterArg", 0, {"first", "second", "third"}},
    {"set_time_out", "timeOut"},
    {"clear_table_id"},
    {"clear_positive_filter"},
    {"clear_less_than_filter"},
    {"clear_xor_filter"},
    {"read_section", "", 0, {}, true},
};

constexpr bool hasNumber(const SectionFilterRequest& row) {
  return !std::string_view(row.number).empty();
}

// Look-ups by name.

/// A name as a template's argument.
struct Name {
  template <std::size_t Size>
  consteval Name(const char (&name)[Size]) {
    static_assert(Size <= sizeof text);
    for (std::size_t index = 0; index < Size; ++index) text[index] = name[index];
  }
  constexpr operator std::string_view() const { return text; }

  char text[40] = {};
};

/// The index of the first row of this name: a name that no row has does not compile.
template <class Rows>
constexpr std::size_t find(const Rows& rows, std::string_view name) {
  for (std::size_t index = 0; index < std::size(rows); ++index) {
    if (rows[index].name == name) return index;
  }
  throw "no row has this name";
}
constexpr std::size_t request(std::string_view name) { return find(requests, name); }
constexpr std::size_t notification(std::string_view name) { return find(notifications, name); }
constexpr std::size_t sectionFilterRequest(std::string_view name) {
  return find(sectionFilterRequests, name);
}

/// The field of this name: a name that the content does not have does not compile.
constexpr Field field(const Content& content, std::string_view name) {
  for (const Field& candidate : content.fields) {
    if (candidate.name == name) return candidate;
  }
  throw "the content has no field of this name";
}

/// The row for a record's group and type; null if there is none.
template <class Rows>
constexpr auto rowFor(const Rows& rows, std::int32_t group, std::int32_t type)
    -> decltype(std::data(rows)) {
  for (const auto& row : rows) {
    if (row.group == group && !isAnyOther(row.types) && row.types.contain(type)) return &row;
  }
  for (const auto& row : rows) {
    if (row.group == group && isAnyOther(row.types)) return &row;
  }
  return nullptr;
}

// What holds for every row.

/// All fields and words lie within the record, and no two fields share a byte.
constexpr bool isSound(const Content& content) {
  if (content.recordPosition + content.recordSize > sizeof(message)) return false;
  for (const Trailing& list : content.trailing) {
    if (std::max(list.count, list.presence) + sizeof(std::int32_t) > sizeof(message)) return false;
  }
  for (std::size_t index = 0; index < content.fields.size(); ++index) {
    const Field& one = content.fields[index];
    if (one.position < typePosition || one.position + sizeOf(one.kind) > sizeof(message)) {
      return false;
    }
    for (std::size_t next = index + 1; next < content.fields.size(); ++next) {
      const Field& other = content.fields[next];
      if (one.position < other.position + sizeOf(other.kind) &&
          other.position < one.position + sizeOf(one.kind)) {
        return false;
      }
    }
  }
  return true;
}

constexpr bool isSame(const Content& one, const Content& other) {
  const auto sameField = [](const Field& left, const Field& right) {
    return std::string_view(left.name) == right.name && left.kind == right.kind &&
           left.position == right.position;
  };
  const auto sameList = [](const Trailing& left, const Trailing& right) {
    return left.count == right.count && left.presence == right.presence;
  };
  return std::ranges::equal(one.fields, other.fields, sameField) &&
         std::ranges::equal(one.trailing, other.trailing, sameList) &&
         one.recordPosition == other.recordPosition && one.recordSize == other.recordSize;
}

constexpr bool overlap(const Types& one, const Types& other) {
  if (isAnyOther(one) || isAnyOther(other)) return isAnyOther(one) && isAnyOther(other);
  return one.first <= other.last && other.first <= one.last;
}

/// No two rows have a type in common, and rows of one name differ in their types alone.
constexpr bool areCompatible(const Request& one, const Request& other) {
  if (one.group == other.group && overlap(one.types, other.types)) return false;
  if (std::string_view(one.name) != other.name) return true;
  return one.group == other.group && one.reply == other.reply &&
         one.elementType == other.elementType && isSame(one.request, other.request) &&
         isSame(one.answer, other.answer);
}

constexpr bool areSound() {
  for (std::size_t index = 0; index < std::size(requests); ++index) {
    const Request& row = requests[index];
    if (!isSound(row.request) || !isSound(row.answer)) return false;
    if (row.reply == Reply::none && row.answer.fields.size() != 0) return false;
    for (std::size_t next = index + 1; next < std::size(requests); ++next) {
      if (!areCompatible(row, requests[next])) return false;
    }
  }
  return std::ranges::all_of(notifications,
                             [](const Notification& row) { return isSound(row.content); });
}
static_assert(
    areSound(),
    "a row has a field outside of its record, two fields in one place, an answer without a "
    "reply, the types of another row, or another row's name for something else");

}  // namespace quillwork::operations
