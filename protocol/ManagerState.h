#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "ipc/Cancellation.h"
#include "ipc/Gate.h"

/// What the parts of IpcServerManager share; process-wide and initialised before any code runs.
namespace quillwork::manager_state {

/// Guards the instance pointer, both registries and every fan-out, listener calls included. Taken
/// before applicationStateMutex.
extern CancellableMutex managerMutex;

/// Holds the manager mutex for a scope, also when the stack unwinds. What runs meanwhile is the
/// listeners' code.
class ManagerLock {
 public:
  explicit ManagerLock(CancellableMutex& mutex) : lock_(mutex) {}

 private:
  std::lock_guard<CancellableMutex> lock_;
  HostCode hostCode_;
};

/// Whoever sends a notification is inside: the manager is not freed under it.
extern Gate notifiers;

/// The one pending application-state call. Pending and result are set without the mutex, as the
/// call's order of steps wants it; both are reached through std::atomic_ref.
extern bool applicationStatePending;
extern bool applicationStateResult;
extern pthread_mutex_t applicationStateMutex;
extern pthread_cond_t applicationStateCondition;

/// How many connections have ended. A call that finds another number than when it was sent has
/// missed the signal of its client's leaving.
extern std::atomic<std::uint32_t> endedConnections;

/// Waits for the answer to a call that was sent when `ended` connections had ended. Touches nothing
/// but the call's own state: the manager may be gone when it returns.
bool awaitAnswer(std::uint32_t ended);
/// The client has answered.
void answerApplicationState(bool answer);
/// The client has gone: the pending call returns true.
void endApplicationStateCall();
/// The manager ends: every waiting call returns true.
void endAllApplicationStateCalls();

}  // namespace quillwork::manager_state
