#include "receiver/StreamFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "receiver/Complaint.h"
#include "receiver/PacketFramer.h"

namespace receiver {
namespace {

constexpr std::size_t portion = std::size_t{256} << 10U;
/// A recorder may have reserved a file's place before it wrote there.
constexpr std::size_t mostPortionsWithoutPacket = 1024;

}  // namespace

StreamFile::StreamFile(const std::string& path)
    : path_(path),
      file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      framer_(std::make_unique<PacketFramer>()) {
  if (file_ == -1) throw StreamError(path + ": " + std::strerror(errno));
  try {
    struct stat status {};
    if (fstat(file_, &status) != 0) throw StreamError(path + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode)) throw StreamError(path + ": is a directory");
    if (!S_ISREG(status.st_mode)) throw StreamError(path + ": is not a regular file");
    if (status.st_size == 0) throw StreamError(path + ": is empty");
    findPackets(static_cast<std::uint64_t>(status.st_size));
  } catch (const StreamError&) {
    close(file_);
    throw;
  }
}

StreamFile::~StreamFile() { close(file_); }

void StreamFile::findPackets(std::uint64_t size) {
  // What has no packets is not read to its end for that.
  readMore();
  if (size <= portion) framer_->end();
  const bool isStream = framer_->next().has_value();
  const std::size_t stride = framer_->stride();
  const std::uint64_t first = framer_->position() - stride;
  rewind();
  if (!isStream) {
    std::array<std::uint8_t, 8192> bytes{};
    const ssize_t count = pread(file_, bytes.data(), bytes.size(), 0);
    throw StreamError(
        path_ + ": is no MPEG transport stream of 188, 192 or 204-byte packets: " +
        describeBytes({bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))}));
  }
  // The four bytes of a time stamp belong to the packet.
  const std::uint64_t before = stride == 192 && first >= 4 ? first - 4 : first;
  const std::uint64_t behind = bytesBehindLastPacket(size);
  if (before == 0 && behind == 0) return;
  notice_ = fmt::format(
      "{}: is cut inside packets: {} bytes before the first whole one and {} behind the last are "
      "skipped",
      path_, before, behind);
}

/// Searches from the file's end: elsewhere bytes can be missing or too many. No further than next()
/// searches for a packet.
std::uint64_t StreamFile::bytesBehindLastPacket(std::uint64_t size) const {
  // A packet is borne out by others.
  constexpr std::size_t overlap = std::size_t{16} * 204;
  std::uint64_t end = size;
  for (std::size_t portions = 0; portions < mostPortionsWithoutPacket; ++portions) {
    PacketFramer framer;
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(end, portion));
    const std::uint64_t begin = end - length;
    const std::span<std::uint8_t> room = framer.room(length);
    const ssize_t count = pread(file_, room.data(), length, static_cast<off_t>(begin));
    framer.add(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    framer.end();
    std::optional<std::uint64_t> behind;
    while (framer.next()) {
      // The next sync byte has its packet's time stamp before it.
      const std::size_t stamp = framer.stride() == 192 ? 4 : 0;
      behind = begin + framer.position() - stamp;
    }
    if (behind) return size - std::min(size, *behind);
    if (begin == 0) break;
    end = begin + overlap;
  }
  return size - end;
}

bool StreamFile::readMore() {
  const std::span<std::uint8_t> room = framer_->room(portion);
  for (;;) {
    const ssize_t size = read(file_, room.data(), room.size());
    if (size > 0) {
      framer_->add(static_cast<std::size_t>(size));
      return true;
    }
    if (size == -1 && errno == EINTR) continue;
    if (size == -1) complain("{}: {}", path_, std::strerror(errno));
    framer_->end();
    return false;
  }
}

std::optional<Packet> StreamFile::next() {
  if (hasEnded_) return std::nullopt;
  std::size_t portions = 0;
  for (bool isEnd = false;; isEnd = !readMore()) {
    if (auto packet = framer_->next()) return packet;
    if (isEnd || isInterrupted_) return std::nullopt;
    if (++portions > mostPortionsWithoutPacket) {
      hasEnded_ = true;
      if (!std::exchange(hasSaidSo_, true)) {
        complain("{}: there is no packet in {} MiB, which is taken for the end", path_,
                 mostPortionsWithoutPacket * portion >> 20U);
      }
      return std::nullopt;
    }
  }
}

void StreamFile::rewind() {
  lseek(file_, 0, SEEK_SET);
  framer_->reset();
  hasEnded_ = false;
}

}  // namespace receiver
