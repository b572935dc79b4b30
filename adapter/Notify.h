#pragma once

#include "adapter/Published.h"
#include "ipc/Gate.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"

namespace adapter {

/// Passes a notification of the middleware's on, if there is a manager. Whoever destroys the
/// manager waits for it to come back; afterwards, or while that goes on, it is dropped. Returns the
/// sender's answer, false for a dropped one.
template <class Sender>
bool notify(quillwork::IpcServerManager*& manager, Sender&& sender) {
  const quillwork::Gate::Stay stay(quillwork::manager_state::notifiers);
  if (!stay) return false;
  quillwork::IpcServerManager* const target = load(manager);
  return target != nullptr && sender(*target);
}

}  // namespace adapter
