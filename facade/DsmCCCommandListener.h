#pragma once

#include "protocol/language.h"

#include "protocol/records.h"

namespace middlewarefacade {

/// Hears of DSM-CC stream events (ISO/IEC 13818-6) of the names that it was added for. The adapter
/// implements it, and the host's DsmCCCommandFacade calls it, on a thread of the host's.
class DsmCCCommandListener {
 public:
  /// An event has come or its time has. `command` is borrowed during the call. Blocks while the
  /// client does not read; without a client the event is lost. Notification: DSMCC_COMMAND, with
  /// the command's code as its type.
  virtual void commandReceived(const ipcutil::DsmCCCommand_t& command) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~DsmCCCommandListener() = default;
};

}  // namespace middlewarefacade
