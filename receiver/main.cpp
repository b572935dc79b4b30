// quillwork-receiver: the reference host process. It implements the facades on a transport stream
// and serves the library's one client until it is told to end.

#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "common/Number.h"
#include "protocol/ConnectionListener.h"
#include "protocol/IpcServerManager.h"
#include "receiver/Console.h"
#include "receiver/DataBroadcast.h"
#ifdef QUILLWORK_GSTREAMER
#include "receiver/Display.h"
#endif
#include "receiver/EditingCommands.h"
#include "receiver/Host.h"
#ifdef QUILLWORK_GSTREAMER
#include "receiver/NetworkInput.h"
#endif
#ifdef QUILLWORK_SQLITE
#include "receiver/facades/Properties.h"
#endif
#include "receiver/Time.h"

namespace {

using receiver::Host;
using receiver::ServiceInformation;

struct Options {
  std::string stream;
  receiver::StreamPlayer::Settings play;
  int service = -1;
  std::string charset;
  std::string mount;
  std::string properties;
  std::string script;
  bool isQuiet = false;
  bool hasDisplay = false;
};

/// What is said on the standard output: nothing where it is to be quiet.
class Announcements : public receiver::PacketSink {
 public:
  Announcements(std::string stream, const ServiceInformation& information, bool isQuiet)
      : stream_(std::move(stream)),
        information_(information),
        isQuiet_(isQuiet),
        showsState_(!isQuiet && isatty(STDOUT_FILENO) != 0) {}

  void take(receiver::Packet) override {}
  void interrupted(bool isOther) override {
    if (isOther) {
      hasSaid_ = false;
    } else {
      ended();
    }
  }
  /// What the stream has, once it has been seen whole.
  void ended() override {
    if (std::exchange(hasSaid_, true)) return;
    const receiver::Counters counters = information_.counters();
    say(fmt::format(
        "{}: {} packets ({} damaged, {} gaps), {} sections ({} bad, {} changes), {} services, {} "
        "events, broadcast time {}",
        stream_, counters.packets, counters.errors.damagedPackets, counters.errors.lostPackets,
        counters.sections, counters.errors.badSections, counters.changes,
        information_.services().size(), information_.eventCount(),
        receiver::timeText(information_.broadcastTime())));
  }

  void say(const std::string& line) const {
    if (isQuiet_) return;
    fmt::print("{}{}\n", showsState_ ? clearLine : "", line);
    std::fflush(stdout);
  }

  /// The line of state on a terminal, in place of the one before.
  void showState() const {
    if (!showsState_) return;
    const receiver::Counters counters = information_.counters();
    fmt::print(
        "{}{}  service {}  {} packets  {} sections  {} errors", clearLine,
        receiver::timeText(information_.broadcastTime()), information_.currentService(),
        counters.packets, counters.sections,
        counters.errors.damagedPackets + counters.errors.lostPackets + counters.errors.badSections);
    std::fflush(stdout);
  }

 private:
  static constexpr const char* clearLine = "\r\x1b[K";

  const std::string stream_;
  const ServiceInformation& information_;
  const bool isQuiet_;
  const bool showsState_;
  bool hasSaid_ = false;
};

/// A receiver has the PAT from the last time that it was tuned here; a map that comes before the
/// first PAT of a short capture counts, too.
void lookAhead(const std::string& path, ServiceInformation& information) {
  receiver::FileSource file(path);
  while (information.currentService() == -1) {
    const auto packet = file.next();
    if (!packet) break;
    if (receiver::pidOf(*packet) == 0) information.take(*packet);
  }
  information.interrupted(false);
  information.resetCounters();
}

/// A directory of the process's own that goes with it.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "quillwork-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error(name + ": " + std::strerror(errno));
    }
    path_ = name;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// SIGINT and SIGTERM, blocked in every thread so that one place waits for them.
sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

/// Calls a function at its end.
template <class Call>
class AtEnd {
 public:
  explicit AtEnd(Call call) : call_(std::move(call)) {}
  ~AtEnd() { call_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  const Call call_;
};

void deleteAdapter(MiddlewareIpc* adapter) {
  // The adapter's class has no virtual destructor, and this is an object of that class.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
  delete adapter;
#pragma GCC diagnostic pop
}

std::unique_ptr<receiver::Source> openStream(const std::string& name) {
  if (!receiver::isUrl(name)) return receiver::openSource(name);
#ifdef QUILLWORK_GSTREAMER
  return receiver::openUrl(name);
#else
  throw receiver::StreamError(name + ": URLs need GStreamer, which this receiver is built without");
#endif
}

int openScript(const std::string& path) {
  const int script = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (script == -1) throw std::runtime_error(path + ": " + std::strerror(errno));
  return script;
}

/// What a client has asked to hear of carousels ends with its connection, which the carousel facade
/// does not learn of.
class ClientsEnd : public quillwork::ConnectionListener {
 public:
  explicit ClientsEnd(Host& host) : host_(host) {}
  void clientConnected() override {}
  void clientDisconnected() override { host_.carouselListener.set(nullptr); }

 private:
  Host& host_;
};

/// Tells the library, and whoever watches, what the stream's data services bring.
void connectData(receiver::DataBroadcast& data, Host& host, const Announcements& announcements) {
  data.onTree(
      [&host](const auto& place, auto tree) { host.mounts.update(place, std::move(tree)); });
  data.onEvent([&host, &announcements, commands = receiver::EditingCommands()](
                   const std::string& name, const receiver::StreamEvent& event) mutable {
    announcements.say(
        fmt::format("stream event {} '{}', {} bytes", event.id, name, event.data.size()));
    if (name != "nclEditingCommand") return;
    if (auto command = commands.take(event)) {
      host.worker.post([&host, command = std::move(*command)] {
        host.commandListener.notify([&](auto& listener) { listener.commandReceived(command); });
      });
    }
  });
}

void serve(const Options& options) {
  // Media players' threads come and go by the dozen; a heap for each would be kept for good.
  mallopt(M_ARENA_MAX, 2);
  // In the background it may not read from its terminal, and shall not be stopped for trying.
  std::signal(SIGTTIN, SIG_IGN);
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

#ifdef QUILLWORK_SQLITE
  // What is wrong with the file is better said before the library needs it.
  { const receiver::Properties checked(options.properties, {}); }
#endif
  auto source = openStream(options.stream);
  const auto* const file = dynamic_cast<receiver::FileSource*>(source.get());
  const bool isFile = file != nullptr;
  if (isFile && !file->notice().empty()) {
    fmt::print(stderr, "quillwork-receiver: {}\n", file->notice());
  }
  ServiceInformation information(
      options.charset.empty() ? std::nullopt
                              : std::optional(receiver::CharacterTable::named(options.charset)));
  information.selectService(options.service);
  if (isFile) lookAhead(options.stream, information);
  receiver::DataBroadcast data(information);
  Announcements announcements(options.stream, information, options.isQuiet);
  receiver::StreamPlayer streamPlayer(std::move(source), options.play);
  streamPlayer.add(information);
  streamPlayer.add(data);
  streamPlayer.add(announcements);

  std::optional<ScratchDirectory> scratch;
  if (options.mount.empty()) scratch.emplace();
  std::optional<receiver::Worker> writer(std::in_place, "carousels");
  std::optional<receiver::Worker> worker(std::in_place, "worker");
  receiver::CarouselMounts mounts(data, information, *writer, *worker,
                                  scratch ? scratch->path() : std::filesystem::path(options.mount),
                                  [](const std::string& locator, const std::string& path) {
                                    Host::current()->carouselListener.notify([&](auto& listener) {
                                      listener.downloadComplete(locator, path);
                                    });
                                  });
  receiver::Display* display = nullptr;
#ifdef QUILLWORK_GSTREAMER
  std::optional<receiver::Display> window;
  if (options.hasDisplay) display = &window.emplace();
#endif
  Host host{information,         streamPlayer, *worker, mounts, display, options.properties,
            options.play.isFast, {},           {},      {},     {}};
  Host::current() = &host;
  connectData(data, host, announcements);
  ClientsEnd clientsEnd(host);
  std::list<receiver::Console> consoles;
  MiddlewareIpc* adapter = nullptr;
  // Also where something below fails: the library's threads use what stands above.
  const AtEnd shutDown([&] {
    for (receiver::Console& console : consoles) console.stop();
    writer->stop();
    worker->stop();
    streamPlayer.stop();
    if (adapter != nullptr) deleteAdapter(adapter);
    writer.reset();
    worker.reset();
    Host::current() = nullptr;
  });
  adapter = MiddlewareIpc::getInstance();
  quillwork::IpcServerManager::getInstance()->addConnectionListener(&clientsEnd);
  announcements.say("serving");
  streamPlayer.start();
  if (!options.script.empty()) consoles.emplace_back(host, *adapter, openScript(options.script));
  if (options.stream != "-") consoles.emplace_back(host, *adapter, STDIN_FILENO);
  const timespec second{1, 0};
  while (sigtimedwait(&signals, nullptr, &second) == -1) announcements.showState();
}

/// An option with a number between the two.
void addNumber(CLI::App& application, const std::string& name, double least, double most,
               const std::string& description, const std::function<void(double)>& set) {
  const std::string range = fmt::format("{:.0f} to {:.0f}", least, most);
  application
      .add_option_function<std::string>(
          name,
          [=](const std::string& text) {
            const auto number = quillwork::parseReal(text);
            if (!number) throw CLI::ValidationError(name, "'" + text + "' is no number");
            if (*number < least || *number > most) {
              throw CLI::ValidationError(name, text + " is not " + range);
            }
            set(*number);
          },
          description)
      ->type_name(range);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  CLI::App application{
      "Plays a transport stream as if it came off air and serves it to the client of "
      "quillwork-ipc, on the sockets /dev/shm/ipc.socket and /dev/shm/ipcdemux.socket, until "
      "SIGINT or SIGTERM. On its standard input it takes commands; 'help' lists them."};
  Options options;
  application
      .add_option("STREAM", options.stream,
                  "MPEG transport stream: a file or a pipe, '-' for the standard input, or what "
                  "udp://, rtp://, srt://, http://, https:// or dvb:// names")
      ->required();
  application.add_flag("--fast", options.play.isFast,
                       "play it as fast as it can be read, not paced by its clock");
  application.add_flag("--loop", options.play.isLooped, "begin a file again at its end");
  addNumber(application, "--bitrate", 1e3, 1e9,
            "bits a second of a stream that has no clock of its own",
            [&](double bits) { options.play.bitRate = bits; });
  addNumber(application, "--service", -1, 0xffff,
            "the current service; the stream's first one without it",
            [&](double service) { options.service = static_cast<int>(service); });
  application.add_option("--charset", options.charset,
                         "character table of texts that do not name their own: an iconv name, or "
                         "ARIB; found out from the stream without it");
  application.add_option("--mount", options.mount,
                         "directory for mounted carousels; a temporary one without it");
  application.add_option("--properties", options.properties,
                         "file that keeps the properties; they go with the process without it");
  application.add_option("--script", options.script,
                         "carry out the commands of this file, too, a line each");
#ifdef QUILLWORK_GSTREAMER
  application.add_flag("--display", options.hasDisplay,
                       "show the main video and the media players in a window");
#endif
  application.add_flag("--quiet", options.isQuiet, "print nothing but errors");
  CLI11_PARSE(application, argumentCount, arguments);
  if (options.properties.empty()) options.properties = ":memory:";
  try {
    serve(options);
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillwork-receiver: {}\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
