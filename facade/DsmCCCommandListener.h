#pragma once

#include "protocol/language.h"

#include "protocol/records.h"

namespace middlewarefacade {

/// Hears of DSM-CC stream events (ISO/IEC 13818-6) of the names it was added for. Called on a
/// thread of the middleware.
class DsmCCCommandListener {
 public:
  virtual void commandReceived(const ipcutil::DsmCCCommand_t& command) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~DsmCCCommandListener() = default;
};

}  // namespace middlewarefacade
