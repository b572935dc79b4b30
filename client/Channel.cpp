#include "client/Channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "ipc/UnixAddress.h"

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
  const sockaddr_un address = unixAddress(path_);
  if (socket_ != -1 &&
      connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    limitReceives();
    return;
  }
  const int error = errno;
  if (socket_ != -1) close(socket_);
  if (error == EAGAIN) throw Error(path_ + ": other clients are waiting already");
  const bool nobody = error == ENOENT || error == ECONNREFUSED;
  throw Error(path_ + ": " + (nobody ? "no receiver is running" : std::strerror(error)));
}

/// From here on a receive that may wait waits for timeLimit_.
void Channel::limitReceives() const {
  const auto microseconds = std::chrono::microseconds(timeLimit_).count();
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
  limit.tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  fcntl(socket_, F_SETFL, fcntl(socket_, F_GETFL) & ~O_NONBLOCK);
}

Channel::~Channel() { close(socket_); }

void Channel::send(const void* data, std::size_t size) const {
  const auto deadline = Clock::now() + timeLimit_;
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = ::send(socket_, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
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
  // An empty list's bytes: there may be nowhere to put them.
  if (size == 0) return;
  if (arrivedSize() < size) {
    const auto deadline = Clock::now() + timeLimit;
    const auto wait = [&] {
      if (waitFor(socket_, POLLIN, deadline)) return;
      throw TimeOut(path_ + ": no answer within " + std::to_string(timeLimit.count()) + " ms" +
                    (arrivedSize() == 0 ? "" : ", the reply was cut short"));
    };
    // The first wait is the socket's own, which spares a call; its limit is timeLimit_.
    const bool hasOwnLimit = timeLimit == timeLimit_ && timeLimit.count() > 0;
    if (!fetch(size, hasOwnLimit ? 0 : MSG_DONTWAIT)) {
      do wait();
      while (!fetch(size, MSG_DONTWAIT));
    }
  }
  std::memcpy(data, buffer_.data() + begin_, size);
  begin_ += size;
}

std::span<const std::uint8_t> Channel::arrived(std::size_t wanted) {
  while (arrivedSize() < wanted) {
    const std::size_t before = arrivedSize();
    if (!fetch(wanted, MSG_DONTWAIT) && arrivedSize() == before) return {};
  }
  return std::span(buffer_).subspan(begin_, arrivedSize());
}

// One receive. What is expected for certain is taken along in large pieces; what may come behind it
// stays in the socket, so that whoever waits for the descriptor hears of it.
bool Channel::fetch(std::size_t wanted, int flags) {
  constexpr std::size_t largestPiece = 65'536;
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, arrivedSize());
    end_ -= begin_;
    begin_ = 0;
  }
  const std::size_t room = std::min(std::max(wanted - end_, expected_), largestPiece);
  if (buffer_.size() < end_ + room) buffer_.resize(end_ + room);
  const ssize_t size = recv(socket_, buffer_.data() + end_, room, flags);
  if (size > 0) {
    end_ += static_cast<std::size_t>(size);
    expected_ -= std::min(expected_, static_cast<std::size_t>(size));
  } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
    throw Error(path_ + ": the receiver has closed the connection" +
                (end_ == 0 ? "" : " in the middle of a reply"));
  }
  return end_ >= wanted;
}

bool Channel::waitForData(std::chrono::milliseconds time) const {
  if (arrivedSize() > 0) return true;
  return waitFor(socket_, POLLIN, Clock::now() + time);
}

}  // namespace quillwork::client
