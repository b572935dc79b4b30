#include "client/Fields.h"

#include <cassert>
#include <cstring>

#include "client/Channel.h"

namespace quillwork::client {
namespace {

using operations::Field;
using operations::Kind;

/// The characters that fit a field. A text ends with a zero byte in its field.
std::size_t maxLength(const Field& field) {
  switch (field.kind) {
    case Kind::shortText:
      return maxShortString;
    case Kind::textPart:
      return operations::maxTextPart;
    default:
      return sizeof(message) - field.position - 1;
  }
}

void write(message& record, const Field& field, std::string_view text) {
  const std::size_t max = maxLength(field);
  if (text.size() > max) {
    throw Error("'" + std::string(text.substr(0, 20)) + "...' is longer than the protocol's " +
                std::to_string(max) + " characters");
  }
  putBytes(record, field.position, text.data(), text.size());
}

void write(message& record, const Field& field, bool value) {
  putBoolean(record, field.position, value);
}

template <class Number>
void write(message& record, const Field& field, Number value) {
  put(record, field.position, value);
}

}  // namespace

message makeRequest(const operations::Request& row, std::initializer_list<Value> values) {
  assert(values.size() == row.request.fields.size());
  message request{};
  request.group = row.group;
  if (!isAnyOther(row.types)) request.type = row.types.first;
  const Field* field = row.request.fields.begin();
  for (const Value& value : values) {
    std::visit([&](const auto& plain) { write(request, *field, plain); }, value);
    ++field;
  }
  return request;
}

std::int32_t readInteger(const message& record, const Field& field) {
  switch (field.kind) {
    case Kind::byte:
      return get<std::uint8_t>(record, field.position);
    case Kind::halfWord:
      return get<std::int16_t>(record, field.position);
    default:
      return get<std::int32_t>(record, field.position);
  }
}

bool readBoolean(const message& record, const Field& field) {
  return getBoolean(record, field.position);
}

double readReal(const message& record, const Field& field) {
  if (field.kind == Kind::real32) return get<float>(record, field.position);
  return get<double>(record, field.position);
}

std::string readText(const message& record, const Field& field) {
  const char* const begin = reinterpret_cast<const char*>(&record) + field.position;
  return {begin, strnlen(begin, maxLength(field))};
}

}  // namespace quillwork::client
