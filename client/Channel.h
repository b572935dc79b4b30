#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillwork::client {

/// What went wrong between client and receiver, as one line.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The peer said nothing for as long as the client was willing to wait.
struct TimeOut : Error {
  using Error::Error;
};

/// A connection to one of the library's sockets. Every operation ends after the time limit at the
/// latest and throws Error when the peer is not there, has gone, or does not answer. One thread at
/// a time.
class Channel {
 public:
  Channel(std::string path, std::chrono::milliseconds timeLimit);
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  void send(const void* data, std::size_t size) const;
  /// Exactly so many bytes.
  void receive(void* data, std::size_t size) { receive(data, size, timeLimit_); }
  void receive(void* data, std::size_t size, std::chrono::milliseconds timeLimit);
  /// Whether something has arrived within the time.
  [[nodiscard]] bool waitForData(std::chrono::milliseconds time) const;

  /// So many bytes, as soon as they have arrived, and until then nothing, at once; receive() begins
  /// with them. Throws Error when the receiver has closed the connection before.
  [[nodiscard]] std::span<const std::uint8_t> arrived(std::size_t wanted);

  /// So many bytes are certain to come next: receive() may take them from the socket in large
  /// pieces.
  void expect(std::size_t bytes) { expected_ = bytes; }

  [[nodiscard]] int fileDescriptor() const { return socket_; }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::chrono::milliseconds timeLimit() const { return timeLimit_; }

 private:
  void limitReceives() const;
  bool fetch(std::size_t wanted, int flags);
  [[nodiscard]] std::size_t arrivedSize() const { return end_ - begin_; }

  std::string path_;
  std::chrono::milliseconds timeLimit_;
  int socket_;
  /// What has arrived and was not received yet lies from begin_ to end_.
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  /// Of what is certain to come, so much has not arrived.
  std::size_t expected_ = 0;
};

}  // namespace quillwork::client
