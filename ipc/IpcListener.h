#pragma once

#include "protocol/language.h"

#include <list>

#include "protocol/message.h"

namespace quillwork {

/// Receives what happens on the control channel. All operations are called on the channel's accept
/// thread, one at a time; while one runs, no further record is read. An exception that escapes one
/// ends the client's connection.
///
/// The order of the operations is an ABI.
class IpcListener {
 public:
  /// One record has arrived, or the client has gone: then `group` is 0 and `type` is 2. The record
  /// is the receive buffer itself, valid during the call; it may be changed.
  virtual void update(message& record) = 0;

  /// Fills the interface; the server never calls it.
  virtual void update(std::list<message> records) = 0;

  /// A client has connected; its first record has not been received yet.
  virtual void clientConnected() = 0;

  /// The client's connection is closed. update() has been called for its end before. A connection
  /// that IpcServer::stop() ends is reported by neither.
  virtual void clientDisconnected() = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~IpcListener() = default;
};

}  // namespace quillwork
