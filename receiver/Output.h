#pragma once

#include <string>

namespace receiver {

/// Makes the standard output safe to print on, before anything else is opened: where it is closed
/// it becomes one that takes everything, and writing to a pipe that nobody reads is an error
/// instead of the process's death. `isQuiet`: what this process prints goes nowhere, apart from
/// answers.
void prepareOutput(bool isQuiet);

/// Prints text on the standard output. When nobody can read it any more, the receiver is asked to
/// end as if by SIGTERM. Any thread.
void print(const std::string& text);

/// The same for what a command was asked for, which is printed even where it is to be quiet.
void printAnswer(const std::string& text);

/// Asks this process to end.
void requestEnd();

}  // namespace receiver
