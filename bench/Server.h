#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "bench/Shape.h"

namespace bench {

/// Where client and servers run: on one processor, or the client on one and the servers on another.
enum class Placement { one, two };

/// A server in a process of its own, the library's with a /dev/shm of its own, too. It ends with
/// this object. Everything throws std::runtime_error when the system refuses.
class Server {
 public:
  enum class Kind { floor, library };

  Server(Kind kind, const Shape& shape, Placement placement);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// The paths of the two sockets, as this process sees them.
  [[nodiscard]] const std::string& controlPath() const { return controlPath_; }
  [[nodiscard]] const std::string& sectionPath() const { return sectionPath_; }

  /// Has the library's host make the lists for so many requests, and waits for them.
  void prepare(std::size_t requests) const;
  /// Has a thread of the server's send one notification, the end of the media of the player whose
  /// number is stamp() when that thread begins.
  void notify() const { say(0); }

 private:
  void say(std::size_t word) const;
  void awaitAnswer() const;

  pid_t process_ = -1;
  int words_ = -1;
  int answers_ = -1;
  std::string controlPath_;
  std::string sectionPath_;
};

/// Nanoseconds of a clock that all processes share; the lowest 31 bits.
std::int32_t stamp();

/// Keeps the calling thread, and what it forks or starts, on the first or the second of the
/// processors that the process may use. Does nothing where there is but one.
void pinTo(unsigned processor);
inline constexpr unsigned clientProcessor = 0;

/// A connected socket.
int connectTo(const std::string& path);

}  // namespace bench
