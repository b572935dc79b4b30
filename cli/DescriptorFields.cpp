#include "cli/DescriptorFields.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "cli/Words.h"

#ifdef QUILLWORK_BITSTREAM
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-variable"
#include <bitstream/dvb/si.h>
#include <bitstream/dvb/si_print.h>
#include <bitstream/mpeg/psi.h>
#pragma GCC diagnostic pop

#include "receiver/Text.h"
#endif

namespace quillwork::cli {
namespace {

constexpr std::string_view suffix = "_DESC";

std::string withoutEntities(std::string_view text) {
  constexpr std::pair<std::string_view, char> entities[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
  std::string plain;
  while (!text.empty()) {
    const auto* const found = std::ranges::find_if(
        entities, [&](const auto& entity) { return text.starts_with(entity.first); });
    const bool isEntity = found != std::end(entities);
    plain += isEntity ? found->second : text.front();
    text.remove_prefix(isEntity ? found->first.size() : 1);
  }
  return plain;
}

/// Decimal digits as a number, anything else as a text.
Json valueOf(std::string_view written) {
  std::int64_t number = 0;
  const char* const end = written.data() + written.size();
  const auto [last, error] = std::from_chars(written.data(), end, number);
  const bool isNumber =
      error == std::errc() && last == end && (written == "0" || written[0] != '0');
  return isNumber ? Json(number) : text(withoutEntities(written));
}

/// "AUDIO_LANGUAGE_DESC" as "audio language".
std::string nameOf(std::string_view element) {
  if (element.ends_with(suffix)) element.remove_suffix(suffix.size());
  std::string name;
  for (const char letter : element) {
    name +=
        letter == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return name;
}

/// Takes the element's head off the XML, from its name on, and returns its attributes.
Json takeAttributes(std::string_view& xml) {
  Json attributes = Json::object();
  for (;;) {
    const std::size_t next = xml.find_first_not_of(' ');
    if (next == std::string_view::npos) {
      xml = {};
      return attributes;
    }
    xml.remove_prefix(next);
    const std::size_t equals = xml.find_first_of("=>");
    if (xml.front() == '/' || xml.front() == '>' || equals == std::string_view::npos ||
        xml[equals] == '>' || !xml.substr(equals + 1).starts_with('"')) {
      return attributes;
    }
    const std::string name(xml.substr(0, equals));
    xml.remove_prefix(equals + 2);
    const std::size_t end = std::min(xml.find('"'), xml.size());
    attributes[name] = valueOf(xml.substr(0, end));
    xml.remove_prefix(std::min(end + 1, xml.size()));
  }
}

}  // namespace

Json elementsOf(const std::string& xml, std::string& name) {
  Json elements = Json::array();
  std::size_t depth = 0;
  std::string_view rest = xml;
  for (std::size_t begin = rest.find('<'); begin != std::string_view::npos;
       begin = rest.find('<')) {
    rest.remove_prefix(begin + 1);
    if (rest.starts_with('/')) {
      depth -= depth > 0 ? 1 : 0;
      continue;
    }
    const std::string element(rest.substr(0, rest.find_first_of(" />")));
    rest.remove_prefix(element.size());
    Json attributes = takeAttributes(rest);
    if (depth == 0 && name.empty()) name = nameOf(element);
    if (depth > 0 && !elements.empty()) {
      elements.back()["items"].push_back(std::move(attributes));
    } else if (!attributes.empty()) {
      elements.push_back(std::move(attributes));
    }
    if (!rest.starts_with('/')) ++depth;
  }
  if (elements.empty()) return {};
  return elements.size() == 1 ? elements.front() : elements;
}

#ifdef QUILLWORK_BITSTREAM
namespace {

__attribute__((format(printf, 2, 3))) void append(void* xml, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  char* piece = nullptr;
  const int size = vasprintf(&piece, format, arguments);
  va_end(arguments);
  if (size < 0) return;
  static_cast<std::string*>(xml)->append(piece, static_cast<std::size_t>(size));
  std::free(piece);
}

/// In memory that its caller frees.
char* convert(void* table, const char* encoding, char* bytes, std::size_t size) {
  // biTStream's own default stands for that of the stream.
  const std::string named = std::strcmp(encoding, "ISO6937") == 0
                                ? *static_cast<const std::string*>(table)
                                : std::string(encoding);
  const std::span<const std::uint8_t> text(reinterpret_cast<const std::uint8_t*>(bytes), size);
  return strdup(receiver::toUtf8(text, {named.empty() ? "ISO6937" : named}).c_str());
}

/// In the form that biTStream's printers take. Behind it zero bytes: its validators follow the
/// lengths inside a descriptor, at most 255 bytes from its last one, before they compare them with
/// the descriptor's own.
std::vector<std::uint8_t> whole(std::optional<std::vector<std::uint8_t>> specifier,
                                const client::Descriptor& descriptor, std::size_t& size) {
  std::vector<std::uint8_t> bytes;
  const auto add = [&](std::uint8_t tag, const std::vector<std::uint8_t>& data) {
    bytes.push_back(tag);
    bytes.push_back(static_cast<std::uint8_t>(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
  };
  if (specifier) add(0x5f, *specifier);
  add(static_cast<std::uint8_t>(descriptor.tag), descriptor.data);
  size = bytes.size();
  bytes.resize(size + 256);
  return bytes;
}

/// The specifier that biTStream knows for lists of channel numbers: without one, and behind those
/// of regulators, the descriptor 0x83 has EICTA's form on air.
std::optional<std::vector<std::uint8_t>> specifierFor(
    std::int32_t tag, const std::optional<std::vector<std::uint8_t>>& specifier) {
  constexpr std::int32_t channelNumbers = 0x83;
  const std::vector<std::uint8_t> eicta = {0, 0, 0, 0x28};
  if (tag != channelNumbers) return specifier;
  if (!specifier) return eicta;
  const auto& bytes = *specifier;
  const int number = bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
  const bool isRegulator = (number >= 0x2000 && number <= 0x23ff) ||
                           (number >= 0x3200 && number <= 0x320f) || number == 0x37;
  return isRegulator ? eicta : specifier;
}

/// Not those whose lengths biTStream follows without an end, or beyond the descriptor's end, before
/// or while it checks them.
bool isReadSafely(std::int32_t tag) {
  constexpr std::int32_t tags[] = {0x45, 0x51, 0x5b, 0x5c, 0x5d, 0x5e, 0x64, 0x6c, 0x6d};
  return tag >= 0 && tag <= 255 && std::ranges::find(tags, tag) == std::end(tags);
}

/// Of ARIB's, biTStream would take the first code for the choice of another table.
bool hasAribText(std::int32_t tag, const std::string& table) {
  constexpr std::int32_t tags[] = {0x40, 0x47, 0x48, 0x4d, 0x4e, 0x50};
  return table == "ARIB" && std::ranges::find(tags, tag) != std::end(tags);
}

}  // namespace

std::vector<DescribedDescriptor> describe(const std::vector<client::Descriptor>& loop,
                                          const std::string& table) {
  constexpr std::int32_t specifierTag = 0x5f;
  std::vector<DescribedDescriptor> described;
  std::optional<std::vector<std::uint8_t>> specifier;
  std::string defaultTable = table;
  for (const client::Descriptor& descriptor : loop) {
    DescribedDescriptor entry{descriptor, words::descriptor(descriptor.tag), {}};
    if (descriptor.data.size() <= 255 && isReadSafely(descriptor.tag)) {
      std::size_t size = 0;
      std::vector<std::uint8_t> bytes =
          whole(specifierFor(descriptor.tag, specifier), descriptor, size);
      std::string xml;
      descl_print(bytes.data(), static_cast<std::uint16_t>(size), append, &xml, convert,
                  &defaultTable, PRINT_XML);
      // Of the last one, what stands in <DESC>.
      const std::size_t begin = xml.rfind("<DESC ");
      const std::size_t inside = xml.find('>', begin) + 1;
      std::string name;
      Json fields = elementsOf(xml.substr(inside, xml.rfind("</DESC>") - inside), name);
      if (name != "unknown" && name != "invalid") {
        entry.name = name;
        if (!hasAribText(descriptor.tag, table)) entry.fields = std::move(fields);
      }
    }
    if (descriptor.tag == specifierTag && descriptor.data.size() == 4) specifier = descriptor.data;
    described.push_back(std::move(entry));
  }
  return described;
}
#else
std::vector<DescribedDescriptor> describe(const std::vector<client::Descriptor>& loop,
                                          const std::string&) {
  std::vector<DescribedDescriptor> described;
  for (const client::Descriptor& descriptor : loop) {
    described.push_back({descriptor, words::descriptor(descriptor.tag), {}});
  }
  return described;
}
#endif

}  // namespace quillwork::cli
