#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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
  void interrupt() override {}
  [[nodiscard]] bool keepsPace() const override { return false; }
  /// What is skipped at the file's ends, as one line; empty for nothing.
  [[nodiscard]] const std::string& notice() const { return file_.notice(); }

 private:
  StreamFile file_;
};

/// Packets of a descriptor: the standard input, or datagrams. What stands between packets is
/// skipped.
class LiveSource : public Source {
 public:
  /// Takes the descriptor over.
  LiveSource(int descriptor, bool keepsPace);
  ~LiveSource() override;

  std::optional<Packet> next() override;
  bool isReady() override;
  bool rewind() override { return false; }
  void interrupt() override;
  [[nodiscard]] bool keepsPace() const override { return keepsPace_; }

 private:
  bool readMore();

  const int descriptor_;
  const bool keepsPace_;
  /// Readable once interrupt() was called.
  const int interrupted_;
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0;
};

/// A file by its path, the standard input by "-", datagrams by "udp://ADDRESS:PORT" with a numeric
/// IPv4 address of this machine. Throws StreamError for what cannot be opened.
std::unique_ptr<Source> openSource(const std::string& name);

}  // namespace receiver
