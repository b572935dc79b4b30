#pragma once

#include <csignal>
#include <string>

namespace receiver {

struct OutputSettings {
  /// The standard output is for print() alone: what the library prints goes nowhere.
  bool isQuiet = false;
  /// A reader that does not read is waited for, instead of a second at most.
  bool isPatient = false;
  /// Blocked signals that end the process: with one of them pending, no reader is waited for.
  sigset_t endingSignals{};
};

/// Makes the standard output safe to print on, before anything else is opened: where it is closed
/// it becomes one that takes everything, and writing to a pipe that nobody reads is an error
/// instead of the process's death.
void prepareOutput(const OutputSettings& settings);

/// Prints text on the standard output. What its reader does not take in time is dropped, and so is
/// all that follows until he reads again, which the standard error stream then says. When there is
/// no reader any more, the receiver is asked to end as if by SIGTERM. Any thread.
void print(const std::string& text);

/// From now on print() does not wait for the reader.
void stopWaitingForReader();

/// Asks this process to end.
void requestEnd();

}  // namespace receiver
