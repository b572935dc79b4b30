#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// A program of the build as a process of its own, its standard streams in files. Ended with
/// SIGKILL if it is still there at the end.
class Program {
 public:
  /// The path comes first; under an emulator the programs run under it, too.
  explicit Program(std::vector<std::string> arguments);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits until the standard output holds the text; false when the program ends before.
  [[nodiscard]] bool awaitOutput(const std::string& text);
  void signal(int number) const;
  /// Waits for the end and returns the exit status, or 128 and the signal that ended it.
  int wait();
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;

 private:
  [[nodiscard]] bool hasEnded();

  int output_;
  int errors_;
  pid_t process_ = -1;
  int status_ = -1;
};
