#include "receiver/Worker.h"

#include <pthread.h>

#include <exception>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

void carryOut(const Worker::Task& task) {
  try {
    task();
  } catch (const std::exception& error) {
    complain("{}", error.what());
  }
}

}  // namespace

Worker::Worker(const char* name) : thread_([this] { run(); }) {
  pthread_setname_np(thread_.native_handle(), name);
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
    if (std::exchange(hasDropped_, true)) return false;
  }
  complain("the client does not read; notifications are dropped");
  return false;
}

void Worker::postKept(Task task) {
  const std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  changed_.notify_one();
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
      if (tasks_.empty()) hasDropped_ = false;
    }
    carryOut(task);
  }
}

}  // namespace receiver
