#include "cli/SectionDecoder.h"

#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

namespace quillwork::cli {
namespace {

struct Request {
  const char* name;
  const char* argument;  ///< null for none
  int vectors;
};

// By their codes.
constexpr Request requests[] = {
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

/// Takes what has arrived apart, until it has been enough or not.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  std::optional<std::int32_t> integer() {
    std::int32_t value = 0;
    if (rest_.size() < sizeof value) return std::nullopt;
    std::memcpy(&value, rest_.data(), sizeof value);
    rest_.remove_prefix(sizeof value);
    return value;
  }

  /// A count and so many bytes, as pairs of hexadecimal digits; a negative count is none.
  std::optional<std::string> vector() {
    const auto count = integer();
    if (!count) return std::nullopt;
    const std::size_t size = *count > 0 ? static_cast<std::size_t>(*count) : 0;
    if (rest_.size() < size) return std::nullopt;
    std::string text = hex(std::span(reinterpret_cast<const std::uint8_t*>(rest_.data()), size));
    rest_.remove_prefix(size);
    return text;
  }

  [[nodiscard]] std::size_t left() const { return rest_.size(); }

 private:
  std::string_view rest_;
};

}  // namespace

std::vector<TraceLine> SectionDecoder::feed(Direction direction, std::string_view bytes) {
  if (direction == Direction::toLibrary) {
    fromClient_ += bytes;
    while (decodeRequest()) {
    }
  } else {
    fromLibrary_ += bytes;
    while (decodeSection()) {
    }
  }
  return std::exchange(lines_, {});
}

bool SectionDecoder::decodeRequest() {
  Reader reader(fromClient_);
  const auto code = reader.integer();
  if (!code) return false;
  TraceLine line;
  if (*code < 0 || *code >= static_cast<std::int32_t>(std::size(requests))) {
    line.kind = "unknown";
    line.fields["code"] = *code;
  } else {
    const Request& request = requests[*code];
    line.kind = "request";
    line.operation = request.name;
    if (request.argument != nullptr) {
      const auto value = reader.integer();
      if (!value) return false;
      line.fields[request.argument] = *value;
    }
    for (int vector = 1; vector <= request.vectors; ++vector) {
      const auto bytes = reader.vector();
      if (!bytes) return false;
      line.fields["bytes_" + std::to_string(vector)] = *bytes;
    }
  }
  fromClient_.erase(0, fromClient_.size() - reader.left());
  lines_.push_back(std::move(line));
  return true;
}

bool SectionDecoder::decodeSection() {
  Reader reader(fromLibrary_);
  const auto section = reader.vector();
  if (!section) return false;
  TraceLine line{Direction::toClient, "reply", "read_section", {}};
  line.fields = {{"size", section->size() / 2}, {"section", *section}};
  fromLibrary_.erase(0, fromLibrary_.size() - reader.left());
  lines_.push_back(std::move(line));
  return true;
}

}  // namespace quillwork::cli
