#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "receiver/ObjectCarousel.h"
#include "receiver/SectionAssembler.h"

/// Sections of object carousels, as a broadcaster makes them: for the sample stream and for tests.
namespace sample {

/// Bytes that are built up; integers stand with the highest byte first.
class ByteBuilder {
 public:
  /// `size`: in bytes.
  ByteBuilder& number(std::uint64_t value, unsigned size);
  ByteBuilder& bytes(std::string_view more);
  /// The other's bytes behind their number.
  ByteBuilder& sized(unsigned size, const ByteBuilder& other);
  [[nodiscard]] const std::vector<std::uint8_t>& all() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// A long section with its CRC.
receiver::Section longSection(std::uint8_t tableId, std::uint16_t extension, std::uint8_t version,
                              std::uint8_t number, std::uint8_t last, const ByteBuilder& body);

/// An IOP::IOR of an object.
ByteBuilder objectReference(std::uint32_t carousel, std::uint16_t module, std::string_view key,
                            std::string_view kind);

/// What announces the root directory, the object "1" of module 1.
receiver::Section serverInitiate(std::uint32_t carousel);

struct ModuleToSend {
  std::uint16_t id = 0;
  std::uint8_t version = 0;
  std::string_view content;
  std::string_view info;  ///< BIOP::ModuleInfo
};
/// What announces modules, at least one, and their blocks. Modules that are announced together
/// belong together: an update, whose number is one higher, begins with the same one.
std::vector<receiver::Section> moduleSections(std::uint32_t carousel, std::uint32_t update,
                                              const std::vector<ModuleToSend>& modules);

/// All sections of a carousel with this tree.
std::vector<receiver::Section> carouselSections(std::uint32_t carousel, std::uint8_t version,
                                                const receiver::CarouselTree& tree);

}  // namespace sample
