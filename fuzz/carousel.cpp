// An object carousel: sections as they come, or modules with any objects that are announced and
// sent as they should be.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "receiver/CarouselMounts.h"
#include "receiver/ObjectCarousel.h"

namespace {

using namespace receiver;

constexpr std::uint32_t download = 7;
constexpr std::uint16_t blockSize = 512;

/// Bytes that are built up, integers with the highest byte first.
class Builder {
 public:
  Builder& number(std::uint64_t value, unsigned size) {
    for (unsigned byte = size; byte > 0; --byte) {
      const bool isHigher = byte > sizeof value;
      bytes_.push_back(isHigher ? 0 : static_cast<std::uint8_t>(value >> 8U * (byte - 1)));
    }
    return *this;
  }
  Builder& bytes(std::string_view more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  Builder& sized(unsigned size, const Builder& part) {
    number(part.bytes_.size(), size);
    bytes_.insert(bytes_.end(), part.bytes_.begin(), part.bytes_.end());
    return *this;
  }
  [[nodiscard]] const Section& all() const { return bytes_; }

 private:
  Section bytes_;
};

Section message(std::uint8_t table, std::uint16_t id, std::uint32_t transaction,
                const Builder& body) {
  Builder section;
  section.number(table, 1).number(0, 7);
  section.number(0x1103, 2).number(id, 2).number(transaction, 4).number(0xff00, 2).sized(2, body);
  return section.number(0, 4).all();
}

/// A reference to an object of this carousel.
Builder reference(std::uint16_t module, std::string_view key) {
  const Builder location = Builder()
                               .number(download, 4)
                               .number(module, 2)
                               .number(0x0100, 2)
                               .sized(1, Builder().bytes(key));
  const Builder profile = Builder().number(0x01, 2).number(0x49534f50, 4).sized(1, location);
  return Builder()
      .number(4, 4)
      .bytes(std::string_view("fil\0", 4))
      .number(1, 4)
      .number(0x49534f06, 4)
      .sized(4, profile);
}

void sendInitiate(ObjectCarousel& carousel) {
  Builder body;
  for (int index = 0; index < 20; ++index) body.number(0xff, 1);
  body.number(0, 2).sized(2, reference(1, "1"));
  carousel.take(message(0x3b, 0x1006, 0x80000000, body));
}

void sendModule(ObjectCarousel& carousel, std::uint16_t id, std::uint8_t version,
                std::string_view module, std::string_view info) {
  Builder body;
  body.number(download, 4).number(blockSize, 2).number(0, 10).number(0, 2).number(1, 2);
  body.number(id, 2).number(module.size(), 4).number(version, 1);
  body.sized(1, Builder().bytes(info)).number(0, 2);
  carousel.take(message(0x3b, 0x1002, 0x80000000U | id * 2U, body));
  for (std::size_t begin = 0; begin < module.size(); begin += blockSize) {
    Builder block;
    block.number(id, 2).number(version, 1).number(0xff, 1).number(begin / blockSize, 2);
    block.bytes(module.substr(begin, blockSize));
    carousel.take(message(0x3c, 0x1003, download, block));
  }
}

/// Directories, files and stream events with names and keys from the input.
std::string takeObjects(Input& input) {
  std::string objects;
  while (!input.isAtEnd() && objects.size() < 8000 && input.takeBelow(8) != 0) {
    const std::size_t kind = input.takeBelow(5);
    constexpr std::string_view kinds[] = {"srg", "dir", "fil", "ste", "str"};
    Builder body;
    Builder info;
    if (kind < 2) {
      const std::size_t bindings = input.takeBelow(5);
      body.number(bindings, 2);
      for (std::size_t index = 0; index < bindings; ++index) {
        body.number(1, 1).sized(1, Builder().bytes(input.takeBytes(input.takeBelow(6))));
        body.number(4, 1).bytes(std::string_view("fil\0", 4)).number(1, 1);
        const auto module = static_cast<std::uint16_t>(input.takeBelow(4));
        const Section object = reference(module, std::string(1, "1234"[input.takeBelow(4)])).all();
        body.bytes({reinterpret_cast<const char*>(object.data()), object.size()}).number(0, 2);
      }
    } else {
      info.bytes(input.takeBytes(input.takeBelow(40)));
      body.bytes(input.takeBytes(input.takeBelow(40)));
    }
    Builder inner;
    inner.sized(1, Builder().bytes(std::string(1, "1234"[input.takeBelow(4)])));
    inner.number(4, 4).bytes(kinds[kind]).number(0, 1).sized(2, info).number(0, 1).sized(4, body);
    const Section object = Builder().bytes("BIOP").number(0x01000000, 4).sized(4, inner).all();
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
        sendInitiate(carousel);
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
