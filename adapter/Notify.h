#pragma once

#include "adapter/Published.h"
#include "ipc/Gate.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"

namespace adapter {

/// Passes a notification of the middleware's on to the manager, which is not freed meanwhile. While
/// the manager is being destroyed, and afterwards, the notification is dropped. Returns the
/// manager's answer, false for a dropped one.
template <class Notification>
bool passOn(quillwork::IpcServerManager*& manager, Notification&& notification) {
  const quillwork::Gate::Pass pass(quillwork::manager_state::notifiers);
  if (!pass) return false;
  quillwork::IpcServerManager* const target = load(manager);
  return target != nullptr && notification(*target);
}

}  // namespace adapter
