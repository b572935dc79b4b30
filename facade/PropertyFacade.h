#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/records.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// The receiver's system properties: named texts. Names and values are bytes without a character
/// set. A client that keeps to the protocol sends 254 of each at most, another one a name of up to
/// 1948; the client gets the first 254 of an answer.
///
/// The operations are called on the control channel's thread, or on that of the host's code that
/// asks the IpcServerManager, one at a time, with the manager mutex held. The client waits until
/// one returns.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class PropertyFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no properties. Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it.
  QUILLWORK_HOST_DEFINED static PropertyFacade* createPropertyFacade();

  /// Gives a property a value, whether it was there or not. The client gets no answer and does not
  /// learn whether the host refused. The reference receiver refuses for its own few names. Request:
  /// SYSTEM_PROPERTY 2.
  virtual void setProperty(std::string name, std::string value) = 0;

  /// The property's value; the empty text for a property that is not there. Request:
  /// SYSTEM_PROPERTY 0.
  virtual std::string getProperty(std::string name) = 0;

  /// All properties, in an order of the host's own; the empty list for none. The list is the
  /// caller's. Request: SYSTEM_PROPERTY 1.
  virtual std::list<Property_> getProperties() = 0;

  /// Removes a property; a name that is not there changes nothing. Request: SYSTEM_PROPERTY 3.
  virtual void removeProperty(std::string name) = 0;

  /// Called once, by the thread that deletes the adapter, after the control channel has ended.
  virtual ~PropertyFacade() = default;
};

}  // namespace middlewarefacade
