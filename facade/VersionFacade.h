#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/visibility.h"

namespace middlewarefacade {

/// The platform's version flags. The one facade that the library requires.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class VersionFacade {
 public:
  /// Supplied by the host: an object that stays the host's, must not be null, and must live as long
  /// as the adapter; it may be the same one for every adapter. Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it.
  QUILLWORK_HOST_DEFINED static VersionFacade* createVersionFacade();

  /// Whether the platform has what the flag stands for: 0 for no, any other number for yes. `flag`
  /// is any 32-bit number that the client sent, and its meaning is the middleware's own; the
  /// reference receiver's flags are 0 to 7. Called on the control channel's thread, or on that of
  /// the host's code that asks the IpcServerManager, with the manager mutex held; the client waits.
  /// Request: VERSION, with the flag as its type.
  virtual int checkVersionFlag(int flag) = 0;

  /// Takes the library's revision text, "r2483". Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it. No request leads to it.
  virtual void setVersion(std::string version) = 0;

  /// The library never calls it.
  virtual ~VersionFacade() = default;
};

}  // namespace middlewarefacade
