#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "receiver/ObjectCarousel.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamEvents.h"
#include "receiver/StreamPlayer.h"

namespace receiver {

/// A carousel's place: a service, and the tag of its component, -1 for the first one.
struct CarouselPlace {
  int service = -1;
  int componentTag = -1;
  auto operator<=>(const CarouselPlace&) const = default;
};

/// Reads the object carousels of the current service and of those that are wanted besides, and the
/// current service's stream events. Any thread; the handlers are called on the player's.
class DataBroadcast : public PacketSink {
 public:
  using TreeHandler =
      std::function<void(const CarouselPlace& place, std::shared_ptr<const CarouselTree> tree)>;
  /// `name`: that of a stream event object of the service, empty where none has one.
  using EventHandler = std::function<void(const std::string& name, const StreamEvent& event)>;

  /// Borrows the service information, which has to be played to before this.
  explicit DataBroadcast(const ServiceInformation& information) : information_(information) {}

  /// Before the first packet.
  void onTree(TreeHandler handler) { treeHandler_ = std::move(handler); }
  void onEvent(EventHandler handler) { eventHandler_ = std::move(handler); }

  /// Asks for the place's trees: each is handed over as it becomes complete, and one that is
  /// complete already is returned.
  std::shared_ptr<const CarouselTree> want(const CarouselPlace& place);
  void leave(const CarouselPlace& place);

  void take(Packet packet) override;
  void interrupted(bool isOther) override;

 private:
  /// What comes on one PID.
  struct Component {
    int service = -1;
    int tag = -1;
    bool hasCarousel = false;  ///< by its stream type
    bool isFirst = false;      ///< of its service's carousels
    SectionAssembler assembler;
    ObjectCarousel carousel;
    StreamEvents events;
  };
  using Due = std::vector<std::pair<std::string, StreamEvent>>;
  using Trees = std::vector<std::pair<CarouselPlace, std::shared_ptr<const CarouselTree>>>;

  void follow();
  void takeSection(Component& component, const Section& section, Trees& trees, Due& due);
  void name(const Component& component, std::vector<StreamEvent> events, Due& due) const;
  [[nodiscard]] static bool isAt(const Component& component, const CarouselPlace& place);

  const ServiceInformation& information_;
  TreeHandler treeHandler_ = [](const auto&, auto) {};
  EventHandler eventHandler_ = [](const auto&, const auto&) {};

  std::mutex mutex_;
  std::uint64_t generation_ = 0;
  int service_ = -1;
  int clockPid_ = -1;
  bool isAsked_ = false;  ///< something is wanted that was not before
  std::set<CarouselPlace> wanted_;
  std::map<std::uint16_t, Component> components_;
  std::uint64_t beginning_ = 0;  ///< of the events
  StreamErrors errors_;
};

}  // namespace receiver
