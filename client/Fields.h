#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

#include "protocol/message.h"
#include "protocol/operations.h"

/// The fields of the control channel's records, read and written by the protocol's table.
namespace quillwork::client {

/// What a request's field is given. Texts are borrowed.
class Value : public std::variant<std::int32_t, bool, double, std::string_view> {
 public:
  using variant::variant;
  Value(const std::string& text) : variant(std::string_view(text)) {}
};

/// The row of an operation: a name that no row has does not compile.
template <operations::Name name>
inline constexpr const operations::Request& rowOf = operations::requests[operations::request(name)];

/// A field of an operation's answer, or of each element of its list.
template <operations::Name operation, operations::Name name>
inline constexpr operations::Field answered = operations::field(rowOf<operation>.answer, name);

/// A request with its fields' values in the order of the row; everything else is zero. Throws Error
/// for a text that does not fit its field.
message makeRequest(const operations::Request& row, std::initializer_list<Value> values);

/// A number of any size.
std::int32_t readInteger(const message& record, const operations::Field& field);
bool readBoolean(const message& record, const operations::Field& field);
double readReal(const message& record, const operations::Field& field);
/// A text of any kind, cut where its field ends.
std::string readText(const message& record, const operations::Field& field);

}  // namespace quillwork::client
