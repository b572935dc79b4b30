#pragma once

#include <string>
#include <thread>

class MiddlewareIpc;

namespace receiver {

struct Host;

/// What a person or a script causes on the host's side, a line each: read and carried out on a
/// thread of its own, since a client that does not read or answer holds it up.
/// Answers are lines on the standard output, complaints on the standard error stream.
/// docs/receiver.md lists the commands.
class Console {
 public:
  /// Borrows the host, the adapter and the descriptor that the lines are read from. `quit` is
  /// carried out as a SIGTERM to this process.
  Console(Host& host, MiddlewareIpc& adapter, int input);
  /// Waits for the command that is being carried out. Delete the adapter first: that ends whatever
  /// waits for the client.
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Begins no further command.
  void stop();

 private:
  void run();
  bool readLine(std::string& line);
  [[nodiscard]] bool sleepFor(double seconds) const;
  void perform(const std::string& line);

  Host& host_;
  MiddlewareIpc& adapter_;
  const int input_;
  /// Readable once stop() was called.
  const int stopped_;
  std::string unread_;
  bool isCut_ = false;  ///< what was read of the line so far is given up
  std::thread thread_;
};

}  // namespace receiver
