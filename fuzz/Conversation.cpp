#include "fuzz/Conversation.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/UnixSocket.h"

void fail(const std::string& what) {
  std::fprintf(stderr, "fuzz: %s\n", what.c_str());
  std::abort();
}

std::string converse(const char* path, std::string_view bytes) {
  constexpr int limit = 20'000;
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connectTo(client, path) != 0) {
    fail(std::string("cannot connect to ") + path + ": " + std::strerror(errno));
  }
  std::string received;
  char buffer[65536];
  if (bytes.empty()) shutdown(client, SHUT_WR);
  for (;;) {
    const short sending = bytes.empty() ? 0 : POLLOUT;
    pollfd ready{client, static_cast<short>(POLLIN | sending), 0};
    if (poll(&ready, 1, limit) == 0) fail("nothing moves");
    if ((ready.revents & POLLOUT) != 0) {
      const ssize_t sent = send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent > 0) {
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      } else if (errno != EAGAIN) {
        bytes = {};  // The connection has been ended; what it said before is still to be read.
      }
      if (bytes.empty()) shutdown(client, SHUT_WR);
    }
    if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
    const ssize_t size = recv(client, buffer, sizeof buffer, MSG_DONTWAIT);
    if (size > 0) {
      received.append(buffer, static_cast<std::size_t>(size));
    } else if (size == 0 || errno != EAGAIN) {
      close(client);
      return received;
    }
  }
}
