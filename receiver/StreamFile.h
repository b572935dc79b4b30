#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace receiver {

inline constexpr std::size_t packetSize = 188;
inline constexpr std::uint8_t syncByte = 0x47;
using Packet = std::span<const std::uint8_t, packetSize>;

/// What is wrong with a stream, as one line that names it.
struct StreamError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class PacketFramer;

/// An MPEG transport stream (ISO/IEC 13818-1) in a file. It is read, not mapped: a file may become
/// shorter while it is played.
class StreamFile {
 public:
  /// Throws StreamError for a file that is missing, empty or no transport stream.
  explicit StreamFile(const std::string& path);
  ~StreamFile();
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;

  /// The next packet, valid until the next call; nothing at the end of the file.
  std::optional<Packet> next();
  void rewind();
  /// Ends next(), now and later. Any thread.
  void interrupt() { isInterrupted_ = true; }
  /// What is skipped before the first packet and behind the last one, as one line; empty for a file
  /// of whole packets.
  [[nodiscard]] const std::string& notice() const { return notice_; }

 private:
  bool readMore();
  void findPackets(std::uint64_t size);
  [[nodiscard]] std::uint64_t bytesBehindLastPacket(std::uint64_t size) const;

  const std::string path_;
  const int file_;
  const std::unique_ptr<PacketFramer> framer_;
  std::atomic<bool> isInterrupted_{false};
  bool hasEnded_ = false;   ///< before its end, for want of packets
  bool hasSaidSo_ = false;  ///< once for the file, however often it is played
  std::string notice_;
};

}  // namespace receiver
