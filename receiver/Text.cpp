#include "receiver/Text.h"

#include <iconv.h>

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

  [[nodiscard]] std::string convert(std::string_view text) const {
    std::string converted;
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
constexpr unsigned char euro = 0xa4;

/// With U+03A9 for U+2126, the ohm sign that iconv makes of ISO 6937's Omega: Unicode knows both
/// as the same character and prefers the letter.
std::string normalised(std::string text) {
  static constexpr std::string_view ohm = "\u2126";
  for (std::size_t at = text.find(ohm); at != std::string::npos; at = text.find(ohm, at)) {
    text.replace(at, ohm.size(), "\u03a9");
  }
  return text;
}

/// A text of one byte a character. The control codes 0x80 to 0x9f stand between the characters,
/// and in the default table 0xa4 is the Euro sign, which ISO 6937 does not have.
std::string convertSingleBytes(std::string_view text, const std::string& table) {
  const Converter& converter = converterFrom(table);
  const bool isDefault = table == "ISO6937";
  std::string converted;
  std::string run;
  const auto flush = [&] {
    if (!run.empty()) converted += converter.isOpen() ? normalised(converter.convert(run)) : run;
    run.clear();
  };
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == newLine || byte == '\n') {
      flush();
      converted += '\n';
    } else if (isDefault && byte == euro) {
      flush();
      converted += "\u20ac";
    } else if (byte >= 0x20 && (byte < 0x7f || byte >= 0xa0)) {
      run += character;
    }
  }
  flush();
  return converted;
}

/// Drops the control codes U+E080 to U+E09F of the multi-byte tables; U+E08A is a new line.
std::string withoutPrivateControls(const std::string& text) {
  std::string cleaned;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto at = [&](std::size_t offset) {
      return index + offset < text.size() ? static_cast<unsigned char>(text[index + offset]) : 0U;
    };
    if (at(0) == 0xee && at(1) == 0x82 && at(2) >= 0x80 && at(2) <= 0x9f) {
      if (at(2) == newLine) cleaned += '\n';
      index += 2;
    } else if (at(0) >= 0x20 || at(0) == '\n') {
      cleaned += text[index];
    }
  }
  return cleaned;
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

std::string toUtf8(std::span<const std::uint8_t> text, const CharacterTable& table) {
  std::string_view rest(reinterpret_cast<const char*>(text.data()), text.size());
  if (rest.empty()) return {};
  if (table.isArib()) return convertArib(rest);
  const std::string selected = selectTable(rest, table.name);
  if (selected.empty()) return convertSingleBytes(rest, table.name);
  if (!isMultiByte(selected)) return convertSingleBytes(rest, selected);
  const Converter& converter = converterFrom(selected);
  return converter.isOpen() ? withoutPrivateControls(converter.convert(rest)) : replacement;
}

}  // namespace receiver
