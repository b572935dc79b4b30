#include "client/SectionFilterChannel.h"

#include <cstring>

namespace quillwork::client {
namespace {

// A section has 4,096 bytes at most; a receiver that announces far more is none.
constexpr std::int32_t maxSection = 1 << 20;

void append(std::vector<std::uint8_t>& bytes, std::int32_t value) {
  std::uint8_t word[sizeof value];
  std::memcpy(word, &value, sizeof value);
  bytes.insert(bytes.end(), std::begin(word), std::end(word));
}

}  // namespace

void SectionFilterChannel::request(std::int32_t code, std::initializer_list<std::int32_t> arguments,
                                   std::initializer_list<const Bytes*> vectors) {
  Bytes bytes;
  append(bytes, code);
  for (const std::int32_t argument : arguments) append(bytes, argument);
  for (const Bytes* const vector : vectors) {
    append(bytes, static_cast<std::int32_t>(vector->size()));
    bytes.insert(bytes.end(), vector->begin(), vector->end());
  }
  channel_.send(bytes.data(), bytes.size());
}

SectionFilterChannel::Bytes SectionFilterChannel::read_section(std::chrono::milliseconds extra) {
  request(13, {});
  std::int32_t count = 0;
  channel_.receive(&count, sizeof count, channel_.timeLimit() + extra);
  if (count < 0 || count > maxSection) {
    throw Error(channel_.path() + ": a section of " + std::to_string(count) + " bytes");
  }
  Bytes section(static_cast<std::size_t>(count));
  channel_.receive(section.data(), section.size());
  return section;
}

}  // namespace quillwork::client
