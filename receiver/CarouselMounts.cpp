#include "receiver/CarouselMounts.h"
#include "receiver/Complaint.h"
#include "receiver/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace receiver {
namespace {

namespace fs = std::filesystem;

std::string escaped(const std::string& text) {
  std::string xml;
  for (const char character : withoutControls(text)) {
    switch (character) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '"':
        xml += "&quot;";
        break;
      default:
        xml += character;
    }
  }
  return xml;
}

/// A stream or stream event object as a stream event description (ETSI TS 102 809, 8.2).
std::string describe(const CarouselObject& object) {
  std::string xml = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<dsmcc xmlns=\"urn:dvb:mis:dsmcc:2009\">\n"
      "  <dsmcc_object component_tag=\"{}\">\n",
      object.componentTag);
  for (const auto& [name, id] : object.events) {
    xml += fmt::format("    <stream_event stream_event_id=\"{}\" stream_event_name=\"{}\"/>\n", id,
                       escaped(name));
  }
  return xml + "  </dsmcc_object>\n</dsmcc>\n";
}

void writeFile(const fs::path& path, const void* data, std::size_t size) {
  std::ofstream file(path, std::ios::binary);
  file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  file.close();
  if (!file) {
    throw fs::filesystem_error("cannot write", path, std::make_error_code(std::errc::io_error));
  }
}

void writeTree(const fs::path& root, const CarouselTree& tree) {
  fs::create_directory(root);
  for (const auto& [name, object] : tree) {
    const fs::path path = root / name.substr(1);
    switch (object.kind) {
      case CarouselObject::Kind::directory:
        fs::create_directory(path);
        break;
      case CarouselObject::Kind::file:
        writeFile(path, object.content->data(), object.content->size());
        break;
      case CarouselObject::Kind::stream:
      case CarouselObject::Kind::streamEvent: {
        const std::string description = describe(object);
        writeFile(path, description.data(), description.size());
        break;
      }
    }
  }
}

}  // namespace

std::optional<CarouselLocator> CarouselLocator::parse(const std::string& text) {
  constexpr std::string_view scheme = "dvb://";
  if (!text.starts_with(scheme)) return std::nullopt;
  std::string_view rest = std::string_view(text).substr(scheme.size());
  std::vector<int> numbers;
  for (bool isLast = false; !isLast;) {
    const std::string_view part = rest.substr(0, rest.find('.'));
    isLast = part.size() == rest.size();
    rest.remove_prefix(isLast ? rest.size() : part.size() + 1);
    int number = -1;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number, 16);
    // A component's tag has 8 bits, the others 16.
    const int largest = numbers.size() < 3 ? 0xffff : 0xff;
    const bool isNumber = error == std::errc() && end == part.data() + part.size() && number >= 0 &&
                          number <= largest;
    const bool mayBeEmpty = numbers.size() < 2;
    if (!isNumber && !(part.empty() && mayBeEmpty)) return std::nullopt;
    numbers.push_back(number);
  }
  if (numbers.size() < 3 || numbers.size() > 4) return std::nullopt;
  return CarouselLocator{
      numbers[0], numbers[1], {numbers[2], numbers.size() == 4 ? numbers[3] : -1}};
}

CarouselMounts::CarouselMounts(DataBroadcast& data, const ServiceInformation& information,
                               Worker& writer, Worker& worker, const fs::path& directory,
                               CompletionHandler handler)
    : data_(data),
      information_(information),
      writer_(writer),
      worker_(worker),
      directory_(fs::absolute(directory)),
      handler_(std::move(handler)) {
  std::error_code error;
  fs::create_directories(directory_, error);
  if (error) throw std::runtime_error(directory_.string() + ": " + error.message());
}

CarouselMounts::~CarouselMounts() {
  while (!written_.empty()) remove(CarouselPlace(written_.begin()->first));
}

fs::path CarouselMounts::pathOf(const CarouselPlace& place) const {
  return directory_ / (place.componentTag == -1
                           ? fmt::format("{:x}", place.service)
                           : fmt::format("{:x}.{:x}", place.service, place.componentTag));
}

std::string CarouselMounts::mount(const std::string& locator) {
  const auto parsed = CarouselLocator::parse(locator);
  if (!parsed) return {};
  const std::vector<Service> services = information_.services();
  const bool isReceived = std::ranges::any_of(services, [&](const Service& service) {
    return service.id == parsed->place.service && service.isInPat && service.isActual &&
           (parsed->transportStream == -1 || parsed->transportStream == service.transportStream) &&
           (parsed->originalNetwork == -1 || service.originalNetwork == -1 ||
            parsed->originalNetwork == service.originalNetwork);
  });
  if (!isReceived) return {};
  const std::lock_guard lock(mutex_);
  if (!hasRoomFor(parsed->place, locator)) {
    if (!std::exchange(hasRefused_, true)) {
      complain("more than {} carousels, or one under more than {} locators, are not mounted",
               mostPlaces, mostLocators);
    }
    return {};
  }
  Mount& mount = mounts_[parsed->place];
  if (std::ranges::find(mount.locators, locator) == mount.locators.end()) {
    mount.locators.push_back(locator);
  }
  // Under the lock, so that no tree of a later time is replaced by this one.
  if (auto tree = data_.want(parsed->place)) {
    mount.newest = std::move(tree);
    mount.untold.insert(locator);
    change(parsed->place);
  }
  return pathOf(parsed->place).string();
}

/// With the mutex held.
bool CarouselMounts::hasRoomFor(const CarouselPlace& place, const std::string& locator) const {
  const auto mount = mounts_.find(place);
  if (mount == mounts_.end()) return mounts_.size() < mostPlaces;
  const std::vector<std::string>& locators = mount->second.locators;
  return locators.size() < mostLocators || std::ranges::find(locators, locator) != locators.end();
}

void CarouselMounts::umount(const std::string& locator) {
  const auto parsed = CarouselLocator::parse(locator);
  if (!parsed) return;
  const std::lock_guard lock(mutex_);
  const auto mount = mounts_.find(parsed->place);
  if (mount == mounts_.end() || std::erase(mount->second.locators, locator) == 0) return;
  mount->second.untold.erase(locator);
  if (!mount->second.locators.empty()) return;
  data_.leave(parsed->place);
  mounts_.erase(mount);
  change(parsed->place);
}

void CarouselMounts::update(const CarouselPlace& place, std::shared_ptr<const CarouselTree> tree) {
  const std::lock_guard lock(mutex_);
  const auto mount = mounts_.find(place);
  if (mount == mounts_.end()) return;
  mount->second.newest = std::move(tree);
  change(place);
}

/// With the mutex held.
void CarouselMounts::change(const CarouselPlace& place) {
  changed_.insert(place);
  if (!std::exchange(isWriting_, true)) writer_.postKept([this] { writeNext(); });
}

void CarouselMounts::writeNext() {
  CarouselPlace place;
  {
    const std::lock_guard lock(mutex_);
    place = changed_.extract(changed_.begin()).value();
    isWriting_ = !changed_.empty();
    if (isWriting_) writer_.postKept([this] { writeNext(); });
  }
  settle(place);
}

/// Makes the directory what the mount says.
void CarouselMounts::settle(const CarouselPlace& place) {
  std::shared_ptr<const CarouselTree> tree;
  bool isMounted = false;
  {
    const std::lock_guard lock(mutex_);
    const auto mount = mounts_.find(place);
    isMounted = mount != mounts_.end();
    if (isMounted) tree = std::move(mount->second.newest);
  }
  if (!isMounted) remove(place);
  if (tree == nullptr) return;
  const auto written = written_.find(place);
  const bool isThere = written != written_.end() && written->second.tree.lock() == tree;
  if (!isThere && !write(place, tree)) return;
  const std::lock_guard lock(mutex_);
  const auto mount = mounts_.find(place);
  if (mount == mounts_.end()) return;
  if (!isThere)
    mount->second.untold.insert(mount->second.locators.begin(), mount->second.locators.end());
  announce(place);
}

/// With the mutex held.
void CarouselMounts::announce(const CarouselPlace& place) {
  toTell_.insert(place);
  if (!std::exchange(isTelling_, true)) worker_.postKept([this] { tellNext(); });
}

void CarouselMounts::tellNext() {
  std::set<std::string> locators;
  std::string path;
  {
    const std::lock_guard lock(mutex_);
    const CarouselPlace place = toTell_.extract(toTell_.begin()).value();
    isTelling_ = !toTell_.empty();
    if (isTelling_) worker_.postKept([this] { tellNext(); });
    const auto mount = mounts_.find(place);
    if (mount != mounts_.end()) locators = std::exchange(mount->second.untold, {});
    path = pathOf(place).string();
  }
  for (const std::string& locator : locators) handler_(locator, path);
}

bool CarouselMounts::write(const CarouselPlace& place,
                           const std::shared_ptr<const CarouselTree>& tree) {
  const fs::path link = pathOf(place);
  const std::string name = link.filename().string();
  const fs::path target = directory_ / fmt::format(".{}.{}", name, ++versions_);
  const fs::path newLink = directory_ / fmt::format(".{}.link", name);
  try {
    // What a receiver that was killed has left.
    fs::remove_all(target);
    fs::remove(newLink);
    writeTree(target, *tree);
    fs::create_directory_symlink(target.filename(), newLink);
    fs::rename(newLink, link);
  } catch (const std::exception& error) {
    std::error_code ignored;
    fs::remove_all(target, ignored);
    fs::remove(newLink, ignored);
    complain("carousel {}: {}", name, error.what());
    return false;
  }
  std::error_code ignored;
  const Version before = std::exchange(written_[place], {target, tree});
  if (!before.path.empty()) fs::remove_all(before.path, ignored);
  return true;
}

void CarouselMounts::remove(const CarouselPlace& place) {
  const auto written = written_.find(place);
  if (written == written_.end()) return;
  std::error_code ignored;
  fs::remove(pathOf(place), ignored);
  fs::remove_all(written->second.path, ignored);
  written_.erase(written);
}

}  // namespace receiver
