#include "receiver/Source.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

namespace receiver {
namespace {

constexpr std::string_view udpScheme = "udp://";

/// A socket that datagrams to "ADDRESS:PORT" arrive at.
int openUdp(const std::string& name) {
  const std::string place = name.substr(udpScheme.size());
  const std::size_t colon = place.rfind(':');
  sockaddr_in address{};
  address.sin_family = AF_INET;
  std::uint16_t port = 0;
  const char* const end = place.data() + place.size();
  const bool isPlace = colon != std::string::npos &&
                       inet_pton(AF_INET, place.substr(0, colon).c_str(), &address.sin_addr) == 1 &&
                       std::from_chars(place.data() + colon + 1, end, port).ptr == end && port != 0;
  if (!isPlace) throw StreamError(name + ": is not udp://ADDRESS:PORT");
  address.sin_port = htons(port);
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor != -1 &&
      bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return descriptor;
  }
  const int error = errno;
  if (descriptor != -1) close(descriptor);
  throw StreamError(name + ": " + std::strerror(error));
}

}  // namespace

bool FileSource::rewind() {
  file_.rewind();
  return true;
}

LiveSource::LiveSource(int descriptor, bool keepsPace)
    : descriptor_(descriptor), keepsPace_(keepsPace), interrupted_(eventfd(0, EFD_CLOEXEC)) {}

LiveSource::~LiveSource() {
  close(descriptor_);
  close(interrupted_);
}

void LiveSource::interrupt() { eventfd_write(interrupted_, 1); }

std::optional<Packet> LiveSource::next() {
  for (;;) {
    const auto sync =
        std::find(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_), buffer_.end(), syncByte);
    begin_ = static_cast<std::size_t>(sync - buffer_.begin());
    const std::size_t left = buffer_.size() - begin_;
    // A sync byte counts where the next one follows in its place, as far as that is known.
    const bool isCertain =
        left > packetSize ? buffer_[begin_ + packetSize] == syncByte : left == packetSize;
    if (isCertain) {
      const Packet packet(buffer_.data() + begin_, packetSize);
      begin_ += packetSize;
      return packet;
    }
    if (left > packetSize) {
      ++begin_;
    } else if (!readMore()) {
      return std::nullopt;
    }
  }
}

bool LiveSource::isReady() {
  pollfd input{descriptor_, POLLIN, 0};
  return buffer_.size() - begin_ > packetSize || poll(&input, 1, 0) > 0;
}

bool LiveSource::readMore() {
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
  begin_ = 0;
  for (;;) {
    pollfd inputs[] = {{interrupted_, POLLIN, 0}, {descriptor_, POLLIN, 0}};
    if (poll(inputs, std::size(inputs), -1) == -1 && errno != EINTR) return false;
    if (inputs[0].revents != 0) return false;
    if (inputs[1].revents == 0) continue;
    std::uint8_t bytes[65536];
    const ssize_t size = read(descriptor_, bytes, sizeof bytes);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (size < 0) return false;
    // A datagram can be empty; the end of a stream is not.
    if (size == 0 && !keepsPace_) return false;
    buffer_.insert(buffer_.end(), bytes, bytes + size);
    return true;
  }
}

std::unique_ptr<Source> openSource(const std::string& name) {
  if (name.starts_with(udpScheme)) return std::make_unique<LiveSource>(openUdp(name), true);
  if (name != "-") return std::make_unique<FileSource>(name);
  const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  if (input == -1) throw StreamError(std::string("standard input: ") + std::strerror(errno));
  return std::make_unique<LiveSource>(input, false);
}

}  // namespace receiver
