#pragma once

#include <mutex>
#include <string>

#include "facade/VersionFacade.h"

namespace receiver {

/// The version facade: what this build of the receiver has, and which revision the library is.
class Version : public middlewarefacade::VersionFacade {
 public:
  int checkVersionFlag(int flag) override;
  void setVersion(std::string version) override;

  /// Empty until the library has said it, which it does while a client may already ask.
  [[nodiscard]] std::string libraryRevision() const;

 private:
  mutable std::mutex mutex_;
  std::string libraryRevision_;
};

}  // namespace receiver
