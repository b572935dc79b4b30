#pragma once

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// An exchange on one of the two channels, byte by byte, as a file in tests/golden describes it.
/// tests/golden/README.md has the format.
struct Golden {
  struct Part {
    bool fromClient;
    bool isRecord;
    std::string bytes;
    /// Offsets of the words that say that a list follows.
    std::set<std::size_t> references;
  };

  /// A named value, as it is written: an integer, a real number, "text" or {bytes}.
  struct Value {
    std::string name;
    std::string written;

    [[nodiscard]] std::int32_t integer() const { return std::stoi(written); }
    [[nodiscard]] double real() const { return std::stod(written); }
    /// Those of a text or of a row of bytes; throws std::runtime_error for anything else.
    [[nodiscard]] std::string bytes() const;
  };

  /// A call of a listener's operation, or of the manager's by the host.
  struct Call {
    std::string operation;
    std::vector<Value> arguments;
    std::vector<Value> results;

    /// The argument or result with this name; throws std::runtime_error if there is none with
    /// it.
    [[nodiscard]] const Value& argument(const std::string& name) const;
    [[nodiscard]] const Value& result(const std::string& name) const;
    /// As a CallLog has it: "operation(arguments)".
    [[nodiscard]] std::string text() const;
  };

  std::string name;
  std::vector<Call> calls;
  std::vector<Part> parts;

  [[nodiscard]] std::vector<std::string> callTexts() const;

  /// Reads a file; throws std::runtime_error with the file and line of what is not understood.
  static Golden read(const std::string& path);
  /// Every golden file of the directory, without those below it, in the order of their names.
  static std::vector<Golden> readAll(const std::string& directory);
};

/// How a test's parameter is shown.
inline void PrintTo(const Golden& golden, std::ostream* stream) { *stream << golden.name; }

/// The file's name as a part of a test's name.
std::string testName(const Golden& golden);

/// Compares what has arrived with a part; the answer is empty or says where they differ.
/// `wide`: the sender is a process with pointers of more than four bytes.
std::string differences(const Golden::Part& expected, const std::string& received, bool wide);
