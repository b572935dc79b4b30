#include "receiver/PacketFramer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace receiver {
namespace {

/// The bytes from one sync byte to the next.
constexpr std::size_t strides[] = {packetSize, 192, 204};
/// So many sync bytes in their places are a stream at first, and so many are it again.
constexpr std::size_t firstSyncs = 5;
constexpr std::size_t furtherSyncs = 3;

}  // namespace

std::span<std::uint8_t> PacketFramer::room(std::size_t size) {
  const std::size_t gone = std::min(begin_, end_);
  std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(gone),
            buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
  passed_ += gone;
  begin_ -= gone;
  end_ -= gone;
  searchedFrom_ -= std::min(searchedFrom_, gone);
  if (buffer_.size() < end_ + size) buffer_.resize(end_ + size);
  return std::span(buffer_).subspan(end_);
}

void PacketFramer::reset() {
  std::vector<std::uint8_t> buffer = std::move(buffer_);
  *this = {};
  buffer_ = std::move(buffer);
}

std::optional<Packet> PacketFramer::next() {
  for (;;) {
    if (stride_ == 0 && !find()) return std::nullopt;
    if (left() < packetSize) return std::nullopt;
    const Finding finding = goesOn();
    if (finding == Finding::unknown) return std::nullopt;
    if (finding == Finding::yes) {
      const Packet packet(buffer_.data() + begin_, packetSize);
      begin_ += stride_;
      return packet;
    }
    lastStride_ = stride_;
    stride_ = 0;
    searchedFrom_ = begin_;
  }
}

/// Whether a packet is where the one before says. A sync byte that is damaged changes nothing, as
/// long as those behind it are in their places.
PacketFramer::Finding PacketFramer::goesOn() const {
  const auto isAbsent = [this](std::size_t place) { return place >= end_; };
  const std::size_t following = begin_ + stride_;
  if (isSync(begin_) && (isAbsent(following) || isSync(following))) return Finding::yes;
  for (const std::size_t place : {following + stride_, following + 2 * stride_}) {
    if (isAbsent(place)) return hasEnded_ ? Finding::yes : Finding::unknown;
    if (!isSync(place)) return Finding::no;
  }
  return Finding::yes;
}

/// Whether packets begin at the place: by most of the sync bytes that follow.
PacketFramer::Finding PacketFramer::beginsAt(std::size_t place, std::size_t stride) const {
  if (!isSync(place)) return Finding::no;
  const std::size_t wanted = hasFound_ ? furtherSyncs : firstSyncs;
  std::size_t looked = 0;
  std::size_t found = 0;
  for (std::size_t next = place; next < end_; next += stride) {
    ++looked;
    if (isSync(next)) ++found;
    if (looked - found > wanted / 2) return Finding::no;
    if (found == wanted) return Finding::yes;
  }
  // So few packets count where they are all that is there.
  const bool isNear = hasFound_ || place - searchedFrom_ < 2 * stride;
  const std::size_t rest = (end_ - place) % stride;
  const bool isWhole = rest == 0 || rest >= packetSize;
  if (found * 2 > looked && isNear && (hasEnded_ || isWhole)) return Finding::yes;
  return hasEnded_ ? Finding::no : Finding::unknown;
}

/// Looks for the packets; false when it needs more bytes for that.
bool PacketFramer::find() {
  for (; begin_ + packetSize <= end_; ++begin_) {
    const std::size_t places = end_ - packetSize + 1 - begin_;
    const void* const sync = std::memchr(buffer_.data() + begin_, syncByte, places);
    if (sync == nullptr) {
      begin_ += places;
      return false;
    }
    begin_ = static_cast<std::size_t>(static_cast<const std::uint8_t*>(sync) - buffer_.data());
    std::array<std::size_t, std::size(strides)> order = {strides[0], strides[1], strides[2]};
    std::partition(order.begin(), order.end(),
                   [this](std::size_t stride) { return stride == lastStride_; });
    bool isUnknown = false;
    for (const std::size_t stride : order) {
      const Finding finding = beginsAt(begin_, stride);
      isUnknown = isUnknown || finding == Finding::unknown;
      if (finding != Finding::yes) continue;
      stride_ = stride;
      // The packet before it has a damaged sync byte, as far as one can see.
      const std::size_t before = begin_ - searchedFrom_;
      if (!hasFound_ && before >= stride && before < 2 * stride) begin_ -= stride;
      hasFound_ = true;
      return true;
    }
    if (isUnknown) return false;
  }
  return false;
}

std::string describeBytes(std::span<const std::uint8_t> bytes) {
  using namespace std::string_view_literals;
  const struct {
    std::size_t place;
    std::string_view bytes;
    const char* name;
  } known[] = {{4, "ftyp"sv, "an MP4 file"},
               {0, "\x1a\x45\xdf\xa3"sv, "a Matroska file"},
               {0, "\x00\x00\x01\xba"sv, "an MPEG program stream"},
               {0, "RIFF"sv, "a RIFF file"},
               {0, "OggS"sv, "an Ogg file"},
               {0, "FLV"sv, "an FLV file"},
               {0, "\x1f\x8b"sv, "a gzip file"},
               {0, "#EXTM3U"sv, "a playlist"},
               {0, "<"sv, "a markup text"}};
  for (const auto& kind : known) {
    if (bytes.size() >= kind.place + kind.bytes.size() &&
        std::memcmp(bytes.data() + kind.place, kind.bytes.data(), kind.bytes.size()) == 0) {
      return fmt::format("it is {}", kind.name);
    }
  }
  // Packets of another length show by their sync bytes, too.
  constexpr std::size_t longest = 256;
  for (std::size_t place = 0; place < std::min(longest, bytes.size()); ++place) {
    for (std::size_t stride = packetSize; stride <= longest; ++stride) {
      std::size_t syncs = 0;
      for (std::size_t next = place; next < bytes.size() && bytes[next] == syncByte;
           next += stride) {
        if (++syncs == 2 * firstSyncs) return fmt::format("it has packets of {} bytes", stride);
      }
    }
  }
  return fmt::format("it begins with {:02x}",
                     fmt::join(bytes.first(std::min<std::size_t>(8, bytes.size())), " "));
}

}  // namespace receiver
