#pragma once

#include <string>

#include "facade/VersionFacade.h"

namespace receiver {

/// The version facade: what this build of the receiver has, and which revision the library is.
class Version : public middlewarefacade::VersionFacade {
 public:
  int checkVersionFlag(int flag) override;
  void setVersion(std::string version) override;

  /// Empty until the library has said it.
  [[nodiscard]] std::string libraryRevision() const { return libraryRevision_; }

 private:
  std::string libraryRevision_;
};

}  // namespace receiver
