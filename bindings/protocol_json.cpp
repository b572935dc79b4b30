// The table of operations.h as JSON, for clients in other languages. The compiler writes it into a
// section of its own, from where the build copies it into a file: no program has to run, so that a
// build for another processor has it, too. docs/protocol-json.md describes the format.

#include <array>
#include <string_view>

#include "protocol/operations.h"

namespace quillwork::operations {
namespace {

/// Writes into a buffer, or without one counts what it would write.
class Writer {
 public:
  constexpr explicit Writer(char* buffer) : buffer_(buffer) {}

  [[nodiscard]] constexpr std::size_t size() const { return size_; }

  constexpr Writer& raw(std::string_view text) {
    for (const char character : text) {
      if (buffer_ != nullptr) buffer_[size_] = character;
      ++size_;
    }
    return *this;
  }

  constexpr void value(std::string_view text) { raw("\"").raw(text).raw("\""); }
  constexpr void value(const char* text) { value(std::string_view(text)); }
  constexpr void value(bool truth) { raw(truth ? "true" : "false"); }
  constexpr void value(std::int64_t number) {
    if (number < 0) raw("-");
    std::array<char, 20> digits{};
    std::size_t first = digits.size();
    auto rest = static_cast<std::uint64_t>(number < 0 ? -number : number);
    do {
      digits[--first] = static_cast<char>('0' + rest % 10);
      rest /= 10;
    } while (rest > 0);
    raw({digits.data() + first, digits.size() - first});
  }
  constexpr void value(std::size_t number) { value(static_cast<std::int64_t>(number)); }
  constexpr void value(std::int32_t number) { value(static_cast<std::int64_t>(number)); }

  /// A member of an object, behind a comma unless it is the object's first.
  template <class Value>
  constexpr Writer& member(std::string_view name, const Value& content) {
    key(name);
    value(content);
    return *this;
  }
  constexpr Writer& key(std::string_view name) {
    separate();
    value(name);
    raw(": ");
    return *this;
  }
  constexpr void separate() {
    if (!isFirst_) raw(", ");
    isFirst_ = false;
  }
  constexpr void open(std::string_view bracket) {
    raw(bracket);
    isFirst_ = true;
  }
  constexpr void close(std::string_view bracket) {
    raw(bracket);
    isFirst_ = false;
  }

 private:
  char* buffer_;
  std::size_t size_ = 0;
  bool isFirst_ = true;
};

constexpr std::string_view nameOf(Kind kind) {
  constexpr std::array<std::string_view, 9> names = {"integer",   "halfWord", "byte",
                                                     "boolean",   "real32",   "real64",
                                                     "shortText", "longText", "textPart"};
  return names[static_cast<std::size_t>(kind)];
}

constexpr std::string_view nameOf(Reply reply) {
  constexpr std::array<std::string_view, 4> names = {"none", "record", "list", "listFirst"};
  return names[static_cast<std::size_t>(reply)];
}

constexpr std::string_view nameOf(Trailing::Kind kind) {
  return kind == Trailing::Kind::bytes ? "bytes" : "texts";
}

constexpr void write(Writer& json, const Field& field) {
  json.separate();
  json.open("{");
  json.member("name", field.name).member("kind", nameOf(field.kind));
  json.member("position", field.position);
  if (!std::string_view(field.unit).empty()) json.member("unit", field.unit);
  json.close("}");
}

constexpr void write(Writer& json, const Trailing& list) {
  json.separate();
  json.open("{");
  json.member("name", list.name).member("kind", nameOf(list.kind));
  json.member("count", list.count).member("presence", list.presence);
  json.close("}");
}

template <class Elements>
constexpr void writeList(Writer& json, std::string_view name, const Elements& elements) {
  json.key(name);
  json.open("[");
  for (const auto& element : elements) write(json, element);
  json.close("]");
}

constexpr void write(Writer& json, std::string_view name, const Content& content) {
  json.key(name);
  json.open("{");
  writeList(json, "fields", content.fields);
  writeList(json, "trailing", content.trailing);
  if (content.recordSize > 0) {
    json.key("record");
    json.open("{");
    json.member("name", content.record).member("size", content.recordSize);
    json.member("position", content.recordPosition);
    json.close("}");
  }
  json.close("}");
}

constexpr void writeTypes(Writer& json, const Types& types) {
  json.key("types");
  if (isAnyOther(types)) {
    json.raw("null");
    return;
  }
  json.open("[");
  json.separate();
  json.value(types.first);
  json.separate();
  json.value(types.last);
  json.close("]");
}

constexpr void writeElementType(Writer& json, std::int32_t type) {
  if (type == keepsCount) {
    json.member("elementType", "count");
  } else if (type == ofTheRecord) {
    json.member("elementType", "record");
  } else {
    json.member("elementType", type);
  }
}

constexpr void write(Writer& json, const Request& row) {
  json.member("name", row.name).member("group", static_cast<std::int32_t>(row.group));
  writeTypes(json, row.types);
  write(json, "request", row.request);
  json.member("reply", nameOf(row.reply));
  write(json, "answer", row.answer);
  if (row.reply == Reply::list || row.reply == Reply::listFirst) {
    writeElementType(json, row.elementType);
  }
}

constexpr void write(Writer& json, const Notification& row) {
  json.member("name", row.name).member("group", static_cast<std::int32_t>(row.group));
  writeTypes(json, row.types);
  write(json, "content", row.content);
}

constexpr void write(Writer& json, const SectionFilterRequest& row) {
  json.member("name", row.name);
  json.member("code", find(sectionFilterRequests, row.name));
  json.key("number");
  if (hasNumber(row)) {
    json.value(row.number);
  } else {
    json.raw("null");
  }
  json.key("vectors");
  json.open("[");
  for (const char* const vector : row.vectors) {
    json.separate();
    json.value(vector);
  }
  json.close("]");
  json.member("isAnswered", row.isAnswered);
}

/// A list with a line for each row.
template <class Rows>
constexpr void writeRows(Writer& json, std::string_view name, const Rows& rows) {
  json.key(name);
  json.open("[");
  for (const auto& row : rows) {
    json.separate();
    json.raw("\n");
    json.open("{");
    write(json, row);
    json.close("}");
  }
  json.close("\n]");
}

constexpr void writeKinds(Writer& json) {
  json.key("kinds");
  json.open("{");
  for (std::uint8_t kind = 0; kind <= static_cast<std::uint8_t>(Kind::textPart); ++kind) {
    json.member(nameOf(Kind{kind}), sizeOf(Kind{kind}));
  }
  json.close("}");
}

constexpr Writer writeAll(char* buffer) {
  Writer json(buffer);
  json.open("{");
  json.member("format", 1).member("version", QUILLWORK_VERSION);
  json.raw(",\n");
  json.open("\"control\": {");
  json.member("socket", "/dev/shm/ipc.socket").member("recordSize", sizeof(message));
  json.member("groupPosition", offsetof(message, group));
  json.member("typePosition", offsetof(message, type));
  json.member("listHeaderGroup", static_cast<std::int32_t>(LIST_HEADER));
  json.member("maxTextPart", maxTextPart);
  writeKinds(json);
  writeRows(json, "requests", requests);
  writeRows(json, "notifications", notifications);
  json.close("}");
  json.raw(",\n");
  json.open("\"sectionFilter\": {");
  json.member("socket", "/dev/shm/ipcdemux.socket");
  writeRows(json, "requests", sectionFilterRequests);
  json.close("}");
  json.close("}\n");
  return json;
}

constexpr std::size_t size = writeAll(nullptr).size();

constexpr std::array<char, size> text = [] {
  std::array<char, size> bytes{};
  writeAll(bytes.data());
  return bytes;
}();

[[gnu::section(".protocol_json"), gnu::used]] constexpr std::array<char, size> section = text;

}  // namespace
}  // namespace quillwork::operations
