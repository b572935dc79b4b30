// What a server sends, read by the client library: every reply and notification, whatever the bytes
// say, ends in an answer or an Error, within the bounds that the library sets on memory.

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "protocol/message.h"
#include "support/UnixSocket.h"

namespace {

using namespace quillwork;
using namespace quillwork::client;

std::string path;
int listening = -1;

constexpr std::size_t operations = 36;

void perform(ControlChannel& channel, std::size_t operation) {
  switch (operation) {
    case 0:
      channel.getMainVideoBounds();
      break;
    case 1:
      channel.getVideoLanguage(3);
      break;
    case 2:
      channel.getVideoLanguages();
      break;
    case 3:
      channel.getVideoProperty(9);
      break;
    case 4:
      channel.getSystemProperty("name");
      break;
    case 5:
      channel.getSystemProperties();
      break;
    case 6:
      channel.getCurrentTransportStreamID();
      break;
    case 7:
      channel.getAllIDs(2, 0);
      break;
    case 8:
      channel.mountCarousel("locator");
      break;
    case 9:
      channel.getSICodingFormat();
      break;
    case 10:
      channel.getProgramEvents();
      break;
    case 11:
      channel.getProgramEvent();
      break;
    case 12:
      channel.getProgramEventDescriptors(1, 2);
      break;
    case 13:
      channel.getCASystemIds();
      break;
    case 14:
      channel.isProtectedService();
      break;
    case 15:
      channel.getServices();
      break;
    case 16:
      channel.getCurrentService();
      break;
    case 17:
      channel.getServiceDescription();
      break;
    case 18:
      channel.getServiceComponents(1);
      break;
    case 19:
      channel.getServiceComponentDescriptors(1);
      break;
    case 20:
      channel.getTransportStream();
      break;
    case 21:
      channel.getTransportStreamDescriptors(1);
      break;
    case 22:
      channel.getNetwork();
      break;
    case 23:
      channel.getNetworkDescriptors();
      break;
    case 24:
      channel.getPMTs(1);
      break;
    case 25:
      channel.open("locator");
      break;
    case 26:
      channel.getDuration(1);
      break;
    case 27:
      channel.getCurrentTime(1);
      break;
    case 28:
      channel.setCurrentTime(1, 2, 3);
      break;
    case 29:
      channel.play(1);
      break;
    case 30:
      channel.setMediaBounds(1, {});
      break;
    case 31:
      channel.getMediaBounds(1);
      break;
    case 32:
      channel.checkVersionFlag(1);
      break;
    default:
      channel.waitForNotification(std::chrono::seconds(20));
      break;
  }
}

// The group and type that the operations above ask for, so that most replies fit their request.
constexpr std::int32_t asked[][2] = {{VIDEO, 1},
                                     {VIDEO, 3},
                                     {VIDEO, 4},
                                     {VIDEO, 9},
                                     {SYSTEM_PROPERTY, 0},
                                     {SYSTEM_PROPERTY, 1},
                                     {TUNER, 0},
                                     {TUNER, 2},
                                     {CAROUSEL, 0},
                                     {SI, 0},
                                     {SI, 1},
                                     {SI, 2},
                                     {SI, 3},
                                     {SI, 4},
                                     {SI, 5},
                                     {SI, 6},
                                     {SI, 7},
                                     {SI, 8},
                                     {SI, 10},
                                     {SI, 11},
                                     {SI, 12},
                                     {SI, 3},
                                     {SI, 14},
                                     {SI, 3},
                                     {SI, 16},
                                     {MEDIA, 0},
                                     {MEDIA, 1},
                                     {MEDIA, 2},
                                     {MEDIA, 3},
                                     {MEDIA, 5},
                                     {MEDIA, 8},
                                     {MEDIA, 9},
                                     {VERSION, 1}};

constexpr std::int32_t notifications[][2] = {
    {VIDEO, 17}, {APPLICATION_STATE, 1}, {CAROUSEL, 2}, {MEDIA, 16}, {DSMCC_COMMAND, 5}};

void append(std::string& bytes, const message& record) {
  bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

/// A record of a group and type with a few words of its payload set.
void appendRecord(std::string& bytes, Input& input, const std::int32_t (&kind)[2]) {
  message record{};
  record.group = kind[0];
  record.type = kind[1];
  for (std::size_t left = input.takeBelow(6); left > 0; --left) {
    // The words that count something come first: 3 to 11, and an event's.
    const std::size_t place = input.takeBelow(24);
    const std::size_t word = place < 9 ? 3 + place : place < 21 ? 203 + place - 9 : 3 + place * 20;
    record[word] = input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>();
  }
  append(bytes, record);
}

std::string takeServersBytes(Input& input, std::size_t operation) {
  std::string bytes;
  while (!input.isAtEnd() && bytes.size() < 100'000) {
    switch (input.takeBelow(6)) {
      case 0:
        bytes += input.takeText();
        break;
      case 1: {
        message header{};
        header.group = LIST_HEADER;
        header.type = input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>();
        append(bytes, header);
        break;
      }
      case 2:
        appendRecord(bytes, input, notifications[input.takeBelow(std::size(notifications))]);
        break;
      case 3: {
        const std::size_t length = input.takeBelow(256);
        const auto word = static_cast<std::int32_t>(length);
        bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
        bytes.append(length, 'x');
        break;
      }
      default:
        if (operation < std::size(asked)) appendRecord(bytes, input, asked[operation]);
        break;
    }
  }
  return bytes;
}

/// The server's side: accepts the connection that is waiting and says everything at once.
void say(const std::string& bytes) {
  const int server = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
  if (server == -1) fail("cannot accept");
  const int size = 1 << 20;
  setsockopt(server, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
  send(server, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  shutdown(server, SHUT_WR);
  // Kept open, so that the client's requests find a peer, until the next one comes.
  static int kept = -1;
  if (kept != -1) close(kept);
  kept = server;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  path = "/tmp/quillwork-fuzz." + std::to_string(getpid());
  listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(path.c_str());
  if (listenAt(listening, path.c_str()) != 0) {
    fail("cannot listen on " + path);
  }
  std::atexit([] { unlink(path.c_str()); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::chrono::seconds limit(20);
  Input input(data, size);
  const std::size_t operation = input.takeBelow(operations + 1);
  try {
    if (operation == operations) {
      SectionFilterChannel channel(path, limit);
      say(std::string(input.takeRest()));
      for (;;) channel.read_section();
    }
    ControlChannel channel(path, limit);
    channel.onNotification([](const Notification&) {});
    say(takeServersBytes(input, operation));
    // The requests stay in the socket's buffers, which hold some forty of them.
    for (int round = 0; round < 20; ++round) perform(channel, operation);
  } catch (const TimeOut&) {
    fail("a time-out, though the server has closed");
  } catch (const Error&) {
  }
  return 0;
}
