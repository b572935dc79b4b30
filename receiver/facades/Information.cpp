#include "receiver/facades/Information.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>

namespace receiver {

using namespace middlewarefacade;

namespace {

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

ProgramEvent_ toFacade(Event event) {
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
  record.text_list_1.push_back(std::move(event.extendedText));
  for (auto& [description, text] : event.items) {
    record.text_list_2.push_back(std::move(description));
    record.text_list_2.push_back(std::move(text));
  }
  record.text_list_3.push_back(std::move(event.name));
  record.text_list_3.push_back(std::move(event.text));
  return record;
}

}  // namespace

Network_ Information::getNetwork() {
  for (const Network& network : information_.networks()) {
    if (network.isActual) return {network.name, network.id};
  }
  return {"", -1};
}

std::list<Descriptors_> Information::getNetworkDescriptors() {
  for (const Network& network : information_.networks()) {
    if (network.isActual) return toFacade(network.descriptors);
  }
  return {};
}

TransportStream_ Information::getTransportStream() {
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

std::list<Descriptors_> Information::getTransportStreamDescriptors(int stream) {
  const int wanted = stream == -1 ? information_.transportStreamId() : stream;
  for (const Network& network : information_.networks()) {
    for (const TransportStream& candidate : network.transportStreams) {
      if (candidate.id == wanted) return toFacade(candidate.descriptors);
    }
  }
  return {};
}

std::list<Service_> Information::getServices() {
  std::list<Service_> services;
  for (const Service& service : information_.services()) services.push_back(toFacade(service));
  return services;
}

int Information::getCurrentService() { return information_.currentService(); }

std::list<Descriptors_> Information::getServiceDescriptors(int service) {
  return toFacade(information_.serviceDescriptors(orCurrent(service)));
}

std::list<ProgramEvent_> Information::getProgramEvents() {
  std::list<ProgramEvent_> events;
  information_.forEachEvent([](const Event&) { return true; },
                            [&](Event&& event) { events.push_back(toFacade(std::move(event))); });
  return events;
}

ProgramEvent_ Information::getProgramEvent() {
  constexpr int presentFollowingActual = 0x4e;
  const int current = getCurrentService();
  ProgramEvent_ present;
  present.value_2 = -1;
  information_.forEachEvent(
      [&](const Event& event) {
        return present.value_2 == -1 && event.tableId == presentFollowingActual &&
               event.section == 0 && event.service == current;
      },
      [&](Event&& event) { present = toFacade(std::move(event)); });
  return present;
}

std::list<Descriptors_> Information::getProgramEventDescriptors(int service, int eventId) {
  const int wanted = orCurrent(service);
  std::optional<Descriptors> descriptors;
  information_.forEachEvent(
      [&](const Event& event) {
        return !descriptors && event.service == wanted && event.id == eventId;
      },
      [&](Event&& event) { descriptors = std::move(event.descriptors); });
  return toFacade(descriptors.value_or(Descriptors()));
}

std::list<ServiceComponent_> Information::getServiceComponents(int service) {
  std::list<ServiceComponent_> components;
  const int wanted = orCurrent(service);
  for (const ProgramMap& map : information_.programMaps()) {
    if (map.program != wanted) continue;
    for (const Component& component : map.components) {
      const std::set<int>& ca = component.caSystems.empty() ? map.caSystems : component.caSystems;
      components.push_back({component.pid, component.streamType, component.tag, map.program,
                            languageNumber(component.language), ca.empty() ? -1 : *ca.begin()});
    }
  }
  return components;
}

std::list<Descriptors_> Information::getServiceComponentDescriptors(int pid) {
  for (const ProgramMap& map : information_.programMaps()) {
    for (const Component& component : map.components) {
      if (component.pid == pid) return toFacade(component.descriptors);
    }
  }
  return {};
}

std::list<ProgramMap_> Information::getPMTs(int program) {
  std::list<ProgramMap_> maps;
  for (const ProgramMap& map : information_.programMaps()) {
    if (program == -1 || map.program == program) {
      maps.push_back({map.program, map.pid, map.pcrPid, map.version});
    }
  }
  return maps;
}

std::string Information::getSICodingFormat() { return "UTF-8"; }

std::list<int> Information::getCASystemIds() {
  const std::set<int> systems = information_.caSystems();
  return {systems.begin(), systems.end()};
}

bool Information::isProtectedService() {
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

std::string Information::getServiceDescription() {
  const int current = getCurrentService();
  for (const Service& service : information_.services()) {
    if (service.isActual && service.id == current) {
      return service.provider.empty() ? service.name : service.name + ", " + service.provider;
    }
  }
  return {};
}

int Information::orCurrent(int service) { return service == -1 ? getCurrentService() : service; }

}  // namespace receiver
