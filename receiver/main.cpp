// quillwork-receiver: the reference host process. It implements the facades on a transport stream
// and serves the library's one client until it is told to end.

#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdint>
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

#include "adapter/AdapterOwner.h"
#include "adapter/MiddlewareIpc.h"
#include "common/Number.h"
#include "protocol/ConnectionListener.h"
#include "protocol/IpcServerManager.h"
#include "receiver/Complaint.h"
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
#include "receiver/Output.h"
#include "receiver/Text.h"
#ifdef QUILLWORK_SQLITE
#include "receiver/facades/Properties.h"
#endif
#include "receiver/Time.h"

namespace {

using receiver::Host;
using receiver::ServiceInformation;

constexpr const char* controlSocket = "/dev/shm/ipc.socket";

struct Options {
  std::string stream;
  receiver::StreamPlayer::Settings play;
  int service = -1;
  std::string charset;
  std::string mount;
  std::string properties;
  std::string script;
  bool isQuiet = false;
  bool endsWithStream = false;
  bool hasDisplay = false;
};

/// What is said on the standard output: nothing where it is to be quiet.
class Announcements : public receiver::PacketSink {
 public:
  Announcements(const Options& options, const ServiceInformation& information)
      : stream_(options.stream),
        information_(information),
        endsWithStream_(options.endsWithStream),
        isQuiet_(options.isQuiet),
        showsState_(!isQuiet_ && isatty(STDOUT_FILENO) != 0) {}

  void take(receiver::Packet) override {}
  void interrupted(bool isOther) override {
    if (isOther) {
      hasSaid_ = false;
    } else {
      sayTotals();
    }
  }
  void ended() override {
    sayTotals();
    if (!endsWithStream_) return;
    hasFailed_ = information_.counters().packets == 0;
    receiver::requestEnd();
  }
  /// Whether the stream whose end ends the process had nothing. Once the stream's thread has ended.
  [[nodiscard]] bool hasFailed() const { return hasFailed_; }
  /// What the stream has had so far, where that has not been said.
  void sayNews() {
    if (information_.counters().packets != saidPackets_) hasSaid_ = false;
    sayTotals();
  }

  void say(const std::string& line) const {
    if (isQuiet_) return;
    receiver::print(fmt::format("{}{}\n", showsState_ ? clearLine : "", line));
  }

  /// The line of state on a terminal, in place of the one before.
  void showState() const {
    if (!showsState_) return;
    const receiver::Counters counters = information_.counters();
    receiver::print(fmt::format("{}{}  service {}  {} packets  {} sections  {} errors", clearLine,
                                receiver::timeText(information_.broadcastTime()),
                                information_.currentService(), counters.packets, counters.sections,
                                counters.errors.damagedPackets + counters.errors.lostPackets +
                                    counters.errors.badSections));
  }

 private:
  /// Once for each time that the stream was tuned to.
  void sayTotals() {
    if (std::exchange(hasSaid_, true)) return;
    const receiver::Counters counters = information_.counters();
    saidPackets_ = counters.packets;
    say(fmt::format(
        "{}: {} packets ({} damaged, {} gaps), {} sections ({} bad, {} changes), {} services, {} "
        "events, broadcast time {}",
        stream_, counters.packets, counters.errors.damagedPackets, counters.errors.lostPackets,
        counters.sections, counters.errors.badSections, counters.changes,
        information_.services().size(), information_.eventCount(),
        receiver::timeText(information_.broadcastTime())));
  }

  static constexpr const char* clearLine = "\r\x1b[K";

  const std::string stream_;
  const ServiceInformation& information_;
  const bool endsWithStream_;
  const bool isQuiet_;
  const bool showsState_;
  bool hasSaid_ = false;
  bool hasFailed_ = false;
  std::uint64_t saidPackets_ = 0;
};

/// A receiver has the PAT from the last time that it was tuned here; a map that comes before the
/// first PAT of a short capture counts, too.
void lookAhead(const std::string& path, ServiceInformation& information) {
  // In the time of half a minute any stream has a PAT.
  constexpr int mostPackets = 1'000'000;
  receiver::FileSource file(path);
  for (int left = mostPackets; left > 0 && information.currentService() == -1; --left) {
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

/// The signals that end the receiver, blocked in every thread so that one place waits for them.
sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // Whoever started it to outlive the terminal has it ignored.
  struct sigaction hangUp {};
  sigaction(SIGHUP, nullptr, &hangUp);
  if (hangUp.sa_handler != SIG_IGN) sigaddset(&signals, SIGHUP);
  return signals;
}

/// Whether a process serves on the library's control socket already, which a second one would take
/// from it. Nothing of this reaches that process, whose one client a connection would disturb: the
/// kernel refuses a datagram socket for its type where a stream socket lives, and for the lack of
/// any where only the path is left.
bool isServed(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (probe == -1) return false;
  const bool isRefused =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0;
  const bool isLiving = !isRefused || errno == EPROTOTYPE;
  close(probe);
  return isLiving;
}

/// Locks the sockets' directory for the life of the process, so that of two receivers that start
/// together one is refused.
void takeSockets() {
  const int directory = open("/dev/shm", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if ((directory != -1 && flock(directory, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) ||
      isServed(controlSocket)) {
    throw std::runtime_error(std::string(controlSocket) +
                             ": another receiver serves there; it has to end first");
  }
}

/// Whether one of these signals, which are blocked, has come and nobody has taken it yet.
bool hasCome(const sigset_t& signals) {
  sigset_t pending;
  sigpending(&pending);
  sigset_t both;
  sigandset(&both, &pending, &signals);
  return sigisemptyset(&both) == 0;
}

/// `isToEnd`: whether to wait for a server no more.
std::unique_ptr<receiver::Source> openStream(
    const std::string& name, [[maybe_unused]] const std::function<bool()>& isToEnd) {
  if (!receiver::isUrl(name)) return receiver::openSource(name);
#ifdef QUILLWORK_GSTREAMER
  return receiver::openUrl(name, isToEnd);
#else
  throw receiver::StreamError(name + ": URLs need GStreamer, which this receiver is built without");
#endif
}

/// What a client has asked to hear of carousels ends with its connection, which the carousel facade
/// does not learn of.
class ClientsEnd final : public quillwork::ConnectionListener {
 public:
  explicit ClientsEnd(Host& host) : host_(host) {}
  void clientConnected() override {}
  void clientDisconnected() override { host_.carouselListener.set(nullptr); }

 private:
  Host& host_;
};

/// The threads that work behind the stream's: one writes carousels' files, the other notifies the
/// client, which may keep it waiting.
struct Workers {
  std::optional<receiver::Worker> writer{std::in_place, "carousels"};
  std::optional<receiver::Worker> notifier{std::in_place, "worker"};
};

/// What runs while the receiver serves. However that ends, its parts go in the order in which they
/// need one another.
class Serving {
 public:
  Serving(Host& host, Workers& workers) : host_(host), workers_(workers), clientsEnd_(host) {
    Host::current() = &host_;
    adapter_.reset(MiddlewareIpc::getInstance());
    quillwork::IpcServerManager::getInstance()->addConnectionListener(&clientsEnd_);
  }
  ~Serving() {
    receiver::stopWaitingForReader();
    for (receiver::Console& console : consoles_) console.stop();
    workers_.writer->stop();
    workers_.notifier->stop();
    host_.streamPlayer.stop();
    adapter_.reset();
    consoles_.clear();
    workers_.writer.reset();
    workers_.notifier.reset();
    Host::current() = nullptr;
  }
  Serving(const Serving&) = delete;
  Serving& operator=(const Serving&) = delete;

  /// Takes commands from the descriptor.
  void listenTo(int input) { consoles_.emplace_back(host_, *adapter_, input); }

 private:
  Host& host_;
  Workers& workers_;
  ClientsEnd clientsEnd_;
  quillwork::AdapterOwner adapter_;
  std::list<receiver::Console> consoles_;
};

int openScript(const std::string& path) {
  // A pipe is not waited for before somebody writes to it.
  const int script = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (script == -1) throw std::runtime_error(path + ": " + std::strerror(errno));
  return script;
}

/// Tells the library, and whoever watches, what the stream's data services bring.
void connectData(receiver::DataBroadcast& data, Host& host, const Announcements& announcements) {
  data.onTree(
      [&host](const auto& place, auto tree) { host.mounts.update(place, std::move(tree)); });
  data.onEvent([&host, &announcements, commands = receiver::EditingCommands()](
                   const std::string& name, const receiver::StreamEvent& event) mutable {
    announcements.say(fmt::format("stream event {} '{}', {} bytes", event.id,
                                  receiver::inOneLine(name), event.data.size()));
    if (name != "nclEditingCommand") return;
    if (auto command = commands.take(event)) {
      host.worker.post([&host, command = std::move(*command)] {
        host.commandListener.notify([&](auto& listener) { listener.commandReceived(command); });
      });
    }
  });
}

/// False when the stream was none.
bool serve(const Options& options) {
  // Media players' threads come and go by the dozen; a heap for each would be kept for good.
  mallopt(M_ARENA_MAX, 2);
  // In the background it may not read from its terminal, and shall not be stopped for trying.
  std::signal(SIGTTIN, SIG_IGN);
  const sigset_t signals = endingSignals();
  receiver::prepareOutput({options.isQuiet, options.play.isFast, signals});
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  takeSockets();
#ifdef QUILLWORK_SQLITE
  // What is wrong with the file is better said before the library needs it.
  { const receiver::Properties checked(options.properties, {}); }
#endif
  auto source = openStream(options.stream, [&signals] { return hasCome(signals); });
  if (hasCome(signals)) return true;
  const auto* const file = dynamic_cast<receiver::FileSource*>(source.get());
  const bool isFile = file != nullptr;
  if (isFile && !file->notice().empty()) {
    receiver::complain("{}", file->notice());
  }
  ServiceInformation information(
      options.charset.empty() ? std::nullopt
                              : std::optional(receiver::CharacterTable::named(options.charset)));
  information.selectService(options.service);
  if (isFile) lookAhead(options.stream, information);
  receiver::DataBroadcast data(information);
  Announcements announcements(options, information);
  receiver::StreamPlayer streamPlayer(std::move(source), options.play);
  streamPlayer.add(information);
  streamPlayer.add(data);
  streamPlayer.add(announcements);

  std::optional<ScratchDirectory> scratch;
  if (options.mount.empty()) scratch.emplace();
  Workers workers;
  receiver::CarouselMounts mounts(data, information, *workers.writer, *workers.notifier,
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
  Host host{information,
            streamPlayer,
            *workers.notifier,
            mounts,
            display,
            options.properties,
            options.play.isFast,
            {},
            {},
            {},
            {}};
  connectData(data, host, announcements);
  {
    Serving serving(host, workers);
    announcements.say("serving");
    streamPlayer.start();
    if (!options.script.empty()) serving.listenTo(openScript(options.script));
    if (options.stream != "-") serving.listenTo(STDIN_FILENO);
    const timespec second{1, 0};
    while (sigtimedwait(&signals, nullptr, &second) == -1) announcements.showState();
  }
  // A stream that never ends has its totals, too.
  if (!isFile) announcements.sayNews();
  // What it was instead has been said.
  return !announcements.hasFailed();
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
      "SIGINT, SIGTERM or SIGHUP. On its standard input it takes commands; 'help' lists them."};
  Options options;
  application
      .add_option("STREAM", options.stream,
                  "MPEG transport stream: a file or a pipe, '-' for the standard input, or what "
                  "udp://, rtp://, srt://, http://, https:// or dvb:// names")
      ->required();
  application.add_flag("--fast", options.play.isFast,
                       "play it as fast as it can be read, not paced by its clock");
  auto* const loop =
      application.add_flag("--loop", options.play.isLooped, "begin a file again at its end");
  application.add_flag("--once", options.endsWithStream, "end at the stream's end")->excludes(loop);
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
  application.add_flag("--quiet", options.isQuiet,
                       "print nothing but errors and the answers to commands");
  application.set_version_flag("--version", "quillwork-receiver " QUILLWORK_VERSION,
                               "print the version");
  try {
    application.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return application.exit(error);
    }
    receiver::complain("{}", error.what());
    return EXIT_FAILURE;
  }
  if (options.properties.empty()) options.properties = ":memory:";
  try {
    return serve(options) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    receiver::complain("{}", error.what());
    return EXIT_FAILURE;
  }
}
