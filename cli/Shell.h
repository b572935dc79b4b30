#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/Session.h"

namespace quillwork::cli {

/// Runs the command line's words; what is wrong with them has been said when it returns.
using RunWords = std::function<void(const std::vector<std::string>& words)>;

/// Reads lines from the standard input and runs each as a command, on connections that stay. On a
/// terminal with line editing, history and completion, where this build has a library for it;
/// notifications are printed as they come.
void runShell(Session& session, const RunWords& run);

/// The words of a line: blanks part them, quotes and backslashes keep what they are. Throws
/// std::invalid_argument where a quote is not closed.
std::vector<std::string> splitWords(const std::string& line);

/// What the last word of the line can become.
std::vector<std::string> completions(const std::string& line);

}  // namespace quillwork::cli
