#include "cli/sockets.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/Command.h"
#include "ipc/UnixAddress.h"

namespace quillwork::cli {
namespace {

Descriptor makeSocket(int flags = 0) {
  return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

/// 0, or what is wrong.
int connectTo(const Descriptor& socket, const std::string& path) {
  const sockaddr_un address = unixAddress(path);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  return connect(socket.number(), generic, sizeof address) == 0 ? 0 : errno;
}

}  // namespace

Descriptor connectTo(const std::string& path) {
  Descriptor connection = makeSocket();
  const int error = connectTo(connection, path);
  if (error != 0) connection.close();
  errno = error;
  return connection;
}

bool isServed(const std::string& path) {
  const int error = connectTo(makeSocket(SOCK_NONBLOCK), path);
  return error == 0 || error == EAGAIN;
}

BoundSocket::BoundSocket(std::string path) : path_(std::move(path)), socket_(makeSocket()) {
  const sockaddr_un address = unixAddress(path_);
  struct stat file {};
  if (bind(number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(number(), 1) != 0 || lstat(path_.c_str(), &file) != 0) {
    throw Refusal(path_ + ": " + std::strerror(errno));
  }
  device_ = file.st_dev;
  inode_ = file.st_ino;
}

bool BoundSocket::isAtItsPath() const {
  struct stat file {};
  return lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_;
}

}  // namespace quillwork::cli
