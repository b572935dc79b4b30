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
#include <vector>

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
/// current service's stream events. Services may share a PID: its carousel is read once, and each
/// service has it. Any thread; the handlers are called on the player's.
class DataBroadcast : public PacketSink {
 public:
  /// What all carousels may hold together, in bytes.
  static constexpr std::uint64_t maxMemory = std::uint64_t{64} << 20U;

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
  /// complete already is returned. Null where there is none yet. Where memory has run out, it
  /// throws, and the trees may be handed over all the same.
  std::shared_ptr<const CarouselTree> want(const CarouselPlace& place);
  void leave(const CarouselPlace& place);

  void take(Packet packet) override;
  void interrupted(bool isOther) override;

 private:
  /// A PID, and the carousel's number where services mean different ones on it.
  using CarouselKey = std::pair<std::uint16_t, std::optional<std::uint32_t>>;
  /// What a service has on a PID.
  struct Component {
    int tag = -1;
    /// Where its carousel is read; nothing where its stream type has none.
    std::optional<CarouselKey> carousel;
    bool isFirst = false;  ///< of its service's carousels
    StreamEvents events;
  };
  struct Carousel {
    Carousel(std::shared_ptr<MemoryBudget> memory, std::optional<std::uint32_t> number)
        : objects(memory, number), namesMemory(std::move(memory)) {}
    void readEventNames();

    ObjectCarousel objects;
    /// Of the events of its stream event objects, by a component's tag and an event's id.
    std::map<std::pair<int, std::uint16_t>, std::set<std::string>> eventNames;
    Reservation namesMemory;
  };
  /// By service and PID.
  using Components = std::map<std::pair<int, std::uint16_t>, Component>;
  using Due = std::vector<std::pair<std::string, StreamEvent>>;
  using Trees = std::vector<std::pair<CarouselPlace, std::shared_ptr<const CarouselTree>>>;

  void follow();
  void followServices(const std::vector<ProgramMap>& maps);
  void forgetOthers();
  void beginEvents();
  void takePacket(Packet packet, Due& due);
  void takeSection(std::uint16_t pid, const Section& section, Due& due);
  void takeClock(Packet packet, Due& due);
  void name(const Component& component, std::vector<StreamEvent> events, Due& due) const;
  [[nodiscard]] std::shared_ptr<const CarouselTree> treeAt(const CarouselPlace& place) const;
  [[nodiscard]] Trees newTrees() const;

  const ServiceInformation& information_;
  TreeHandler treeHandler_ = [](const auto&, auto) {};
  EventHandler eventHandler_ = [](const auto&, const auto&) {};

  std::mutex mutex_;
  std::uint64_t generation_ = 0;
  int transportStream_ = -1;
  int service_ = -1;
  int clockPid_ = -1;
  bool isAsked_ = false;       ///< the services are to be followed, whatever they are
  bool mayHaveTrees_ = false;  ///< a wanted place may have got a tree
  /// With the tree that was handed over last.
  std::map<CarouselPlace, std::weak_ptr<const CarouselTree>> wanted_;
  std::shared_ptr<MemoryBudget> memory_ = std::make_shared<MemoryBudget>(maxMemory);
  Components components_;
  std::map<CarouselKey, Carousel> carousels_;
  std::map<std::uint16_t, SectionAssembler> assemblers_;
  std::uint64_t beginning_ = 0;  ///< of the events
  StreamErrors errors_;
};

}  // namespace receiver
