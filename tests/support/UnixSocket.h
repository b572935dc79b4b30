#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

inline sockaddr_un addressOf(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  return address;
}

/// As connect(), to the Unix-domain socket at a path.
inline int connectTo(int socket, const char* path) {
  const sockaddr_un address = addressOf(path);
  return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// Binds a Unix-domain socket to a path where nothing is yet, and listens with a queue of one. 0,
/// or -1 and errno.
inline int listenAt(int socket, const char* path) {
  const sockaddr_un address = addressOf(path);
  const int bound = bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return bound == 0 ? listen(socket, 1) : bound;
}
