#pragma once

#include "protocol/language.h"

namespace quillwork {

/// Hears of the client's arrival and departure. Registered with the IpcServerManager, which borrows
/// it. Called on the control channel's thread with the manager mutex held: an implementation must
/// not call a locking operation of the manager.
///
/// The order of the operations is an ABI.
class ConnectionListener {
 public:
  virtual void clientConnected() = 0;
  virtual void clientDisconnected() = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~ConnectionListener() = default;
};

}  // namespace quillwork
