#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// The path of a host's program, by its path in the build: that of this build, or of the one that
/// QUILLWORK_HOST_BUILD names.
std::string hostProgram(const std::string& path);
inline std::string receiverProgram() { return hostProgram("receiver/quillwork-receiver"); }

/// A program of the build as a process of its own, its standard output and errors in files. Ended
/// with SIGKILL if it is still there at the end.
class Program {
 public:
  /// The path comes first; under an emulator the programs run under it, too. `launcher` is a
  /// program of this machine, with its arguments, that starts it.
  explicit Program(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& launcher = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits until the standard output holds the text; false when the program ends before.
  [[nodiscard]] bool awaitOutput(const std::string& text);
  /// Writes a line to its standard input.
  void say(const std::string& line) const { give(line + "\n"); }
  void give(const std::string& bytes) const;
  void signal(int number) const;
  /// Waits for the end and returns the exit status, or 128 and the signal that ended it.
  int wait();
  [[nodiscard]] std::string output() const;
  [[nodiscard]] std::string errors() const;
  /// Frees what was kept of both so far.
  void forgetOutput() const;
  [[nodiscard]] pid_t process() const { return process_; }

 private:
  [[nodiscard]] bool hasEnded();

  int input_ = -1;
  int output_;
  int errors_;
  pid_t process_ = -1;
  int status_ = -1;
};
