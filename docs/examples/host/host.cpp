// A minimal host: one facade, service information, in a process that serves until its input ends.

#include <adapter/AdapterOwner.h>
#include <adapter/MiddlewareIpc.h>
#include <facade/CarouselFacade.h>
#include <facade/DemuxFacade.h>
#include <facade/DsmCCCommandFacade.h>
#include <facade/PropertyFacade.h>
#include <facade/SIFacade.h>
#include <facade/TunerFacade.h>
#include <facade/VersionFacade.h>
#include <facade/VideoFacade.h>

#include <iostream>
#include <limits>
#include <list>
#include <string>

using namespace middlewarefacade;

namespace {

class ServiceInformation : public SIFacade {
 public:
  std::list<Service_> getServices() override {
    Service_ service;
    service.value_1 = 1001;
    service.name = "Quill One";
    return {service};
  }
  int getCurrentService() override { return 1001; }
  std::string getSICodingFormat() override { return "DVB"; }

  // What this middleware does not know. Records have -1 in their key field then.
  Network_ getNetwork() override { return {"", -1}; }
  std::list<Descriptors_> getNetworkDescriptors() override { return {}; }
  TransportStream_ getTransportStream() override {
    TransportStream_ unknown;
    unknown.value_2 = -1;
    return unknown;
  }
  std::list<Descriptors_> getTransportStreamDescriptors(int) override { return {}; }
  std::list<Descriptors_> getServiceDescriptors(int) override { return {}; }
  std::list<ProgramEvent_> getProgramEvents() override { return {}; }
  ProgramEvent_ getProgramEvent() override {
    ProgramEvent_ unknown;
    unknown.value_2 = -1;
    return unknown;
  }
  std::list<Descriptors_> getProgramEventDescriptors(int, int) override { return {}; }
  std::list<ServiceComponent_> getServiceComponents(int) override { return {}; }
  std::list<Descriptors_> getServiceComponentDescriptors(int) override { return {}; }
  std::list<ProgramMap_> getPMTs(int) override { return {}; }
  std::list<int> getCASystemIds() override { return {}; }
  bool isProtectedService() override { return false; }
  std::string getServiceDescription() override { return {}; }
};

class Version : public VersionFacade {
 public:
  int checkVersionFlag(int) override { return 0; }
  void setVersion(std::string version) override { std::cerr << "library " << version << '\n'; }
};

}  // namespace

// The library creates its facades through these. Null means that the host has none; only the
// version facade is required, and it stays the host's.
SIFacade* SIFacade::createSIFacade() { return new ServiceInformation; }
VersionFacade* VersionFacade::createVersionFacade() {
  static Version version;
  return &version;
}
CarouselFacade* CarouselFacade::createCarouselFacade() { return nullptr; }
DemuxFacade* DemuxFacade::createDemuxFacade() { return nullptr; }
DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() { return nullptr; }
PropertyFacade* PropertyFacade::createPropertyFacade() { return nullptr; }
TunerFacade* TunerFacade::createTunerFacade() { return nullptr; }
VideoFacade* VideoFacade::createVideoFacade() { return nullptr; }

int main() {
  const quillwork::AdapterOwner adapter(MiddlewareIpc::getInstance());
  std::cout << "serving" << std::endl;
  std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}
