#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "receiver/MemoryBudget.h"
#include "receiver/SectionAssembler.h"

namespace receiver {

/// What a carousel carries at one path.
struct CarouselObject {
  enum class Kind { directory, file, stream, streamEvent };

  Kind kind = Kind::directory;
  /// Of a file.
  std::shared_ptr<const std::vector<std::uint8_t>> content;
  /// Of a stream event object: its events' names and ids.
  std::vector<std::pair<std::string, std::uint16_t>> events;
  /// Of a stream or stream event object: the component that it speaks of, -1 for none.
  int componentTag = -1;

  bool operator==(const CarouselObject& other) const;
};

/// The objects by their paths, which begin with "/" and consist of names that are safe in a file
/// system: not empty, not "." or "..", without "/" and zero bytes, at most 255 bytes long.
using CarouselTree = std::map<std::string, CarouselObject>;

/// Whether this build can read compressed modules.
bool canDecompress();

/// A DSM-CC object carousel (ISO/IEC 13818-6, 11.3 and 11.4.2.5; ETSI TR 101 202, 4.7) as its
/// sections make it up. One thread at a time.
///
/// All that a broadcaster can make it hold is taken from a budget, as it arrives. A module that
/// finds no room loses what has been collected of it and begins anew with its next block; a tree
/// that finds none waits until memory has been given back.
class ObjectCarousel {
 public:
  /// Of files in one tree, and of memory where no budget is given.
  static constexpr std::size_t mostBytes = std::size_t{64} << 20U;
  static constexpr std::size_t mostObjects = 20'000;
  static constexpr int deepestDirectory = 32;
  static constexpr std::size_t longestPath = 1024;

  /// `number`: of the one carousel that is read, where a PID carries several; without it every
  /// carousel is taken for the same one.
  explicit ObjectCarousel(
      std::shared_ptr<MemoryBudget> memory = std::make_shared<MemoryBudget>(mostBytes),
      std::optional<std::uint32_t> number = std::nullopt)
      : memory_(std::move(memory)), number_(number) {}
  ObjectCarousel(const ObjectCarousel&) = delete;
  ObjectCarousel& operator=(const ObjectCarousel&) = delete;

  /// Takes a section of the tables 0x3B or 0x3C. True when this has completed a tree that differs
  /// from the one before.
  bool take(const Section& section);

  /// The last complete tree; null before the first, and while the next one needs its memory.
  [[nodiscard]] std::shared_ptr<const CarouselTree> tree() const { return tree_; }

 private:
  class Reader;
  struct Reference {
    std::uint32_t carousel = 0;
    std::uint16_t module = 0;
    std::string key;
  };
  struct Binding {
    std::string name;
    std::optional<Reference> reference;
  };
  struct Object {
    CarouselObject content;
    std::vector<Binding> bindings;
    std::uint64_t walk = 0;  ///< the last one that has come by
  };
  using Objects = std::map<std::string, Object>;
  struct Module {
    std::uint32_t download = 0;
    std::uint16_t announcedBy = 0;  ///< the identification of the DII
    std::uint8_t version = 0;
    std::uint32_t size = 0;
    std::uint16_t blockSize = 0;
    bool isCompressed = false;
    bool isReadable = true;  ///< compressed in no other way than with zlib
    std::uint32_t originalSize = 0;
    std::map<std::uint16_t, std::vector<std::uint8_t>> blocks;
    /// Once it is complete.
    std::optional<Objects> objects;
    std::uint64_t walk = 0;  ///< the last one that has come by one of its objects
    Reservation entry;       ///< for the module itself
    Reservation held;        ///< for the blocks or the objects
  };
  /// Something that pays for its memory.
  template <class Value>
  struct Kept {
    Kept(Reservation itsMemory, Value itsValue)
        : memory(std::move(itsMemory)), value(std::move(itsValue)) {}
    Reservation memory;
    Value value;
  };
  struct Growth {
    CarouselTree tree;
    Reservation memory;
    std::uint64_t fileBytes = 0;
    bool isRefused = false;  ///< it has found no memory
  };

  bool takeServerInitiate(Reader& reader);
  void takeInfoIndication(Reader& reader, std::uint32_t transaction);
  bool takeDataBlock(Reader& reader, std::uint32_t download);
  static void readModuleInfo(Reader info, Module& module);
  void withdraw(std::uint16_t id);
  bool grow(Reservation& reservation, std::uint64_t bytes);
  void refuse(Module& module);
  bool complete(Module& module);
  static std::optional<std::vector<std::uint8_t>> join(Module& module);
  std::optional<std::vector<std::uint8_t>> decompress(const Module& module, Reservation& held);
  std::optional<Objects> readObjects(const std::vector<std::uint8_t>& bytes, Reservation& held);
  std::shared_ptr<const std::vector<std::uint8_t>> keep(std::span<const std::uint8_t> bytes);
  static std::uint64_t costOf(const std::string& key, const Object& object);
  static std::uint64_t costOf(const CarouselObject& object);
  static void readDirectory(Reader& body, Object& object);
  static void readStream(Reader info, Reader& body, bool hasEvents, Object& object);
  static std::optional<Reference> readReference(Reader& reader);
  [[nodiscard]] bool isFollowed(const Binding& binding) const;
  void beginWalk();
  bool walk(std::vector<const Reference*> references);
  bool publish();
  bool build(const Reference& reference, const std::string& path, int depth, Growth& growth);
  void shareContent(const std::string& path, CarouselObject& object) const;

  const std::shared_ptr<MemoryBudget> memory_;
  const std::optional<std::uint32_t> number_;
  std::optional<Reference> gateway_;
  std::map<std::uint16_t, Module> modules_;
  /// The modules by the DII that has announced them: its identification and the module's id.
  std::set<std::pair<std::uint16_t, std::uint16_t>> announcements_;
  std::shared_ptr<const CarouselTree> tree_;

  /// A walk goes from the root through all that is complete, once by each object, and goes on where
  /// it had to wait as modules become complete.
  std::uint64_t walk_ = 1;
  std::uint64_t treeWalk_ = 0;  ///< the one that has made the last tree
  bool hasBegun_ = false;
  /// The references that wait for the module. They lie in objects that this walk has come by.
  std::map<std::uint16_t, std::vector<const Reference*>> waiting_;
  /// The state of the budget in which a tree that is complete has found no room.
  std::optional<std::uint64_t> refusedAt_;
};

}  // namespace receiver
