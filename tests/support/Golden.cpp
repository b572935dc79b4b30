#include "support/Golden.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/CallLog.h"

namespace {

constexpr std::size_t recordSize = 1960;

/// 252 for "*252", 1 for nothing.
std::size_t countOf(const std::string& repetition) {
  if (repetition.empty()) return 1;
  if (repetition[0] != '*') throw std::runtime_error("not a repetition: " + repetition);
  return std::stoul(repetition.substr(1));
}

/// "a5" or "00*252".
std::string bytesOfToken(const std::string& token) {
  const std::size_t star = token.find('*');
  const std::size_t count = star == std::string::npos ? 1 : countOf(token.substr(star));
  std::size_t end = 0;
  const auto byte = std::stoul(token.substr(0, star), &end, 16);
  if (end != 2 || byte > 255) throw std::runtime_error("not a byte: " + token);
  return std::string(count, static_cast<char>(byte));
}

std::string bytesOfLine(std::istringstream& words) {
  std::string bytes;
  for (std::string token; words >> token;) bytes += bytesOfToken(token);
  return bytes;
}

/// Texts behind each other: "a"*1920 "z".
std::string bytesOfTexts(const std::string& texts) {
  std::string bytes;
  std::size_t position = 0;
  while (position < texts.size()) {
    const std::size_t end = texts.find('"', position + 1);
    if (texts[position] != '"' || end == std::string::npos) {
      throw std::runtime_error("not a text: " + texts);
    }
    const std::size_t blank = std::min(texts.find(' ', end), texts.size());
    for (std::size_t left = countOf(texts.substr(end + 1, blank - end - 1)); left > 0; --left) {
      bytes.append(texts, position + 1, end - position - 1);
    }
    position = blank + 1;
  }
  return bytes;
}

bool isBytes(const std::string& written) { return !written.empty() && written.front() == '{'; }

const Golden::Value& named(const std::vector<Golden::Value>& values, const std::string& name) {
  for (const Golden::Value& value : values) {
    if (value.name == name) return value;
  }
  throw std::runtime_error("no value: " + name);
}

/// "player=7".
Golden::Value readValue(const std::string& text) {
  const std::size_t sign = text.find('=');
  if (sign == std::string::npos) throw std::runtime_error("not a value: " + text);
  Golden::Value value{text.substr(0, sign), text.substr(sign + 1)};
  const char first = value.written.empty() ? '\0' : value.written.front();
  if (first == '"' || first == '{') {
    static_cast<void>(value.bytes());
  } else {
    static_cast<void>(value.real());
  }
  return value;
}

void readPartLine(Golden::Part& part, const std::string& line) {
  std::istringstream words(line);
  if (!part.isRecord) {
    part.bytes += bytesOfLine(words);
    return;
  }
  std::string first;
  words >> first;
  if (first == "fill") {
    std::string token;
    words >> token;
    part.bytes = std::string(recordSize, bytesOfToken(token)[0]);
    return;
  }
  const std::size_t offset = std::stoul(first);
  if (line.find("ref") != std::string::npos) {
    part.references.insert(offset);
    return;
  }
  const std::string bytes = bytesOfLine(words);
  if (first.back() != ':' || offset + bytes.size() > part.bytes.size()) {
    throw std::runtime_error("not a run inside the record: " + line);
  }
  part.bytes.replace(offset, bytes.size(), bytes);
}

void readLine(Golden& golden, const std::string& line) {
  if (line.empty() || line[0] == '#') return;
  if (line[0] == '=') {
    golden.calls.push_back({line.substr(2), {}, {}});
  } else if (line[0] == '.' && !golden.calls.empty()) {
    golden.calls.back().arguments.push_back(readValue(line.substr(2)));
  } else if (line.starts_with("-> ") && !golden.calls.empty()) {
    golden.calls.back().results.push_back(readValue(line.substr(3)));
  } else if (line[0] == '<' || line[0] == '>') {
    golden.parts.push_back({line[0] == '>', line.substr(2) == "record", "", {}});
  } else if (line[0] == ' ' && !golden.parts.empty()) {
    readPartLine(golden.parts.back(), line);
  } else {
    throw std::runtime_error("not understood: " + line);
  }
}

}  // namespace

std::string Golden::Value::bytes() const {
  if (!isBytes(written)) return bytesOfTexts(written);
  if (written.back() != '}') throw std::runtime_error("not bytes: " + written);
  std::istringstream words(written.substr(1, written.size() - 2));
  return bytesOfLine(words);
}

const Golden::Value& Golden::Call::argument(const std::string& name) const {
  return named(arguments, name);
}

const Golden::Value& Golden::Call::result(const std::string& name) const {
  return named(results, name);
}

std::string Golden::Call::text() const {
  if (operation.find('(') != std::string::npos) return operation;
  std::string text = operation + '(';
  for (const Value& value : arguments) {
    if (&value != &arguments.front()) text += ", ";
    if (isBytes(value.written)) {
      const std::string bytes = value.bytes();
      text += hex({bytes.begin(), bytes.end()});
    } else {
      text += value.written;
    }
  }
  return text + ')';
}

std::vector<std::string> Golden::callTexts() const {
  std::vector<std::string> texts;
  for (const Call& call : calls) texts.push_back(call.text());
  return texts;
}

Golden Golden::read(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(path + ": cannot be read");
  Golden golden;
  golden.name = std::filesystem::path(path).stem();
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    try {
      readLine(golden, line);
    } catch (const std::exception& error) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  return golden;
}

std::vector<Golden> Golden::readAll(const std::string& directory) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".golden") paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Golden> all;
  for (const std::string& path : paths) all.push_back(read(path));
  return all;
}

std::string testName(const Golden& golden) {
  std::string name = golden.name;
  for (char& character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
  }
  return name;
}

std::string differences(const Golden::Part& expected, const std::string& received, bool wide) {
  std::ostringstream text;
  if (received.size() != expected.bytes.size()) {
    text << "expected " << expected.bytes.size() << " bytes, received " << received.size() << '\n';
    return text.str();
  }
  std::string adapted = expected.bytes;
  for (const std::size_t offset : expected.references) {
    std::uint32_t word = 0;
    std::memcpy(&word, received.data() + offset, sizeof word);
    if (word == 0 || (wide && word != 1)) {
      text << "the reference at " << offset << " is " << word << '\n';
    }
    adapted.replace(offset, sizeof word, received, offset, sizeof word);
  }
  for (std::size_t offset = 0; offset < adapted.size(); ++offset) {
    if (adapted[offset] == received[offset]) continue;
    text << "byte " << offset << ": expected " << std::hex
         << static_cast<int>(static_cast<unsigned char>(adapted[offset])) << ", received "
         << static_cast<int>(static_cast<unsigned char>(received[offset])) << std::dec << '\n';
  }
  return text.str();
}
