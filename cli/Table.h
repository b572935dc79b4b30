#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace quillwork::cli {

/// Text in a colour or weight of ECMA-48 (SGR), "1" for bold, where the stream is a terminal and
/// NO_COLOR is not set; as it is elsewhere.
std::string inColour(std::FILE* stream, const char* colour, const std::string& text);

/// Text in aligned columns, the titles bold on a terminal. Widths count what a terminal shows: wide
/// characters take two cells.
class Table {
 public:
  /// Titles that begin with '>' stand, like their column, at its right edge.
  explicit Table(std::vector<std::string> titles);

  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void print(std::FILE* stream) const;

 private:
  std::vector<std::string> titles_;
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace quillwork::cli
