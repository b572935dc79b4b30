#pragma once

#include "protocol/IpcServerManager.h"
#include "support/Golden.h"

/// Makes the call that a file of tests/golden/notifications has; returns what the manager answers.
/// Throws std::runtime_error for an operation that is not a notification.
bool notify(quillwork::IpcServerManager& manager, const Golden::Call& call);
