#include "cli/Trace.h"

#include <fmt/format.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "cli/Command.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "client/ControlChannel.h"
#include "ipc/UnixAddress.h"

namespace quillwork::cli {
namespace {

constexpr std::string_view signature = "quillwork-trace 1\n";
constexpr std::uint32_t longestChunk = 1U << 20U;
/// The direction of a chunk without bytes: a client has connected.
constexpr std::uint8_t connected = 2;

std::int64_t now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
}

[[noreturn]] void refuse(const std::string& path) {
  throw Refusal(path + ": " + std::strerror(errno));
}

int connectTo(const std::string& path) {
  const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = unixAddress(path);
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return connection;
  }
  const int error = errno;
  close(connection);
  errno = error;
  return -1;
}

/// A socket of the library's whose path this object has taken; it gives the path back.
class TakenPath {
 public:
  explicit TakenPath(std::string path) : path_(std::move(path)), moved_(path_ + ".traced") {
    take();
    listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = unixAddress(path_);
    if (bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listening_, 1) != 0) {
      const int error = errno;
      giveBack();
      close(listening_);
      errno = error;
      refuse(path_);
    }
  }
  ~TakenPath() {
    giveBack();
    close(listening_);
  }
  TakenPath(const TakenPath&) = delete;
  TakenPath& operator=(const TakenPath&) = delete;

  /// In one step: at no time is there nothing at the path.
  void giveBack() const { static_cast<void>(rename(moved_.c_str(), path_.c_str())); }

  [[nodiscard]] int listening() const { return listening_; }
  [[nodiscard]] const std::string& moved() const { return moved_; }

 private:
  void take() {
    if (access(moved_.c_str(), F_OK) != 0) {
      if (rename(path_.c_str(), moved_.c_str()) != 0) refuse(path_);
      return;
    }
    // A trace is there, or one was killed; then the library's socket is still where that one put
    // it.
    const int there = connectTo(path_);
    if (there != -1) {
      close(there);
      throw Refusal(path_ + ": another trace stands there already");
    }
    if (unlink(path_.c_str()) != 0 && errno != ENOENT) refuse(path_);
  }

  std::string path_;
  std::string moved_;
  int listening_ = -1;
};

/// Passes on what comes, until its end, which is passed on, too.
template <class Pass>
void relay(int from, int to, Pass pass) {
  std::array<char, 16'384> bytes;
  for (;;) {
    const ssize_t size = recv(from, bytes.data(), bytes.size(), 0);
    if (size <= 0) break;
    const std::string_view chunk(bytes.data(), static_cast<std::size_t>(size));
    pass(chunk);
    if (send(to, chunk.data(), chunk.size(), MSG_NOSIGNAL) != size) break;
  }
  shutdown(to, SHUT_WR);
  shutdown(from, SHUT_RD);
}

/// Requests bold, notifications yellow, what is unknown red.
const char* colourOf(const TraceLine& line) {
  if (line.kind == "request") return "1";
  if (line.kind == "notification") return "33";
  return line.kind == "unknown" ? "31" : "0";
}

}  // namespace

/// How a recording holds a chunk of bytes, little-endian; the bytes follow.
struct Trace::Chunk {
  std::int64_t time;  ///< nanoseconds since the beginning of 1970, UTC
  std::uint8_t channel;
  std::uint8_t direction;
  std::uint16_t reserved;
  std::uint32_t size;
};

struct Trace::State {
  bool json = false;
  std::ofstream recording;
  std::string path;
  ControlDecoder control;
  SectionDecoder sections;
  std::mutex mutex;
};

Trace::Trace(bool json, const std::string& recording) : state_(std::make_unique<State>()) {
  static_assert(sizeof(Chunk) == 16);
  state_->json = json;
  if (recording.empty()) return;
  state_->path = recording;
  state_->recording.open(recording, std::ios::binary);
  if (!(state_->recording << signature << std::flush)) refuse(recording);
}

Trace::~Trace() = default;

void Trace::begin(Channel channel) {
  const std::scoped_lock lock(state_->mutex);
  show({now(), static_cast<std::uint8_t>(channel), connected, 0, 0}, {});
}

void Trace::pass(Channel channel, Direction direction, std::string_view bytes) {
  const std::scoped_lock lock(state_->mutex);
  show({now(), static_cast<std::uint8_t>(channel), static_cast<std::uint8_t>(direction), 0,
        static_cast<std::uint32_t>(bytes.size())},
       bytes);
}

void Trace::show(const Chunk& chunk, std::string_view bytes) {
  if (state_->recording.is_open()) {
    state_->recording.write(reinterpret_cast<const char*>(&chunk), sizeof chunk);
    state_->recording << bytes << std::flush;
    if (!state_->recording) {
      fmt::print(stderr, "quillwork-client: {}: cannot be written any more\n", state_->path);
      state_->recording.close();
    }
  }
  if (chunk.channel == static_cast<std::uint8_t>(Channel::control)) {
    decode(state_->control, chunk, bytes);
  } else {
    decode(state_->sections, chunk, bytes);
  }
}

template <class Decoder>
void Trace::decode(Decoder& decoder, const Chunk& chunk, std::string_view bytes) {
  if (chunk.direction == connected) {
    decoder = Decoder();
    TraceLine line;
    line.kind = "connection";
    print(chunk, line);
    return;
  }
  for (const TraceLine& line :
       decoder.feed(static_cast<Direction>(chunk.direction), bytes, TraceTime(chunk.time))) {
    print(chunk, line);
  }
}

void Trace::print(const Chunk& chunk, const TraceLine& line) const {
  const std::chrono::nanoseconds time(chunk.time);
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::microseconds>(time - day));
  const std::string when =
      fmt::format("{:02}:{:02}:{:02}.{:06}", clock.hours().count(), clock.minutes().count(),
                  clock.seconds().count(), clock.subseconds().count());
  const char* const channel = chunk.channel == 0 ? "control" : "section-filter";
  if (state_->json) {
    Json json{{"time_ns", chunk.time}, {"channel", channel}, {"kind", line.kind}};
    if (!line.operation.empty()) json["operation"] = line.operation;
    json["fields"] = line.fields;
    fmt::print("{}\n", json.dump());
  } else {
    std::string fields;
    for (const auto& [name, value] : line.fields.items()) {
      fields += fmt::format(" {}={}", name, value.dump());
    }
    const std::string what = fmt::format("{:<12} {}{}", line.kind, line.operation, fields);
    fmt::print("{} {:<14} {} {}\n", when, channel,
               line.direction == Direction::toLibrary ? '>' : '<',
               inColour(stdout, colourOf(line), what.substr(0, what.find_last_not_of(' ') + 1)));
  }
  std::fflush(stdout);
}

void Trace::stand() {
  // Blocked in every thread, so that the wait below is where they arrive.
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  const TakenPath control(client::ControlChannel::defaultPath);
  const TakenPath sections(client::SectionFilterChannel::defaultPath);
  for (const Channel channel : {Channel::control, Channel::sectionFilter}) {
    const TakenPath& taken = channel == Channel::control ? control : sections;
    // Ends with the process.
    std::thread([this, channel, &taken] {
      for (;;) {
        const int client = accept4(taken.listening(), nullptr, nullptr, SOCK_CLOEXEC);
        if (client == -1) return;
        const int library = connectTo(taken.moved());
        if (library == -1) {
          fmt::print(stderr, "quillwork-client: {}: {}\n", taken.moved(), std::strerror(errno));
        } else {
          begin(channel);
          std::thread answers([&] {
            relay(library, client,
                  [&](std::string_view bytes) { pass(channel, Direction::toClient, bytes); });
          });
          relay(client, library,
                [&](std::string_view bytes) { pass(channel, Direction::toLibrary, bytes); });
          answers.join();
          close(library);
        }
        close(client);
      }
    }).detach();
  }
  fmt::print(stderr, "quillwork-client: between the library and its next client\n");
  int signal = 0;
  sigwait(&ending, &signal);
  control.giveBack();
  sections.giveBack();
  // No line is cut short. The threads end with the process; who is connected loses the connection.
  const std::scoped_lock lock(state_->mutex);
  std::fflush(stdout);
  _exit(0);
}

void Trace::read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) refuse(path);
  std::string begin(signature.size(), '\0');
  file.read(begin.data(), static_cast<std::streamsize>(begin.size()));
  if (begin != signature) throw Refusal(path + ": no recording of a trace");
  Chunk chunk{};
  std::string bytes;
  while (file.read(reinterpret_cast<char*>(&chunk), sizeof chunk)) {
    if (chunk.channel > 1 || chunk.direction > connected || chunk.size > longestChunk) {
      throw Refusal(path + ": a damaged recording");
    }
    bytes.resize(chunk.size);
    if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) break;
    show(chunk, bytes);
  }
  if (file.gcount() != 0) throw Refusal(path + ": cut short");
}

}  // namespace quillwork::cli
