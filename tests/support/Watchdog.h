#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

/// Ends the process, with the stacks of all its threads on the standard error stream, when the
/// scope lasts longer than the limit. It takes the limit in many short steps, which grow where
/// other processes take the processors: a busy machine does not break a promise of time.
class Watchdog {
 public:
  explicit Watchdog(std::chrono::milliseconds limit);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  bool endsWithin(std::chrono::milliseconds time);

  std::mutex mutex_;
  std::condition_variable ended_;
  bool hasEnded_ = false;
  std::thread thread_;
};
