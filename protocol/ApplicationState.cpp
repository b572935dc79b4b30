#include "protocol/ApplicationState.h"

#include <atomic>

#include "ipc/Mutex.h"

namespace quillwork::application_state {

pthread_cond_t applicationStateCondition = PTHREAD_COND_INITIALIZER;

namespace {

// Pending and result are set without the mutex, as the call's order of steps wants it.
bool applicationStatePending = false;
bool applicationStateResult = false;
constinit Mutex applicationStateMutex;

constinit std::atomic<std::uint32_t> ended{0};

std::atomic_ref<bool> pending() { return std::atomic_ref<bool>(applicationStatePending); }
std::atomic_ref<bool> result() { return std::atomic_ref<bool>(applicationStateResult); }

/// A call that waits. The one condition wakes all of them; each looks whether it is meant.
struct Waiter {
  Waiter() QUILLWORK_REQUIRES(applicationStateMutex);
  // Also when the waiting thread is cancelled.
  ~Waiter() QUILLWORK_REQUIRES(applicationStateMutex);
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  Waiter* next = nullptr;
  bool isReleased = false;
  bool answer = false;
};

Waiter* firstWaiter QUILLWORK_GUARDED_BY(applicationStateMutex) = nullptr;

Waiter::Waiter() {
  Waiter** link = &firstWaiter;
  while (*link != nullptr) link = &(*link)->next;
  *link = this;
  // A call that was released since this one's first step has cleared it.
  pending().store(true);
}

Waiter::~Waiter() {
  Waiter** link = &firstWaiter;
  while (*link != this) link = &(*link)->next;
  *link = next;
  pending().store(firstWaiter != nullptr);
}

/// Releases the first call that still waits, with its answer; false when there is none.
bool releaseOne(bool answer) QUILLWORK_REQUIRES(applicationStateMutex) {
  Waiter* waiter = firstWaiter;
  while (waiter != nullptr && waiter->isReleased) waiter = waiter->next;
  if (waiter == nullptr) return false;
  waiter->isReleased = true;
  waiter->answer = answer;
  return true;
}

}  // namespace

std::uint32_t endedConnections() { return ended.load(); }

bool await(std::uint32_t endedBefore) {
  pending().store(true);
  result().store(false);
  const Lock lock(applicationStateMutex);
  Waiter self;
  if (ended.load() != endedBefore) return true;
  while (!self.isReleased) {
    pthread_cond_wait(&applicationStateCondition, applicationStateMutex.native());
  }
  return self.answer;
}

// The result is stored before the mutex is taken, whether or not a call is pending.
void answer(bool received) {
  result().store(received);
  const Lock lock(applicationStateMutex);
  if (releaseOne(result().load())) pthread_cond_broadcast(&applicationStateCondition);
}

void endConnection() {
  const Lock lock(applicationStateMutex);
  ++ended;
  if (!pending().load()) return;
  result().store(true);
  // Not what stands in the result: a call that begins at this moment overwrites it.
  while (releaseOne(true)) {
  }
  pthread_cond_broadcast(&applicationStateCondition);
}

}  // namespace quillwork::application_state
