#pragma once

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace receiver {

/// A description of the pipe or terminal that never waits when it is written to, though the one
/// that other processes share does. The caller closes it. -1 for other files, which do not wait for
/// a reader, and where it cannot be opened.
int openWithoutWaiting(int file);

/// Prints a line on the standard error stream: the program's name and the text. What the stream
/// does not take at once is dropped, and what goes wrong ignored: no part of the receiver waits for
/// the reader of its log, or ends with him. Any thread.
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
