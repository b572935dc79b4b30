#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "bench/Shape.h"

namespace bench {

/// A server in a process of its own, the library's with a /dev/shm of its own, too. It ends with
/// this object. Everything throws std::runtime_error when the system refuses.
class Server {
 public:
  enum class Kind { floor, library };

  Server(Kind kind, const Shape& shape);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// The paths of the two sockets, as this process sees them.
  [[nodiscard]] const std::string& controlPath() const { return controlPath_; }
  [[nodiscard]] const std::string& sectionPath() const { return sectionPath_; }

  /// Has the library's host make the lists that the next request asks for, and waits for them.
  void prepare() const;
  /// Has a thread of the server's send one notification, the end of the media of the player whose
  /// number is stamp() when that thread begins.
  void notify() const { say('n'); }

 private:
  void say(char word) const;
  void awaitAnswer() const;

  pid_t process_ = -1;
  int words_ = -1;
  int answers_ = -1;
  std::string controlPath_;
  std::string sectionPath_;
};

/// Nanoseconds of a clock that all processes share; the lowest 31 bits.
std::int32_t stamp();

/// Keeps the calling thread, and what it forks or starts, on one processor: the client on one, the
/// servers on another. Does nothing where there is but one.
enum class Processor { client, server };
void pinTo(Processor processor);

/// A connected socket.
int connectTo(const std::string& path);

}  // namespace bench
