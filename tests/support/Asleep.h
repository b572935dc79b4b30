#pragma once

#include <sys/types.h>

#include <cstddef>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// How often a thread has given up the processor to wait; nothing while it runs or has ended.
inline std::optional<std::string> waitsOf(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
  bool sleeps = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("State:")) sleeps = line.find('S', sizeof "State:") != std::string::npos;
    if (line.starts_with("voluntary_ctxt_switches:") && sleeps) return line;
  }
  return std::nullopt;
}

/// Waits until all of these threads sleep in the kernel together and go on doing so. If no
/// other thread holds a lock that they take, each is then in the wait that it came for.
inline void awaitAsleepTogether(const std::vector<pid_t>& threads) {
  constexpr int looks = 50;
  std::vector<std::string> before;
  for (int unchanged = 0; unchanged < looks;) {
    std::vector<std::string> now;
    for (const pid_t thread : threads) {
      if (auto waits = waitsOf(thread)) now.push_back(std::move(*waits));
    }
    unchanged = now.size() == threads.size() && now == before ? unchanged + 1 : 0;
    before = std::move(now);
    std::this_thread::yield();
  }
}
