// The facades on a transport stream. docs/receiver.md says what stands in each integer.

#include <algorithm>
#include <limits>

#include "facade/CarouselFacade.h"
#include "facade/DsmCCCommandFacade.h"
#include "facade/PropertyFacade.h"
#include "facade/SIFacade.h"
#include "facade/TunerFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "receiver/Host.h"
#ifdef QUILLWORK_SQLITE
#include "receiver/Properties.h"
#endif
#include "receiver/SectionFilter.h"
#include "receiver/Time.h"
#ifdef QUILLWORK_GSTREAMER
#include "receiver/Video.h"
#endif

namespace receiver {
namespace {

using namespace middlewarefacade;

/// ISO 639 code as a number, first letter highest; -1 for none.
int languageNumber(const std::string& language) {
  if (language.size() != 3) return -1;
  int number = 0;
  for (const char letter : language) number = number << 8 | static_cast<unsigned char>(letter);
  return number;
}

std::list<Descriptors_> toFacade(const Descriptors& descriptors) {
  std::list<Descriptors_> list;
  for (const Descriptor& descriptor : descriptors) {
    list.push_back({descriptor.tag, {descriptor.data.begin(), descriptor.data.end()}});
  }
  return list;
}

enum ServiceFlag : unsigned {
  runningStatusMask = 7,
  isScrambled = 1U << 3U,
  hasSchedule = 1U << 4U,
  hasPresentFollowing = 1U << 5U,
  isActual = 1U << 6U,
  isInPat = 1U << 7U,
};

unsigned flagsOf(const Service& service) {
  return (static_cast<unsigned>(service.runningStatus) & runningStatusMask) |
         (service.isScrambled ? isScrambled : 0U) | (service.hasSchedule ? hasSchedule : 0U) |
         (service.hasPresentFollowing ? hasPresentFollowing : 0U) |
         (service.isActual ? isActual : 0U) | (service.isInPat ? isInPat : 0U);
}

Service_ toFacade(const Service& service) {
  return {service.id,
          service.transportStream,
          service.originalNetwork,
          service.name,
          service.type,
          static_cast<int>(flagsOf(service)),
          service.provider};
}

ProgramEvent_ toFacade(const Event& event) {
  ProgramEvent_ record;
  record.value_1 = event.service;
  record.value_2 = event.id;
  // Past 2038 the seconds need the sign's bit, too.
  record.value_3 = static_cast<int>(static_cast<std::uint32_t>(event.start));
  record.value_4 = event.duration;
  record.text_1 = event.language;
  record.text_2 = event.name;
  record.text_3 = event.text;
  record.value_5 = event.tableId;
  record.value_6 = event.runningStatus;
  record.value_7 = event.transportStream;
  record.value_8 = event.originalNetwork;
  record.byte_list_1.assign(event.content.begin(), event.content.end());
  record.byte_list_2.assign(event.parentalRating.begin(), event.parentalRating.end());
  record.byte_list_3 = {event.section, event.version,
                        static_cast<unsigned char>(event.isScrambled ? 1 : 0)};
  record.text_list_1 = {event.extendedText};
  for (const auto& [description, text] : event.items) {
    record.text_list_2.push_back(description);
    record.text_list_2.push_back(text);
  }
  record.text_list_3 = {event.name, event.text};
  return record;
}

class Information : public SIFacade {
 public:
  explicit Information(const ServiceInformation& information) : information_(information) {}

  Network_ getNetwork() override {
    for (const Network& network : information_.networks()) {
      if (network.isActual) return {network.name, network.id};
    }
    return {"", -1};
  }

  std::list<Descriptors_> getNetworkDescriptors() override {
    for (const Network& network : information_.networks()) {
      if (network.isActual) return toFacade(network.descriptors);
    }
    return {};
  }

  TransportStream_ getTransportStream() override {
    TransportStream_ record;
    record.value_1 = information_.transportStreamId();
    record.value_2 = -1;
    record.value_3 = information_.patVersion();
    for (const Service& service : information_.services()) {
      if (!service.isActual) continue;
      ++record.value_after_text;
      if (service.originalNetwork != -1) record.value_2 = service.originalNetwork;
    }
    for (const Network& network : information_.networks()) {
      for (const TransportStream& stream : network.transportStreams) {
        if (!network.isActual || stream.id != record.value_1) continue;
        record.value_2 = stream.originalNetwork;
        record.real_value = static_cast<float>(stream.frequency);
        record.mode = static_cast<int>(stream.delivery);
        record.text = network.name;
      }
    }
    return record;
  }

  std::list<Descriptors_> getTransportStreamDescriptors(int stream) override {
    const int wanted = stream == -1 ? information_.transportStreamId() : stream;
    for (const Network& network : information_.networks()) {
      for (const TransportStream& candidate : network.transportStreams) {
        if (candidate.id == wanted) return toFacade(candidate.descriptors);
      }
    }
    return {};
  }

  std::list<Service_> getServices() override {
    std::list<Service_> services;
    for (const Service& service : information_.services()) services.push_back(toFacade(service));
    return services;
  }

  int getCurrentService() override { return information_.currentService(); }

  std::list<Descriptors_> getServiceDescriptors(int service) override {
    return toFacade(information_.serviceDescriptors(orCurrent(service)));
  }

  std::list<ProgramEvent_> getProgramEvents() override {
    std::list<ProgramEvent_> events;
    for (const Event& event : information_.events()) events.push_back(toFacade(event));
    return events;
  }

  ProgramEvent_ getProgramEvent() override {
    constexpr int presentFollowingActual = 0x4e;
    for (const Event& event : information_.events()) {
      if (event.tableId == presentFollowingActual && event.section == 0 &&
          event.service == getCurrentService()) {
        return toFacade(event);
      }
    }
    ProgramEvent_ none;
    none.value_2 = -1;
    return none;
  }

  std::list<Descriptors_> getProgramEventDescriptors(int service, int eventId) override {
    for (const Event& event : information_.events()) {
      if (event.service == orCurrent(service) && event.id == eventId) {
        return toFacade(event.descriptors);
      }
    }
    return {};
  }

  std::list<ServiceComponent_> getServiceComponents(int service) override {
    std::list<ServiceComponent_> components;
    for (const ProgramMap& map : information_.programMaps()) {
      if (map.program != orCurrent(service)) continue;
      for (const Component& component : map.components) {
        const std::set<int>& ca = component.caSystems.empty() ? map.caSystems : component.caSystems;
        components.push_back({component.pid, component.streamType, component.tag, map.program,
                              languageNumber(component.language), ca.empty() ? -1 : *ca.begin()});
      }
    }
    return components;
  }

  std::list<Descriptors_> getServiceComponentDescriptors(int pid) override {
    for (const ProgramMap& map : information_.programMaps()) {
      for (const Component& component : map.components) {
        if (component.pid == pid) return toFacade(component.descriptors);
      }
    }
    return {};
  }

  std::list<ProgramMap_> getPMTs(int program) override {
    std::list<ProgramMap_> maps;
    for (const ProgramMap& map : information_.programMaps()) {
      if (program == -1 || map.program == program) {
        maps.push_back({map.program, map.pid, map.pcrPid, map.version});
      }
    }
    return maps;
  }

  std::string getSICodingFormat() override { return "UTF-8"; }

  std::list<int> getCASystemIds() override {
    const std::set<int> systems = information_.caSystems();
    return {systems.begin(), systems.end()};
  }

  bool isProtectedService() override {
    const int current = getCurrentService();
    for (const Service& service : information_.services()) {
      if (service.isActual && service.id == current && service.isScrambled) return true;
    }
    for (const ProgramMap& map : information_.programMaps()) {
      if (map.program != current) continue;
      return !map.caSystems.empty() ||
             std::any_of(map.components.begin(), map.components.end(),
                         [](const Component& component) { return !component.caSystems.empty(); });
    }
    return false;
  }

  std::string getServiceDescription() override {
    for (const Service& service : information_.services()) {
      if (service.isActual && service.id == getCurrentService()) {
        return service.provider.empty() ? service.name : service.name + ", " + service.provider;
      }
    }
    return {};
  }

 private:
  [[nodiscard]] int orCurrent(int service) { return service == -1 ? getCurrentService() : service; }

  const ServiceInformation& information_;
};

#ifdef QUILLWORK_SQLITE
/// What the receiver itself answers for.
std::map<std::string, Properties::Getter> readOnlyProperties() {
  return {
      {"receiver.model", [] { return std::string("quillwork-receiver"); }},
      {"receiver.version", [] { return std::string(QUILLWORK_VERSION); }},
      {"library.revision", [] { return Host::current()->libraryRevision; }},
      {"broadcast.time", [] { return timeText(Host::current()->information.broadcastTime()); }},
  };
}
#endif

class Tuner : public TunerFacade {
 public:
  explicit Tuner(const ServiceInformation& information) : information_(information) {}

  int getCurrentTransportStreamID() override { return information_.transportStreamId(); }

  std::list<int> getIdList() override {
    std::set<int> streams;
    if (information_.transportStreamId() != -1) streams.insert(information_.transportStreamId());
    for (const Network& network : information_.networks()) {
      for (const TransportStream& stream : network.transportStreams) streams.insert(stream.id);
    }
    for (const Service& service : information_.services()) streams.insert(service.transportStream);
    return {streams.begin(), streams.end()};
  }

  std::list<int> getIdListFor(int transportStream) override {
    std::set<int> services;
    for (const Service& service : information_.services()) {
      if (service.transportStream == transportStream) services.insert(service.id);
    }
    for (const Network& network : information_.networks()) {
      for (const TransportStream& stream : network.transportStreams) {
        if (stream.id == transportStream) {
          services.insert(stream.services.begin(), stream.services.end());
        }
      }
    }
    return {services.begin(), services.end()};
  }

  std::string getChannelName(int transportStream, int serviceId) override {
    for (const Service& service : information_.services()) {
      if (service.transportStream == transportStream && service.id == serviceId) {
        return service.name;
      }
    }
    return {};
  }

  int getVirtualChannelNumber(int transportStream, int serviceId) override {
    for (const Network& network : information_.networks()) {
      for (const TransportStream& stream : network.transportStreams) {
        const auto number = stream.channelNumbers.find(serviceId);
        if (stream.id == transportStream && number != stream.channelNumbers.end()) {
          return number->second;
        }
      }
    }
    return -1;
  }

  std::list<int> getSecondIdListFor(int network) override {
    return streamsOf(information_.networks(), network);
  }

  std::list<int> getThirdIdListFor(int bouquet) override {
    return streamsOf(information_.bouquets(), bouquet);
  }

 private:
  static std::list<int> streamsOf(const std::vector<Network>& networks, int id) {
    std::set<int> streams;
    for (const Network& network : networks) {
      if (network.id != id) continue;
      for (const TransportStream& stream : network.transportStreams) streams.insert(stream.id);
    }
    return {streams.begin(), streams.end()};
  }

  const ServiceInformation& information_;
};

#ifdef QUILLWORK_GSTREAMER
constexpr int isBuiltWithVideo = 1;
#else
constexpr int isBuiltWithVideo = 0;
#endif
#ifdef QUILLWORK_SQLITE
constexpr int isBuiltWithProperties = 1;
#else
constexpr int isBuiltWithProperties = 0;
#endif

class Version : public VersionFacade {
 public:
  int checkVersionFlag(int flag) override {
    enum Flag {
      isReceiver = 0,
      hasServiceInformation = 1,
      hasSectionFilter = 2,
      hasArib = 3,
      hasCarousels = 4,
      hasStreamEvents = 5,
      hasProperties = 6,
      hasVideo = 7,
    };
    switch (flag) {
      case isReceiver:
      case hasServiceInformation:
      case hasSectionFilter:
      case hasCarousels:
      case hasStreamEvents:
        return 1;
      case hasArib:
        return canConvertArib() ? 1 : 0;
      case hasVideo:
        return isBuiltWithVideo;
      case hasProperties:
        return isBuiltWithProperties;
      default:
        return 0;
    }
  }

  void setVersion(std::string version) override {
    Host::current()->libraryRevision = std::move(version);
  }
};

/// The one name that somebody listens to is that of editing commands.
class StreamEventCommands : public DsmCCCommandFacade {
 public:
  void addCommandListener(std::string, DsmCCCommandListener* listener) override {
    Host::current()->commandListener.set(listener);
  }
  void removeCommandListener(std::string, DsmCCCommandListener*) override {
    Host::current()->commandListener.set(nullptr);
  }
};

class Carousels : public CarouselFacade {
 public:
  ~Carousels() override { Host::current()->carouselListener.set(nullptr); }

  std::string mountCarousel(std::string locator) override {
    return Host::current()->mounts.mount(locator);
  }
  void umountCarousel(std::string locator) override { Host::current()->mounts.umount(locator); }
  void addCarouselListener(CarouselListener* listener) override {
    Host::current()->carouselListener.set(listener);
  }
  void removeCarouselListener(CarouselListener*) override {
    Host::current()->carouselListener.set(nullptr);
  }
};

}  // namespace
}  // namespace receiver

using receiver::Host;

namespace middlewarefacade {

SIFacade* SIFacade::createSIFacade() {
  return new receiver::Information(Host::current()->information);
}

TunerFacade* TunerFacade::createTunerFacade() {
  return new receiver::Tuner(Host::current()->information);
}

DemuxFacade* DemuxFacade::createDemuxFacade() {
  return new receiver::SectionFilter(Host::current()->player, Host::current()->isFast);
}

VersionFacade* VersionFacade::createVersionFacade() {
  // The library never deletes it.
  static receiver::Version version;
  return &version;
}

DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() {
  return new receiver::StreamEventCommands;
}

CarouselFacade* CarouselFacade::createCarouselFacade() { return new receiver::Carousels; }

PropertyFacade* PropertyFacade::createPropertyFacade() {
#ifdef QUILLWORK_SQLITE
  return new receiver::Properties(Host::current()->properties, receiver::readOnlyProperties());
#else
  return nullptr;
#endif
}

VideoFacade* VideoFacade::createVideoFacade() {
#ifdef QUILLWORK_GSTREAMER
  return new receiver::Video(*Host::current(), Host::current()->display);
#else
  return nullptr;
#endif
}

}  // namespace middlewarefacade
