#include "support/Golden.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

constexpr std::size_t recordSize = 1960;

/// "a5" or "00*252".
std::string bytesOfToken(const std::string& token) {
  const std::size_t star = token.find('*');
  const std::size_t count = star == std::string::npos ? 1 : std::stoul(token.substr(star + 1));
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
    golden.calls.push_back(line.substr(2));
  } else if (line[0] == '<' || line[0] == '>') {
    golden.parts.push_back({line[0] == '>', line.substr(2) == "record", "", {}});
  } else if (line[0] == ' ' && !golden.parts.empty()) {
    readPartLine(golden.parts.back(), line);
  } else {
    throw std::runtime_error("not understood: " + line);
  }
}

}  // namespace

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
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Golden> all;
  for (const std::string& path : paths) all.push_back(read(path));
  return all;
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
