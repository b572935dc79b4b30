#include "bench/floor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

void sendHeader(int client, message& record, std::size_t count) {
  record.group = quillwork::LIST_HEADER;
  record.type = static_cast<std::int32_t>(count);
  sendAll(client, &record, sizeof record);
  record.group = quillwork::SI;
}

void sendServices(int client, message& record, std::size_t count) {
  sendHeader(client, record, count);
  quillwork::putShortString(record, 36, serviceName);
  for (std::size_t index = 0; index < count; ++index) {
    record[3] = static_cast<std::int32_t>(index);
    sendAll(client, &record, sizeof record);
  }
}

void sendDescriptors(int client, message& record, const Shape& shape) {
  sendHeader(client, record, shape.descriptors);
  for (std::size_t index = 0; index < shape.descriptors; ++index) {
    record[3] = static_cast<std::int16_t>(index) & 0xffff;
    record[4] = static_cast<std::int32_t>(shape.descriptorBytes);
    record[5] = 1;
    sendAll(client, &record, sizeof record);
    sendBytes(client, shape.descriptorBytes);
  }
}

void sendEvents(int client, message& record, const Shape& shape) {
  sendHeader(client, record, shape.events);
  record.type = 1;
  for (std::size_t index = 0; index < shape.events; ++index) {
    record[3] = static_cast<std::int32_t>(index);
    sendAll(client, &record, sizeof record);
  }
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
      sendServices(client, record, shape.services);
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
