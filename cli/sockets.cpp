#include "cli/sockets.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "cli/Command.h"
#include "ipc/UnixAddress.h"

namespace quillwork::cli {
namespace {

Descriptor makeSocket() { return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

}  // namespace

Descriptor connectTo(const std::string& path) {
  Descriptor connection = makeSocket();
  const sockaddr_un address = unixAddress(path);
  if (connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
      0) {
    return connection;
  }
  const int error = errno;
  connection.close();
  errno = error;
  return connection;
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
