#pragma once

#include <sys/types.h>

#include <string>

#include "ipc/Descriptor.h"

namespace quillwork::cli {

/// A connection to the Unix-domain socket at a path; none, and errno, where nobody accepts.
Descriptor connectTo(const std::string& path);

/// Whether somebody accepts connections there, or would if no others waited.
bool isServed(const std::string& path);

/// Listens at a path where nothing is yet, and knows its socket again there.
class BoundSocket {
 public:
  /// Throws Refusal when that fails.
  explicit BoundSocket(std::string path);

  [[nodiscard]] int number() const { return socket_.number(); }
  /// False as soon as the path is gone, or somebody else has bound it anew.
  [[nodiscard]] bool isAtItsPath() const;

 private:
  std::string path_;
  Descriptor socket_;
  /// Of the socket's file. Nobody else gets the inode for as long as the socket is open.
  dev_t device_{};
  ino_t inode_{};
};

}  // namespace quillwork::cli
