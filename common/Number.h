#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace quillwork {

/// A whole number as people write it: decimal, or hexadecimal behind 0x, either behind a minus
/// sign. Nothing for anything else, blanks and what has more than 64 bits included.
inline std::optional<std::int64_t> parseInteger(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  std::string_view digits = text.substr(isNegative ? 1 : 0);
  int base = 10;
  if (digits.starts_with("0x") || digits.starts_with("0X")) {
    digits.remove_prefix(2);
    base = 16;
  }
  // from_chars() takes a sign of its own.
  if (digits.starts_with('-')) return std::nullopt;
  std::int64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [last, error] = std::from_chars(digits.data(), end, number, base);
  if (error != std::errc() || last != end) return std::nullopt;
  return isNegative ? -number : number;
}

/// The same with a fraction or an exponent, too. Nothing for what is not finite.
inline std::optional<double> parseReal(std::string_view text) {
  if (const auto whole = parseInteger(text)) return static_cast<double>(*whole);
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || last != end || !std::isfinite(number)) return std::nullopt;
  return number;
}

}  // namespace quillwork
