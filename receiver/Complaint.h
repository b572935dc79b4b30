#pragma once

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace receiver {

/// Prints a line of up to 4,096 bytes on the standard error stream: the program's name and the
/// text, as the library prints its own. What the stream does not take at once is dropped, and what
/// goes wrong ignored: no part of the receiver waits for the reader of its log, or ends with him.
/// Any thread.
void complainOf(std::string_view text) noexcept;

/// The same of a text in fmt's form, without its line end.
template <class... Arguments>
void complain(fmt::format_string<Arguments...> form, Arguments&&... arguments) noexcept {
  try {
    complainOf(fmt::format(form, std::forward<Arguments>(arguments)...));
  } catch (...) {
    complainOf("there is no memory to say what is wrong");
  }
}

}  // namespace receiver
