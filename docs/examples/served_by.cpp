// Says which process serves a socket: the check that a host makes after getInstance(), which
// returns in any case.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

namespace {

/// The process that listens at the path; 0 if none does. It is a client's connection that ends at
/// once, so make it before other clients are told of the sockets.
pid_t servedBy(const char* path) {
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  ucred listener{};
  socklen_t size = sizeof listener;
  if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      getsockopt(client, SOL_SOCKET, SO_PEERCRED, &listener, &size) != 0) {
    listener.pid = 0;
  }
  close(client);
  return listener.pid;
}

}  // namespace

int main() {
  for (const char* path : {"/dev/shm/ipc.socket", "/dev/shm/ipcdemux.socket"}) {
    const pid_t process = servedBy(path);
    std::cout << path << ": " << (process != 0 ? "served" : "not served") << '\n';
    // A host compares the process with getpid(): another one's sockets may still be there.
  }
}
