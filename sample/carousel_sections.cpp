#include "sample/carousel_sections.h"

#include <algorithm>
#include <map>
#include <string>

#include "receiver/bitstream.h"

namespace sample {

using namespace receiver;

namespace {

constexpr std::uint16_t blockSize = 4066;
constexpr std::uint8_t controlTable = 0x3b;
constexpr std::uint8_t dataTable = 0x3c;
constexpr std::uint16_t directories = 1;
constexpr std::uint16_t others = 2;

/// A section with a message (ISO/IEC 13818-6, 2.1).
Section messageSection(std::uint8_t table, std::uint16_t extension, std::uint8_t version,
                       std::uint8_t number, std::uint8_t last, std::uint16_t message,
                       std::uint32_t transaction, const ByteBuilder& body) {
  ByteBuilder whole;
  whole.number(0x1103, 2).number(message, 2).number(transaction, 4).number(0xff00, 2);
  whole.sized(2, body);
  return longSection(table, extension, version, number, last, whole);
}

/// BIOP::ModuleInfo of an uncompressed module.
ByteBuilder plainModuleInfo() {
  ByteBuilder info;
  info.number(0xffffffff, 4).number(0xffffffff, 4).number(0, 4).number(0, 1).number(0, 1);
  return info;
}

std::string_view view(const ByteBuilder& builder) {
  return {reinterpret_cast<const char*>(builder.all().data()), builder.all().size()};
}

std::string kindOf(CarouselObject::Kind kind) {
  switch (kind) {
    case CarouselObject::Kind::directory:
      return "dir";
    case CarouselObject::Kind::file:
      return "fil";
    case CarouselObject::Kind::stream:
      return "str";
    case CarouselObject::Kind::streamEvent:
      return "ste";
  }
  return "";
}

std::string_view withEnd(const std::string& text) { return {text.c_str(), text.size() + 1}; }

/// A BIOP message (TR 101 202, 4.7.4).
void addObject(ByteBuilder& module, const std::string& key, const std::string& kind,
               const ByteBuilder& info, const ByteBuilder& body) {
  ByteBuilder message;
  message.sized(1, ByteBuilder().bytes(key)).sized(4, ByteBuilder().bytes(withEnd(kind)));
  message.sized(2, info).number(0, 1).sized(4, body);
  module.bytes("BIOP").number(0x01000000, 4).sized(4, message);
}

void addFile(ByteBuilder& module, const std::string& key, const CarouselObject& object) {
  const auto& content = *object.content;
  ByteBuilder text;
  text.bytes({reinterpret_cast<const char*>(content.data()), content.size()});
  addObject(module, key, "fil", ByteBuilder().number(content.size(), 8),
            ByteBuilder().sized(4, text));
}

void addStream(ByteBuilder& module, const std::string& key, const CarouselObject& object) {
  const bool hasEvents = object.kind == CarouselObject::Kind::streamEvent;
  ByteBuilder info;
  info.number(0, 1).number(0, 4).number(0, 2).number(0, 3);
  ByteBuilder body;
  body.number(1, 1).number(0, 2).number(hasEvents ? 0x000c : 0x0018, 2);
  body.number(static_cast<std::uint64_t>(object.componentTag), 2).number(0, 1);
  if (hasEvents) {
    info.number(object.events.size(), 2);
    body.number(object.events.size(), 1);
    for (const auto& [name, id] : object.events) {
      info.sized(1, ByteBuilder().bytes(withEnd(name)));
      body.number(id, 2);
    }
  }
  addObject(module, key, kindOf(object.kind), info, body);
}

}  // namespace

ByteBuilder& ByteBuilder::number(std::uint64_t value, unsigned size) {
  for (unsigned byte = size; byte > 0; --byte) {
    const std::uint64_t shifted = byte > sizeof value ? 0 : value >> 8U * (byte - 1);
    bytes_.push_back(static_cast<std::uint8_t>(shifted));
  }
  return *this;
}

ByteBuilder& ByteBuilder::bytes(std::string_view more) {
  bytes_.insert(bytes_.end(), more.begin(), more.end());
  return *this;
}

ByteBuilder& ByteBuilder::sized(unsigned size, const ByteBuilder& other) {
  number(other.bytes_.size(), size);
  bytes_.insert(bytes_.end(), other.bytes_.begin(), other.bytes_.end());
  return *this;
}

Section longSection(std::uint8_t tableId, std::uint16_t extension, std::uint8_t version,
                    std::uint8_t number, std::uint8_t last, const ByteBuilder& body) {
  ByteBuilder section;
  const std::size_t length = body.all().size() + PSI_HEADER_SIZE_SYNTAX1 - PSI_HEADER_SIZE + 4;
  section.number(tableId, 1).number(0xb000U | length, 2).number(extension, 2);
  section.number(0xc1U | unsigned{version} << 1U, 1)
      .number(number, 1)
      .number(last, 1)
      .bytes(view(body));
  Section whole = section.number(0, 4).all();
  psi_set_crc(whole.data());
  return whole;
}

ByteBuilder objectReference(std::uint32_t carousel, std::uint16_t module, std::string_view key,
                            std::string_view kind) {
  ByteBuilder location;
  location.number(carousel, 4).number(module, 2).number(0x0100, 2);
  location.sized(1, ByteBuilder().bytes(key));
  ByteBuilder profile;
  profile.number(0x0001, 2).number(0x49534f50, 4).sized(1, location);
  const std::string name(kind);
  ByteBuilder reference;
  reference.sized(4, ByteBuilder().bytes(withEnd(name))).number(1, 4).number(0x49534f06, 4);
  return reference.sized(4, profile);
}

Section serverInitiate(std::uint32_t carousel) {
  ByteBuilder body;
  body.bytes(std::string(20, '\xff')).number(0, 2);
  ByteBuilder gateway = objectReference(carousel, directories, "1", "srg");
  body.sized(2, gateway.number(0, 4));
  return messageSection(controlTable, 0, 0, 0, 0, 0x1006, 0x80000000, body);
}

std::vector<Section> moduleSections(std::uint32_t carousel, std::uint32_t update,
                                    const std::vector<ModuleToSend>& modules) {
  ByteBuilder body;
  body.number(carousel, 4).number(blockSize, 2).number(0, 10).number(0, 2);
  body.number(modules.size(), 2);
  for (const ModuleToSend& module : modules) {
    body.number(module.id, 2).number(module.content.size(), 4).number(module.version, 1);
    body.sized(1, ByteBuilder().bytes(module.info));
  }
  body.number(0, 2);
  // The lowest bit changes with each update, and so does the version above.
  const std::uint32_t identification = modules.front().id & 0x7fffU;
  const std::uint32_t transaction =
      0x80000000U | (update & 0x3fffU) << 16U | identification << 1U | (update & 1U);
  std::vector<Section> sections = {messageSection(
      controlTable, static_cast<std::uint16_t>(transaction), 0, 0, 0, 0x1002, transaction, body)};
  for (const ModuleToSend& module : modules) {
    const std::size_t blocks = (module.content.size() + blockSize - 1) / blockSize;
    for (std::size_t block = 0; block < blocks; ++block) {
      ByteBuilder data;
      data.number(module.id, 2).number(module.version, 1).number(0xff, 1).number(block, 2);
      data.bytes(module.content.substr(block * blockSize, blockSize));
      sections.push_back(messageSection(
          dataTable, module.id, module.version & 31U, static_cast<std::uint8_t>(block),
          static_cast<std::uint8_t>(std::min<std::size_t>(blocks - 1, 255)), 0x1003, carousel,
          data));
    }
  }
  return sections;
}

std::vector<Section> carouselSections(std::uint32_t carousel, std::uint8_t version,
                                      const CarouselTree& tree) {
  // Keys by path; that of the root is "1".
  std::map<std::string, std::string> keys = {{"", "1"}};
  for (const auto& [path, object] : tree) keys[path] = std::to_string(keys.size() + 1);
  std::map<std::string, ByteBuilder> bindings = {{"", {}}};
  std::map<std::string, std::size_t> counts;
  ByteBuilder content;
  for (const auto& [path, object] : tree) {
    const bool isDirectory = object.kind == CarouselObject::Kind::directory;
    const std::string parent = path.substr(0, path.rfind('/'));
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string kind = kindOf(object.kind);
    ByteBuilder& list = bindings[parent];
    list.number(1, 1).sized(1, ByteBuilder().bytes(withEnd(name)));
    list.sized(1, ByteBuilder().bytes(withEnd(kind))).number(isDirectory ? 2 : 1, 1);
    const ByteBuilder reference =
        objectReference(carousel, isDirectory ? directories : others, keys[path], kind);
    list.bytes(view(reference)).number(0, 2);
    ++counts[parent];
    if (isDirectory) {
      bindings.try_emplace(path);
    } else if (object.kind == CarouselObject::Kind::file) {
      addFile(content, keys[path], object);
    } else {
      addStream(content, keys[path], object);
    }
  }
  ByteBuilder tables;
  for (const auto& [path, list] : bindings) {
    ByteBuilder body;
    body.number(counts[path], 2).bytes(view(list));
    addObject(tables, keys[path], path.empty() ? "srg" : "dir", {}, body);
  }
  const ByteBuilder info = plainModuleInfo();
  std::vector<ModuleToSend> modules = {{directories, version, view(tables), view(info)}};
  if (!content.all().empty()) modules.push_back({others, version, view(content), view(info)});
  std::vector<Section> sections = moduleSections(carousel, version, modules);
  sections.insert(sections.begin(), serverInitiate(carousel));
  return sections;
}

}  // namespace sample
