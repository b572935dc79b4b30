#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace quillwork::client {

/// Text in aligned columns. Widths count what a terminal shows: wide characters take two cells.
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

}  // namespace quillwork::client
