#pragma once

#include "ipc/FairMutex.h"
#include "ipc/Gate.h"

/// What the parts of IpcServerManager share, and the adapter; process-wide and initialised before
/// any code runs.
namespace quillwork::manager_state {

/// Guards both registries and every query, listener calls included; held while the instance is made
/// and deleted.
extern FairMutex managerMutex;

/// Threads that send a notification or wait for an application state's answer are inside: the
/// manager is not freed before they have left.
extern Gate notifiers;

}  // namespace quillwork::manager_state
