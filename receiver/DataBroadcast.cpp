#include "receiver/DataBroadcast.h"

#include <algorithm>

namespace receiver {
namespace {

/// Stream types of DSM-CC (ISO/IEC 13818-6, table 9-4).
constexpr std::uint8_t carouselType = 0x0b;
constexpr std::uint8_t sectionsType = 0x0d;
constexpr std::uint8_t descriptorTable = 0x3d;

bool carriesData(std::uint8_t streamType) {
  return streamType >= carouselType && streamType <= sectionsType;
}

}  // namespace

bool DataBroadcast::isAt(const Component& component, const CarouselPlace& place) {
  return component.hasCarousel && component.service == place.service &&
         (place.componentTag == -1 ? component.isFirst : component.tag == place.componentTag);
}

std::shared_ptr<const CarouselTree> DataBroadcast::want(const CarouselPlace& place) {
  const std::lock_guard lock(mutex_);
  wanted_.insert(place);
  isAsked_ = true;
  for (const auto& [pid, component] : components_) {
    if (isAt(component, place)) return component.carousel.tree();
  }
  return nullptr;
}

void DataBroadcast::leave(const CarouselPlace& place) {
  const std::lock_guard lock(mutex_);
  wanted_.erase(place);
  isAsked_ = true;
}

void DataBroadcast::interrupted(bool isOther) {
  const std::lock_guard lock(mutex_);
  if (isOther) components_.clear();
  for (auto& [pid, component] : components_) {
    component.assembler.reset();
    // What is broadcast once more from its beginning brings the same events again.
    component.events = {};
  }
  ++beginning_;
  isAsked_ = true;
}

/// Looks up which PIDs have what is to be read.
void DataBroadcast::follow() {
  const std::uint64_t generation = information_.programGeneration();
  const int service = information_.currentService();
  if (!isAsked_ && generation == generation_ && service == service_) return;
  isAsked_ = false;
  generation_ = generation;
  if (std::exchange(service_, service) != service) ++beginning_;
  std::map<std::uint16_t, Component> before = std::exchange(components_, {});
  for (const ProgramMap& map : information_.programMaps()) {
    const bool isCurrent = map.program == service;
    if (isCurrent) clockPid_ = map.pcrPid;
    const bool isWanted = std::ranges::any_of(
        wanted_, [&](const CarouselPlace& place) { return place.service == map.program; });
    if (!isCurrent && !isWanted) continue;
    bool isFirst = true;
    for (const receiver::Component& stream : map.components) {
      if (!carriesData(stream.streamType)) continue;
      Component component;
      if (auto known = before.extract(stream.pid); !known.empty()) {
        component = std::move(known.mapped());
      }
      component.service = map.program;
      component.tag = stream.tag;
      component.hasCarousel = stream.streamType == carouselType;
      component.isFirst = component.hasCarousel && std::exchange(isFirst, false);
      components_.insert_or_assign(stream.pid, std::move(component));
    }
  }
}

void DataBroadcast::take(Packet packet) {
  Trees trees;
  Due due;
  {
    const std::lock_guard lock(mutex_);
    follow();
    const bool isDamaged = packet[0] != syncByte || (packet[1] & 0x80U) != 0;
    const std::uint16_t pid = pidOf(packet);
    if (isDamaged) return;
    if (const auto found = components_.find(pid); found != components_.end()) {
      Component& component = found->second;
      component.assembler.feed(packet, errors_, [&](const Section& section) {
        takeSection(component, section, trees, due);
      });
    }
    if (pid == clockPid_) {
      if (const auto clock = programClock(packet)) {
        const bool isDiscontinuous = (packet[5] & 0x80U) != 0;
        for (auto& [number, component] : components_) {
          if (component.service == service_) {
            name(component, component.events.advance(*clock / 300, isDiscontinuous), due);
          }
        }
      }
    }
  }
  for (const auto& [place, tree] : trees) treeHandler_(place, tree);
  for (const auto& [eventName, event] : due) eventHandler_(eventName, event);
}

void DataBroadcast::takeSection(Component& component, const Section& section, Trees& trees,
                                Due& due) {
  if (section[0] == descriptorTable) {
    if (component.service == service_) name(component, component.events.take(section), due);
    return;
  }
  if (!component.hasCarousel || !component.carousel.take(section)) return;
  for (const CarouselPlace& place : wanted_) {
    if (isAt(component, place)) trees.emplace_back(place, component.carousel.tree());
  }
}

/// Finds the events' names: stream event objects speak of the component by its tag.
void DataBroadcast::name(const Component& component, std::vector<StreamEvent> events,
                         Due& due) const {
  for (StreamEvent& event : events) {
    event.service = component.service;
    event.componentTag = component.tag;
    event.beginning = beginning_;
    std::set<std::string> names;
    for (const auto& [pid, other] : components_) {
      if (other.service != component.service || other.carousel.tree() == nullptr) continue;
      for (const auto& [path, object] : *other.carousel.tree()) {
        if (object.componentTag != component.tag) continue;
        for (const auto& [eventName, id] : object.events) {
          if (id == event.id) names.insert(eventName);
        }
      }
    }
    if (names.empty()) names.insert("");
    for (const std::string& eventName : names) due.emplace_back(eventName, event);
  }
}

}  // namespace receiver
