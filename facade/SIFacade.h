#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/records.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// Service information (ISO/IEC 13818-1 PSI and ETSI EN 300 468 SI, or a sibling standard).
///
/// The order of the operations is an ABI: the platform's binary is compiled against it. They are
/// called on the control channel's thread; records are returned by value.
class SIFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static SIFacade* createSIFacade();

  virtual Network_ getNetwork() = 0;
  virtual std::list<Descriptors_> getNetworkDescriptors() = 0;
  virtual TransportStream_ getTransportStream() = 0;
  virtual std::list<Descriptors_> getTransportStreamDescriptors(int transportStream) = 0;
  virtual std::list<Service_> getServices() = 0;
  /// The identifier of the selected service, -1 for none.
  virtual int getCurrentService() = 0;
  virtual std::list<Descriptors_> getServiceDescriptors(int serviceId) = 0;
  virtual std::list<ProgramEvent_> getProgramEvents() = 0;
  virtual ProgramEvent_ getProgramEvent() = 0;
  virtual std::list<Descriptors_> getProgramEventDescriptors(int first, int second) = 0;
  virtual std::list<ServiceComponent_> getServiceComponents(int serviceId) = 0;
  virtual std::list<Descriptors_> getServiceComponentDescriptors(int component) = 0;
  virtual std::list<ProgramMap_> getPMTs(int program) = 0;
  virtual std::string getSICodingFormat() = 0;
  virtual std::list<int> getCASystemIds() = 0;
  virtual bool isProtectedService() = 0;
  virtual std::string getServiceDescription() = 0;
  virtual ~SIFacade() = default;
};

}  // namespace middlewarefacade
