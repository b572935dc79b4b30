#include "receiver/facades/Version.h"

#include <utility>

#include "receiver/Text.h"

namespace receiver {
namespace {

#ifdef QUILLWORK_GSTREAMER
constexpr int isBuiltWithVideo = 1;
#else
constexpr int isBuiltWithVideo = 0;
#endif
#ifdef QUILLWORK_SQLITE
constexpr int isBuiltWithProperties = 1;
#else
constexpr int isBuiltWithProperties = 0;
#endif

}  // namespace

int Version::checkVersionFlag(int flag) {
  enum Flag {
    isReceiver = 0,
    hasServiceInformation = 1,
    hasSectionFilter = 2,
    hasArib = 3,
    hasCarousels = 4,
    hasStreamEvents = 5,
    hasProperties = 6,
    hasVideo = 7,
  };
  switch (flag) {
    case isReceiver:
    case hasServiceInformation:
    case hasSectionFilter:
    case hasCarousels:
    case hasStreamEvents:
      return 1;
    case hasArib:
      return canConvertArib() ? 1 : 0;
    case hasVideo:
      return isBuiltWithVideo;
    case hasProperties:
      return isBuiltWithProperties;
    default:
      return 0;
  }
}

void Version::setVersion(std::string version) {
  const std::lock_guard lock(mutex_);
  libraryRevision_ = std::move(version);
}

std::string Version::libraryRevision() const {
  const std::lock_guard lock(mutex_);
  return libraryRevision_;
}

}  // namespace receiver
