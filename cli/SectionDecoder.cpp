#include "cli/SectionDecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <utility>

namespace quillwork::cli {
namespace {

constexpr std::size_t wordSize = sizeof(std::int32_t);

struct RequestRow {
  const char* name;
  const char* argument;  ///< null for none
  std::size_t vectors;
};

// By their codes.
constexpr RequestRow requests[] = {
    {"start", nullptr, 0},
    {"stop", nullptr, 0},
    {"set_pid", "pid", 0},
    {"set_table_id", "table_id", 0},
    {"set_positive_filter", "filter_arg", 2},
    {"set_greater_than_filter", "filter_arg", 2},
    {"set_less_than_filter", "filter_arg", 2},
    {"set_xor_filter", "filter_arg", 3},
    {"set_time_out", "time_out", 0},
    {"clear_table_id", nullptr, 0},
    {"clear_positive_filter", nullptr, 0},
    {"clear_less_than_filter", nullptr, 0},
    {"clear_xor_filter", nullptr, 0},
    {"read_section", nullptr, 0},
};

constexpr std::int32_t readSection = 13;

std::int32_t integerOf(std::string_view item) {
  std::int32_t value = 0;
  std::memcpy(&value, item.data(), sizeof value);
  return value;
}

/// A negative count is none.
std::size_t sizeOf(std::string_view count) {
  return static_cast<std::size_t>(std::max(integerOf(count), 0));
}

std::string hex(std::string_view bytes) {
  return cli::hex(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

}  // namespace

SectionDecoder::SectionDecoder() : TraceDecoder(wordSize, wordSize) {}

void SectionDecoder::take(Direction direction, std::string_view item) {
  (this->*(direction == Direction::toLibrary ? requestStep_ : replyStep_))(item);
}

void SectionDecoder::takeCode(std::string_view item) {
  code_ = integerOf(item);
  fields_ = Json::object();
  if (code_ < 0 || code_ >= std::ssize(requests)) {
    // What may be its arguments are taken for codes: so does the library.
    add(Direction::toLibrary, "dropped", "", {{"code", code_}});
    return;
  }
  const RequestRow& request = requests[code_];
  vectorsLeft_ = request.vectors;
  if (request.argument != nullptr) {
    expectPart(&SectionDecoder::takeArgument, wordSize, wordSize * request.vectors);
  } else {
    expectVector();
  }
}

void SectionDecoder::takeArgument(std::string_view item) {
  fields_[requests[code_].argument] = integerOf(item);
  expectVector();
}

/// The next vector, or the request's end.
void SectionDecoder::expectVector() {
  if (vectorsLeft_ == 0) {
    endRequest();
  } else {
    --vectorsLeft_;
    expectPart(&SectionDecoder::takeVectorSize, wordSize, wordSize * vectorsLeft_);
  }
}

void SectionDecoder::takeVectorSize(std::string_view item) {
  expectPart(&SectionDecoder::takeVector, sizeOf(item), wordSize * vectorsLeft_);
}

void SectionDecoder::takeVector(std::string_view item) {
  fields_["bytes_" + std::to_string(requests[code_].vectors - vectorsLeft_)] = hex(item);
  expectVector();
}

void SectionDecoder::expectPart(Step step, std::size_t size, std::size_t behind) {
  requestStep_ = step;
  expectMore(Direction::toLibrary, size, requests[code_].name, behind);
}

void SectionDecoder::endRequest() {
  requestStep_ = &SectionDecoder::takeCode;
  expectNew(Direction::toLibrary, wordSize);
  addRequest(requests[code_].name, std::exchange(fields_, Json::object()), code_ == readSection);
}

void SectionDecoder::takeSectionSize(std::string_view item) {
  replyStep_ = &SectionDecoder::takeSection;
  replyTime_ = now();
  expectMore(Direction::toClient, sizeOf(item), requests[readSection].name);
}

void SectionDecoder::takeSection(std::string_view item) {
  replyStep_ = &SectionDecoder::takeSectionSize;
  expectNew(Direction::toClient, wordSize);
  Json fields{{"size", item.size()}, {"section", hex(item)}};
  if (waiting().empty()) {
    add(Direction::toClient, "unknown", "", std::move(fields));
    return;
  }
  const TraceDecoder::Request request = answer(0);
  TraceLine& line = add(Direction::toClient, "reply", request.operation, std::move(fields));
  line.request = request.number;
  line.after = replyTime_ - request.time;
}

}  // namespace quillwork::cli
