#pragma once

#include "protocol/IpcServerManager.h"
#include "support/Leftovers.h"

/// Makes the manager, and says what it leaves behind when it is destroyed. There must be none yet.
inline quillwork::IpcServerManager* makeManager() {
  leavesBehind(ofAManager);
  return quillwork::IpcServerManager::getInstance();
}
