#pragma once

#include "protocol/language.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace quillwork {

static_assert(std::endian::native == std::endian::little,
              "the record's words are little-endian on the wire");

/// The families of requests and notifications: the values of message::group.
enum message_group : std::int32_t {
  VIDEO = 0,              ///< main video, languages, graphics region
  APPLICATION_STATE = 1,  ///< the library asks, the client answers
  SYSTEM_PROPERTY = 2,    ///< system properties
  AUDIO = 3,              ///< main audio
  TUNER = 4,              ///< transport stream id, identifier lists
  CAROUSEL = 5,           ///< object carousels
  SI = 6,                 ///< service information
  LIST_HEADER = 7,        ///< opens a list; library only
  MEDIA = 8,              ///< media players
  DSMCC_COMMAND = 9,      ///< DSM-CC commands; library only
  VERSION = 10,           ///< version flags
};

/// The one record of the control channel: 490 little-endian words, sent and received whole.
/// docs/protocol.md lists what each group and type carries. A plain value: `message{}` is zero,
/// `message` without an initialiser is not.
struct message {
  /// Of 4 bytes each.
  static constexpr std::size_t words = 490;

  /// A message_group, or whatever a client has sent.
  std::int32_t group;
  /// Never read; a reply has what its request had there.
  std::int32_t reserved;
  /// What is asked or told in the group; of a list's header the number of elements.
  std::int32_t type;
  /// By group and type, and in a request whatever the client has sent.
  std::int32_t payload[words - 3];

  /// The word at an index from 0 to 489, counted from the record's start.
  std::int32_t& operator[](std::size_t word) {
    assert(word < words);
    return word == 0 ? group : word == 1 ? reserved : word == 2 ? type : payload[word - 3];
  }

  /// The word at an index from 0 to 489, to read.
  const std::int32_t& operator[](std::size_t word) const {
    return const_cast<message&>(*this)[word];
  }
};
static_assert(sizeof(message) == 1960);
static_assert(offsetof(message, reserved) == 4 && offsetof(message, type) == 8);
static_assert(offsetof(message, payload) == 12);
static_assert(std::is_trivial_v<message> && std::is_standard_layout_v<message>,
              "the record is copied with memcpy and no constructor clears it");

/// The longest text of a 255-byte field.
inline constexpr std::size_t maxShortString = 254;

/// A text of a fixed field, up to its first zero byte or the field's end.
template <std::size_t Size>
std::string_view fieldText(const char (&field)[Size]) {
  const std::string_view whole(field, Size);
  return whole.substr(0, whole.find('\0'));
}

/// Clears a fixed field and fills it with as much of the text as leaves a zero byte at its end.
template <std::size_t Size>
void setFieldText(char (&field)[Size], std::string_view text) {
  const std::size_t length = std::min(text.size(), Size - 1);
  std::memcpy(field, text.data(), length);
  std::memset(field + length, 0, Size - length);
}

/// Copies `size` bytes into the record from a byte position on.
inline void putBytes(message& record, std::size_t position, const void* data, std::size_t size) {
  assert(position + size <= sizeof record);
  std::memcpy(reinterpret_cast<char*>(&record) + position, data, size);
}

/// Copies a plain value (a word, a double, a domain record) into the record.
template <class Value>
void put(message& record, std::size_t position, const Value& value) {
  static_assert(std::is_trivially_copyable_v<Value>);
  putBytes(record, position, &value, sizeof value);
}

/// Copies a plain value out of the record.
template <class Value>
Value get(const message& record, std::size_t position) {
  static_assert(std::is_trivially_copyable_v<Value>);
  assert(position + sizeof(Value) <= sizeof record);
  Value value;
  std::memcpy(&value, reinterpret_cast<const char*>(&record) + position, sizeof value);
  return value;
}

/// Writes a truth value: one byte, 0 or 1; the other bytes of its word stay.
inline void putBoolean(message& record, std::size_t position, bool value) {
  put<std::uint8_t>(record, position, value ? 1 : 0);
}

/// Reads a truth value: any byte but 0 is true.
inline bool getBoolean(const message& record, std::size_t position) {
  return get<std::uint8_t>(record, position) != 0;
}

/// Writes a short string: clears 255 bytes, then copies at most 254 characters.
inline void putShortString(message& record, std::size_t position, std::string_view text) {
  char field[maxShortString + 1];
  setFieldText(field, text);
  put(record, position, field);
}

/// Reads the text from a position up to its first zero byte or the end of the record.
inline std::string getString(const message& record, std::size_t position) {
  assert(position <= sizeof record);
  const std::string_view rest(reinterpret_cast<const char*>(&record) + position,
                              sizeof record - position);
  return std::string(rest.substr(0, rest.find('\0')));
}

}  // namespace quillwork
