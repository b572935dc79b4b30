#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "receiver/PacketFramer.h"
#include "receiver/StreamFile.h"

namespace receiver {

/// Where a transport stream comes from. One thread reads; interrupt() is for any other.
class Source {
 public:
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  virtual ~Source() = default;

  /// The next packet, valid until the next call; nothing at the end or after interrupt(). Waits for
  /// a source that is live.
  virtual std::optional<Packet> next() = 0;
  /// Whether next() would not wait.
  virtual bool isReady() = 0;
  /// Begins anew; false where that cannot be.
  virtual bool rewind() = 0;
  /// Ends every wait, now and later.
  virtual void interrupt() = 0;
  /// Whether packets arrive at their own pace, so that nobody has to keep it.
  [[nodiscard]] virtual bool keepsPace() const = 0;
};

class FileSource : public Source {
 public:
  /// Throws StreamError for what is no transport stream.
  explicit FileSource(const std::string& path) : file_(path) {}

  std::optional<Packet> next() override { return file_.next(); }
  bool isReady() override { return true; }
  bool rewind() override;
  void interrupt() override { file_.interrupt(); }
  [[nodiscard]] bool keepsPace() const override { return false; }
  /// What is skipped at the file's ends, as one line; empty for nothing.
  [[nodiscard]] const std::string& notice() const { return file_.notice(); }

 private:
  StreamFile file_;
};

/// Bytes that arrive when they do. One thread reads; interrupt() is for any other.
class ByteInput {
 public:
  enum class Arrival { bytes, nothing, end };

  ByteInput() = default;
  ByteInput(const ByteInput&) = delete;
  ByteInput& operator=(const ByteInput&) = delete;
  virtual ~ByteInput() = default;

  /// Adds what has arrived to the framer; waits for it until the time is over. `end` after
  /// interrupt(), too.
  virtual Arrival read(PacketFramer& framer, std::chrono::milliseconds time) = 0;
  /// Whether read() would not wait.
  virtual bool isReady() = 0;
  /// Begins anew behind its end; false where that cannot be.
  virtual bool restart() = 0;
  /// Ends every wait, now and later.
  virtual void interrupt() = 0;
  [[nodiscard]] virtual bool keepsPace() const = 0;
};

/// Packets that arrive among bytes; what stands between them is skipped. Says on the standard error
/// stream when nothing arrives for a while, and when what arrives has no packets.
class LiveSource : public Source {
 public:
  /// After so long a silence it is said.
  static constexpr std::chrono::milliseconds longestSilence{5'000};

  /// `name`: for what is said.
  LiveSource(std::string name, std::unique_ptr<ByteInput> input,
             std::chrono::milliseconds silence = longestSilence);

  std::optional<Packet> next() override;
  bool isReady() override;
  bool rewind() override;
  void interrupt() override { input_->interrupt(); }
  [[nodiscard]] bool keepsPace() const override { return input_->keepsPace(); }

 private:
  void keepBeginning();
  void sayWhatIsNoStream();

  const std::string name_;
  const std::unique_ptr<ByteInput> input_;
  const std::chrono::milliseconds silence_;
  PacketFramer framer_;
  std::vector<std::uint8_t> beginning_;  ///< the first bytes that arrived
  bool isSilent_ = false;
  bool hasComplained_ = false;
};

/// The bytes of a descriptor: of the standard input, a pipe or a device.
std::unique_ptr<ByteInput> readDescriptor(int descriptor);

/// Whether the name is one of a source behind a scheme, such as "udp://".
bool isUrl(const std::string& name);

/// A file by its path, or a pipe or a device; the standard input by "-". Throws StreamError for
/// what cannot be opened.
std::unique_ptr<Source> openSource(const std::string& name);

}  // namespace receiver
