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
  std::int32_t x;
  std::int32_t y;
  std::int32_t width;
  std::int32_t height;
};
static_assert(sizeof(Rectangle_t) == 16);

/// A DSM-CC stream event (ISO/IEC 13818-6). `text` holds the event's data bytes, any number.
struct DsmCCCommand_t {
  std::int32_t command_code;
  double event_time;
  std::uint8_t flag;
  std::string text;
};

}  // namespace ipcutil

/// The domain records. Those that travel inside a `message` are copied byte for byte, so their
/// layouts are wire formats and are pinned below. A text field holds at most 254 characters and is
/// filled up with zero bytes; the bytes carry no character set of the library's.
namespace quillwork {

/// Size in bytes of a text field, the terminating zero included.
inline constexpr std::size_t textFieldSize = 255;

/// The state of the client's application; the library gives its values no meaning.
enum class state : std::int32_t {};

/// A video property or query. 3 and 5 name the two languages, 9 to 16 the video properties.
enum class command : std::int32_t {};

struct service {
  std::int32_t value_1;
  std::int32_t value_2;
  std::int32_t value_3;
  std::int32_t value_4;
  std::int32_t value_5;
  std::int32_t reserved;
  char name[textFieldSize];
  std::uint8_t reserved_tail[261];
};
static_assert(sizeof(service) == 540);
static_assert(offsetof(service, value_5) == 16 && offsetof(service, reserved) == 20);
static_assert(offsetof(service, name) == 24 && offsetof(service, reserved_tail) == 279);

struct service_component {
  std::int32_t value_1;
  std::int32_t value_2;
  std::int32_t value_3;
  std::int32_t value_4;
  std::int32_t value_5;
  std::int32_t value_6;
};
static_assert(sizeof(service_component) == 24 && offsetof(service_component, value_6) == 20);

struct pmt {
  std::int32_t value_1;
  std::int32_t value_2;
  std::int32_t value_3;
  std::int32_t value_4;
};
static_assert(sizeof(pmt) == 16 && offsetof(pmt, value_4) == 12);

/// A broadcast event. The six lists are allocated with `new` and belong to the code that
/// consumes the record (ReplyLists.h has owners for it); a copy of the record refers to the same
/// lists. On the wire the record has 848 bytes, with one 4-byte reference word for each list.
struct program_event {
  std::int32_t value_1;
  std::int32_t value_2;
  std::int32_t value_3;
  std::int32_t value_4;
  std::int32_t value_5;
  std::int32_t value_6;
  std::int32_t value_7;
  std::int32_t value_8;
  char text_1[textFieldSize];
  char text_2[textFieldSize];
  char text_3[textFieldSize];
  std::uint8_t padding[3];
  std::int32_t byte_list_1_count;
  std::int32_t byte_list_2_count;
  std::int32_t byte_list_3_count;
  std::int32_t text_list_1_count;
  std::int32_t text_list_2_count;
  std::int32_t text_list_3_count;
  std::list<char>* byte_list_1;
  std::list<char>* byte_list_2;
  std::list<char>* byte_list_3;
  std::list<std::string>* text_list_1;
  std::list<std::string>* text_list_2;
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

struct network {
  std::int32_t network_value;
  char name[textFieldSize];
  std::uint8_t padding;
};
static_assert(sizeof(network) == 260 && offsetof(network, name) == 4);
static_assert(offsetof(network, padding) == 259);

struct transport_stream {
  std::int32_t value_1;
  std::int32_t value_2;
  std::int32_t value_3;
  std::int32_t reserved;
  float real_value;
  std::int32_t mode;
  std::uint8_t reserved_tail[256];
};
static_assert(sizeof(transport_stream) == 280 && offsetof(transport_stream, value_3) == 8);
static_assert(offsetof(transport_stream, real_value) == 16);
static_assert(offsetof(transport_stream, mode) == 20);
static_assert(offsetof(transport_stream, reserved_tail) == 24);

struct system_property {
  std::int32_t reserved;
  char name[textFieldSize];
  char value[textFieldSize];
  std::uint8_t padding[2];
};
static_assert(sizeof(system_property) == 516 && offsetof(system_property, name) == 4);
static_assert(offsetof(system_property, value) == 259 && offsetof(system_property, padding) == 514);

/// A descriptor of service information. `data` is allocated with `new` and belongs to the
/// code that consumes the record; a copy of the record refers to the same list.
struct descriptor {
  std::int16_t tag;
  std::int32_t length;
  std::list<char>* data;
};

/// Which identifiers getAllIDs() asks for: `kind` 1 to 4, with a key for the kinds 1, 3 and 4.
struct tuner_data {
  std::int32_t kind;
  std::int32_t argument;
};
static_assert(sizeof(tuner_data) == 8 && offsetof(tuner_data, argument) == 4);

/// A request to the main video: the rest of a `message` from its word 2 on.
///
/// Selector 0 carries the four bounds. Selector 6 carries a text from offset 4 on that may fill the
/// record, and 7 and 8 a truth value in the byte there: text() and flag() read them.
struct video_data {
  std::uint32_t type;
  std::int32_t x;
  std::int32_t y;
  std::int32_t width;
  std::int32_t height;
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
  std::int32_t type;
  std::uint8_t padding[4];
  // On 32-bit x86 a double in a record is 4-byte aligned without this.
  alignas(8) double level;
};
static_assert(sizeof(audio_data) == 16 && alignof(audio_data) == 8);
static_assert(offsetof(audio_data, level) == 8);

/// The graphics region in pixels.
struct video_region {
  std::int32_t x;
  std::int32_t y;
  std::int32_t width;
  std::int32_t height;
};
static_assert(sizeof(video_region) == 16 && offsetof(video_region, height) == 12);

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
