#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace receiver {

/// The character table of texts that do not name their own.
struct CharacterTable {
  /// An iconv name, "ISO6937" for the DVB default, or "ARIB" for ARIB STD-B24.
  std::string name = "ISO6937";

  /// Throws std::invalid_argument for a name that this build cannot convert.
  static CharacterTable named(const std::string& name);
  [[nodiscard]] bool isArib() const { return name == "ARIB"; }
};

/// Whether this build can convert ARIB STD-B24 texts.
bool canConvertArib();

/// Converts a broadcast text to UTF-8: ETSI EN 300 468 annex A with the table as its default, or
/// ARIB STD-B24. Control codes are dropped, except that a new line is one; what cannot be converted
/// becomes U+FFFD.
std::string toUtf8(std::span<const std::uint8_t> text, const CharacterTable& table);

/// The parts of one text, each of a descriptor of its own.
using ContinuedText = std::vector<std::vector<std::uint8_t>>;

/// Converts a text that goes on from part to part, in the middle of a character even. A part that
/// names no table goes on in the one before; some broadcasters name it in each part, some once.
std::string toUtf8(const ContinuedText& parts, const CharacterTable& table);

/// A UTF-8 text without its control characters: C0, DEL, C1, and U+E080 to U+E09F of EN 300 468.
/// New lines stay, and U+E08A becomes one.
std::string withoutControls(const std::string& text);

/// The same without new lines: for a line of the output, which scripts read.
std::string inOneLine(const std::string& text);

}  // namespace receiver
