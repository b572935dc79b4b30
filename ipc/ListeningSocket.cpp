#include "ipc/ListeningSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "ipc/Report.h"
#include "ipc/UnixAddress.h"

namespace quillwork {

namespace {

/// A host that was started without standard streams gives their numbers to the next files it opens.
/// Printed text must not reach a client through such a number.
Descriptor aboveStandardStreams(Descriptor opened) {
  if (opened.number() < 0 || opened.number() > STDERR_FILENO) return opened;
  return Descriptor(fcntl(opened.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

/// A descriptor that a client sends along with its bytes is closed by the receive that drops it,
/// and that close can block for as long as the client likes. Linux refuses such descriptors
/// from 6.16 on.
void refusePassedDescriptors(int listeningSocket) {
#ifndef SO_PASSRIGHTS
  constexpr int SO_PASSRIGHTS = 83;
#endif
  const int off = 0;
  setsockopt(listeningSocket, SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof off);
}

}  // namespace

ListeningSocket openListeningSocket(const char* path, int pathLength) {
  ListeningSocket opened;
  opened.socket = aboveStandardStreams(Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
  if (opened.socket.number() < 0) {
    reportFailure("Can't create socket");
    return opened;
  }
  refusePassedDescriptors(opened.socket.number());
  if (path == nullptr) {
    reportFailure("Invalid file name or file name is too big");
    return opened;
  }
  unlink(path);
  const sockaddr_un address =
      unixAddress({path, strnlen(path, static_cast<std::size_t>(pathLength))});
  const std::size_t size = std::strlen(address.sun_path) + sizeof address.sun_family;
  if (bind(opened.socket.number(), reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(size)) == -1) {
    reportFailure("Can't bind filename");
    return opened;
  }
  if (listen(opened.socket.number(), 1) != 0) {
    reportFailure("Can't listen socket");
    return opened;
  }
  opened.listens = true;
  return opened;
}

Descriptor acceptClient(int listeningSocket) {
  return aboveStandardStreams(Descriptor(accept4(listeningSocket, nullptr, nullptr, SOCK_CLOEXEC)));
}

}  // namespace quillwork
