#include "cli/sockets.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "cli/Command.h"
#include "ipc/UnixAddress.h"

namespace quillwork::cli {
namespace {

Descriptor makeSocket(int flags = 0) {
  return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

/// 0, or what is wrong.
int connectTo(const Descriptor& socket, const std::string& path) {
  const sockaddr_un address = unixAddress(path);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  return connect(socket.number(), generic, sizeof address) == 0 ? 0 : errno;
}

}  // namespace

Descriptor connectTo(const std::string& path) {
  Descriptor connection = makeSocket();
  const int error = connectTo(connection, path);
  if (error != 0) connection.close();
  errno = error;
  return connection;
}

bool isServed(const std::string& path) {
  const int error = connectTo(makeSocket(SOCK_NONBLOCK), path);
  return error == 0 || error == EAGAIN;
}

Descriptor listenAt(const std::string& path) {
  Descriptor listening = makeSocket();
  const sockaddr_un address = unixAddress(path);
  if (bind(listening.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listening.number(), 1) != 0) {
    throw Refusal(path + ": " + std::strerror(errno));
  }
  return listening;
}

}  // namespace quillwork::cli
