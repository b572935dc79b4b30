#pragma once

#include "protocol/IpcServerManager.h"
#include "support/Leftovers.h"

/// The manager, where there is none: each leaves something behind when it is destroyed.
inline quillwork::IpcServerManager* makeManager() {
  leavesBehind(ofAManager);
  return quillwork::IpcServerManager::getInstance();
}
