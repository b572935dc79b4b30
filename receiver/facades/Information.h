#pragma once

#include <list>
#include <string>

#include "facade/SIFacade.h"
#include "receiver/ServiceInformation.h"

namespace receiver {

/// The service-information facade on the tables of the stream. docs/profile.md says what stands in
/// each integer.
class Information : public middlewarefacade::SIFacade {
 public:
  explicit Information(const ServiceInformation& information) : information_(information) {}

  middlewarefacade::Network_ getNetwork() override;
  std::list<middlewarefacade::Descriptors_> getNetworkDescriptors() override;
  middlewarefacade::TransportStream_ getTransportStream() override;
  std::list<middlewarefacade::Descriptors_> getTransportStreamDescriptors(int stream) override;
  std::list<middlewarefacade::Service_> getServices() override;
  int getCurrentService() override;
  std::list<middlewarefacade::Descriptors_> getServiceDescriptors(int service) override;
  std::list<middlewarefacade::ProgramEvent_> getProgramEvents() override;
  middlewarefacade::ProgramEvent_ getProgramEvent() override;
  std::list<middlewarefacade::Descriptors_> getProgramEventDescriptors(int service,
                                                                       int eventId) override;
  std::list<middlewarefacade::ServiceComponent_> getServiceComponents(int service) override;
  std::list<middlewarefacade::Descriptors_> getServiceComponentDescriptors(int pid) override;
  std::list<middlewarefacade::ProgramMap_> getPMTs(int program) override;
  std::string getSICodingFormat() override;
  std::list<int> getCASystemIds() override;
  bool isProtectedService() override;
  std::string getServiceDescription() override;

 private:
  [[nodiscard]] int orCurrent(int service);

  const ServiceInformation& information_;
};

}  // namespace receiver
