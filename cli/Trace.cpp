#include "cli/Trace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "cli/ChannelTrace.h"
#include "cli/Command.h"
#include "cli/EndingSignals.h"
#include "cli/Table.h"
#include "cli/sockets.h"
#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"

namespace quillwork::cli {
namespace {

constexpr TraceChannel channels[] = {TraceChannel::control, TraceChannel::sectionFilter};

TraceTime now() { return std::chrono::system_clock::now().time_since_epoch(); }

[[noreturn]] void refuse(const std::string& path) {
  throw Refusal(path + ": " + std::strerror(errno));
}

/// A socket of the library's whose path this object has taken; it gives the path back.
class TakenPath {
 public:
  explicit TakenPath(std::string path) : path_(std::move(path)), moved_(path_ + ".traced") {
    take();
    try {
      listening_.emplace(path_);
    } catch (const Refusal&) {
      giveBack();
      throw;
    }
  }
  ~TakenPath() { giveBack(); }
  TakenPath(const TakenPath&) = delete;
  TakenPath& operator=(const TakenPath&) = delete;

  /// In one step: at no time is there nothing at the path. A library that has bound the path anew
  /// keeps it: the socket that was moved is then the one of a library that has gone.
  void giveBack() const {
    const unsigned int flags = listening_ && listening_->isAtItsPath() ? 0 : RENAME_NOREPLACE;
    if (renameat2(AT_FDCWD, moved_.c_str(), AT_FDCWD, path_.c_str(), flags) != 0) {
      unlink(moved_.c_str());
    }
  }

  [[nodiscard]] int listening() const { return listening_->number(); }
  [[nodiscard]] const std::string& moved() const { return moved_; }

 private:
  void take() {
    if (access(moved_.c_str(), F_OK) != 0) {
      move();
      return;
    }
    if (!isServed(path_)) {
      // A trace was killed: the library's socket is still where that one put it.
      if (unlink(path_.c_str()) != 0 && errno != ENOENT) refuse(path_);
      return;
    }
    if (isServed(moved_)) throw Refusal(path_ + ": another trace stands there already");
    // The library behind a trace that was killed has gone, too, and another one has begun.
    move();
  }

  void move() const {
    if (rename(path_.c_str(), moved_.c_str()) != 0) refuse(path_);
  }

  std::string path_;
  std::string moved_;
  std::optional<BoundSocket> listening_;
};

/// Passes on what comes, until its end, which is passed on, too. Whether the sender has ended it:
/// otherwise the receiver takes no more.
template <class Note>
bool relay(int from, int to, Note note) {
  std::array<char, 16'384> bytes;
  ssize_t size = 0;
  while ((size = recv(from, bytes.data(), bytes.size(), 0)) > 0) {
    note(std::string_view(bytes.data(), static_cast<std::size_t>(size)));
    if (send(to, bytes.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) != size) break;
  }
  return size <= 0;
}

/// Requests bold, notifications yellow, faults red.
const char* colourOf(const TraceLine& line) {
  static constexpr std::string_view faults[] = {"dropped", "unknown", "incomplete", "unanswered",
                                                "undecoded"};
  if (line.kind == "request") return "1";
  if (line.kind == "notification") return "33";
  return std::ranges::find(faults, line.kind) != std::end(faults) ? "31" : "0";
}

const char* nameOf(TraceChannel channel) {
  return channel == TraceChannel::control ? "control" : "section-filter";
}

std::string clockOf(TraceTime time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::microseconds>(time - day));
  return fmt::format("{:02}:{:02}:{:02}.{:06}", clock.hours().count(), clock.minutes().count(),
                     clock.seconds().count(), clock.subseconds().count());
}

std::string json(TraceChannel channel, const TraceLine& line) {
  Json json{{"time_ns", line.time.count()}, {"channel", nameOf(channel)}, {"kind", line.kind}};
  if (!line.operation.empty()) json["operation"] = line.operation;
  if (line.request != 0) json["request"] = line.request;
  if (line.after) json["after_ns"] = line.after->count();
  json["fields"] = line.fields;
  return written(json);
}

/// The kind, and of what is incomplete how much of it is there.
std::string headOf(const TraceLine& line, Json& fields) {
  if (line.kind != "incomplete") return fmt::format("{:<12}", line.kind);
  std::string head = fmt::format("incomplete: {} of {} bytes", fields["received"].dump(),
                                 fields["expected"].dump());
  fields.erase("received");
  fields.erase("expected");
  return head;
}

std::string words(TraceChannel channel, const TraceLine& line) {
  Json fields = line.fields;
  std::string what = headOf(line, fields);
  if (!line.operation.empty()) what += ' ' + line.operation;
  for (const auto& [name, value] : fields.items()) {
    what += fmt::format(" {}={}", name, written(value));
  }
  what.erase(what.find_last_not_of(' ') + 1);
  if (line.after) {
    what += fmt::format(" after {:.3f} ms", static_cast<double>(line.after->count()) / 1e6);
  }
  return fmt::format("{} {:<14} {} {}", clockOf(line.time), nameOf(channel),
                     line.direction == Direction::toLibrary ? '>' : '<',
                     inColour(stdout, colourOf(line), what));
}

}  // namespace

struct Trace::State {
  bool json = false;
  std::optional<Recording> recording;
  /// Of a trace that stands between the two.
  EndingSignals* ending = nullptr;
  std::array<ChannelTrace, 2> channels{ChannelTrace(TraceChannel::control),
                                       ChannelTrace(TraceChannel::sectionFilter)};
  std::mutex mutex;
  /// Something has been noted.
  std::condition_variable noted;

  ChannelTrace& of(TraceChannel channel) { return channels[static_cast<std::size_t>(channel)]; }
};

Trace::Trace(bool json, const std::string& recording) : state_(std::make_unique<State>()) {
  state_->json = json;
  if (!recording.empty()) state_->recording.emplace(recording);
}

Trace::~Trace() = default;

void Trace::note(TraceChannel channel, TraceEvent event, std::string_view bytes) {
  const std::scoped_lock lock(state_->mutex);
  noteLocked(channel, event, bytes);
}

void Trace::noteLocked(TraceChannel channel, TraceEvent event, std::string_view bytes) {
  if (event != TraceEvent::connected && !state_->of(channel).isConnected()) return;
  const TraceChunk chunk{now().count(), channel, event, 0,
                         static_cast<std::uint32_t>(bytes.size())};
  state_->ending->guard([&] {
    if (state_->recording) state_->recording->write(chunk, bytes);
    if (!state_->ending->hasFailed()) show(chunk, bytes);
  });
  state_->noted.notify_one();
}

void Trace::show(const TraceChunk& chunk, std::string_view bytes) {
  showStalled(TraceTime(chunk.time));
  print(chunk.channel, state_->of(chunk.channel).take(chunk, bytes));
}

/// The channel that is the next to stall; none when nothing is incomplete.
ChannelTrace* Trace::nextToStall() const {
  ChannelTrace* next = nullptr;
  for (ChannelTrace& channel : state_->channels) {
    const auto stall = channel.nextStall();
    if (stall && (next == nullptr || *stall < *next->nextStall())) next = &channel;
  }
  return next;
}

void Trace::showStalled(TraceTime now) {
  for (ChannelTrace* next = nextToStall(); next != nullptr && *next->nextStall() <= now;
       next = nextToStall()) {
    print(next->channel(), next->stalled(*next->nextStall()));
  }
}

void Trace::watch() {
  std::unique_lock lock(state_->mutex);
  for (;;) {
    if (const ChannelTrace* const next = nextToStall()) {
      state_->noted.wait_until(lock, std::chrono::sys_time<TraceTime>(*next->nextStall()));
    } else {
      state_->noted.wait(lock);
    }
    if (state_->ending->hasFailed()) return;
    showStalled(now());
  }
}

void Trace::print(TraceChannel channel, const std::vector<TraceLine>& lines) const {
  for (const TraceLine& line : lines) {
    const std::string text = (state_->json ? json(channel, line) : words(channel, line)) + '\n';
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
      refuse("the output cannot be written");
  }
  if (std::fflush(stdout) != 0) refuse("the output cannot be written");
}

void Trace::pass(TraceChannel channel, int client, int library) {
  note(channel, TraceEvent::connected);
  std::thread answers([&] {
    const bool isEnd = relay(library, client, [&](std::string_view bytes) {
      note(channel, TraceEvent::toClient, bytes);
    });
    if (isEnd) note(channel, TraceEvent::endedByLibrary);
    shutdown(client, SHUT_WR);
    shutdown(library, SHUT_RD);
  });
  const bool isEnd = relay(client, library, [&](std::string_view bytes) {
    note(channel, TraceEvent::toLibrary, bytes);
  });
  if (isEnd) note(channel, TraceEvent::endedByClient);
  shutdown(library, SHUT_WR);
  shutdown(client, SHUT_RD);
  answers.join();
  // The side that took no more has ended, too.
  note(channel, TraceEvent::endedByLibrary);
  note(channel, TraceEvent::endedByClient);
}

void Trace::serve(TraceChannel channel, int listening, const std::string& path) {
  for (;;) {
    const Descriptor client(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    if (client.number() == -1) refuse(path);
    const Descriptor library = connectTo(path);
    if (library.number() == -1) {
      say("{}: {}", path, std::strerror(errno));
    } else {
      pass(channel, client.number(), library.number());
    }
  }
}

void Trace::endConnections() {
  for (const TraceChannel channel : channels) noteLocked(channel, TraceEvent::endedByTrace, {});
}

void Trace::stand() {
  EndingSignals ending;
  state_->ending = &ending;
  const TakenPath control(client::ControlChannel::defaultPath);
  const TakenPath sections(client::SectionFilterChannel::defaultPath);
  // The threads end with the process.
  const auto begin = [&](auto part) {
    std::thread([&ending, part] { ending.guard(part); }).detach();
  };
  ending.guard([&] {
    begin([&] { serve(TraceChannel::control, control.listening(), control.moved()); });
    begin([&] { serve(TraceChannel::sectionFilter, sections.listening(), sections.moved()); });
    begin([&] { watch(); });
    say("between the library and its next client");
  });
  ending.wait();
  control.giveBack();
  sections.giveBack();
  // No line is cut short; who is connected loses the connection.
  const std::scoped_lock lock(state_->mutex);
  endConnections();
  _exit(ending.exitStatus());
}

void Trace::read(const std::string& path) {
  TraceTime last{};
  Recording::read(path, [&](const TraceChunk& chunk, std::string_view bytes) {
    last = TraceTime(chunk.time);
    show(chunk, bytes);
  });
  for (const TraceChannel channel : channels) print(channel, state_->of(channel).finish(last));
}

}  // namespace quillwork::cli
