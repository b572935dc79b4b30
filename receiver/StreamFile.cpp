#include "receiver/StreamFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace receiver {
namespace {

/// A descriptor that is closed at the end of the scope.
class File {
 public:
  explicit File(const std::string& path) : number_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~File() {
    if (number_ != -1) close(number_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

}  // namespace

StreamFile::StreamFile(const std::string& path) {
  const File file(path);
  struct stat status {};
  if (file.number() == -1 || fstat(file.number(), &status) != 0) {
    throw StreamError(path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) throw StreamError(path + ": is not a regular file");
  if (status.st_size == 0) throw StreamError(path + ": is empty");
  size_ = static_cast<std::size_t>(status.st_size);
  void* const mapped = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file.number(), 0);
  if (mapped == MAP_FAILED) throw StreamError(path + ": " + std::strerror(errno));
  data_ = static_cast<const std::uint8_t*>(mapped);
  // One damaged packet may come first; a stream of which most packets lack the sync byte is none.
  const std::size_t looked = std::min<std::size_t>(packets(), 100);
  std::size_t synchronised = 0;
  for (std::size_t index = 0; index < looked; ++index) {
    synchronised += packet(index)[0] == syncByte ? 1U : 0U;
  }
  std::string error;
  if (synchronised * 2 <= looked) {
    error = path + ": is no MPEG transport stream of 188-byte packets";
  } else if (size_ % packetSize != 0) {
    error = path + ": is cut inside a packet, " + std::to_string(size_ % packetSize) +
            " bytes after its " + std::to_string(packets()) + " whole packets";
  }
  if (error.empty()) return;
  munmap(mapped, size_);
  throw StreamError(error);
}

StreamFile::~StreamFile() { munmap(const_cast<std::uint8_t*>(data_), size_); }

}  // namespace receiver
