#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/DsmCCCommandListener.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// DSM-CC stream events (ISO/IEC 13818-6) by name: commands that the broadcast sends to an
/// application. No request of the client reaches this facade: the adapter subscribes to the events
/// named "nclEditingCommand" for its whole life, and passes each one on.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class DsmCCCommandFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no stream events. Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it.
  QUILLWORK_HOST_DEFINED static DsmCCCommandFacade* createDsmCCCommandFacade();

  /// Begins to report the events of that name, and of no other, to `listener`, which is borrowed
  /// until it is removed. Called inside MiddlewareIpc::getInstance(), on the thread that calls it;
  /// must not wait for an event. No request leads to it.
  virtual void addCommandListener(std::string eventName, DsmCCCommandListener* listener) = 0;

  /// Ends the reports of the events of that name to `listener`: no call to it may follow once this
  /// has returned. Called by the thread that deletes the adapter. A call to the listener that is
  /// still under way may be waited for: it does not block any more. No request leads to it.
  virtual void removeCommandListener(std::string eventName, DsmCCCommandListener* listener) = 0;

  /// Called once, by the thread that deletes the adapter, right after removeCommandListener().
  virtual ~DsmCCCommandFacade() = default;
};

}  // namespace middlewarefacade
