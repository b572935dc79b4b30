#include "bench/floor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/UnixSocket.h"

// Plain C in all but name: what somebody would write who wanted nothing but speed.

namespace bench {
namespace {

using quillwork::message;

void sendAll(int client, const void* data, std::size_t size) {
  if (send(client, data, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) std::perror("send");
}

void sendBytes(int client, std::size_t count) {
  for (std::size_t index = 0; index < count; ++index) sendAll(client, &filler, 1);
}

/// Records that leave in pieces. They are made once: an element is its slot's record with other
/// numbers.
class Pieces {
 public:
  Pieces(int client, std::size_t size, const message& element)
      : client_(client), records_(size, element) {}

  message& next() {
    if (count_ == records_.size()) flush();
    return records_[count_++];
  }
  void flush() {
    if (count_ > 0) sendAll(client_, records_.data(), count_ * sizeof(message));
    count_ = 0;
  }

 private:
  int client_;
  std::vector<message> records_;
  std::size_t count_ = 0;
};

void sendHeader(Pieces& pieces, std::size_t count) {
  message& header = pieces.next();
  header.group = quillwork::LIST_HEADER;
  header.type = static_cast<std::int32_t>(count);
}

message& nextElement(Pieces& pieces, std::int32_t type, std::int32_t number) {
  message& element = pieces.next();
  element.group = quillwork::SI;
  element.type = type;
  element[3] = number;
  return element;
}

void sendServices(int client, const message& request, const Shape& shape) {
  static Pieces pieces = [&] {
    message service = request;
    quillwork::putShortString(service, 36, serviceName);
    return Pieces(client, shape.piece, service);
  }();
  sendHeader(pieces, shape.services);
  for (std::size_t index = 0; index < shape.services; ++index) {
    nextElement(pieces, 6, static_cast<std::int32_t>(index));
  }
  pieces.flush();
}

void sendDescriptors(int client, const message& request, const Shape& shape) {
  static Pieces pieces(client, shape.piece, request);
  sendHeader(pieces, shape.descriptors);
  for (std::size_t index = 0; index < shape.descriptors; ++index) {
    message& element = nextElement(pieces, 3, static_cast<std::int16_t>(index) & 0xffff);
    element[4] = static_cast<std::int32_t>(shape.descriptorBytes);
    element[5] = 1;
    pieces.flush();
    sendBytes(client, shape.descriptorBytes);
  }
  pieces.flush();
}

void sendEvents(int client, const message& request, const Shape& shape) {
  static Pieces pieces(client, shape.piece, request);
  sendHeader(pieces, shape.events);
  for (std::size_t index = 0; index < shape.events; ++index) {
    nextElement(pieces, 1, static_cast<std::int32_t>(index));
  }
  pieces.flush();
  const auto length = static_cast<std::uint32_t>(std::strlen(eventText));
  for (std::size_t index = 0; index < shape.events; ++index) {
    sendBytes(client, 3 * shape.eventBytes);
    for (std::size_t text = 0; text < 3 * shape.eventTexts; ++text) {
      sendAll(client, &length, sizeof length);
      sendAll(client, eventText, length);
    }
  }
}

void answer(int client, message& record, const Shape& shape) {
  switch (record.group << 8 | record.type) {
    case quillwork::SI << 8 | 0:
      quillwork::putShortString(record, quillwork::operations::payloadPosition, codingFormat);
      break;
    case quillwork::SI << 8 | 1:
      sendEvents(client, record, shape);
      return;
    case quillwork::SI << 8 | 6:
      sendServices(client, record, shape);
      return;
    case quillwork::SI << 8 | 7:
      record[3] = currentService;
      break;
    case quillwork::SI << 8 | 15:
      sendDescriptors(client, record, shape);
      return;
    case quillwork::MEDIA << 8 | 9:
      for (std::size_t index = 0; index < 4; ++index) record[4 + index] = mediaBounds[index];
      break;
    default:
      std::fprintf(stderr, "the floor knows no %d %d\n", record.group, record.type);
      return;
  }
  sendAll(client, &record, sizeof record);
}

bool receive(int client, void* data, std::size_t size) {
  return recv(client, data, size, MSG_WAITALL) > 0;
}

void skipVector(int client) {
  std::int32_t count = 0;
  receive(client, &count, sizeof count);
  for (unsigned char byte = 0; count > 0; --count) receive(client, &byte, 1);
}

}  // namespace

void serveControl(int listening, const Shape& shape, int& client) {
  for (;;) {
    client = accept(listening, nullptr, nullptr);
    message record{};
    while (receive(client, &record, sizeof record)) answer(client, record, shape);
    close(client);
  }
}

void serveSections(int listening, const Shape& shape) {
  for (;;) {
    const int client = accept(listening, nullptr, nullptr);
    std::int32_t code = 0;
    while (receive(client, &code, sizeof code)) {
      if (code == 4) {
        std::int32_t filterArg = 0;
        receive(client, &filterArg, sizeof filterArg);
        skipVector(client);
        skipVector(client);
      } else if (code == 13) {
        const auto count = static_cast<std::int32_t>(shape.section);
        sendAll(client, &count, sizeof count);
        sendBytes(client, shape.section);
      }
    }
    close(client);
  }
}

void sendEndOfMedia(int client, std::int32_t player) {
  message record{};
  record.group = quillwork::MEDIA;
  record.type = 16;
  record[3] = player;
  sendAll(client, &record, sizeof record);
}

int listenAt(const char* path) {
  const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
  unlink(path);
  if (::listenAt(listening, path) != 0) {
    std::perror(path);
    std::exit(1);
  }
  return listening;
}

}  // namespace bench
