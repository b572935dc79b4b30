#include "client/Channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace quillwork::client {
namespace {

using Clock = std::chrono::steady_clock;

/// Whether the descriptor is ready, or has failed, before the deadline.
bool waitFor(int descriptor, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd waiting{descriptor, events, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(std::clamp<long long>(left, 0, INT_MAX)));
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) throw Error(std::string("cannot wait: ") + std::strerror(errno));
  }
}

}  // namespace

Channel::Channel(std::string path, std::chrono::milliseconds timeLimit)
    : path_(std::move(path)),
      timeLimit_(timeLimit),
      socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  if (socket_ != -1 &&
      connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return;
  }
  const int error = errno;
  if (socket_ != -1) close(socket_);
  if (error == EAGAIN) throw Error(path_ + ": other clients are waiting already");
  const bool nobody = error == ENOENT || error == ECONNREFUSED;
  throw Error(path_ + ": " + (nobody ? "no receiver is running" : std::strerror(error)));
}

Channel::~Channel() { close(socket_); }

void Channel::send(const void* data, std::size_t size) const {
  const auto deadline = Clock::now() + timeLimit_;
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = ::send(socket_, bytes, size, MSG_NOSIGNAL);
    if (sent > 0) {
      bytes += sent;
      size -= static_cast<std::size_t>(sent);
    } else if (errno != EAGAIN && errno != EINTR) {
      throw Error(path_ + ": the receiver has closed the connection");
    } else if (!waitFor(socket_, POLLOUT, deadline)) {
      throw TimeOut(path_ + ": the receiver does not take the request");
    }
  }
}

void Channel::receive(void* data, std::size_t size, std::chrono::milliseconds timeLimit) {
  const auto deadline = Clock::now() + timeLimit;
  auto* bytes = static_cast<char*>(data);
  const std::size_t wanted = size;
  const std::size_t early = std::min(size, arrived_.size());
  std::copy_n(arrived_.begin(), early, bytes);
  arrived_.erase(arrived_.begin(), arrived_.begin() + static_cast<std::ptrdiff_t>(early));
  bytes += early;
  size -= early;
  while (size > 0) {
    const ssize_t received = recv(socket_, bytes, size, 0);
    if (received > 0) {
      bytes += received;
      size -= static_cast<std::size_t>(received);
    } else if (received == 0 || (errno != EAGAIN && errno != EINTR)) {
      throw Error(path_ + ": the receiver has closed the connection" +
                  (size == wanted ? "" : " in the middle of a reply"));
    } else if (!waitFor(socket_, POLLIN, deadline)) {
      throw TimeOut(path_ + ": no answer within " + std::to_string(timeLimit.count()) + " ms" +
                    (size == wanted ? "" : ", the reply was cut short"));
    }
  }
}

std::span<const std::uint8_t> Channel::arrived(std::size_t wanted) {
  while (arrived_.size() < wanted) {
    std::uint8_t bytes[16'384];
    const std::size_t most = std::min(sizeof bytes, wanted - arrived_.size());
    const ssize_t size = recv(socket_, bytes, most, MSG_DONTWAIT);
    if (size > 0) {
      arrived_.insert(arrived_.end(), bytes, bytes + size);
    } else if (size == -1 && errno == EAGAIN) {
      return {};
    } else if (size == 0 || errno != EINTR) {
      throw Error(path_ + ": the receiver has closed the connection");
    }
  }
  return arrived_;
}

bool Channel::waitForData(std::chrono::milliseconds time) const {
  if (!arrived_.empty()) return true;
  return waitFor(socket_, POLLIN, Clock::now() + time);
}

}  // namespace quillwork::client
