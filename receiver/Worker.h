#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace receiver {

/// Does what can take its time, in the order it was asked for, on a thread of its own: one writes
/// files, another calls the library's listeners, which a client that does not read holds up.
class Worker {
 public:
  using Task = std::function<void()>;
  /// When so many are waiting, further ones are dropped.
  static constexpr std::size_t mostTasks = 1000;

  /// `name`: the thread's, at most 15 characters.
  explicit Worker(const char* name = "worker");
  /// Waits for the task under way; those behind it are not done any more.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// False when it is dropped. A line on the standard error stream says so, once until there is
  /// room again. A task that throws ends alone, with a line.
  bool post(Task task);
  /// The same for what is never dropped: a caller has one such task waiting at most.
  void postKept(Task task);
  /// Begins no further task.
  void stop();

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Task> tasks_;
  bool hasDropped_ = false;
  bool isStopped_ = false;
  std::thread thread_;
};

}  // namespace receiver
