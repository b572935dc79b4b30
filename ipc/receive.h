#pragma once

#include <sys/socket.h>

#include <cerrno>
#include <cstddef>

namespace quillwork {

/// Receives `size` bytes into `to` and returns how many came: fewer only when the peer has gone. A
/// process that was stopped and goes on, under a debugger for instance, finds its receive ended in
/// the middle while the rest is still to come.
inline std::size_t receiveWhole(int socket, void* to, std::size_t size) {
  std::size_t received = 0;
  while (received < size) {
    const ssize_t part =
        recv(socket, static_cast<unsigned char*>(to) + received, size - received, MSG_WAITALL);
    if (part > 0) {
      received += static_cast<std::size_t>(part);
    } else if (part == 0 || errno != EINTR) {
      break;
    }
  }
  return received;
}

}  // namespace quillwork
