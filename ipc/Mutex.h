#pragma once

#include <pthread.h>

#include "ipc/ThreadSafety.h"

namespace quillwork {

/// A POSIX mutex with default attributes, usable before any constructor has run and after every
/// destructor: the accept threads may outlive both.
class QUILLWORK_CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() QUILLWORK_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  void unlock() QUILLWORK_RELEASE() { pthread_mutex_unlock(&mutex_); }

  /// For the calls that wait on a condition.
  pthread_mutex_t* native() { return &mutex_; }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds a mutex for a scope, also when the stack unwinds.
template <class Lockable>
class QUILLWORK_SCOPED_CAPABILITY Lock {
 public:
  explicit Lock(Lockable& mutex) QUILLWORK_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~Lock() QUILLWORK_RELEASE() { mutex_.unlock(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  Lockable& mutex_;
};

}  // namespace quillwork
