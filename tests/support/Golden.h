#pragma once

#include <ostream>
#include <set>
#include <string>
#include <vector>

/// A request and its reply, byte by byte, as a file in tests/golden describes them:
///
///   # a title
///   = what the listener is called with, one line a call
///   > record          what the client sends: 1960 bytes, "fill" and then runs at offsets
///   < record          what it receives: records, or bytes outside of any record
///   < bytes
///
/// A run is a list of hexadecimal bytes, "00*252" for 252 of them; "ref" is a word that says that a
/// list follows (any word but zero in a 32-bit process, 1 in a wider one).
struct Golden {
  struct Part {
    bool fromClient;
    bool isRecord;
    std::string bytes;
    /// Offsets of the words that say that a list follows.
    std::set<std::size_t> references;
  };

  std::string name;
  std::vector<std::string> calls;
  std::vector<Part> parts;

  /// Reads a file; throws std::runtime_error with the file and line of what is not understood.
  static Golden read(const std::string& path);
  /// Every file of the directory, in the order of their names.
  static std::vector<Golden> readAll(const std::string& directory);
};

/// How a test's parameter is shown.
inline void PrintTo(const Golden& golden, std::ostream* stream) { *stream << golden.name; }

/// Compares what has arrived with a part; the answer is empty or says where they differ.
/// `wide`: the sender is a process with pointers of more than four bytes.
std::string differences(const Golden::Part& expected, const std::string& received, bool wide);
