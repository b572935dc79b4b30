#pragma once

#include "protocol/language.h"

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
  /// From the line.
  using std::runtime_error::runtime_error;
};

/// The peer said nothing for as long as the client was willing to wait.
struct TimeOut : Error {
  /// From the line.
  using Error::Error;
};

/// A connection to one of the library's sockets. Every operation ends after its time limit as a
/// whole, however the peer spreads what it sends, and throws Error when the peer is not there, has
/// gone, or does not answer. One thread at a time.
class Channel {
 public:
  /// Connects to the socket at `path`; throws Error if nobody serves it, or too many wait already.
  /// `timeLimit` is for an operation as a whole that has no other.
  Channel(std::string path, std::chrono::milliseconds timeLimit);

  /// Closes the connection. What has been sent is still executed.
  ~Channel();

  /// A connection has one owner.
  Channel(const Channel&) = delete;

  /// A connection has one owner.
  Channel& operator=(const Channel&) = delete;

  /// Begins an operation: all that follows has to be done within the time.
  void begin(std::chrono::milliseconds timeLimit);

  /// Begins an operation with the channel's own time limit.
  void begin() { begin(timeLimit_); }

  /// Sends all the bytes, which are borrowed during the call. Blocks while the receiver reads
  /// nothing; throws TimeOut when the operation's time has passed.
  void send(const void* data, std::size_t size) const;

  /// Copies exactly `size` bytes to `data`, and blocks until they are there; throws TimeOut when
  /// the operation's time has passed.
  void receive(void* data, std::size_t size);

  /// The next `size` bytes where they have arrived, aligned for words; blocks as receive() does.
  /// The channel owns them, and they are there until more is received.
  const void* next(std::size_t size);

  /// Whether something has arrived within the operation's time; `wanted`, at least 1, is what the
  /// caller will receive first.
  [[nodiscard]] bool waitFor(std::size_t wanted);

  /// `wanted` bytes, if they have arrived, and else none, at once; receive() begins with them, and
  /// they are there until then. Throws Error when the receiver has closed the connection before.
  [[nodiscard]] std::span<const std::uint8_t> arrived(std::size_t wanted);

  /// Says that `bytes` are certain to come next: receive() may take them from the socket in large
  /// pieces.
  void expect(std::size_t bytes) { expected_ = bytes; }

  /// The socket, to wait for. The channel owns it.
  [[nodiscard]] int fileDescriptor() const { return socket_; }

  /// The socket's path, as the constructor was given it.
  [[nodiscard]] const std::string& path() const { return path_; }

  /// The time limit of an operation that has no other, as the constructor was given it.
  [[nodiscard]] std::chrono::milliseconds timeLimit() const { return timeLimit_; }

 private:
  using Clock = std::chrono::steady_clock;

  void need(std::size_t size);
  void makeRoom(std::size_t size);
  bool take(std::size_t wanted, int flags);
  bool takeInTime(std::size_t wanted);
  void limitReceives(Clock::duration limit);
  [[nodiscard]] std::size_t arrivedSize() const { return end_ - begin_; }

  std::string path_;
  std::chrono::milliseconds timeLimit_;
  int socket_;
  /// Of the operation under way.
  std::chrono::milliseconds operationLimit_{};
  Clock::time_point deadline_;
  /// What a receive waits for at most by itself; 0 until it was set.
  Clock::duration receiveLimit_{};
  /// What has arrived and was not received yet lies from begin_ to end_.
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  /// Of what is certain to come, so much has not arrived.
  std::size_t expected_ = 0;
};

}  // namespace quillwork::client
