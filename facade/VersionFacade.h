#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/visibility.h"

namespace middlewarefacade {

/// The platform's version flags. The one facade that the library requires: its factory must not
/// return null, and the object is never deleted.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class VersionFacade {
 public:
  /// Supplied by the host.
  QUILLWORK_HOST_DEFINED static VersionFacade* createVersionFacade();

  /// Whether the flag is set; zero for no.
  virtual int checkVersionFlag(int flag) = 0;
  /// Takes the revision text of the library.
  virtual void setVersion(std::string version) = 0;
  virtual ~VersionFacade() = default;
};

}  // namespace middlewarefacade
