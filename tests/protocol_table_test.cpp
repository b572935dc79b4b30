// The table of the protocol beside its two witnesses, neither of which is made from it: the golden
// files' bytes and the page for the authors of clients.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/operations.h"
#include "support/Golden.h"

namespace quillwork {
namespace {

using operations::Request;

std::int32_t wordOf(const std::string& bytes, std::size_t position) {
  std::int32_t word = 0;
  std::memcpy(&word, bytes.data() + position, sizeof word);
  return word;
}

std::string nameOf(std::int32_t group, const operations::Types& types, const char* name) {
  std::ostringstream text;
  text << name << " (group " << group << ", type " << types.first << ")";
  return text.str();
}

/// The parts that the library sends.
std::vector<Golden::Part> received(const Golden& golden) {
  std::vector<Golden::Part> parts;
  for (const Golden::Part& part : golden.parts) {
    if (!part.fromClient) parts.push_back(part);
  }
  return parts;
}

/// How the first reply of a golden file answers its request.
operations::Reply replyOf(const Golden& golden, std::int32_t group) {
  const auto parts = received(golden);
  if (parts.empty()) return operations::Reply::none;
  if (wordOf(parts.front().bytes, 0) == group) return operations::Reply::record;
  EXPECT_EQ(wordOf(parts.front().bytes, 0), LIST_HEADER) << golden.name;
  return operations::Reply::list;
}

TEST(ProtocolTable, EachRequestHasAGoldenFile) {
  std::set<std::pair<std::int32_t, std::int32_t>> seen;
  std::set<const Request*> rows;
  for (const Golden& golden : Golden::readAll(GOLDEN_DIRECTORY)) {
    const std::string& bytes = golden.parts.front().bytes;
    const std::int32_t group = wordOf(bytes, 0);
    const std::int32_t type = wordOf(bytes, 8);
    const Request* const row = rowFor(operations::requests, group, type);
    ASSERT_NE(row, nullptr) << golden.name << ": no row has its request";
    seen.emplace(group, type);
    rows.insert(row);
    const auto reply =
        row->reply == operations::Reply::listFirst ? operations::Reply::list : row->reply;
    EXPECT_EQ(replyOf(golden, group), reply) << golden.name;
  }
  for (const Request& row : operations::requests) {
    EXPECT_TRUE(rows.contains(&row)) << nameOf(row.group, row.types, row.name);
    if (isAnyOther(row.types)) continue;
    for (std::int32_t type = row.types.first; type <= row.types.last; ++type) {
      EXPECT_TRUE(seen.contains({row.group, type})) << row.name << ", type " << type;
    }
  }
}

TEST(ProtocolTable, EachNotificationHasAGoldenFile) {
  std::set<const operations::Notification*> rows;
  for (const Golden& golden : Golden::readAll(GOLDEN_DIRECTORY "/notifications")) {
    const auto parts = received(golden);
    // A list's header says nothing of what it opens.
    const std::string& bytes = parts[wordOf(parts.front().bytes, 0) == LIST_HEADER ? 1 : 0].bytes;
    const auto* const row = rowFor(operations::notifications, wordOf(bytes, 0), wordOf(bytes, 8));
    ASSERT_NE(row, nullptr) << golden.name << ": no row has its record";
    EXPECT_EQ(golden.calls.front().operation, row->name) << golden.name;
    rows.insert(row);
  }
  for (const auto& row : operations::notifications) {
    EXPECT_TRUE(rows.contains(&row)) << nameOf(row.group, row.types, row.name);
  }
}

TEST(ProtocolTable, EachCodeOfTheSectionFilterHasAGoldenFile) {
  std::set<std::string> seen;
  for (const Golden& golden : Golden::readAll(GOLDEN_DIRECTORY "/section-filter")) {
    if (golden.name.find("raw-") != std::string::npos) continue;
    const auto code = static_cast<std::size_t>(wordOf(golden.parts.front().bytes, 0));
    ASSERT_LT(code, std::size(operations::sectionFilterRequests)) << golden.name;
    const auto& row = operations::sectionFilterRequests[code];
    EXPECT_EQ(golden.calls.front().operation, row.name) << golden.name;
    EXPECT_EQ(!received(golden).empty(), row.isAnswered) << golden.name;
    EXPECT_EQ(golden.calls.front().arguments.size(), row.vectors.size() + (hasNumber(row) ? 1 : 0))
        << golden.name;
    seen.insert(row.name);
  }
  for (const auto& row : operations::sectionFilterRequests) {
    EXPECT_TRUE(seen.contains(row.name)) << row.name;
  }
}

/// The page's tables: for each the heading above it and its rows' cells.
class Page {
 public:
  using Cells = std::vector<std::string>;

  Page() {
    std::ifstream file(PROTOCOL_PAGE);
    std::string heading;
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("#")) heading = line.substr(line.find_first_not_of("# "));
      if (line.starts_with("| ")) tables_[heading].push_back(split(line));
    }
  }

  [[nodiscard]] const std::vector<Cells>& rowsUnder(const std::string& heading) const {
    static const std::vector<Cells> none;
    const auto table = tables_.find(heading);
    return table == tables_.end() ? none : table->second;
  }
  [[nodiscard]] const std::map<std::string, std::vector<Cells>>& tables() const { return tables_; }

 private:
  static Cells split(const std::string& line) {
    Cells cells;
    std::istringstream stream(line.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
      const std::size_t begin = cell.find_first_not_of(' ');
      cells.push_back(begin == std::string::npos
                          ? ""
                          : cell.substr(begin, cell.find_last_not_of(' ') - begin + 1));
    }
    return cells;
  }

  std::map<std::string, std::vector<Cells>> tables_;
};

/// The types that a cell names: "3, 5", "9-16"; nothing for "other" and "any".
std::optional<std::vector<std::int32_t>> typesOf(const std::string& cell) {
  if (cell == "other" || cell == "any") return std::nullopt;
  std::vector<std::int32_t> types;
  std::istringstream stream(cell);
  for (std::string part; std::getline(stream, part, ',');) {
    const std::size_t dash = part.find('-');
    const std::int32_t first = std::stoi(part);
    const std::int32_t last = dash == std::string::npos ? first : std::stoi(part.substr(dash + 1));
    for (std::int32_t type = first; type <= last; ++type) types.push_back(type);
  }
  return types;
}

/// A row's reply in the page's words.
std::string formOf(const Request& row) {
  if (row.reply == operations::Reply::none) return "none";
  if (row.reply == operations::Reply::record) return "same";
  std::string type = std::to_string(row.elementType);
  if (row.elementType == operations::keepsCount) type = "count";
  if (row.elementType == operations::ofTheRecord) type = "-";
  return "list (" + std::to_string(row.group) + ", " + type + ")";
}

std::string quoted(const char* name) { return "`" + std::string(name) + "`"; }

TEST(ProtocolTable, ThePageHasEachRequestWithItsReply) {
  const Page page;
  std::map<const Request*, std::set<std::int32_t>> seen;
  for (const auto& [heading, rows] : page.tables()) {
    if (std::smatch match; !std::regex_match(heading, match, std::regex("(\\d+) `.*`"))) continue;
    const std::int32_t group = std::stoi(heading);
    for (const Page::Cells& cells : rows) {
      if (cells[0] == "type") continue;
      const auto types = typesOf(cells[0]);
      for (const std::int32_t type : types.value_or(std::vector<std::int32_t>{INT32_MIN})) {
        const Request* const row = rowFor(operations::requests, group, type);
        ASSERT_NE(row, nullptr) << "the page has group " << group << ", type " << cells[0];
        EXPECT_EQ(isAnyOther(row->types), !types) << heading << ", type " << cells[0];
        EXPECT_NE(cells[1].find(quoted(row->name)), std::string::npos) << cells[0] << row->name;
        EXPECT_EQ(cells[3].substr(0, formOf(*row).size()), formOf(*row))
            << heading << ", type " << cells[0];
        seen[row].insert(type);
      }
    }
  }
  for (const Request& row : operations::requests) {
    const auto types = seen.find(&row);
    ASSERT_NE(types, seen.end()) << nameOf(row.group, row.types, row.name);
    if (isAnyOther(row.types)) continue;
    EXPECT_EQ(types->second.size(), static_cast<std::size_t>(row.types.last - row.types.first + 1))
        << nameOf(row.group, row.types, row.name);
  }
}

TEST(ProtocolTable, ThePageHasEachNotification) {
  const Page page;
  std::map<std::string, std::string> seen;
  for (const Page::Cells& cells : page.rowsUnder("Notifications")) seen[cells[0]] = cells[1];
  for (const auto& row : operations::notifications) {
    const bool isFixed = !isAnyOther(row.types);
    const std::string type = isFixed                      ? std::to_string(row.types.first)
                             : row.group == DSMCC_COMMAND ? "code"
                                                          : "state";
    EXPECT_EQ(seen[std::to_string(row.group) + ", " + type], quoted(row.name));
  }
  // With the table's heading.
  EXPECT_EQ(seen.size(), std::size(operations::notifications) + 1);
}

TEST(ProtocolTable, ThePageHasEachCodeOfTheSectionFilterWithItsArguments) {
  const Page page;
  std::map<std::string, Page::Cells> seen;
  for (const Page::Cells& cells : page.rowsUnder("Section-filter channel")) {
    if (cells.size() == 4) seen[cells[0]] = cells;
  }
  for (std::size_t code = 0; code < std::size(operations::sectionFilterRequests); ++code) {
    const auto& row = operations::sectionFilterRequests[code];
    std::string arguments = hasNumber(row) ? "integer" : "";
    for (std::size_t vector = 0; vector < row.vectors.size(); ++vector) arguments += "; vector";
    const auto found = seen.find(std::to_string(code));
    ASSERT_NE(found, seen.end()) << row.name;
    EXPECT_EQ(found->second[1], quoted(row.name));
    EXPECT_EQ(found->second[3], arguments) << row.name;
  }
  EXPECT_EQ(seen.size(), std::size(operations::sectionFilterRequests) + 1);
}

}  // namespace
}  // namespace quillwork
