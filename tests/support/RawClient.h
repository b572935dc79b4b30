#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/message.h"

/// A client that knows nothing of the library: it connects to a path and moves bytes. A wait
/// for what never comes fails the test.
class RawClient {
 public:
  static constexpr const char* control = "/dev/shm/ipc.socket";
  static constexpr const char* sectionFilter = "/dev/shm/ipcdemux.socket";

  explicit RawClient(const char* path = control);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  [[nodiscard]] int descriptor() const { return socket_; }
  void send(std::string_view bytes) const;
  void send(const quillwork::message& record) const;
  /// Receives exactly this number of bytes, fewer only if the peer has closed.
  [[nodiscard]] std::string receive(std::size_t size) const;
  [[nodiscard]] quillwork::message receiveRecord() const;
  /// Sends the record and returns the answer.
  [[nodiscard]] quillwork::message ask(const quillwork::message& record) const;
  /// Receives until the peer has closed or reset the connection.
  void drain() const;
  /// Whether the peer has closed the connection and sent nothing more.
  [[nodiscard]] bool isAtEnd() const;
  void closeSending() const;
  void close();

 private:
  int socket_;
};

/// A zero record with a group and a type.
quillwork::message request(std::int32_t group, std::int32_t type);

/// The bytes of a 32-bit little-endian integer.
std::string word(std::int32_t value);
/// The bytes of a record.
std::string bytesOf(const quillwork::message& record);
