#include "client/SectionFilterChannel.h"

#include <cassert>
#include <cstring>

#include "protocol/operations.h"

namespace quillwork::client {
namespace {

// A section has 4,096 bytes at most; a receiver that announces far more is none.
constexpr std::int32_t maxSection = 1 << 20;

void append(std::vector<std::uint8_t>& bytes, std::int32_t value) {
  std::uint8_t word[sizeof value];
  std::memcpy(word, &value, sizeof value);
  bytes.insert(bytes.end(), std::begin(word), std::end(word));
}

/// The code of a request: a name that no request has does not compile.
template <operations::Name name>
constexpr std::size_t codeOf = operations::sectionFilterRequest(name);

}  // namespace

void SectionFilterChannel::send(std::size_t code, std::initializer_list<std::int32_t> arguments,
                                std::initializer_list<const Bytes*> vectors) {
  [[maybe_unused]] const operations::SectionFilterRequest& row =
      operations::sectionFilterRequests[code];
  assert(arguments.size() == (hasNumber(row) ? 1 : 0) && vectors.size() == row.vectors.size());
  Bytes bytes;
  append(bytes, static_cast<std::int32_t>(code));
  for (const std::int32_t argument : arguments) append(bytes, argument);
  for (const Bytes* const vector : vectors) {
    append(bytes, static_cast<std::int32_t>(vector->size()));
    bytes.insert(bytes.end(), vector->begin(), vector->end());
  }
  channel_.send(bytes.data(), bytes.size());
}

void SectionFilterChannel::request(std::size_t code, std::initializer_list<std::int32_t> arguments,
                                   std::initializer_list<const Bytes*> vectors) {
  channel_.begin();
  send(code, arguments, vectors);
}

void SectionFilterChannel::start() { request(codeOf<"start">); }

void SectionFilterChannel::stop() { request(codeOf<"stop">); }

void SectionFilterChannel::set_pid(std::int32_t pid) { request(codeOf<"set_pid">, {pid}); }

void SectionFilterChannel::set_table_id(std::int32_t tableId) {
  request(codeOf<"set_table_id">, {tableId});
}

void SectionFilterChannel::set_positive_filter(std::int32_t filterArg, const Bytes& first,
                                               const Bytes& second) {
  request(codeOf<"set_positive_filter">, {filterArg}, {&first, &second});
}

void SectionFilterChannel::set_greater_than_filter(std::int32_t filterArg, const Bytes& first,
                                                   const Bytes& second) {
  request(codeOf<"set_greater_than_filter">, {filterArg}, {&first, &second});
}

void SectionFilterChannel::set_less_than_filter(std::int32_t filterArg, const Bytes& first,
                                                const Bytes& second) {
  request(codeOf<"set_less_than_filter">, {filterArg}, {&first, &second});
}

void SectionFilterChannel::set_xor_filter(std::int32_t filterArg, const Bytes& first,
                                          const Bytes& second, const Bytes& third) {
  request(codeOf<"set_xor_filter">, {filterArg}, {&first, &second, &third});
}

void SectionFilterChannel::set_time_out(std::int32_t timeOut) {
  request(codeOf<"set_time_out">, {timeOut});
}

void SectionFilterChannel::clear_table_id() { request(codeOf<"clear_table_id">); }

void SectionFilterChannel::clear_positive_filter() { request(codeOf<"clear_positive_filter">); }

void SectionFilterChannel::clear_less_than_filter() { request(codeOf<"clear_less_than_filter">); }

void SectionFilterChannel::clear_xor_filter() { request(codeOf<"clear_xor_filter">); }

SectionFilterChannel::Bytes SectionFilterChannel::read_section(std::chrono::milliseconds extra) {
  channel_.begin(channel_.timeLimit() + extra);
  send(codeOf<"read_section">, {}, {});
  std::int32_t count = 0;
  channel_.receive(&count, sizeof count);
  if (count < 0 || count > maxSection) {
    throw Error(channel_.path() + ": a section of " + std::to_string(count) + " bytes");
  }
  Bytes section(static_cast<std::size_t>(count));
  channel_.receive(section.data(), section.size());
  return section;
}

}  // namespace quillwork::client
