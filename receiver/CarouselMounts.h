#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "receiver/DataBroadcast.h"
#include "receiver/ServiceInformation.h"
#include "receiver/Worker.h"

namespace receiver {

/// A carousel's place from "dvb://ONID.TSID.SID[.TAG]" (ETSI TS 102 851), numbers in hexadecimal,
/// the first two or one of them empty for the received stream's.
struct CarouselLocator {
  int originalNetwork = -1;
  int transportStream = -1;
  CarouselPlace place;

  static std::optional<CarouselLocator> parse(const std::string& text);
};

/// Object carousels as directories. A mounted carousel is a symbolic link to a directory with one
/// version of it; the next version has its own directory, and the link changes at once. Of each
/// place the newest version waits to be written, and those before it are left out.
class CarouselMounts {
 public:
  /// How many places can be mounted, and each under how many locators: what is mounted outlives its
  /// client. What is beyond is refused, which is said once on the standard error stream.
  static constexpr std::size_t mostPlaces = 256;
  static constexpr std::size_t mostLocators = 16;

  /// Called on the worker's thread when a version is there, with the locator and the directory.
  using CompletionHandler =
      std::function<void(const std::string& locator, const std::string& path)>;

  /// `writer`: writes the files; it may be held up by nothing else. `worker`: calls the handler.
  /// `directory`: made where it is not there. Throws std::filesystem::filesystem_error when it
  /// cannot be.
  CarouselMounts(DataBroadcast& data, const ServiceInformation& information, Worker& writer,
                 Worker& worker, const std::filesystem::path& directory, CompletionHandler handler);
  /// Unmounts everything. The writer and the worker have to be gone.
  ~CarouselMounts();
  CarouselMounts(const CarouselMounts&) = delete;
  CarouselMounts& operator=(const CarouselMounts&) = delete;

  /// The directory in which the carousel is once it is complete; empty for a locator that is none
  /// or of something that is not received, and where too much is mounted already.
  std::string mount(const std::string& locator);
  void umount(const std::string& locator);
  /// A tree has become complete.
  void update(const CarouselPlace& place, std::shared_ptr<const CarouselTree> tree);

 private:
  struct Mount {
    std::vector<std::string> locators;
    std::set<std::string> untold;  ///< locators whose version is there and has not been announced
    std::shared_ptr<const CarouselTree> newest;  ///< to be written; null for none
  };
  /// What is linked.
  struct Version {
    std::filesystem::path path;
    std::weak_ptr<const CarouselTree> tree;
  };

  [[nodiscard]] std::filesystem::path pathOf(const CarouselPlace& place) const;
  [[nodiscard]] bool hasRoomFor(const CarouselPlace& place, const std::string& locator) const;
  void change(const CarouselPlace& place);
  void writeNext();
  void settle(const CarouselPlace& place);
  bool write(const CarouselPlace& place, const std::shared_ptr<const CarouselTree>& tree);
  void remove(const CarouselPlace& place);
  void announce(const CarouselPlace& place);
  void tellNext();

  DataBroadcast& data_;
  const ServiceInformation& information_;
  Worker& writer_;
  Worker& worker_;
  const std::filesystem::path directory_;
  const CompletionHandler handler_;
  /// On the writer's thread only.
  std::uint64_t versions_ = 0;
  std::map<CarouselPlace, Version> written_;

  std::mutex mutex_;
  std::map<CarouselPlace, Mount> mounts_;
  std::set<CarouselPlace> changed_;  ///< that the writer has to look at
  std::set<CarouselPlace> toTell_;   ///< that have locators to be told
  bool isWriting_ = false;           ///< the writer has a task
  bool isTelling_ = false;           ///< the worker has a task
  bool hasRefused_ = false;          ///< a mount, and has said so
};

}  // namespace receiver
