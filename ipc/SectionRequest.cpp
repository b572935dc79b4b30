#include "ipc/SectionRequest.h"

#include <stdexcept>
#include <string>

namespace quillwork {
namespace {

using Bytes = SectionRequest::Bytes;
using Listener = IpcDemuxServerListener;

// A section has 4096 bytes, and a pattern no more. What is far beyond is not stored but taken for
// more than memory holds: the process must not be killed for what a client claims to send.
constexpr std::int32_t maxVectorSize = 16 << 20;

/// Reads one request's arguments. After a failed read everything keeps the value that it had.
class Arguments {
 public:
  explicit Arguments(ByteSource& source) : source_(source) {}

  std::int32_t integer(std::int32_t kept) {
    std::int32_t value = 0;
    return source_.read(&value, sizeof value) == sizeof value ? value : kept;
  }

  Bytes vector() {
    Bytes bytes;
    count_ = integer(count_);
    if (count_ > maxVectorSize) {
      throw std::length_error("a vector of " + std::to_string(count_) + " bytes");
    }
    for (std::int32_t index = 0; index < count_; ++index) {
      if (source_.read(&byte_, 1) != 1) {
        // The peer is gone for good: every further read would leave the byte as it is.
        bytes.insert(bytes.end(), static_cast<std::size_t>(count_ - index), byte_);
        break;
      }
      bytes.push_back(byte_);
    }
    return bytes;
  }

 private:
  ByteSource& source_;
  // One variable serves all vectors of a request.
  std::int32_t count_ = 0;
  unsigned char byte_ = 0;
};

// The listener's operations, by the form of their arguments.

template <void (Listener::*operation)()>
Bytes withoutArguments(const SectionRequest&, Listener& listener) {
  (listener.*operation)();
  return {};
}

template <auto operation>
Bytes withNumber(const SectionRequest& request, Listener& listener) {
  (listener.*operation)(request.number);
  return {};
}

template <void (Listener::*operation)(int, const Bytes&, const Bytes&)>
Bytes withTwoVectors(const SectionRequest& request, Listener& listener) {
  (listener.*operation)(request.number, request.vectors[0], request.vectors[1]);
  return {};
}

Bytes setXorFilter(const SectionRequest& request, Listener& listener) {
  const auto& [first, second, third] = request.vectors;
  listener.set_xor_filter(request.number, first, second, third);
  return {};
}

Bytes readSection(const SectionRequest&, Listener& listener) { return listener.read_section(); }

struct Row {
  Bytes (*perform)(const SectionRequest& request, Listener& listener);
  bool hasNumber = false;
  /// What the number is if it cannot be read.
  std::int32_t kept = 0;
  std::size_t vectors = 0;
};

// Row by row the requests of the protocol; the index is the request's code.
constexpr std::array<Row, SectionRequest::codes> rows = {{
    {withoutArguments<&Listener::start>},
    {withoutArguments<&Listener::stop>},
    {withNumber<&Listener::set_pid>, true, -1},
    {withNumber<&Listener::set_table_id>, true, -1},
    {withTwoVectors<&Listener::set_positive_filter>, true, 0, 2},
    {withTwoVectors<&Listener::set_greater_than_filter>, true, 0, 2},
    {withTwoVectors<&Listener::set_less_than_filter>, true, 0, 2},
    {setXorFilter, true, 0, 3},
    {withNumber<&Listener::set_time_out>, true, 0},
    {withoutArguments<&Listener::clear_table_id>},
    {withoutArguments<&Listener::clear_positive_filter>},
    {withoutArguments<&Listener::clear_less_than_filter>},
    {withoutArguments<&Listener::clear_xor_filter>},
    {readSection},
}};

const Row& rowOf(std::int32_t code) { return rows[static_cast<std::size_t>(code)]; }

}  // namespace

SectionRequest readArguments(std::int32_t code, ByteSource& source) {
  const Row& row = rowOf(code);
  SectionRequest request;
  request.code = code;
  Arguments arguments(source);
  if (row.hasNumber) request.number = arguments.integer(row.kept);
  for (std::size_t index = 0; index < row.vectors; ++index) {
    request.vectors[index] = arguments.vector();
  }
  return request;
}

Bytes perform(const SectionRequest& request, Listener& listener) {
  return rowOf(request.code).perform(request, listener);
}

}  // namespace quillwork
