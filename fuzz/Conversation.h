#pragma once

#include <string>
#include <string_view>

/// Connects to the path, sends the bytes while it reads whatever comes, closes the sending
/// direction and returns everything that was received until the peer closed. Aborts, with a line on
/// the standard error stream, when nothing moves for twenty seconds.
std::string converse(const char* path, std::string_view bytes);

/// Ends the program where the library breaks a promise; the fuzzer keeps the input.
[[noreturn]] void fail(const std::string& what);
