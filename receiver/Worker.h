#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace receiver {

/// Does what can take its time, in the order it was asked for, on a thread of its own: files are
/// written, and the library's listeners are called, which a client that does not read holds up.
class Worker {
 public:
  using Task = std::function<void()>;
  /// When so many are waiting, further ones are dropped.
  static constexpr std::size_t mostTasks = 1000;

  Worker();
  /// Waits for the task under way; those behind it are not done any more.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// False, and a line on the standard error stream, when it is dropped.
  bool post(Task task);
  /// Begins no further task.
  void stop();

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  bool isStopped_ = false;
  std::thread thread_;
};

}  // namespace receiver
