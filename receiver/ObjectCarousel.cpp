#include "receiver/ObjectCarousel.h"

#ifdef QUILLWORK_ZLIB
#include <zlib.h>
#endif

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

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

/// What the standard library and the heap take for an entry of a map and for a block of memory,
/// about.
constexpr std::uint64_t entryCost = 128;
constexpr std::size_t mostBlocks = 65'536;  // their numbers have 16 bits

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
      takeInfoIndication(body, transaction);
      return false;
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
  auto reference = readReference(gateway);
  if (!reference || !gateway.isGood()) return false;
  if (number_ && reference->carousel != *number_) return false;
  const bool isNew = !gateway_ || gateway_->module != reference->module ||
                     gateway_->key != reference->key || gateway_->carousel != reference->carousel;
  if (!isNew) return refusedAt_ && *refusedAt_ != memory_->releases() && publish();
  gateway_ = std::move(reference);
  beginWalk();
  hasBegun_ = true;
  return walk({&*gateway_});
}

/// The message that lists modules. What it changes is complete only with its modules.
void ObjectCarousel::takeInfoIndication(Reader& reader, std::uint32_t transaction) {
  // Bit 0 tells an update from the one before, the two highest who gave the number out.
  const auto identification = static_cast<std::uint16_t>(transaction & 0xfffeU);
  const std::uint32_t download = reader.uint32();
  if (number_ && download != *number_) return;
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
  if (!reader.isGood() || blockSize == 0) return;
  std::vector<std::uint16_t> gone;
  for (auto entry = announcements_.lower_bound({identification, 0});
       entry != announcements_.end() && entry->first == identification; ++entry) {
    if (!announced.contains(entry->second)) gone.push_back(entry->second);
  }
  for (const std::uint16_t id : gone) withdraw(id);
  for (auto& [id, module] : announced) {
    const auto known = modules_.find(id);
    if (known != modules_.end() && known->second.version == module.version &&
        known->second.size == module.size && known->second.download == download &&
        known->second.blockSize == blockSize) {
      continue;
    }
    withdraw(id);
    module.entry = Reservation(memory_);
    module.held = Reservation(memory_);
    if (!grow(module.entry, sizeof module + 2 * entryCost)) {
      memory_->refuse("carousels");
      return;
    }
    announcements_.emplace(identification, id);
    modules_.emplace(id, std::move(module));
  }
}

void ObjectCarousel::withdraw(std::uint16_t id) {
  const auto known = modules_.find(id);
  if (known == modules_.end()) return;
  // References that wait for others may lie in its objects.
  if (known->second.walk == walk_) beginWalk();
  announcements_.erase({known->second.announcedBy, id});
  modules_.erase(known);
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
    module.isReadable = (descriptor.uint8() & 0x0fU) == deflate && canDecompress();
    module.originalSize = descriptor.uint32();
  }
}

bool ObjectCarousel::takeDataBlock(Reader& reader, std::uint32_t download) {
  const std::uint16_t id = reader.uint16();
  const std::uint8_t version = reader.uint8();
  reader.skip(1);
  const std::uint16_t number = reader.uint16();
  const auto found = modules_.find(id);
  if (!reader.isGood() || found == modules_.end()) return false;
  Module& module = found->second;
  if (module.version != version || module.download != download || module.objects) return false;
  const std::uint64_t size = module.size;
  const std::uint64_t blocks = (size + module.blockSize - 1) / module.blockSize;
  const std::uint64_t begin = std::uint64_t{number} * module.blockSize;
  if (size + module.originalSize > memory_->limit()) {
    memory_->refuse("carousels");
    return false;
  }
  if (!module.isReadable || number >= blocks || blocks > mostBlocks) return false;
  const auto data = reader.bytes(reader.left());
  if (data.size() != std::min<std::uint64_t>(module.blockSize, size - begin)) return false;
  if (module.blocks.contains(number)) return false;
  if (!grow(module.held, data.size() + entryCost)) {
    refuse(module);
    return false;
  }
  module.blocks.emplace(number, std::vector<std::uint8_t>(data.begin(), data.end()));
  if (module.blocks.size() < blocks || !complete(module)) return false;
  if (!gateway_) return false;
  if (!std::exchange(hasBegun_, true)) return walk({&*gateway_});
  const auto waiting = waiting_.extract(id);
  return !waiting.empty() && walk(std::move(waiting.mapped()));
}

/// Takes memory from the budget; what the last tree holds is given up for it if that tree has gone
/// out of date.
bool ObjectCarousel::grow(Reservation& reservation, std::uint64_t bytes) {
  if (reservation.grow(bytes)) return true;
  if (tree_ == nullptr || treeWalk_ == walk_) return false;
  tree_.reset();
  return reservation.grow(bytes);
}

/// Others that are under way can complete with what the module has held.
void ObjectCarousel::refuse(Module& module) {
  module.blocks.clear();
  module.held.clear();
  memory_->refuse("carousels");
}

bool ObjectCarousel::complete(Module& module) {
  Reservation original(memory_);
  const auto bytes = module.isCompressed ? decompress(module, original) : join(module);
  module.blocks.clear();
  module.held.clear();
  original.clear();
  // What cannot be decompressed was damaged on its way: once more.
  if (!bytes) return false;
  // For this moment the files are there twice.
  module.objects = readObjects(*bytes, module.held);
  if (!module.objects) refuse(module);
  return module.objects.has_value();
}

std::optional<std::vector<std::uint8_t>> ObjectCarousel::join(Module& module) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(module.size);
  while (!module.blocks.empty()) {
    const auto block = module.blocks.extract(module.blocks.begin());
    bytes.insert(bytes.end(), block.mapped().begin(), block.mapped().end());
  }
  return bytes;
}

#ifdef QUILLWORK_ZLIB

std::optional<std::vector<std::uint8_t>> ObjectCarousel::decompress(const Module& module,
                                                                    Reservation& held) {
  constexpr std::size_t leastStep = 65'536;
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) return std::nullopt;
  const std::unique_ptr<z_stream, int (*)(z_stream*)> owner(&stream, inflateEnd);
  // Its address stands where there is nothing to be written any more.
  Bytef nothing = 0;
  // Only pages that are written to take memory.
  std::vector<std::uint8_t> bytes;
  bytes.reserve(module.originalSize);
  int state = Z_OK;
  for (const auto& [number, block] : module.blocks) {
    // zlib takes what it only reads as something that it may change.
    stream.next_in = const_cast<Bytef*>(block.data());
    stream.avail_in = static_cast<uInt>(block.size());
    while (state == Z_OK) {
      if (stream.avail_out == 0 && bytes.size() < module.originalSize) {
        const std::size_t done = bytes.size();
        const std::size_t step =
            std::min<std::size_t>(module.originalSize - done, std::max(done, leastStep));
        if (!grow(held, step)) {
          memory_->refuse("carousels");
          return std::nullopt;
        }
        bytes.resize(done + step);
        stream.avail_out = static_cast<uInt>(step);
      }
      stream.next_out = bytes.empty() ? &nothing : bytes.data() + bytes.size() - stream.avail_out;
      state = inflate(&stream, Z_NO_FLUSH);
    }
    // It wants the next block.
    if (state == Z_BUF_ERROR && stream.avail_in == 0) state = Z_OK;
    if (state != Z_OK) break;
  }
  const bool isWhole = bytes.size() == module.originalSize && stream.avail_out == 0;
  if (state != Z_STREAM_END || !isWhole) return std::nullopt;
  return bytes;
}

bool canDecompress() { return true; }

#else

std::optional<std::vector<std::uint8_t>> ObjectCarousel::decompress(const Module&, Reservation&) {
  return std::nullopt;
}

bool canDecompress() { return false; }

#endif

/// The objects of a module (TR 101 202, 4.7.4), as far as they can be read; nothing where there is
/// no memory for them.
std::optional<ObjectCarousel::Objects> ObjectCarousel::readObjects(
    const std::vector<std::uint8_t>& bytes, Reservation& held) {
  Objects objects;
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
      object.content.content = keep(body.bytes(body.uint32()));
      if (object.content.content == nullptr) return std::nullopt;
    } else if (kind == "dir" || kind == "srg") {
      readDirectory(body, object);
    } else if (kind == "str" || kind == "ste") {
      readStream(info, body, kind == "ste", object);
    } else {
      continue;
    }
    if (!message.isGood() || !body.isGood()) continue;
    if (!grow(held, costOf(key, object))) return std::nullopt;
    objects.insert_or_assign(key, std::move(object));
  }
  return objects;
}

std::uint64_t ObjectCarousel::costOf(const std::string& key, const Object& object) {
  std::uint64_t cost = sizeof object + entryCost + key.size() + costOf(object.content);
  for (const Binding& binding : object.bindings) {
    cost += sizeof binding + entryCost + binding.name.size();
    if (binding.reference) cost += binding.reference->key.size();
  }
  return cost;
}

/// Without its content, which is paid for by itself.
std::uint64_t ObjectCarousel::costOf(const CarouselObject& object) {
  std::uint64_t cost = sizeof object;
  for (const auto& event : object.events) cost += sizeof event + event.first.size();
  return cost;
}

/// A file's content, which pays for its memory as long as anybody has it; null where there is none.
std::shared_ptr<const std::vector<std::uint8_t>> ObjectCarousel::keep(
    std::span<const std::uint8_t> bytes) {
  Reservation memory(memory_);
  if (!grow(memory, bytes.size() + entryCost)) return nullptr;
  const auto kept = std::make_shared<const Kept<std::vector<std::uint8_t>>>(
      std::move(memory), std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
  return {kept, &kept->value};
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

/// Whether the binding is part of the tree: names that could lead out of the directory, and objects
/// of other carousels, are left out.
bool ObjectCarousel::isFollowed(const Binding& binding) const {
  return isSafe(binding.name) && binding.reference &&
         binding.reference->carousel == gateway_->carousel;
}

/// Something that the walk has come by changes: the next one begins at the root.
void ObjectCarousel::beginWalk() {
  ++walk_;
  hasBegun_ = false;
  waiting_.clear();
  refusedAt_.reset();
}

/// Goes on from the references. True when this has completed a tree.
bool ObjectCarousel::walk(std::vector<const Reference*> references) {
  while (!references.empty()) {
    const Reference& reference = *references.back();
    references.pop_back();
    const auto module = modules_.find(reference.module);
    if (module == modules_.end() || !module->second.objects) {
      waiting_[reference.module].push_back(&reference);
      continue;
    }
    module->second.walk = walk_;
    const auto found = module->second.objects->find(reference.key);
    if (found == module->second.objects->end()) {
      // Only another version of the module can have it, and that begins a walk.
      waiting_[reference.module].push_back(&reference);
      continue;
    }
    Object& object = found->second;
    if (std::exchange(object.walk, walk_) == walk_) continue;
    for (const Binding& binding : object.bindings) {
      if (isFollowed(binding)) references.push_back(&*binding.reference);
    }
  }
  return waiting_.empty() && publish();
}

/// Keeps a new tree.
bool ObjectCarousel::publish() {
  refusedAt_.reset();
  Growth growth{{}, Reservation(memory_), 0};
  if (!build(*gateway_, "", 0, growth)) {
    if (growth.isRefused) {
      refusedAt_ = memory_->releases();
      memory_->refuse("carousels");
    }
    return false;
  }
  treeWalk_ = walk_;
  if (tree_ != nullptr && *tree_ == growth.tree) return false;
  const auto kept =
      std::make_shared<const Kept<CarouselTree>>(std::move(growth.memory), std::move(growth.tree));
  tree_ = {kept, &kept->value};
  return true;
}

/// Adds the object and what lies below it; false when there is too much of it.
bool ObjectCarousel::build(const Reference& reference, const std::string& path, int depth,
                           Growth& growth) {
  Object& object = modules_.at(reference.module).objects->at(reference.key);
  if (!path.empty()) {
    if (growth.tree.contains(path)) return true;
    if (!grow(growth.memory, entryCost + 2 * path.size() + costOf(object.content))) {
      growth.isRefused = true;
      return false;
    }
    shareContent(path, object.content);
    growth.tree.emplace(path, object.content);
    // A file that has many names is one here, and many in a file system.
    if (object.content.content != nullptr) growth.fileBytes += object.content.content->size();
  }
  if (growth.tree.size() > mostObjects || depth > deepestDirectory || path.size() > longestPath ||
      growth.fileBytes > mostBytes) {
    return false;
  }
  return std::ranges::all_of(object.bindings, [&](const Binding& binding) {
    return !isFollowed(binding) ||
           build(*binding.reference, path + "/" + binding.name, depth + 1, growth);
  });
}

/// A file that is the same in the last tree is held once.
void ObjectCarousel::shareContent(const std::string& path, CarouselObject& object) const {
  if (tree_ == nullptr || object.content == nullptr) return;
  const auto before = tree_->find(path);
  if (before == tree_->end() || before->second.content == nullptr) return;
  if (*before->second.content == *object.content) object.content = before->second.content;
}

}  // namespace receiver
