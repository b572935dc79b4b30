#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/DsmCCCommandListener.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// DSM-CC stream events by name.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class DsmCCCommandFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static DsmCCCommandFacade* createDsmCCCommandFacade();

  /// The listener is borrowed until it is removed; it hears of the events of that name only.
  virtual void addCommandListener(std::string eventName, DsmCCCommandListener* listener) = 0;
  virtual void removeCommandListener(std::string eventName, DsmCCCommandListener* listener) = 0;
  virtual ~DsmCCCommandFacade() = default;
};

}  // namespace middlewarefacade
