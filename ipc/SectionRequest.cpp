#include "ipc/SectionRequest.h"

#include <stdexcept>
#include <string>

#include "protocol/operations.h"

namespace quillwork {
namespace {

using Bytes = SectionRequest::Bytes;
using Listener = IpcDemuxServerListener;

// A section has at most 4096 bytes, and so has a pattern. A count far beyond that is handled as if
// memory had run out: the process must not be killed for what a client claims to send.
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

struct Row {
  Bytes (*perform)(const SectionRequest& request, Listener& listener);
  bool hasNumber;
  std::int32_t numberIfCut;
  std::size_t vectors;
};

/// A request's code with its row.
struct Binding {
  std::size_t code;
  Row row;
};

/// Calls the listener's operation with the arguments that the row lists.
template <std::size_t code, auto operation>
Bytes call(const SectionRequest& request, Listener& listener) {
  constexpr const operations::SectionFilterRequest& row = operations::sectionFilterRequests[code];
  const auto& [first, second, third] = request.vectors;
  if constexpr (row.isAnswered) {
    return (listener.*operation)();
  } else if constexpr (row.vectors.size() == 3) {
    (listener.*operation)(request.number, first, second, third);
  } else if constexpr (row.vectors.size() == 2) {
    (listener.*operation)(request.number, first, second);
  } else if constexpr (hasNumber(row)) {
    (listener.*operation)(request.number);
  } else {
    (listener.*operation)();
  }
  return {};
}

template <operations::Name name, auto operation>
consteval Binding on() {
  constexpr std::size_t code = operations::sectionFilterRequest(name);
  constexpr const operations::SectionFilterRequest& row = operations::sectionFilterRequests[code];
  return {code, {call<code, operation>, hasNumber(row), row.numberIfCut, row.vectors.size()}};
}

constexpr Binding bindings[] = {
    on<"start", &Listener::start>(),
    on<"stop", &Listener::stop>(),
    on<"set_pid", &Listener::set_pid>(),
    on<"set_table_id", &Listener::set_table_id>(),
    on<"set_positive_filter", &Listener::set_positive_filter>(),
    on<"set_greater_than_filter", &Listener::set_greater_than_filter>(),
    on<"set_less_than_filter", &Listener::set_less_than_filter>(),
    on<"set_xor_filter", &Listener::set_xor_filter>(),
    on<"set_time_out", &Listener::set_time_out>(),
    on<"clear_table_id", &Listener::clear_table_id>(),
    on<"clear_positive_filter", &Listener::clear_positive_filter>(),
    on<"clear_less_than_filter", &Listener::clear_less_than_filter>(),
    on<"clear_xor_filter", &Listener::clear_xor_filter>(),
    on<"read_section", &Listener::read_section>(),
};

/// By their codes. A code without a binding does not compile.
constexpr std::array<Row, SectionRequest::codeCount> rows = [] {
  std::array<Row, SectionRequest::codeCount> all{};
  std::array<bool, SectionRequest::codeCount> isBound{};
  for (const Binding& binding : bindings) {
    all[binding.code] = binding.row;
    isBound[binding.code] = true;
  }
  // Not by the functions' addresses, which the undefined-behaviour sanitizer does not let compare.
  for (const bool isOneBound : isBound) {
    if (!isOneBound) throw "a request of operations.h has no binding";
  }
  return all;
}();

const Row& rowOf(std::int32_t code) { return rows[static_cast<std::size_t>(code)]; }

}  // namespace

SectionRequest readArguments(std::int32_t code, ByteSource& source) {
  const Row& row = rowOf(code);
  SectionRequest request;
  request.code = code;
  Arguments arguments(source);
  if (row.hasNumber) request.number = arguments.integer(row.numberIfCut);
  for (std::size_t index = 0; index < row.vectors; ++index) {
    request.vectors[index] = arguments.vector();
  }
  return request;
}

Bytes perform(const SectionRequest& request, Listener& listener) {
  return rowOf(request.code).perform(request, listener);
}

}  // namespace quillwork
