#include "bench/requests.h"

#include <sys/socket.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/operations.h"

namespace bench {
namespace {

void sendAll(int connection, const void* data, std::size_t size) {
  require(send(connection, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size), "not taken");
}

void sendQuery(int connection, message& record, std::int32_t group, std::int32_t type) {
  record.group = group;
  record.type = type;
  sendAll(connection, &record, sizeof record);
}

void ask(int connection, message& record, std::int32_t group, std::int32_t type) {
  sendQuery(connection, record, group, type);
  receive(connection, &record, sizeof record);
}

void askCount(int connection, message& record, std::int32_t type, std::size_t count) {
  ask(connection, record, quillwork::SI, type);
  require(record.group == quillwork::LIST_HEADER, "a list's header");
  require(record.type == static_cast<std::int32_t>(count), "a list's length");
}

void checkElement(const message& record, std::size_t index) {
  require(record.group == quillwork::SI &&
              static_cast<std::int16_t>(record[3]) == static_cast<std::int16_t>(index),
          "a list's element");
}

void receiveElement(int connection, message& record, std::size_t index) {
  receive(connection, &record, sizeof record);
  checkElement(record, index);
}

void receiveFiller(int connection, std::size_t count) {
  unsigned char bytes[4096];
  if (count == 0) return;
  receive(connection, bytes, count);
  require(bytes[0] == filler && std::memcmp(bytes, bytes + 1, count - 1) == 0, "raw bytes");
}

}  // namespace

void require(bool right, const char* what) {
  if (!right) throw std::runtime_error(std::string("a wrong answer: ") + what);
}

void receive(int connection, void* data, std::size_t size) {
  require(recv(connection, data, size, MSG_WAITALL) == static_cast<ssize_t>(size), "cut short");
}

void askService(int connection, message& record) {
  ask(connection, record, quillwork::SI, 7);
  require(record[3] == currentService, "the current service");
}

void askFormat(int connection, message& record) {
  ask(connection, record, quillwork::SI, 0);
  require(
      std::strcmp(reinterpret_cast<const char*>(&record) + quillwork::operations::payloadPosition,
                  codingFormat) == 0,
      "the coding format");
}

void askBounds(int connection, message& record) {
  record[3] = 1;
  ask(connection, record, quillwork::MEDIA, 9);
  for (std::size_t index = 0; index < 4; ++index) {
    require(record[4 + index] == mediaBounds[index], "the media's bounds");
  }
}

void askServices(int connection, message& record, std::size_t count) {
  askCount(connection, record, 6, count);
  for (std::size_t index = 0; index < count; ++index) receiveElement(connection, record, index);
}

void askServicesAtLarge(int connection, message& record, std::size_t count) {
  constexpr std::size_t piece = 65'536 / sizeof(message);
  static std::vector<message> records(piece);
  askCount(connection, record, 6, count);
  for (std::size_t begin = 0; begin < count; begin += piece) {
    const std::size_t size = std::min(piece, count - begin);
    receive(connection, records.data(), size * sizeof(message));
    for (std::size_t index = 0; index < size; ++index) checkElement(records[index], begin + index);
  }
}

void askDescriptors(int connection, message& record, const Shape& shape) {
  askCount(connection, record, 15, shape.descriptors);
  for (std::size_t index = 0; index < shape.descriptors; ++index) {
    receiveElement(connection, record, index);
    require(record[4] == static_cast<std::int32_t>(shape.descriptorBytes), "a length");
    receiveFiller(connection, shape.descriptorBytes);
  }
}

void askEvents(int connection, message& record, const Shape& shape) {
  askCount(connection, record, 1, shape.events);
  for (std::size_t index = 0; index < shape.events; ++index) {
    receiveElement(connection, record, index);
  }
  for (std::size_t index = 0; index < shape.events; ++index) {
    receiveFiller(connection, 3 * shape.eventBytes);
    for (std::size_t text = 0; text < 3 * shape.eventTexts; ++text) {
      std::uint32_t length = 0;
      char bytes[256];
      receive(connection, &length, sizeof length);
      require(length == std::strlen(eventText), "a text's length");
      receive(connection, bytes, length);
      require(std::memcmp(bytes, eventText, length) == 0, "a text");
    }
  }
}

void askServiceAndHear(int connection, message& record) {
  sendQuery(connection, record, quillwork::SI, 7);
  int replies = 0;
  for (int left = 2; left > 0; --left) {
    message received;
    receive(connection, &received, sizeof received);
    if (received.group != quillwork::SI) continue;
    require(received[3] == currentService, "the current service");
    ++replies;
  }
  require(replies == 1, "one reply and one notification");
}

std::int32_t receiveEndOfMedia(int connection) {
  message record;
  receive(connection, &record, sizeof record);
  require(record.group == quillwork::MEDIA && record.type == 16, "a notification");
  return record[3];
}

void readSection(int connection, std::size_t size) {
  const std::int32_t code = 13;
  sendAll(connection, &code, sizeof code);
  std::int32_t count = 0;
  receive(connection, &count, sizeof count);
  require(count == static_cast<std::int32_t>(size), "a section's length");
  receiveFiller(connection, size);
}

void setFilter(int connection) {
  struct {
    std::int32_t code = 4;
    std::int32_t filterArg = 0;
    std::int32_t firstCount = 8;
    unsigned char first[8] = {};
    std::int32_t secondCount = 8;
    unsigned char second[8] = {};
  } request;
  sendAll(connection, &request, sizeof request);
}

}  // namespace bench
