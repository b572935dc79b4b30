#include "cli/SectionDecoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

namespace quillwork::cli {
namespace {

constexpr std::size_t wordSize = sizeof(std::int32_t);

std::int32_t integerOf(std::string_view item) {
  std::int32_t value = 0;
  std::memcpy(&value, item.data(), sizeof value);
  return value;
}

/// A negative count is none.
std::size_t sizeOf(std::string_view count) {
  return static_cast<std::size_t>(std::max(integerOf(count), 0));
}

const operations::SectionFilterRequest* rowOf(std::int32_t code) {
  const bool isKnown = code >= 0 && code < std::ssize(operations::sectionFilterRequests);
  return isKnown ? &operations::sectionFilterRequests[code] : nullptr;
}

}  // namespace

SectionDecoder::SectionDecoder() : TraceDecoder(wordSize, wordSize) {}

void SectionDecoder::take(Direction direction, std::string_view item) {
  (this->*(direction == Direction::toLibrary ? requestStep_ : replyStep_))(item);
}

void SectionDecoder::takeCode(std::string_view item) {
  const std::int32_t code = integerOf(item);
  row_ = rowOf(code);
  if (row_ == nullptr) {
    // What may be its arguments are taken for codes: so does the library.
    add(Direction::toLibrary, "dropped", "", {{"code", code}});
    return;
  }
  fields_ = Json::object();
  vector_ = 0;
  if (operations::hasNumber(*row_)) {
    expectPart(&SectionDecoder::takeNumber, wordSize);
  } else {
    expectVector();
  }
}

void SectionDecoder::takeNumber(std::string_view item) {
  fields_[row_->number] = integerOf(item);
  expectVector();
}

/// The next vector, or the request's end.
void SectionDecoder::expectVector() {
  if (vector_ == row_->vectors.size()) {
    endRequest();
  } else {
    ++vector_;
    expectPart(&SectionDecoder::takeVectorSize, wordSize);
  }
}

void SectionDecoder::takeVectorSize(std::string_view item) {
  expectPart(&SectionDecoder::takeVector, sizeOf(item));
}

void SectionDecoder::takeVector(std::string_view item) {
  fields_[row_->vectors[vector_ - 1]] = hex(item);
  expectVector();
}

/// Each vector that has not begun has a count at least.
void SectionDecoder::expectPart(Step step, std::size_t size) {
  requestStep_ = step;
  expectMore(Direction::toLibrary, size, row_->name, wordSize * (row_->vectors.size() - vector_));
}

void SectionDecoder::endRequest() {
  requestStep_ = &SectionDecoder::takeCode;
  expectNew(Direction::toLibrary, wordSize);
  addRequest(row_->name, std::exchange(fields_, Json::object()), row_->isAnswered, {});
}

void SectionDecoder::takeSectionSize(std::string_view item) {
  replyStep_ = &SectionDecoder::takeSection;
  replyTime_ = now();
  expectMore(Direction::toClient, sizeOf(item), nextOperation());
}

void SectionDecoder::takeSection(std::string_view item) {
  replyStep_ = &SectionDecoder::takeSectionSize;
  expectNew(Direction::toClient, wordSize);
  Json fields{{"size", item.size()}, {"section", hex(item)}};
  const auto waiting = findWaiting([](const Key&) { return true; });
  if (!waiting) {
    add(Direction::toClient, "unknown", "", std::move(fields));
    return;
  }
  const Request request = answer(*waiting);
  TraceLine& line = add(Direction::toClient, "reply", request.operation, std::move(fields));
  line.request = request.number;
  line.after = replyTime_ - request.time;
}

}  // namespace quillwork::cli
