#include "cli/Replay.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "cli/ChannelTrace.h"
#include "cli/Command.h"
#include "cli/EndingSignals.h"
#include "cli/sockets.h"
#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"

namespace quillwork::cli {
namespace {

/// Listens at a path where nobody else does, and leaves nothing of its own there.
class OwnPath {
 public:
  explicit OwnPath(std::string path) : path_(std::move(path)), listening_(clear(path_)) {}
  ~OwnPath() { remove(); }
  OwnPath(const OwnPath&) = delete;
  OwnPath& operator=(const OwnPath&) = delete;

  /// A receiver that has bound the path anew keeps it.
  void remove() const {
    if (listening_.isAtItsPath()) unlink(path_.c_str());
  }
  [[nodiscard]] int listening() const { return listening_.number(); }

 private:
  /// Takes away what a receiver that has gone has left.
  static const std::string& clear(const std::string& path) {
    if (isServed(path)) throw Refusal(path + ": another receiver serves there");
    if (unlink(path.c_str()) != 0 && errno != ENOENT) {
      throw Refusal(path + ": " + std::strerror(errno));
    }
    return path;
  }

  std::string path_;
  BoundSocket listening_;
};

/// False when the client takes no more.
bool sendWhole(int client, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string describe(const TraceLine& line) {
  return (line.operation.empty() ? line.kind : line.operation) + ' ' + written(line.fields);
}

/// One client of a replay.
class ReplayClient {
 public:
  ReplayClient(const ReplayScript& script, TraceChannel channel, int client, std::size_t connection)
      : script_(script),
        client_(client),
        position_(script.begin(connection)),
        decoder_(makeDecoder(channel)) {}

  bool send(const std::string& bytes) {
    decoder_->feed(Direction::toClient, bytes);
    return sendWhole(client_, bytes);
  }

  /// Answers what has become complete; false at the connection's end.
  bool take(std::string_view bytes) {
    return std::ranges::all_of(decoder_->feed(Direction::toLibrary, bytes),
                               [&](const TraceLine& line) { return answer(line); });
  }

 private:
  bool answer(const TraceLine& line) {
    const std::string* const answer =
        line.kind == "undecoded" ? nullptr : script_.answer(line.bytes, position_);
    if (answer != nullptr) return send(*answer);
    say("not in the recording, the connection is ended: {}", describe(line));
    return false;
  }

  const ReplayScript& script_;
  int client_;
  std::size_t position_;
  std::unique_ptr<TraceDecoder> decoder_;
};

}  // namespace

bool ReplayScript::add(const TraceLine& line) {
  if (line.kind == "connection") {
    connect();
  } else if (line.kind == "undecoded") {
    return false;
  } else if (line.bytes.empty() || connections_.empty()) {
    return true;
  } else if (line.direction == Direction::toClient) {
    answerTo(line.request) += line.bytes;
  } else {
    numbers_[line.request] = exchanges_.size();
    exchanges_.push_back({line.bytes, ""});
  }
  return true;
}

void ReplayScript::connect() {
  connections_.push_back({exchanges_.size(), ""});
  numbers_.clear();
}

/// A reply belongs to its request, everything else to the last one.
std::string& ReplayScript::answerTo(std::size_t request) {
  const auto asked = numbers_.find(request);
  if (request != 0 && asked != numbers_.end()) return exchanges_[asked->second].answer;
  Connection& connection = connections_.back();
  return exchanges_.size() == connection.begin ? connection.greeting : exchanges_.back().answer;
}

const ReplayScript::Connection* ReplayScript::find(std::size_t connection) const {
  if (connections_.empty()) return nullptr;
  return &connections_[std::min(connection, connections_.size() - 1)];
}

std::size_t ReplayScript::begin(std::size_t connection) const {
  const Connection* const found = find(connection);
  return found == nullptr ? 0 : found->begin;
}

const std::string& ReplayScript::greeting(std::size_t connection) const {
  static const std::string none;
  const Connection* const found = find(connection);
  return found == nullptr ? none : found->greeting;
}

const std::string* ReplayScript::answer(std::string_view request, std::size_t& position) const {
  for (std::size_t tried = 0; tried < exchanges_.size(); ++tried) {
    const Exchange& exchange = exchanges_[position % exchanges_.size()];
    position = position % exchanges_.size() + 1;
    if (exchange.request == request) return &exchange.answer;
  }
  return nullptr;
}

Replay::Replay(const std::string& recording) {
  std::array channels{ChannelTrace(TraceChannel::control),
                      ChannelTrace(TraceChannel::sectionFilter)};
  Recording::read(recording, [&](const TraceChunk& chunk, std::string_view bytes) {
    const auto index = static_cast<std::size_t>(chunk.channel);
    for (const TraceLine& line : channels[index].take(chunk, bytes)) {
      if (scripts_[index].add(line)) continue;
      throw Refusal(recording + ": not decoded to its end");
    }
  });
}

void Replay::serve() {
  EndingSignals ending;
  const OwnPath control(client::ControlChannel::defaultPath);
  const OwnPath sections(client::SectionFilterChannel::defaultPath);
  // The threads end with the process.
  const auto begin = [&](auto part) {
    std::thread([&ending, part] { ending.guard(part); }).detach();
  };
  ending.guard([&] {
    begin([&] { serve(TraceChannel::control, control.listening()); });
    begin([&] { serve(TraceChannel::sectionFilter, sections.listening()); });
    say("answers as recorded");
  });
  ending.wait();
  control.remove();
  sections.remove();
  _exit(ending.exitStatus());
}

void Replay::serve(TraceChannel channel, int listening) const {
  for (std::size_t connection = 0;; ++connection) {
    const Descriptor client(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    if (client.number() == -1) return;
    play(channel, client.number(), connection);
  }
}

void Replay::play(TraceChannel channel, int client, std::size_t connection) const {
  const ReplayScript& script = scripts_[static_cast<std::size_t>(channel)];
  ReplayClient player(script, channel, client, connection);
  if (!player.send(script.greeting(connection))) return;
  std::array<char, 16'384> bytes;
  ssize_t size = 0;
  while ((size = recv(client, bytes.data(), bytes.size(), 0)) > 0) {
    if (!player.take({bytes.data(), static_cast<std::size_t>(size)})) return;
  }
}

}  // namespace quillwork::cli
