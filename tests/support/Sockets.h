#pragma once

#include <fcntl.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>

#include "support/Patience.h"

/// Calls `visit` with the number of each of the process's open sockets. Asks the kernel through
/// files: a call on a descriptor that another thread is about to close is a race to a sanitizer.
template <class Visitor>
void forEachSocket(Visitor&& visit) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone);
    if (!gone && target.string().starts_with("socket:")) visit(std::stoi(entry.path().filename()));
  }
}

/// Whether a child of the process would have the descriptor, too.
inline bool isInherited(int descriptor) {
  std::ifstream file("/proc/self/fdinfo/" + std::to_string(descriptor));
  for (std::string name; file >> name;) {
    unsigned flags = 0;
    if (name == "flags:" && file >> std::oct >> flags) return (flags & O_CLOEXEC) == 0;
  }
  return false;
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
    if (isInherited(descriptor)) ++count.inherited;
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

/// Waits while what others still close or end is counted; false when it stays.
template <typename Count>
bool becomes(Count count, std::ptrdiff_t expected) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (count() != expected) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}
