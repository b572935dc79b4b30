#include "receiver/ObjectCarousel.h"

#ifdef QUILLWORK_ZLIB
#include <zlib.h>
#endif

#include <algorithm>
#include <span>
#include <string_view>

namespace receiver {
namespace {

constexpr std::uint8_t controlTable = 0x3b;
constexpr std::uint8_t dataTable = 0x3c;
constexpr std::size_t sectionHeader = 8;
constexpr std::size_t crcSize = 4;

constexpr std::uint16_t infoIndication = 0x1002;
constexpr std::uint16_t dataBlock = 0x1003;
constexpr std::uint16_t serverInitiate = 0x1006;

constexpr std::uint32_t biopProfile = 0x49534f06;
constexpr std::uint32_t objectLocation = 0x49534f50;
constexpr std::uint32_t biopMagic = 0x42494f50;
constexpr std::uint8_t compressedModule = 0x09;
constexpr std::uint8_t deflate = 8;

bool isSafe(std::string_view name) {
  return !name.empty() && name.size() <= 255 && name != "." && name != ".." &&
         name.find('/') == name.npos && name.find('\0') == name.npos;
}

/// Names and kinds come with a zero byte at their end.
std::string withoutEnd(std::string text) {
  if (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

}  // namespace

/// Reads integers, highest byte first, and bytes. Past the end it gives zeros and nothing, and is
/// no longer good.
class ObjectCarousel::Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  [[nodiscard]] bool isGood() const { return isGood_; }
  [[nodiscard]] std::size_t left() const { return bytes_.size(); }

  std::uint32_t take(std::size_t size) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes(size)) value = value << 8U | byte;
    return value;
  }
  std::uint8_t uint8() { return static_cast<std::uint8_t>(take(1)); }
  std::uint16_t uint16() { return static_cast<std::uint16_t>(take(2)); }
  std::uint32_t uint32() { return take(4); }
  std::span<const std::uint8_t> bytes(std::size_t size) {
    if (size > bytes_.size()) {
      isGood_ = false;
      bytes_ = {};
      return {};
    }
    const auto taken = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return taken;
  }
  std::string text(std::size_t size) {
    const auto taken = bytes(size);
    return {taken.begin(), taken.end()};
  }
  Reader part(std::size_t size) { return Reader(bytes(size)); }
  void skip(std::size_t size) { bytes(size); }

 private:
  std::span<const std::uint8_t> bytes_;
  bool isGood_ = true;
};

bool CarouselObject::operator==(const CarouselObject& other) const {
  const bool isSame = content == other.content || (content != nullptr && other.content != nullptr &&
                                                   *content == *other.content);
  return isSame && kind == other.kind && events == other.events &&
         componentTag == other.componentTag;
}

bool ObjectCarousel::take(const Section& section) {
  if (section.size() < sectionHeader + crcSize) return false;
  if (section[0] != controlTable && section[0] != dataTable) return false;
  const std::span<const std::uint8_t> bytes(section);
  Reader reader(bytes.subspan(sectionHeader, section.size() - sectionHeader - crcSize));
  // The header that all messages have (ISO/IEC 13818-6, 2.1).
  const std::uint8_t protocol = reader.uint8();
  const std::uint8_t kind = reader.uint8();
  const std::uint16_t message = reader.uint16();
  const std::uint32_t transaction = reader.uint32();
  reader.skip(1);
  const std::uint8_t adaptation = reader.uint8();
  const std::uint16_t size = reader.uint16();
  Reader body = reader.part(size);
  body.skip(adaptation);
  if (protocol != 0x11 || kind != 0x03 || !body.isGood() || !reader.isGood()) return false;
  switch (message) {
    case serverInitiate:
      return takeServerInitiate(body);
    case infoIndication:
      return takeInfoIndication(body, transaction);
    case dataBlock:
      return takeDataBlock(body, transaction);
    default:
      return false;
  }
}

/// The message that names the root directory.
bool ObjectCarousel::takeServerInitiate(Reader& reader) {
  reader.skip(20);
  reader.skip(reader.uint16());
  Reader gateway = reader.part(reader.uint16());
  const auto reference = readReference(gateway);
  if (!reference || !gateway.isGood()) return false;
  const bool isNew = !gateway_ || gateway_->module != reference->module ||
                     gateway_->key != reference->key || gateway_->carousel != reference->carousel;
  gateway_ = reference;
  return isNew && publish();
}

/// The message that lists modules.
bool ObjectCarousel::takeInfoIndication(Reader& reader, std::uint32_t transaction) {
  // Bit 0 tells an update from the one before, the two highest who gave the number out.
  const auto identification = static_cast<std::uint16_t>(transaction & 0xfffeU);
  const std::uint32_t download = reader.uint32();
  const std::uint16_t blockSize = reader.uint16();
  reader.skip(10);
  reader.skip(reader.uint16());
  const std::uint16_t count = reader.uint16();
  std::map<std::uint16_t, Module> announced;
  for (unsigned index = 0; index < count && reader.isGood(); ++index) {
    const std::uint16_t id = reader.uint16();
    Module& module = announced[id];
    module.download = download;
    module.announcedBy = identification;
    module.blockSize = blockSize;
    module.size = reader.uint32();
    module.version = reader.uint8();
    readModuleInfo(reader.part(reader.uint8()), module);
  }
  if (!reader.isGood() || blockSize == 0) return false;
  bool isChanged =
      std::erase_if(modules_, [&](const auto& entry) {
        return entry.second.announcedBy == identification && !announced.contains(entry.first);
      }) != 0;
  for (auto& [id, module] : announced) {
    const auto known = modules_.find(id);
    if (known != modules_.end() && known->second.version == module.version &&
        known->second.size == module.size && known->second.download == download &&
        known->second.blockSize == blockSize) {
      continue;
    }
    modules_.insert_or_assign(id, std::move(module));
    isChanged = true;
  }
  return isChanged && publish();
}

/// BIOP::ModuleInfo (TR 101 202, 4.7.5.2): of interest is only how the module is compressed.
void ObjectCarousel::readModuleInfo(Reader info, Module& module) {
  info.skip(12);
  const std::uint8_t taps = info.uint8();
  for (unsigned tap = 0; tap < taps && info.isGood(); ++tap) {
    info.skip(6);
    info.skip(info.uint8());
  }
  Reader descriptors = info.part(info.uint8());
  if (!info.isGood()) return;
  while (descriptors.left() >= 2) {
    const std::uint8_t tag = descriptors.uint8();
    Reader descriptor = descriptors.part(descriptors.uint8());
    if (tag != compressedModule) continue;
    module.isCompressed = true;
    module.isReadable = (descriptor.uint8() & 0x0fU) == deflate;
    module.originalSize = descriptor.uint32();
  }
}

bool ObjectCarousel::takeDataBlock(Reader& reader, std::uint32_t download) {
  const std::uint16_t id = reader.uint16();
  const std::uint8_t version = reader.uint8();
  reader.skip(1);
  const std::size_t number = reader.uint16();
  const auto found = modules_.find(id);
  if (!reader.isGood() || found == modules_.end()) return false;
  Module& module = found->second;
  if (module.version != version || module.download != download || module.objects) return false;
  const std::size_t blocks = (module.size + module.blockSize - std::size_t{1}) / module.blockSize;
  const std::size_t begin = number * module.blockSize;
  if (number >= blocks) return false;
  const auto data = reader.bytes(reader.left());
  if (data.size() != std::min<std::size_t>(module.blockSize, module.size - begin)) return false;
  if (module.hasBlock.empty()) {
    if (heldBytes() + module.size + module.originalSize > mostBytes) return false;
    module.bytes.resize(module.size);
    module.hasBlock.resize(blocks);
    module.blocksLeft = blocks;
  }
  if (module.hasBlock[number]) return false;
  std::copy(data.begin(), data.end(), module.bytes.begin() + static_cast<std::ptrdiff_t>(begin));
  module.hasBlock[number] = true;
  if (--module.blocksLeft > 0) return false;
  return complete(module) && publish();
}

/// What the modules under way, and the objects of complete ones, take.
std::size_t ObjectCarousel::heldBytes() const {
  std::size_t held = 0;
  for (const auto& [id, module] : modules_) {
    if (!module.hasBlock.empty()) held += std::size_t{module.size} + module.originalSize;
  }
  return held;
}

bool ObjectCarousel::complete(Module& module) {
  if (module.isCompressed) {
    if (!module.isReadable) return false;
    auto bytes = decompress(module);
    if (!bytes) {
      // What cannot be decompressed was damaged on its way: once more.
      module.hasBlock.clear();
      module.bytes = {};
      return false;
    }
    module.bytes = std::move(*bytes);
  }
  module.objects = readObjects(module.bytes);
  module.bytes = {};
  return true;
}

#ifdef QUILLWORK_ZLIB

std::optional<std::vector<std::uint8_t>> ObjectCarousel::decompress(const Module& module) {
  std::vector<std::uint8_t> bytes(module.originalSize);
  uLongf size = bytes.size();
  const bool isDone = uncompress(bytes.data(), &size, module.bytes.data(), module.size) == Z_OK;
  if (!isDone || size != bytes.size()) return std::nullopt;
  return bytes;
}

bool canDecompress() { return true; }

#else

std::optional<std::vector<std::uint8_t>> ObjectCarousel::decompress(const Module&) {
  return std::nullopt;
}

bool canDecompress() { return false; }

#endif

/// The objects of a module (TR 101 202, 4.7.4), as far as they can be read.
std::map<std::string, ObjectCarousel::Object> ObjectCarousel::readObjects(
    const std::vector<std::uint8_t>& bytes) {
  std::map<std::string, Object> objects;
  Reader module{bytes};
  while (module.left() > 0 && objects.size() < mostObjects) {
    const bool isObject = module.uint32() == biopMagic;
    module.skip(2);
    const bool isHighestFirst = module.uint8() == 0;
    module.skip(1);
    Reader message = module.part(module.uint32());
    if (!isObject || !isHighestFirst || !module.isGood()) break;
    const std::string key = message.text(message.uint8());
    const std::string kind = withoutEnd(message.text(message.uint32()));
    Reader info = message.part(message.uint16());
    const std::uint8_t contexts = message.uint8();
    for (unsigned index = 0; index < contexts && message.isGood(); ++index) {
      message.skip(4);
      message.skip(message.uint16());
    }
    Reader body = message.part(message.uint32());
    Object object;
    if (kind == "fil") {
      object.content.kind = CarouselObject::Kind::file;
      const auto content = body.bytes(body.uint32());
      object.content.content =
          std::make_shared<const std::vector<std::uint8_t>>(content.begin(), content.end());
    } else if (kind == "dir" || kind == "srg") {
      readDirectory(body, object);
    } else if (kind == "str" || kind == "ste") {
      readStream(info, body, kind == "ste", object);
    } else {
      continue;
    }
    if (message.isGood() && body.isGood()) objects.insert_or_assign(key, std::move(object));
  }
  return objects;
}

void ObjectCarousel::readDirectory(Reader& body, Object& object) {
  const std::uint16_t count = body.uint16();
  for (unsigned index = 0; index < count && body.isGood(); ++index) {
    const std::uint8_t components = body.uint8();
    std::string name;
    for (unsigned component = 0; component < components && body.isGood(); ++component) {
      // Names of several components do not occur: a directory has one for each level.
      name = withoutEnd(body.text(body.uint8()));
      body.skip(body.uint8());
    }
    body.skip(1);
    auto reference = readReference(body);
    body.skip(body.uint16());
    if (components == 1) object.bindings.push_back({std::move(name), std::move(reference)});
  }
}

/// `info`: the description (ISO/IEC 13818-6, 5.6.3.3) and, for events, their names; `body`: taps
/// and, for events, their ids.
void ObjectCarousel::readStream(Reader info, Reader& body, bool hasEvents, Object& object) {
  object.content.kind =
      hasEvents ? CarouselObject::Kind::streamEvent : CarouselObject::Kind::stream;
  const std::uint8_t taps = body.uint8();
  constexpr std::uint16_t eventUses[] = {0x000c, 0x000d};  // STR_STATUS_AND_EVENT, STR_EVENT
  for (unsigned tap = 0; tap < taps && body.isGood(); ++tap) {
    body.skip(2);
    const std::uint16_t use = body.uint16();
    const std::uint16_t tag = body.uint16();
    body.skip(body.uint8());
    const bool isWanted = !hasEvents || std::ranges::find(eventUses, use) != std::end(eventUses);
    if (isWanted) object.content.componentTag = tag;
  }
  if (!hasEvents) return;
  std::vector<std::uint16_t> ids;
  const std::uint8_t count = body.uint8();
  for (unsigned index = 0; index < count; ++index) ids.push_back(body.uint16());
  // The duration's microseconds have 16 bits, but there are broadcasts with 32.
  for (const std::size_t microseconds : {2U, 4U}) {
    Reader names = info;
    names.skip(names.uint8());
    names.skip(4 + microseconds + 3);
    if (names.uint16() != count) continue;
    object.content.events.clear();
    for (const std::uint16_t id : ids) {
      object.content.events.emplace_back(withoutEnd(names.text(names.uint8())), id);
    }
    if (names.isGood()) return;
  }
  object.content.events.clear();
}

/// An IOP::IOR (TR 101 202, 4.7.3): where an object of this carousel lies, or nothing for one that
/// lies elsewhere.
std::optional<ObjectCarousel::Reference> ObjectCarousel::readReference(Reader& reader) {
  std::optional<Reference> reference;
  const std::uint32_t typeSize = reader.uint32();
  reader.skip((std::size_t{typeSize} + 3) & ~std::size_t{3});
  const std::uint32_t profiles = reader.uint32();
  for (std::uint32_t index = 0; index < profiles && reader.isGood(); ++index) {
    const std::uint32_t tag = reader.uint32();
    Reader profile = reader.part(reader.uint32());
    if (tag != biopProfile) continue;
    profile.skip(1);
    const std::uint8_t components = profile.uint8();
    for (unsigned component = 0; component < components && profile.isGood(); ++component) {
      const std::uint32_t kind = profile.uint32();
      Reader data = profile.part(profile.uint8());
      if (kind != objectLocation) continue;
      Reference found;
      found.carousel = data.uint32();
      found.module = data.uint16();
      data.skip(2);
      found.key = data.text(data.uint8());
      if (data.isGood()) reference = std::move(found);
    }
  }
  return reference;
}

/// Keeps a new tree, if everything is there that it needs.
bool ObjectCarousel::publish() {
  if (!gateway_) return false;
  CarouselTree tree;
  if (!build(*gateway_, "", 0, tree)) return false;
  // A file that has many names is one here, and many in a file system.
  std::size_t size = 0;
  for (const auto& [path, object] : tree) {
    if (object.content != nullptr) size += object.content->size();
  }
  if (size > mostBytes || (tree_ != nullptr && *tree_ == tree)) return false;
  tree_ = std::make_shared<const CarouselTree>(std::move(tree));
  return true;
}

/// Adds the object and what lies below it; false when something is missing.
bool ObjectCarousel::build(const Reference& reference, const std::string& path, int depth,
                           CarouselTree& tree) const {
  const auto module = modules_.find(reference.module);
  if (module == modules_.end() || !module->second.objects) return false;
  const auto found = module->second.objects->find(reference.key);
  if (found == module->second.objects->end()) return false;
  const Object& object = found->second;
  if (!path.empty() && !tree.emplace(path, object.content).second) return true;
  if (tree.size() > mostObjects || depth > deepestDirectory || path.size() > longestPath) {
    return false;
  }
  for (const Binding& binding : object.bindings) {
    // Names that could lead out of the directory, and objects of other carousels, are left out.
    if (!isSafe(binding.name) || !binding.reference ||
        binding.reference->carousel != gateway_->carousel) {
      continue;
    }
    if (!build(*binding.reference, path + "/" + binding.name, depth + 1, tree)) return false;
  }
  return true;
}

}  // namespace receiver
