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

/// Whether the descriptor is ready, or has failed, before the deadline.
bool isReady(int descriptor, short events, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
            .count();
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
    fcntl(socket_, F_SETFL, fcntl(socket_, F_GETFL) & ~O_NONBLOCK);
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
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = ::send(socket_, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) {
      bytes += sent;
      size -= static_cast<std::size_t>(sent);
    } else if (errno != EAGAIN && errno != EINTR) {
      throw Error(path_ + ": the receiver has closed the connection");
    } else if (!isReady(socket_, POLLOUT, deadline_)) {
      throw TimeOut(path_ + ": the receiver does not take the request");
    }
  }
}

void Channel::begin(std::chrono::milliseconds timeLimit) {
  operationLimit_ = timeLimit;
  deadline_ = Clock::now() + timeLimit;
}

void Channel::receive(void* data, std::size_t size) {
  // An empty list's bytes: there may be nowhere to put them.
  if (size == 0) return;
  need(size);
  std::memcpy(data, buffer_.data() + begin_, size);
  begin_ += size;
}

const void* Channel::next(std::size_t size) {
  // Behind bytes and texts of any number what has arrived lies anywhere.
  if (begin_ % alignof(std::int32_t) != 0 && arrivedSize() >= size) makeRoom(0);
  need(size);
  const void* const at = buffer_.data() + begin_;
  begin_ += size;
  return at;
}

bool Channel::waitFor(std::size_t wanted) {
  if (arrivedSize() == 0) takeInTime(wanted);
  return arrivedSize() > 0;
}

std::span<const std::uint8_t> Channel::arrived(std::size_t wanted) {
  while (arrivedSize() < wanted) {
    const std::size_t before = arrivedSize();
    if (!take(wanted, MSG_DONTWAIT) && arrivedSize() == before) return {};
  }
  return std::span(buffer_).subspan(begin_, arrivedSize());
}

/// Receives until so many bytes are there.
void Channel::need(std::size_t size) {
  if (arrivedSize() >= size || takeInTime(size)) return;
  throw TimeOut(path_ + ": no answer within " + std::to_string(operationLimit_.count()) + " ms" +
                (arrivedSize() == 0 ? "" : ", the reply was cut short"));
}

/// Moves what has arrived to the buffer's beginning, and makes room for more behind it.
void Channel::makeRoom(std::size_t size) {
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, arrivedSize());
    end_ -= begin_;
    begin_ = 0;
  }
  if (buffer_.size() < end_ + size) buffer_.resize(end_ + size);
}

/// One receive; whether as much as wanted has arrived. What is expected for certain is taken along
/// in large pieces; what may come behind it stays in the socket, so that whoever waits for the
/// descriptor hears of it.
bool Channel::take(std::size_t wanted, int flags) {
  constexpr std::size_t largestPiece = 65'536;
  const std::size_t room = std::min(std::max(wanted - arrivedSize(), expected_), largestPiece);
  makeRoom(room);
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

/// Receives as much as wanted, or what comes until the operation's end; whether it was as much. The
/// wait is the socket's own, so that what comes in time costs one call. The socket keeps the limit
/// that it was given once, as long as that ends before the operation does and not long before.
bool Channel::takeInTime(std::size_t wanted) {
  const auto left = [this] { return deadline_ - Clock::now(); };
  auto time = left();
  // A time of 0 is one look; any other has been used up, however much the peer still sends.
  if (time <= Clock::duration::zero() && operationLimit_.count() > 0) return false;
  if (receiveLimit_ > time || receiveLimit_ < time / 2) {
    if (take(wanted, MSG_DONTWAIT)) return true;
    time = left();
    if (time > Clock::duration::zero()) limitReceives(time - time / 64);
  }
  while (time > Clock::duration::zero()) {
    if (time < receiveLimit_ && !isReady(socket_, POLLIN, deadline_)) return false;
    if (take(wanted, time < receiveLimit_ ? MSG_DONTWAIT : MSG_WAITALL)) return true;
    time = left();
  }
  return false;
}

/// From here on a receive that waits for all of its bytes waits so long at most.
void Channel::limitReceives(Clock::duration limit) {
  const auto microseconds =
      std::max<std::int64_t>(1, std::chrono::ceil<std::chrono::microseconds>(limit).count());
  timeval value{};
  value.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
  value.tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &value, sizeof value);
  receiveLimit_ = limit;
}

}  // namespace quillwork::client
