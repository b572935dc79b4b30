// The page of messages against the texts in the library's sources: each text has a row, and each
// row has a text.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <string_view>

namespace {

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Adds what lies between the matches of the pattern, without blanks and colons at its ends, if it
/// has a letter.
void addPieces(std::set<std::string>& pieces, const std::string& text, const std::string& between) {
  const std::regex pattern(between);
  for (std::sregex_token_iterator piece(text.begin(), text.end(), pattern, -1), end; piece != end;
       ++piece) {
    const std::string raw = *piece;
    const std::size_t begin = raw.find_first_not_of(" :");
    if (begin == std::string::npos) continue;
    const std::string trimmed = raw.substr(begin, raw.find_last_not_of(" :") - begin + 1);
    if (std::any_of(trimmed.begin(), trimmed.end(),
                    [](unsigned char character) { return std::isalpha(character) != 0; })) {
      pieces.insert(trimmed);
    }
  }
}

/// The texts of a source file that have a blank and a letter: names and formats of numbers have
/// none of the former, and what the compiler prints is taken out before.
void addTexts(std::set<std::string>& pieces, std::string source) {
  for (const char* other :
       {"//[^\n]*", "#[^\n]*", "throw \"[^;]*;", "static_assert\\((?:[^;\"]|\"[^\"]*\")*;"}) {
    source = std::regex_replace(source, std::regex(other), " ");
  }
  const std::regex literal("\"((?:[^\"\\\\]|\\\\.)*)\"");
  for (std::sregex_iterator match(source.begin(), source.end(), literal), end; match != end;
       ++match) {
    const std::string text = (*match)[1];
    if (text.find(' ') != std::string::npos) addPieces(pieces, text, "%d|\\\\n");
  }
}

std::set<std::string> printedTexts() {
  std::set<std::string> pieces;
  for (const char* directory : {"ipc", "protocol", "adapter"}) {
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(LIBRARY_SOURCES) / directory)) {
      const auto extension = entry.path().extension();
      if (extension == ".cpp" || extension == ".h") addTexts(pieces, contentOf(entry.path()));
    }
  }
  return pieces;
}

/// The first column of the page's tables. Words in capitals stand for what differs.
std::set<std::string> documentedTexts() {
  std::set<std::string> pieces;
  const std::string page = contentOf(MESSAGES_PAGE);
  const std::regex row("\n\\| `([^`]*)` \\|");
  for (std::sregex_iterator match(page.begin(), page.end(), row), end; match != end; ++match) {
    addPieces(pieces, (*match)[1], "\\b[A-Z]+\\b|: ");
  }
  return pieces;
}

TEST(MessagesPage, HasEveryTextThatTheLibraryPrintsAndNoOther) {
  const std::set<std::string> printed = printedTexts();
  const std::set<std::string> documented = documentedTexts();
  EXPECT_TRUE(printed.contains("Can't send message"));
  for (const std::string& text : printed) {
    EXPECT_TRUE(documented.contains(text)) << "no row: " << text;
  }
  for (const std::string& text : documented) {
    EXPECT_TRUE(printed.contains(text)) << "no such text: " << text;
  }
}

}  // namespace
