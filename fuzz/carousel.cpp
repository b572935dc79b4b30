// An object carousel: sections as they come, or modules with any objects that are announced and
// sent as they should be.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "receiver/CarouselMounts.h"
#include "receiver/ObjectCarousel.h"
#include "sample/carousel_sections.h"

namespace {

using namespace receiver;
using namespace sample;

constexpr std::uint32_t number = 7;

void sendModule(ObjectCarousel& carousel, std::uint16_t id, std::uint8_t version,
                std::string_view module, std::string_view info) {
  for (const Section& section : moduleSections(number, id, {{id, version, module, info}})) {
    carousel.take(section);
  }
}

/// Directories, files and stream events with names and keys from the input.
std::string takeObjects(Input& input) {
  std::string objects;
  while (!input.isAtEnd() && objects.size() < 8000 && input.takeBelow(8) != 0) {
    const std::size_t kind = input.takeBelow(5);
    constexpr std::string_view kinds[] = {"srg", "dir", "fil", "ste", "str"};
    ByteBuilder body;
    ByteBuilder info;
    if (kind < 2) {
      const std::size_t bindings = input.takeBelow(5);
      body.number(bindings, 2);
      for (std::size_t index = 0; index < bindings; ++index) {
        body.number(1, 1).sized(1, ByteBuilder().bytes(input.takeBytes(input.takeBelow(6))));
        body.number(4, 1).bytes(std::string_view("fil\0", 4)).number(1, 1);
        const auto module = static_cast<std::uint16_t>(input.takeBelow(4));
        const Section object =
            objectReference(number, module, std::string(1, "1234"[input.takeBelow(4)]), "fil")
                .all();
        body.bytes({reinterpret_cast<const char*>(object.data()), object.size()}).number(0, 2);
      }
    } else {
      info.bytes(input.takeBytes(input.takeBelow(40)));
      body.bytes(input.takeBytes(input.takeBelow(40)));
    }
    ByteBuilder inner;
    inner.sized(1, ByteBuilder().bytes(std::string(1, "1234"[input.takeBelow(4)])));
    inner.number(4, 4).bytes(kinds[kind]).number(0, 1).sized(2, info).number(0, 1).sized(4, body);
    const Section object = ByteBuilder().bytes("BIOP").number(0x01000000, 4).sized(4, inner).all();
    objects.append(object.begin(), object.end());
  }
  return objects;
}

void checkNames(const CarouselTree& tree) {
  for (const auto& [path, object] : tree) {
    const bool leadsOut = (path + "/").find("/../") != path.npos || path.find("//") != path.npos ||
                          (path + "/").find("/./") != path.npos || path.find('\0') != path.npos ||
                          path.front() != '/' || path.back() == '/';
    if (leadsOut) fail("a path leads out of the directory");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  ObjectCarousel carousel;
  static_cast<void>(CarouselLocator::parse(std::string(input.takeBytes(input.takeBelow(24)))));
  while (!input.isAtEnd()) {
    switch (input.takeBelow(4)) {
      case 0: {
        const std::string_view bytes = input.takeBytes(input.takeBelow(200));
        Section section(bytes.begin(), bytes.end());
        if (!section.empty()) section[0] = static_cast<std::uint8_t>(0x3b + section[0] % 2);
        carousel.take(section);
        break;
      }
      case 1:
        carousel.take(serverInitiate(number));
        break;
      default: {
        const auto id = static_cast<std::uint16_t>(input.takeBelow(4));
        const std::string info(input.takeBytes(input.takeBelow(30)));
        const auto version = input.take<std::uint8_t>();
        sendModule(carousel, id, version, takeObjects(input), info);
        break;
      }
    }
    if (carousel.tree() != nullptr) checkNames(*carousel.tree());
  }
  return 0;
}
