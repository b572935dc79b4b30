#pragma once

#include "ipc/FairMutex.h"
#include "ipc/Gate.h"

/// What the parts of IpcServerManager share, and the adapter; process-wide and initialised before
/// any code runs.
namespace quillwork::manager_state {

/// Guards both registries and every query, listener calls included; held while the instance is made
/// and deleted.
extern FairMutex managerMutex;

/// Whoever sends a notification, or waits for an application-state call's answer, is inside: the
/// manager is not freed under it.
extern Gate notifiers;

}  // namespace quillwork::manager_state
