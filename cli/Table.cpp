#include "cli/Table.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>

#include "cli/Output.h"

namespace quillwork::cli {
namespace {

/// The cells of a terminal that the text takes, in the UTF-8 locale that main() sets.
std::size_t width(const std::string& text) {
  std::size_t cells = 0;
  std::mbstate_t state{};
  const char* next = text.data();
  std::size_t left = text.size();
  while (left > 0) {
    wchar_t character = 0;
    const std::size_t size = std::mbrtowc(&character, next, left, &state);
    if (size == 0 || size > left) return cells + left;
    cells += static_cast<std::size_t>(std::max(wcwidth(character), 0));
    next += size;
    left -= size;
  }
  return cells;
}

constexpr std::size_t longestRule = 72;

}  // namespace

std::string inColour(std::FILE* stream, const char* colour, const std::string& text) {
  if (isatty(fileno(stream)) == 0 || std::getenv("NO_COLOR") != nullptr) return text;
  return fmt::format("\033[{}m{}\033[0m", colour, text);
}

Table::Table(std::vector<std::string> titles) : titles_(std::move(titles)) {
  for (std::string& title : titles_) {
    right_.push_back(title.starts_with('>'));
    if (right_.back()) title.erase(0, 1);
  }
}

void Table::print(std::FILE* stream) const {
  std::vector<std::size_t> widths;
  for (std::size_t column = 0; column < titles_.size(); ++column) {
    std::size_t widest = width(titles_[column]);
    for (const auto& row : rows_) widest = std::max(widest, width(printable(row[column])));
    widths.push_back(widest);
  }
  const auto makeRow = [&](const std::vector<std::string>& row) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string cell = printable(row[column]);
      const std::string padding(widths[column] - width(cell), ' ');
      line += right_[column] ? padding + cell : cell + padding;
      line += "  ";
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
  };
  fmt::print(stream, "{}\n", inColour(stream, "1", makeRow(titles_)));
  std::vector<std::string> rule;
  rule.reserve(widths.size());
  for (const std::size_t size : widths) rule.emplace_back(std::min(size, longestRule), '-');
  fmt::print(stream, "{}\n", makeRow(rule));
  for (const auto& row : rows_) fmt::print(stream, "{}\n", makeRow(row));
}

}  // namespace quillwork::cli
