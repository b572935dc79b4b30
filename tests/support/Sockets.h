#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

/// Calls `visit` with the number of each of the process's open sockets.
template <class Visitor>
void forEachSocket(Visitor&& visit) {
  for (int descriptor = 3; descriptor < 4096; ++descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) visit(descriptor);
  }
}

/// How many sockets are open, and how many of them stay open in a child of the process.
struct OpenSockets {
  int all = 0;
  int inherited = 0;
};
inline OpenSockets openSockets() {
  OpenSockets count;
  forEachSocket([&](int descriptor) {
    ++count.all;
    if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) ++count.inherited;
  });
  return count;
}

/// Gives every socket of the process the smallest buffer for sending that the kernel allows, so
/// that a peer that does not read is felt at once.
inline void shrinkSendBuffers() {
  forEachSocket([](int descriptor) {
    const int size = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  });
}

inline std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}
inline std::ptrdiff_t openDescriptors() { return entriesOf("/proc/self/fd"); }
inline std::ptrdiff_t runningThreads() { return entriesOf("/proc/self/task"); }

/// Waits while what others still close or end is counted; false when it stays for ten seconds.
template <typename Count>
bool becomes(Count count, std::ptrdiff_t expected) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (count() != expected) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}
