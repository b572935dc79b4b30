#include "support/RawClient.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/Patience.h"
#include "support/UnixSocket.h"

RawClient::RawClient(const char* path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const timeval limit{patience.count(), 0};
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (connectTo(socket_, path) != 0) {
    ADD_FAILURE() << "cannot connect to " << path << ": " << std::strerror(errno);
  }
}

RawClient::~RawClient() { close(); }

void RawClient::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      ADD_FAILURE() << "cannot send: " << std::strerror(errno);
      return;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

void RawClient::send(const quillwork::message& record) const { send(bytesOf(record)); }

std::string RawClient::receive(std::size_t size) const {
  std::string bytes(size, '\0');
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t received = recv(socket_, bytes.data() + filled, size - filled, 0);
    if (received < 0) ADD_FAILURE() << "cannot receive: " << std::strerror(errno);
    if (received <= 0) break;
    filled += static_cast<std::size_t>(received);
  }
  bytes.resize(filled);
  return bytes;
}

quillwork::message RawClient::receiveRecord() const {
  const std::string bytes = receive(sizeof(quillwork::message));
  quillwork::message record{};
  EXPECT_EQ(bytes.size(), sizeof record);
  std::memcpy(&record, bytes.data(), bytes.size());
  return record;
}

quillwork::message RawClient::ask(const quillwork::message& record) const {
  send(record);
  return receiveRecord();
}

void RawClient::drain() const {
  char buffer[65536];
  ssize_t received = 0;
  while ((received = recv(socket_, buffer, sizeof buffer, 0)) > 0) {
  }
  if (received < 0 && errno != ECONNRESET) ADD_FAILURE() << "no end: " << std::strerror(errno);
}

bool RawClient::isAtEnd() const {
  char byte = 0;
  const ssize_t received = recv(socket_, &byte, 1, 0);
  // A peer that closes with bytes of ours unread resets the connection.
  return received == 0 || (received < 0 && errno == ECONNRESET);
}

void RawClient::closeSending() const { shutdown(socket_, SHUT_WR); }

void RawClient::close() {
  if (socket_ != -1) ::close(socket_);
  socket_ = -1;
}

quillwork::message request(std::int32_t group, std::int32_t type) {
  quillwork::message record{};
  record.group = group;
  record.type = type;
  return record;
}

std::string word(std::int32_t value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

std::string bytesOf(const quillwork::message& record) {
  std::string bytes(sizeof record, '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}
