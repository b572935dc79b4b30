// What a server sends, read by the client library: every reply and notification, whatever the bytes
// say, ends in an answer or an Error, within the bounds that the library sets on memory. A trace
// says the same of these bytes whatever the pieces in which they come.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "cli/ControlDecoder.h"
#include "cli/SectionDecoder.h"
#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/UnixSocket.h"

namespace {

using namespace quillwork;
using namespace quillwork::client;
using namespace quillwork::operations;

std::string path;
int listening = -1;

/// A call of the client library's, by the row whose answer it reads.
struct Call {
  std::size_t row;
  void (*perform)(ControlChannel& channel);
};

constexpr std::int32_t typeOf(std::string_view name) { return requests[request(name)].types.first; }

constexpr Call calls[] = {
    {request("getMainVideoBounds"), [](auto& channel) { channel.getMainVideoBounds(); }},
    {request("getVideoLanguage"),
     [](auto& channel) { channel.getVideoLanguage(typeOf("getVideoLanguage")); }},
    {request("getVideoLanguages"), [](auto& channel) { channel.getVideoLanguages(); }},
    {request("getVideoProperty"),
     [](auto& channel) { channel.getVideoProperty(typeOf("getVideoProperty")); }},
    {request("getSystemProperty"), [](auto& channel) { channel.getSystemProperty("name"); }},
    {request("getSystemProperties"), [](auto& channel) { channel.getSystemProperties(); }},
    {request("getCurrentTransportStreamID"),
     [](auto& channel) { channel.getCurrentTransportStreamID(); }},
    {request("getAllIDs"), [](auto& channel) { channel.getAllIDs(2, 0); }},
    {request("mountCarousel"), [](auto& channel) { channel.mountCarousel("locator"); }},
    {request("getSICodingFormat"), [](auto& channel) { channel.getSICodingFormat(); }},
    {request("getProgramEvents"), [](auto& channel) { channel.getProgramEvents(); }},
    {request("getProgramEvent"), [](auto& channel) { channel.getProgramEvent(); }},
    {request("getProgramEventDescriptors"),
     [](auto& channel) { channel.getProgramEventDescriptors(1, 2); }},
    {request("getCASystemIds"), [](auto& channel) { channel.getCASystemIds(); }},
    {request("isProtectedService"), [](auto& channel) { channel.isProtectedService(); }},
    {request("getServices"), [](auto& channel) { channel.getServices(); }},
    {request("getCurrentService"), [](auto& channel) { channel.getCurrentService(); }},
    {request("getServiceDescription"), [](auto& channel) { channel.getServiceDescription(); }},
    {request("getServiceComponents"), [](auto& channel) { channel.getServiceComponents(1); }},
    {request("getServiceComponentDescriptors"),
     [](auto& channel) { channel.getServiceComponentDescriptors(1); }},
    {request("getTransportStream"), [](auto& channel) { channel.getTransportStream(); }},
    {request("getTransportStreamDescriptors"),
     [](auto& channel) { channel.getTransportStreamDescriptors(1); }},
    {request("getNetwork"), [](auto& channel) { channel.getNetwork(); }},
    {request("getNetworkDescriptors"), [](auto& channel) { channel.getNetworkDescriptors(); }},
    {request("getPMTs"), [](auto& channel) { channel.getPMTs(1); }},
    {request("open"), [](auto& channel) { channel.open("locator"); }},
    {request("getDuration"), [](auto& channel) { channel.getDuration(1); }},
    {request("getCurrentTime"), [](auto& channel) { channel.getCurrentTime(1); }},
    {request("setCurrentTime"), [](auto& channel) { channel.setCurrentTime(1, 2, 3); }},
    {request("play"), [](auto& channel) { channel.play(1); }},
    {request("setMediaBounds"), [](auto& channel) { channel.setMediaBounds(1, {}); }},
    {request("getMediaBounds"), [](auto& channel) { channel.getMediaBounds(1); }},
    {request("checkVersionFlag"), [](auto& channel) { channel.checkVersionFlag(1); }},
};

/// Whether the answers of all rows that have one are read by a call.
consteval bool areAllRead() {
  for (const Request& row : requests) {
    const bool isRead = std::ranges::any_of(calls, [&](const Call& call) {
      return std::string_view(requests[call.row].name) == row.name;
    });
    if (row.reply != Reply::none && !isRead) return false;
  }
  return true;
}
static_assert(areAllRead(), "a row's answer is read by no call");

/// The operation behind the calls: to wait for a notification.
void perform(ControlChannel& channel, std::size_t operation) {
  if (operation < std::size(calls)) {
    calls[operation].perform(channel);
  } else {
    channel.waitForNotification(std::chrono::seconds(20));
  }
}

void append(std::string& bytes, const message& record) {
  bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

/// Bytes of a content's fields and of the words that announce what follows.
std::vector<std::size_t> positionsOf(const Content& content) {
  std::vector<std::size_t> positions = {typePosition};
  for (const Field& field : content.fields) positions.push_back(field.position);
  for (const Trailing& list : content.trailing) {
    positions.push_back(list.count);
    positions.push_back(list.presence);
  }
  return positions;
}

/// A record of a group and type with a few of its fields set.
void appendRecord(std::string& bytes, Input& input, message_group group, std::int32_t type,
                  const Content& content) {
  message record{};
  record.group = group;
  record.type = type;
  const std::vector<std::size_t> positions = positionsOf(content);
  for (std::size_t left = input.takeBelow(6); left > 0; --left) {
    const std::size_t position = positions[input.takeBelow(positions.size())];
    put(record, position,
        input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>());
  }
  append(bytes, record);
}

/// So that it can be the answer to the operation: of the operation's row, or the element's type.
void appendAnswer(std::string& bytes, Input& input, std::size_t operation) {
  if (operation >= std::size(calls)) return;
  const Request& row = requests[calls[operation].row];
  const bool isElement = row.reply != Reply::record && row.elementType >= 0;
  appendRecord(bytes, input, row.group, isElement ? row.elementType : row.types.first, row.answer);
}

void appendNotification(std::string& bytes, Input& input) {
  const auto& row = notifications[input.takeBelow(std::size(notifications))];
  const std::int32_t type = isAnyOther(row.types) ? input.take<std::int8_t>() : row.types.first;
  appendRecord(bytes, input, row.group, type, row.content);
}

void appendHeader(std::string& bytes, Input& input) {
  message header{};
  header.group = LIST_HEADER;
  header.type = input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>();
  append(bytes, header);
}

void appendLength(std::string& bytes, Input& input) {
  const std::size_t length = input.takeBelow(256);
  const auto word = static_cast<std::int32_t>(length);
  bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
  bytes.append(length, 'x');
}

std::string takeServersBytes(Input& input, std::size_t operation) {
  std::string bytes;
  while (!input.isAtEnd() && bytes.size() < 100'000) {
    switch (input.takeBelow(6)) {
      case 0:
        bytes += input.takeText();
        break;
      case 1:
        appendHeader(bytes, input);
        break;
      case 2:
        appendNotification(bytes, input);
        break;
      case 3:
        appendLength(bytes, input);
        break;
      default:
        appendAnswer(bytes, input, operation);
        break;
    }
  }
  return bytes;
}

/// What a trace says after a client's bytes of a server's, which come in pieces of that size.
template <class Decoder>
std::string trace(const std::string& asked, const std::string& answered, std::size_t piece) {
  Decoder decoder;
  std::string said;
  const auto note = [&](const std::vector<cli::TraceLine>& lines) {
    for (const cli::TraceLine& line : lines) {
      said += line.kind + ' ' + line.operation + ' ' + line.fields.dump() + '\n';
    }
  };
  note(decoder.feed(cli::Direction::toLibrary, asked));
  for (std::size_t position = 0; position < answered.size(); position += piece) {
    note(
        decoder.feed(cli::Direction::toClient, std::string_view(answered).substr(position, piece)));
  }
  note(decoder.finish({}));
  return said;
}

template <class Decoder>
void compareTraces(const std::string& asked, const std::string& answered) {
  if (trace<Decoder>(asked, answered, answered.size() + 1) != trace<Decoder>(asked, answered, 7)) {
    fail("a trace depends on the pieces");
  }
}

/// Twenty requests of the operation, if it is a call.
std::string requestsOf(std::size_t operation) {
  if (operation >= std::size(calls)) return "";
  const Request& row = requests[calls[operation].row];
  message record{};
  record.group = row.group;
  record.type = row.types.first;
  std::string bytes;
  for (int round = 0; round < 20; ++round) append(bytes, record);
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
  // Behind the calls: a notification, and the section filter.
  const std::size_t operation = input.takeBelow(std::size(calls) + 2);
  try {
    if (operation == std::size(calls) + 1) {
      SectionFilterChannel channel(path, limit);
      const std::string bytes(input.takeRest());
      compareTraces<cli::SectionDecoder>(bytes, bytes);
      say(bytes);
      for (;;) channel.read_section();
    }
    ControlChannel channel(path, limit);
    channel.onNotification([](const client::Notification&) {});
    const std::string bytes = takeServersBytes(input, operation);
    compareTraces<cli::ControlDecoder>(requestsOf(operation), bytes);
    say(bytes);
    // The requests stay in the socket's buffers, which hold some forty of them.
    for (int round = 0; round < 20; ++round) perform(channel, operation);
  } catch (const TimeOut&) {
    fail("a time-out, though the server has closed");
  } catch (const Error&) {
  }
  return 0;
}
