#pragma once

#include <cstdio>
#include <initializer_list>
#include <string_view>

/// Printing that never waits. A host whose standard error stream is a full pipe or a stopped
/// terminal must not find its threads blocked in the library's messages: a client can cause those
/// at will. So a text that the stream does not take at once is dropped. The stream's flags are the
/// host's and stay as they are.
namespace quillwork {

/// Prints the text, which brings its line ends along, behind what the host has printed on the
/// stream before, where the file takes that at once. Any thread. At most PIPE_BUF bytes; the rest
/// is cut off.
void print(std::FILE* stream, std::string_view text);

/// Prints one line that consists of the parts, whose own line ends are left out.
void printLine(std::FILE* stream, std::initializer_list<std::string_view> parts);

/// As perror(): the text and what errno means, on the standard error stream.
void reportFailure(const char* text);

}  // namespace quillwork
