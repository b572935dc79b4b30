#include "receiver/Complaint.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace receiver {

int openWithoutWaiting(int file) {
  struct stat status {};
  const bool canWait =
      fstat(file, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
  if (!canWait) return -1;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
  return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

void complainOf(std::string_view text) noexcept {
  const int own = openWithoutWaiting(STDERR_FILENO);
  const int file = own == -1 ? STDERR_FILENO : own;
  pollfd room{file, POLLOUT, 0};
  // A socket, or a file that cannot be opened again, is asked before.
  if (own != -1 || poll(&room, 1, 0) == 1) {
    const auto piece = [](std::string_view part) {
      return iovec{const_cast<char*>(part.data()), part.size()};
    };
    // In one call, so that no other thread's line falls into it.
    const std::array<iovec, 3> line = {piece("quillwork-receiver: "), piece(text), piece("\n")};
    static_cast<void>(!writev(file, line.data(), static_cast<int>(line.size())));
  }
  if (own != -1) close(own);
}

}  // namespace receiver
