#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/records.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// The receiver's system properties: named texts.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class PropertyFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static PropertyFacade* createPropertyFacade();

  virtual void setProperty(std::string name, std::string value) = 0;
  /// The empty string for a property that is not there.
  virtual std::string getProperty(std::string name) = 0;
  virtual std::list<Property_> getProperties() = 0;
  virtual void removeProperty(std::string name) = 0;
  virtual ~PropertyFacade() = default;
};

}  // namespace middlewarefacade
