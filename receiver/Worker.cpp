#include "receiver/Worker.h"

#include <fmt/format.h>
#include <pthread.h>

#include <cstdio>
#include <utility>

namespace receiver {

Worker::Worker() : thread_([this] { run(); }) {
  pthread_setname_np(thread_.native_handle(), "worker");
}

Worker::~Worker() {
  stop();
  thread_.join();
}

bool Worker::post(Task task) {
  {
    const std::lock_guard lock(mutex_);
    if (tasks_.size() < mostTasks) {
      tasks_.push_back(std::move(task));
      changed_.notify_one();
      return true;
    }
  }
  fmt::print(stderr, "quillwork-receiver: the client does not read; a notification is dropped\n");
  return false;
}

void Worker::stop() {
  const std::lock_guard lock(mutex_);
  isStopped_ = true;
  changed_.notify_one();
}

void Worker::run() {
  for (;;) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return isStopped_ || !tasks_.empty(); });
      if (isStopped_) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace receiver
