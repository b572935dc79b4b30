#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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
class ObjectCarousel {
 public:
  /// What a broadcaster can make the receiver hold; a carousel with more stays incomplete.
  static constexpr std::size_t mostBytes = std::size_t{64} << 20U;
  static constexpr std::size_t mostObjects = 20'000;
  static constexpr int deepestDirectory = 32;
  static constexpr std::size_t longestPath = 1024;

  /// Takes a section of the tables 0x3B or 0x3C. True when this has completed a tree that differs
  /// from the one before.
  bool take(const Section& section);

  /// The last complete tree; null before the first.
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
  };
  struct Module {
    std::uint32_t download = 0;
    std::uint16_t announcedBy = 0;  ///< the identification of the DII
    std::uint8_t version = 0;
    std::uint32_t size = 0;
    std::uint16_t blockSize = 0;
    bool isCompressed = false;
    bool isReadable = true;  ///< compressed in no other way than with zlib
    std::uint32_t originalSize = 0;
    std::vector<std::uint8_t> bytes;
    std::vector<bool> hasBlock;
    std::size_t blocksLeft = 0;
    /// Once it is complete.
    std::optional<std::map<std::string, Object>> objects;
  };

  bool takeServerInitiate(Reader& reader);
  bool takeInfoIndication(Reader& reader, std::uint32_t transaction);
  bool takeDataBlock(Reader& reader, std::uint32_t download);
  static void readModuleInfo(Reader info, Module& module);
  bool complete(Module& module);
  [[nodiscard]] std::size_t heldBytes() const;
  static std::optional<std::vector<std::uint8_t>> decompress(const Module& module);
  static std::map<std::string, Object> readObjects(const std::vector<std::uint8_t>& bytes);
  static void readDirectory(Reader& body, Object& object);
  static void readStream(Reader info, Reader& body, bool hasEvents, Object& object);
  static std::optional<Reference> readReference(Reader& reader);
  bool publish();
  bool build(const Reference& reference, const std::string& path, int depth,
             CarouselTree& tree) const;

  std::optional<Reference> gateway_;
  std::map<std::uint16_t, Module> modules_;
  std::shared_ptr<const CarouselTree> tree_;
};

}  // namespace receiver
