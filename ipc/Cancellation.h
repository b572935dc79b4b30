#pragma once

#include <pthread.h>

#include "ipc/Lock.h"

namespace quillwork {

/// Sets the calling thread's cancellation state for a scope.
class CancellationScope {
 public:
  /// `state` is PTHREAD_CANCEL_ENABLE or PTHREAD_CANCEL_DISABLE.
  explicit CancellationScope(int state) { pthread_setcancelstate(state, &before_); }
  ~CancellationScope() { pthread_setcancelstate(before_, nullptr); }
  CancellationScope(const CancellationScope&) = delete;
  CancellationScope& operator=(const CancellationScope&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

/// True on a thread that a cancellation may stop where it waits for a CancellableMutex or sends:
/// the control channel's accept thread, which sets it, outside of the host's code. On every other
/// thread such a wait is none of the library's business to end.
inline thread_local bool isCancellableHere = false;

/// Marks a stretch of the host's code: until the scope's end the thread is not stopped in it, not
/// even where that code calls back into the library.
class HostCode {
 public:
  HostCode() : before_(isCancellableHere) { isCancellableHere = false; }
  ~HostCode() { isCancellableHere = before_; }
  HostCode(const HostCode&) = delete;
  HostCode& operator=(const HostCode&) = delete;

 private:
  const bool before_;
};

/// A non-recursive mutex whose wait can be cancelled, and which passes from one waiting thread to
/// the next in the order of their coming.
///
/// Whoever stops the accept thread holds the manager mutex while it joins it; a plain mutex wait is
/// no cancellation point, so the two would wait for each other for ever. And a client that floods
/// the accept thread with requests would keep everybody else out of a mutex that is free for an
/// instant only. Needs no construction or destruction at run time.
class CancellableMutex {
 public:
  void lock() {
    const Lock guard(guard_);
    if (!held_) {
      held_ = true;
      return;
    }
    Waiter self(*this);
    const CancellationScope scope(isCancellableHere ? PTHREAD_CANCEL_ENABLE
                                                    : PTHREAD_CANCEL_DISABLE);
    while (!self.isOwner) pthread_cond_wait(&self.granted, &guard_);
    self.hasLeft = true;
  }

  void unlock() {
    const Lock guard(guard_);
    passOn();
  }

 private:
  /// A waiting thread's place in the queue, with the guard held whenever it is touched. A cancelled
  /// thread leaves the queue, or passes the mutex on when it had got it already.
  struct Waiter {
    explicit Waiter(CancellableMutex& waitedFor) : mutex(waitedFor) {
      *mutex.last_ = this;
      mutex.last_ = &next;
    }
    ~Waiter() {
      if (hasLeft) return;
      if (isOwner) {
        mutex.passOn();
      } else {
        mutex.remove(*this);
      }
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    CancellableMutex& mutex;
    Waiter* next = nullptr;
    pthread_cond_t granted = PTHREAD_COND_INITIALIZER;
    bool isOwner = false;
    bool hasLeft = false;
  };

  void passOn() {
    Waiter* const successor = first_;
    held_ = successor != nullptr;
    if (successor == nullptr) return;
    remove(*successor);
    successor->isOwner = true;
    pthread_cond_signal(&successor->granted);
  }

  void remove(Waiter& waiter) {
    Waiter** link = &first_;
    while (*link != &waiter) link = &(*link)->next;
    *link = waiter.next;
    if (last_ == &waiter.next) last_ = link;
  }

  pthread_mutex_t guard_ = PTHREAD_MUTEX_INITIALIZER;
  bool held_ = false;
  Waiter* first_ = nullptr;
  Waiter** last_ = &first_;
};

}  // namespace quillwork
