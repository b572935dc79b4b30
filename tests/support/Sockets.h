#pragma once

#include <sys/socket.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <iterator>

/// Calls `visit` with the number of each of the process's open sockets.
template <class Visitor>
void forEachSocket(Visitor&& visit) {
  for (int descriptor = 3; descriptor < 4096; ++descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) visit(descriptor);
  }
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
