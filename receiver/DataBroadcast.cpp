#include "receiver/DataBroadcast.h"

#include <algorithm>
#include <type_traits>

namespace receiver {
namespace {

/// Stream types of DSM-CC (ISO/IEC 13818-6, table 9-4).
constexpr std::uint8_t carouselType = 0x0b;
constexpr std::uint8_t sectionsType = 0x0d;
constexpr std::uint8_t descriptorTable = 0x3d;
constexpr std::uint8_t carouselIdentifier = 0x13;

bool carriesData(std::uint8_t streamType) {
  return streamType >= carouselType && streamType <= sectionsType;
}

/// The number in the component's carousel identifier descriptor (ETSI TR 101 202, 4.7.7.1).
std::optional<std::uint32_t> carouselNumber(const receiver::Component& component) {
  for (const Descriptor& descriptor : component.descriptors) {
    if (descriptor.tag != carouselIdentifier || descriptor.data.size() < 4) continue;
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < 4; ++index) number = number << 8U | descriptor.data[index];
    return number;
  }
  return std::nullopt;
}

/// The PIDs that carry more than one carousel.
std::set<std::uint16_t> pidsOfSeveralCarousels(const std::vector<ProgramMap>& maps) {
  std::map<std::uint16_t, std::uint32_t> numbers;
  std::set<std::uint16_t> pids;
  for (const ProgramMap& map : maps) {
    for (const receiver::Component& component : map.components) {
      const auto number = carouselNumber(component);
      if (!number || component.streamType != carouselType) continue;
      if (numbers.try_emplace(component.pid, *number).first->second != *number) {
        pids.insert(component.pid);
      }
    }
  }
  return pids;
}

}  // namespace

std::shared_ptr<const CarouselTree> DataBroadcast::treeAt(const CarouselPlace& place) const {
  for (auto entry = components_.lower_bound({place.service, 0});
       entry != components_.end() && entry->first.first == place.service; ++entry) {
    const Component& component = entry->second;
    const bool isThere =
        place.componentTag == -1 ? component.isFirst : component.tag == place.componentTag;
    if (!component.carousel || !isThere) continue;
    const auto carousel = carousels_.find(*component.carousel);
    return carousel == carousels_.end() ? nullptr : carousel->second.objects.tree();
  }
  return nullptr;
}

std::shared_ptr<const CarouselTree> DataBroadcast::want(const CarouselPlace& place) {
  const std::lock_guard lock(mutex_);
  auto& handedOver = wanted_[place];
  isAsked_ = true;
  // Another service's carousel may be there already, and no packet come any more.
  follow();
  auto tree = treeAt(place);
  handedOver = tree;
  return tree;
}

void DataBroadcast::leave(const CarouselPlace& place) {
  const std::lock_guard lock(mutex_);
  wanted_.erase(place);
  isAsked_ = true;
  follow();
}

void DataBroadcast::interrupted(bool isOther) {
  const std::lock_guard lock(mutex_);
  if (isOther) forgetOthers();
  for (auto& [pid, assembler] : assemblers_) assembler.reset();
  // What is broadcast once more from its beginning brings the same events again.
  beginEvents();
}

/// What comes has nothing to do with what was.
void DataBroadcast::forgetOthers() {
  components_.clear();
  carousels_.clear();
  assemblers_.clear();
}

/// Forgets the components: they come back with the next follow(), with events that begin. To begin
/// them here would need memory.
void DataBroadcast::beginEvents() {
  ++beginning_;
  components_.clear();
  isAsked_ = true;
}

/// Looks up which PIDs have what is to be read.
void DataBroadcast::follow() {
  const std::uint64_t generation = information_.programGeneration();
  const int service = information_.currentService();
  if (!isAsked_ && generation == generation_ && service == service_) return;
  // Where memory runs out, the next packet does this once more.
  isAsked_ = true;
  // Another transport stream can have the same services and PIDs.
  const int transportStream = information_.transportStreamId();
  const int streamBefore = std::exchange(transportStream_, transportStream);
  if (streamBefore != -1 && streamBefore != transportStream) forgetOthers();
  if (std::exchange(service_, service) != service) beginEvents();
  followServices(information_.programMaps());
  generation_ = generation;
  isAsked_ = false;
  mayHaveTrees_ = true;
}

void DataBroadcast::followServices(const std::vector<ProgramMap>& maps) {
  Components components;
  const std::set<std::uint16_t> severalCarousels = pidsOfSeveralCarousels(maps);
  std::set<CarouselKey> carousels;
  std::set<std::uint16_t> pids;
  int clockPid = -1;
  for (const ProgramMap& map : maps) {
    const bool isCurrent = map.program == service_;
    if (isCurrent) clockPid = map.pcrPid;
    const auto wanted = wanted_.lower_bound({map.program, -1});
    const bool isWanted = wanted != wanted_.end() && wanted->first.service == map.program;
    if (!isCurrent && !isWanted) continue;
    bool isFirst = true;
    for (const receiver::Component& stream : map.components) {
      if (!carriesData(stream.streamType)) continue;
      Component& component = components[{map.program, stream.pid}];
      component.tag = stream.tag;
      pids.insert(stream.pid);
      if (stream.streamType != carouselType) continue;
      component.isFirst = std::exchange(isFirst, false);
      const auto number =
          severalCarousels.contains(stream.pid) ? carouselNumber(stream) : std::nullopt;
      component.carousel = CarouselKey(stream.pid, number);
      carousels.insert(*component.carousel);
      carousels_.try_emplace(*component.carousel, memory_, number);
    }
  }
  for (const std::uint16_t pid : pids) assemblers_.try_emplace(pid);
  // Nothing from here on needs memory.
  static_assert(std::is_nothrow_move_assignable_v<StreamEvents>);
  for (auto& [key, component] : components) {
    const auto known = components_.find(key);
    if (known != components_.end()) component.events = std::move(known->second.events);
  }
  components_.swap(components);
  clockPid_ = clockPid;
  std::erase_if(carousels_, [&](const auto& entry) { return !carousels.contains(entry.first); });
  std::erase_if(assemblers_, [&](const auto& entry) { return !pids.contains(entry.first); });
}

void DataBroadcast::take(Packet packet) {
  Trees trees;
  Due due;
  {
    const std::lock_guard lock(mutex_);
    follow();
    const bool isDamaged = packet[0] != syncByte || (packet[1] & 0x80U) != 0;
    if (!isDamaged) takePacket(packet, due);
    if (mayHaveTrees_) trees = newTrees();
    // Until there is none any more: a tree whose handler throws is handed over once more.
    mayHaveTrees_ = !trees.empty();
  }
  for (const auto& [place, tree] : trees) {
    treeHandler_(place, tree);
    const std::lock_guard lock(mutex_);
    if (const auto wanted = wanted_.find(place); wanted != wanted_.end()) wanted->second = tree;
  }
  for (const auto& [eventName, event] : due) eventHandler_(eventName, event);
}

void DataBroadcast::takePacket(Packet packet, Due& due) {
  const std::uint16_t pid = pidOf(packet);
  if (const auto found = assemblers_.find(pid); found != assemblers_.end()) {
    found->second.feed(packet, errors_,
                       [&](const Section& section) { takeSection(pid, section, due); });
  }
  if (pid == clockPid_) takeClock(packet, due);
}

void DataBroadcast::takeClock(Packet packet, Due& due) {
  const auto clock = programClock(packet);
  if (!clock) return;
  const bool isDiscontinuous = (packet[5] & 0x80U) != 0;
  for (auto entry = components_.lower_bound({service_, 0});
       entry != components_.end() && entry->first.first == service_; ++entry) {
    Component& component = entry->second;
    name(component, component.events.advance(*clock / 300, isDiscontinuous), due);
  }
}

void DataBroadcast::takeSection(std::uint16_t pid, const Section& section, Due& due) {
  if (section[0] == descriptorTable) {
    const auto found = components_.find({service_, pid});
    if (found != components_.end()) name(found->second, found->second.events.take(section), due);
    return;
  }
  for (auto entry = carousels_.lower_bound({pid, std::nullopt});
       entry != carousels_.end() && entry->first.first == pid; ++entry) {
    Carousel& carousel = entry->second;
    try {
      if (!carousel.objects.take(section)) continue;
      carousel.readEventNames();
    } catch (...) {
      // Half of the section may have been taken: the carousel begins anew.
      carousels_.erase(entry);
      isAsked_ = true;
      throw;
    }
    mayHaveTrees_ = true;
  }
}

void DataBroadcast::Carousel::readEventNames() {
  // What the entries take beside the names, about.
  constexpr std::uint64_t cost = 256;
  eventNames.clear();
  namesMemory.clear();
  for (const auto& [path, object] : *objects.tree()) {
    for (const auto& [name, id] : object.events) {
      if (!namesMemory.grow(cost + name.size())) return;
      eventNames[{object.componentTag, id}].insert(name);
    }
  }
}

/// The trees that have not been handed over.
DataBroadcast::Trees DataBroadcast::newTrees() const {
  Trees trees;
  for (const auto& [place, last] : wanted_) {
    auto tree = treeAt(place);
    if (tree != nullptr && tree != last.lock()) trees.emplace_back(place, std::move(tree));
  }
  return trees;
}

/// Finds the events' names: stream event objects speak of the component by its tag.
void DataBroadcast::name(const Component& component, std::vector<StreamEvent> events,
                         Due& due) const {
  for (StreamEvent& event : events) {
    event.service = service_;
    event.componentTag = component.tag;
    event.beginning = beginning_;
    std::set<std::string> names;
    for (auto entry = components_.lower_bound({service_, 0});
         entry != components_.end() && entry->first.first == service_; ++entry) {
      if (!entry->second.carousel) continue;
      const auto carousel = carousels_.find(*entry->second.carousel);
      if (carousel == carousels_.end()) continue;
      const auto& known = carousel->second.eventNames;
      const auto found = known.find({component.tag, event.id});
      if (found != known.end()) names.insert(found->second.begin(), found->second.end());
    }
    if (names.empty()) names.insert("");
    // Each name is an event of its own to the client: a carousel with thousands for one id would
    // multiply what one section brings.
    constexpr std::ptrdiff_t mostNames = 16;
    while (std::ssize(names) > mostNames) names.erase(std::prev(names.end()));
    for (const std::string& eventName : names) due.emplace_back(eventName, event);
  }
}

}  // namespace receiver
