#pragma once

#include "protocol/language.h"

namespace quillwork {

/// Hears of the client's arrival and departure. Registered with the IpcServerManager, which borrows
/// it until it is removed. Called on the control channel's thread with the manager mutex held: an
/// implementation must not call a locking operation of the manager, and while it blocks, no request
/// is read.
///
/// The order of the operations is an ABI.
class ConnectionListener {
 public:
  /// A client has connected to the control channel; none of its requests has been read yet. A
  /// notification may be sent from here.
  virtual void clientConnected() = 0;

  /// The client has gone, and its last request has been answered; a notification fails until the
  /// next one comes. Not called for a client that the library's end cuts off.
  virtual void clientDisconnected() = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~ConnectionListener() = default;
};

}  // namespace quillwork
