#pragma once

#include "protocol/language.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>

static_assert(std::endian::native == std::endian::little,
              "the wire formats are the memory layouts of a little-endian processor");

/// The records that the middleware's facade library uses, too.
namespace ipcutil {

/// A rectangle in pixels.
struct Rectangle_t {
  /// The left edge.
  std::int32_t x;
  /// The upper edge.
  std::int32_t y;
  /// From the left edge to the right one.
  std::int32_t width;
  /// From the upper edge to the lower one.
  std::int32_t height;
};
static_assert(sizeof(Rectangle_t) == 16);

/// A DSM-CC stream event (ISO/IEC 13818-6). `text` holds the event's data bytes, any number.
struct DsmCCCommand_t {
  /// Which command: the type of the client's notification. In the reference receiver its tag, 0
  /// to 255.
  std::int32_t command_code;
  /// When, carried unchanged; in the reference receiver normal play time in seconds.
  double event_time;
  /// Carried unchanged; in the reference receiver 1 for one that is to be done at once, and else 0.
  std::uint8_t flag;
  /// The event's data bytes, any number of any value.
  std::string text;
};

}  // namespace ipcutil

/// The domain records. Those that travel inside a `message` are copied byte for byte, so their
/// layouts are wire formats and are pinned below. A text field holds at most 254 characters and is
/// filled up with zero bytes; the bytes carry no character set of the library's. What integers mean
/// is the middleware's own affair; said is what the reference receiver puts there, and -1 for what
/// is not known.
namespace quillwork {

/// Size in bytes of a text field, the terminating zero included.
inline constexpr std::size_t textFieldSize = 255;

/// The state of the client's application; the library gives its values no meaning.
enum class state : std::int32_t {};

/// A video property or query. 3 and 5 name the two languages, 9 to 16 the video properties.
enum class command : std::int32_t {};

/// A service.
struct service {
  /// Service id.
  std::int32_t value_1;
  /// Transport stream id.
  std::int32_t value_2;
  /// Original network id.
  std::int32_t value_3;
  /// Service type (EN 300 468, table 87).
  std::int32_t value_4;
  /// Bits 0 to 2: running status; bit 3: free CA mode; bit 4: has an EIT schedule; bit 5: has EIT
  /// present/following; bit 6: of the received stream; bit 7: in the PAT.
  std::int32_t value_5;
  /// Always 0.
  std::int32_t reserved;
  /// The service's name.
  char name[textFieldSize];
  /// Zero bytes.
  std::uint8_t reserved_tail[261];
};
static_assert(sizeof(service) == 540);
static_assert(offsetof(service, value_5) == 16 && offsetof(service, reserved) == 20);
static_assert(offsetof(service, name) == 24 && offsetof(service, reserved_tail) == 279);

/// An elementary stream of a service.
struct service_component {
  /// PID.
  std::int32_t value_1;
  /// Stream type.
  std::int32_t value_2;
  /// Component tag.
  std::int32_t value_3;
  /// Program number.
  std::int32_t value_4;
  /// Language as a number, its first letter highest.
  std::int32_t value_5;
  /// The lowest CA system id, the component's own or else the program's.
  std::int32_t value_6;
};
static_assert(sizeof(service_component) == 24 && offsetof(service_component, value_6) == 20);

/// A program map (PMT).
struct pmt {
  /// Program number.
  std::int32_t value_1;
  /// PID of the PMT.
  std::int32_t value_2;
  /// PID of the PCR.
  std::int32_t value_3;
  /// Version.
  std::int32_t value_4;
};
static_assert(sizeof(pmt) == 16 && offsetof(pmt, value_4) == 12);

/// A broadcast event. The six lists are allocated with `new` and belong to whoever consumes the
/// record (ReplyLists.h holds the owner's tools); a copy of the record refers to the same lists.
/// On the wire the record has 848 bytes, with one 4-byte reference word for each list.
struct program_event {
  /// Service id.
  std::int32_t value_1;
  /// Event id; -1 for no event.
  std::int32_t value_2;
  /// Start in seconds since 1970, unsigned.
  std::int32_t value_3;
  /// Duration in seconds.
  std::int32_t value_4;
  /// Table id: 0x4E, 0x4F present/following, 0x50 to 0x6F schedule; 0 in the single event.
  std::int32_t value_5;
  /// Running status.
  std::int32_t value_6;
  /// Transport stream id.
  std::int32_t value_7;
  /// Original network id.
  std::int32_t value_8;
  /// Language (ISO 639-2).
  char text_1[textFieldSize];
  /// Name.
  char text_2[textFieldSize];
  /// Short text.
  char text_3[textFieldSize];
  /// Zero bytes.
  std::uint8_t padding[3];
  /// Number of elements of `byte_list_1`.
  std::int32_t byte_list_1_count;
  /// Number of elements of `byte_list_2`.
  std::int32_t byte_list_2_count;
  /// Number of elements of `byte_list_3`.
  std::int32_t byte_list_3_count;
  /// Number of elements of `text_list_1`.
  std::int32_t text_list_1_count;
  /// Number of elements of `text_list_2`.
  std::int32_t text_list_2_count;
  /// Number of elements of `text_list_3`.
  std::int32_t text_list_3_count;
  /// Content descriptors' entries, two bytes each. Null for no list.
  std::list<char>* byte_list_1;
  /// Parental ratings, four bytes each: country and rating. Null for no list.
  std::list<char>* byte_list_2;
  /// Section number, version, free CA mode. Null for no list.
  std::list<char>* byte_list_3;
  /// The extended text, whole, as one text. Null for no list.
  std::list<std::string>* text_list_1;
  /// Items of the extended text: description, text, and so on. Null for no list.
  std::list<std::string>* text_list_2;
  /// Name and short text, uncut. Null for no list.
  std::list<std::string>* text_list_3;
};
/// Offset of the first list reference, in the record and on the wire.
inline constexpr std::size_t programEventReferences = 824;
/// Size of the record on the wire.
inline constexpr std::size_t programEventSize = 848;
static_assert(offsetof(program_event, value_8) == 28 && offsetof(program_event, text_1) == 32);
static_assert(offsetof(program_event, text_2) == 287 && offsetof(program_event, text_3) == 542);
static_assert(offsetof(program_event, padding) == 797);
static_assert(offsetof(program_event, byte_list_1_count) == 800);
static_assert(offsetof(program_event, text_list_3_count) == 820);
static_assert(offsetof(program_event, byte_list_1) == programEventReferences);
static_assert(offsetof(program_event, text_list_3) == programEventReferences + 5 * sizeof(void*));
static_assert(sizeof(void*) != 4 || sizeof(program_event) == programEventSize);

/// The network that is received.
struct network {
  /// Network id; -1 for no network.
  std::int32_t network_value;
  /// Its name.
  char name[textFieldSize];
  /// Zero.
  std::uint8_t padding;
};
static_assert(sizeof(network) == 260 && offsetof(network, name) == 4);
static_assert(offsetof(network, padding) == 259);

/// The transport stream that is received.
struct transport_stream {
  /// Transport stream id.
  std::int32_t value_1;
  /// Original network id; -1 for no transport stream.
  std::int32_t value_2;
  /// Version of the PAT.
  std::int32_t value_3;
  /// Always 0.
  std::int32_t reserved;
  /// Frequency in MHz.
  float real_value;
  /// 0 to 3: 1 satellite, 2 cable, 3 terrestrial.
  std::int32_t mode;
  /// Zero bytes.
  std::uint8_t reserved_tail[256];
};
static_assert(sizeof(transport_stream) == 280 && offsetof(transport_stream, value_3) == 8);
static_assert(offsetof(transport_stream, real_value) == 16);
static_assert(offsetof(transport_stream, mode) == 20);
static_assert(offsetof(transport_stream, reserved_tail) == 24);

/// A system property.
struct system_property {
  /// The adapter never reads or writes it: 0.
  std::int32_t reserved;
  /// Its name.
  char name[textFieldSize];
  /// Its value.
  char value[textFieldSize];
  /// Zero bytes.
  std::uint8_t padding[2];
};
static_assert(sizeof(system_property) == 516 && offsetof(system_property, name) == 4);
static_assert(offsetof(system_property, value) == 259 && offsetof(system_property, padding) == 514);

/// A descriptor of service information. `data` is allocated with `new` and belongs to whoever
/// consumes the record; a copy of the record refers to the same list.
struct descriptor {
  /// 0 to 255 on air.
  std::int16_t tag;
  /// Number of bytes in `data`.
  std::int32_t length;
  /// The bytes behind the descriptor's length byte. Null for no list.
  std::list<char>* data;
};

/// Which identifiers getAllIDs() asks for: `kind` 1 to 4, with a key for the kinds 1, 3 and 4.
struct tuner_data {
  /// The request's type: any number but 0.
  std::int32_t kind;
  /// The key, any number that the client sent.
  std::int32_t argument;
};
static_assert(sizeof(tuner_data) == 8 && offsetof(tuner_data, argument) == 4);

/// A request to the main video: the rest of a `message` from its word 2 on.
///
/// Selector 0 carries the four bounds. Selector 6 carries a text from offset 4 on that may fill the
/// record, and 7 and 8 a truth value in the byte there: text() and flag() read them.
struct video_data {
  /// The selector: what is asked.
  std::uint32_t type;
  /// Selector 0: the left edge.
  std::int32_t x;
  /// Selector 0: the upper edge.
  std::int32_t y;
  /// Selector 0: from the left edge to the right one.
  std::int32_t width;
  /// Selector 0: from the upper edge to the lower one.
  std::int32_t height;
  /// The rest of the record, as the client sent it.
  std::uint8_t rest[1932];

  /// The text of selector 6, up to its first zero byte or the end of the record.
  [[nodiscard]] std::string_view text() const {
    const auto* begin = reinterpret_cast<const char*>(this) + offsetof(video_data, x);
    const std::string_view field(begin, sizeof(video_data) - offsetof(video_data, x));
    return field.substr(0, field.find('\0'));
  }

  /// The truth value of the selectors 7 and 8: any byte but 0 is true.
  [[nodiscard]] bool flag() const {
    return *(reinterpret_cast<const std::uint8_t*>(this) + offsetof(video_data, x)) != 0;
  }
};
static_assert(sizeof(video_data) == 1952 && offsetof(video_data, x) == 4);
static_assert(offsetof(video_data, height) == 16 && offsetof(video_data, rest) == 20);

/// A request to the main audio: selector 0 to 3 with a level, 4 with a truth value in the first
/// byte of `level`.
struct audio_data {
  /// The selector: 0 sound level, 1 balance, 2 bass, 3 treble, 4 mute.
  std::int32_t type;
  /// As the client sent it.
  std::uint8_t padding[4];
  /// Any real number that the client sent, NaN and infinity included.
  // On 32-bit x86 a double in a record is 4-byte aligned unless told otherwise.
  alignas(8) double level;
};
static_assert(sizeof(audio_data) == 16 && alignof(audio_data) == 8);
static_assert(offsetof(audio_data, level) == 8);

/// The graphics region in pixels.
struct video_region {
  /// The left edge.
  std::int32_t x;
  /// The upper edge.
  std::int32_t y;
  /// From the left edge to the right one.
  std::int32_t width;
  /// From the upper edge to the lower one.
  std::int32_t height;
};
static_assert(sizeof(video_region) == 16 && offsetof(video_region, height) == 12);

/// Whether a record may be copied into a `message` with memcpy.
template <class Record>
inline constexpr bool isPlainRecord =
    std::is_trivially_copyable_v<Record>&& std::is_standard_layout_v<Record>;
static_assert(isPlainRecord<service> && isPlainRecord<service_component> && isPlainRecord<pmt> &&
                  isPlainRecord<program_event> && isPlainRecord<network> &&
                  isPlainRecord<transport_stream> && isPlainRecord<system_property> &&
                  isPlainRecord<tuner_data> && isPlainRecord<video_data> &&
                  isPlainRecord<audio_data> && isPlainRecord<video_region>,
              "a record that travels is copied with memcpy");

}  // namespace quillwork
