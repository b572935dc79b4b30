#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

/// The kernel's number of the calling thread.
inline pid_t threadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

/// Waits until a thread sleeps in the kernel. Only for a thread that has nothing to sleep on but
/// what the test is about.
inline void awaitSleeping(const std::atomic<pid_t>& thread) {
  for (;;) {
    if (thread != 0) {
      std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
      std::string line;
      std::getline(file, line);
      const std::size_t state = line.rfind(')') + 2;
      if (state < line.size() && line[state] == 'S') return;
    }
    std::this_thread::yield();
  }
}
