#include "receiver/Text.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "receiver/bitstream.h"

#ifdef QUILLWORK_ARIB
extern "C" {
#include <aribb24/aribb24.h>
#include <aribb24/decoder.h>
}
#endif

namespace receiver {
namespace {

constexpr const char* replacement = "\xef\xbf\xbd";

/// A converter to UTF-8, opened once for each table.
class Converter {
 public:
  explicit Converter(const std::string& table) : handle_(iconv_open("UTF-8", table.c_str())) {}
  ~Converter() {
    if (isOpen()) iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  [[nodiscard]] bool isOpen() const {
    return handle_ != reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)
  }

  /// Where there is no module for the table, what is no ASCII cannot be converted.
  [[nodiscard]] std::string convert(std::string_view text) const {
    std::string converted;
    if (!isOpen()) {
      for (const char byte : text) {
        converted += (byte & 0x80) == 0 ? std::string(1, byte) : replacement;
      }
      return converted;
    }
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    std::string copy(text);
    char* input = copy.data();
    std::size_t left = copy.size();
    while (left > 0) {
      char buffer[1024];
      char* output = buffer;
      std::size_t room = sizeof buffer;
      const std::size_t result = iconv(handle_, &input, &left, &output, &room);
      converted.append(buffer, sizeof buffer - room);
      if (result != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
      converted += replacement;
      ++input;
      --left;
    }
    char rest[16];
    char* output = rest;
    std::size_t room = sizeof rest;
    iconv(handle_, nullptr, nullptr, &output, &room);
    return converted.append(rest, sizeof rest - room);
  }

 private:
  iconv_t handle_;
};

const Converter& converterFrom(const std::string& table) {
  thread_local std::map<std::string, Converter> converters;
  return converters.try_emplace(table, table).first->second;
}

constexpr unsigned char newLine = 0x8a;

/// With U+03A9 for U+2126, the ohm sign that iconv makes of ISO 6937's Omega: Unicode knows both
/// as the same character and prefers the letter.
std::string normalised(std::string text) {
  static constexpr std::string_view ohm = "\u2126";
  for (std::size_t at = text.find(ohm); at != std::string::npos; at = text.find(ohm, at)) {
    text.replace(at, ohm.size(), "\u03a9");
  }
  return text;
}

/// The combining characters of ISO 6937's diacritical marks 0xc1 to 0xcf, which stand before their
/// letter; nothing for what is none.
constexpr std::string_view combining[] = {"\u0300", "\u0301", "\u0302", "\u0303", "\u0304",
                                          "\u0306", "\u0307", "\u0308", "\u0308", "\u030a",
                                          "\u0327", "\u0332", "\u030b", "\u0328", "\u030c"};
constexpr unsigned char firstMark = 0xc1;
constexpr unsigned char lastMark = 0xcf;

/// A letter with its mark: one character where Unicode has one that iconv knows.
std::string convertMarked(std::string_view pair, const Converter& converter) {
  std::string converted = normalised(converter.convert(pair));
  if (converted.find(replacement) == std::string::npos) return converted;
  const auto mark = static_cast<unsigned char>(pair[0]);
  return std::string(1, pair[1]).append(combining[mark - firstMark]);
}

/// A text of ISO 6937 as EN 300 468 has it, which differs from iconv's: 0xa4 is the Euro sign, 0xe2
/// is D with stroke (not the Icelandic letter), and marks stand on any letter.
std::string convertDefault(std::string_view text) {
  constexpr unsigned char euro = 0xa4;
  constexpr unsigned char dWithStroke = 0xe2;
  const Converter& converter = converterFrom("ISO6937");
  std::string converted;
  std::size_t begin = 0;
  const auto flush = [&](std::size_t end, std::size_t next) {
    converted += normalised(converter.convert(text.substr(begin, end - begin)));
    begin = next;
  };
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto byte = static_cast<unsigned char>(text[index]);
    const auto next = index + 1 < text.size() ? static_cast<unsigned char>(text[index + 1]) : 0U;
    if (byte == euro || byte == dWithStroke) {
      flush(index, index + 1);
      converted += byte == euro ? "\u20ac" : "\u0110";
    } else if (byte >= firstMark && byte <= lastMark && next >= 0x20 && next < 0x7f) {
      flush(index, index + 2);
      converted += convertMarked(text.substr(index, 2), converter);
      ++index;
    }
  }
  flush(text.size(), text.size());
  return converted;
}

/// A text of one byte a character. The control codes 0x80 to 0x9f stand between the characters.
std::string convertSingleBytes(std::string_view text, const std::string& table) {
  std::string converted;
  std::string run;
  const auto flush = [&] {
    converted += table == "ISO6937" ? convertDefault(run) : converterFrom(table).convert(run);
    run.clear();
  };
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == newLine || byte == '\n') {
      flush();
      converted += '\n';
    } else if (byte >= 0x20 && (byte < 0x7f || byte >= 0xa0)) {
      run += character;
    }
  }
  flush();
  return converted;
}

bool isMultiByte(const std::string& table) {
  return table == "UCS-2BE" || table == "EUC-KR" || table == "GB2312" || table == "BIG5" ||
         table == "UTF-8";
}

/// The table that the first bytes of a text select, which are taken off; empty for none that is
/// known.
std::string selectTable(std::string_view& text, const std::string& byDefault) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  std::size_t length = text.size();
  const bool selects = bytes[0] < 0x20;
  const bool isTraditionalChinese = bytes[0] == 0x14;
  const char* const name = dvb_string_get_encoding(&bytes, &length, byDefault.c_str());
  text.remove_prefix(text.size() - length);
  // biTStream takes 0x14, the Big5 subset of ISO/IEC 10646, for UCS-2, as most broadcasters do.
  if (isTraditionalChinese) return "UCS-2BE";
  if (name != nullptr && *name != '\0') return name;
  return selects ? std::string() : byDefault;
}

#ifdef QUILLWORK_ARIB
std::string convertArib(std::string_view text) {
  const std::unique_ptr<arib_instance_t, void (*)(arib_instance_t*)> instance(
      arib_instance_new(nullptr), arib_instance_destroy);
  if (instance == nullptr) return replacement;
  arib_decoder_t* const decoder = arib_get_decoder(instance.get());
  arib_initialize_decoder(decoder);
  // A byte can become a word of several characters.
  std::string converted(text.size() * 8 + 16, '\0');
  const std::size_t size =
      arib_decode_buffer(decoder, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                         converted.data(), converted.size());
  arib_finalize_decoder(decoder);
  converted.resize(size);
  while (!converted.empty() && converted.back() == '\0') converted.pop_back();
  return converted;
}
#else
std::string convertArib(std::string_view) { return replacement; }
#endif

}  // namespace

bool canConvertArib() {
#ifdef QUILLWORK_ARIB
  return true;
#else
  return false;
#endif
}

CharacterTable CharacterTable::named(const std::string& name) {
  if (name == "ARIB" || name == "arib") {
    if (!canConvertArib()) throw std::invalid_argument("this build cannot convert ARIB texts");
    return {"ARIB"};
  }
  if (!converterFrom(name).isOpen()) {
    throw std::invalid_argument("unknown character table '" + name + "'");
  }
  return {name};
}

namespace {

std::string convert(std::string_view text, const CharacterTable& table) {
  if (text.empty()) return {};
  if (table.isArib()) return convertArib(text);
  const std::string selected = selectTable(text, table.name);
  if (selected.empty()) return convertSingleBytes(text, table.name);
  return isMultiByte(selected) ? converterFrom(selected).convert(text)
                               : convertSingleBytes(text, selected);
}

/// The bytes that select a part's table.
std::span<const std::uint8_t> selectorOf(std::span<const std::uint8_t> part) {
  if (part.empty() || part[0] >= 0x20) return {};
  const std::size_t size = part[0] == 0x10 ? 3 : part[0] == 0x1f ? 2 : 1;
  return part.first(std::min(size, part.size()));
}

/// Whether the text ends within a character of two bytes.
bool endsWithinCharacter(std::span<const std::uint8_t> text) {
  const bool isUcs2 = !text.empty() && (text[0] == 0x11 || text[0] == 0x14);
  return isUcs2 && text.size() % 2 == 0;
}

}  // namespace

std::string toUtf8(std::span<const std::uint8_t> text, const CharacterTable& table) {
  return withoutControls(convert({reinterpret_cast<const char*>(text.data()), text.size()}, table));
}

std::string toUtf8(const ContinuedText& parts, const CharacterTable& table) {
  std::string converted;
  std::vector<std::uint8_t> joined;
  for (const std::vector<std::uint8_t>& part : parts) {
    std::span<const std::uint8_t> rest(part);
    // ARIB's codes stay in force from one part to the next.
    if (!table.isArib() && !joined.empty() && !endsWithinCharacter(joined)) {
      const auto selector = selectorOf(rest);
      if (std::ranges::equal(selector, selectorOf(joined))) {
        rest = rest.subspan(selector.size());
      } else if (!selector.empty()) {
        converted += toUtf8(std::span<const std::uint8_t>(joined), table);
        joined.clear();
      }
    }
    joined.insert(joined.end(), rest.begin(), rest.end());
  }
  return converted + toUtf8(std::span<const std::uint8_t>(joined), table);
}

std::string withoutControls(const std::string& text) {
  std::string cleaned;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto at = [&](std::size_t offset) {
      return index + offset < text.size() ? static_cast<unsigned char>(text[index + offset]) : 0U;
    };
    const bool isOfEn300468 = at(0) == 0xee && at(1) == 0x82 && at(2) >= 0x80 && at(2) <= 0x9f;
    const bool isC1 = at(0) == 0xc2 && at(1) >= 0x80 && at(1) <= 0x9f;
    if (isOfEn300468) {
      if (at(2) == newLine) cleaned += '\n';
      index += 2;
    } else if (isC1) {
      ++index;
    } else if ((at(0) >= 0x20 && at(0) != 0x7f) || at(0) == '\n') {
      cleaned += text[index];
    }
  }
  return cleaned;
}

std::string inOneLine(const std::string& text) {
  std::string line = withoutControls(text);
  std::ranges::replace(line, '\n', ' ');
  return line;
}

}  // namespace receiver
