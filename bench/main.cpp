// Measures the library against the floors under it: the same requests to all, in turns, so that
// whatever else the machine does hits all.

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "bench/Host.h"
#include "bench/Measurement.h"
#include "bench/Server.h"
#include "bench/floor.h"
#include "bench/memory.h"
#include "bench/quiet.h"
#include "bench/requests.h"
#include "bench/timed.h"
#include "client/ControlChannel.h"
#include "support/OwnSharedMemory.h"

namespace {

using namespace bench;
using quillwork::client::ControlChannel;

struct Options {
  std::string json;
  std::string table;
  std::string only;
  double effort = 1;
};

/// A server and a bare client's connections to it.
struct Peer {
  Server server;
  int control = -1;
  int sections = -1;
  message record{};

  Peer(Server::Kind kind, const Shape& shape, Placement placement)
      : server(kind, shape, placement) {}
  ~Peer() {
    close(control);
    close(sections);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// When all servers are there: a later one would inherit the connections and keep them open.
  void connect() {
    control = connectTo(server.controlPath());
    sections = connectTo(server.sectionPath());
    // A notification before the server has taken the connection would be lost.
    askService(control, record);
  }
};

/// A server and the client library's connection to it.
struct LibraryPeer {
  Server server;
  std::unique_ptr<ControlChannel> channel;

  LibraryPeer(Server::Kind kind, const Shape& shape, Placement placement)
      : server(kind, shape, placement) {}

  void connect() {
    channel = std::make_unique<ControlChannel>(server.controlPath());
    require(channel->getCurrentService() == currentService, "the current service");
  }
};

/// From before the send on the notifier's thread until the record is here.
double timeNotification(const Peer& peer) {
  peer.server.notify();
  return since(receiveEndOfMedia(peer.control));
}

double timeNotification(const LibraryPeer& peer) {
  peer.server.notify();
  const auto notification = peer.channel->waitForNotification(std::chrono::seconds(10));
  require(notification.has_value(), "a notification");
  return since(std::get<quillwork::client::EndOfMedia>(*notification).player);
}

/// What the library does is compared with: a bare server that sends in pieces of as many records,
/// and a bare client.
struct Floor {
  const char* name;
  std::size_t piece;
  std::function<double(Peer&)> once;
};

constexpr const char* theFloor = "the bare calls";
constexpr const char* samePieces = "the same pieces";
constexpr const char* eachRecord = "a send a record";
constexpr const char* oneSend = "one send, large reads";

class Bench {
 public:
  explicit Bench(Options options) : options_(std::move(options)) {}

  void run() {
    for (const Placement placement : {Placement::one, Placement::two}) {
      placement_ = placement;
      measureQueries();
      measureLists();
      measureNotifications();
      measureSections();
      measureConnections();
    }
    measureAdapter();
    if (options_.only.empty()) sizes_ = measureMemory();
  }

  void report() const {
    std::string tables = table(rows_) + (sizes_.empty() ? "" : "\n" + table(sizes_));
    if (!isQuiet_) tables += "\nThe machine was not quiet: other programs had processor time.\n";
    std::cout << tables;
    write(options_.table, tables);
    write(options_.json, json(rows_, sizes_, isQuiet_));
  }

 private:
  static void write(const std::string& path, const std::string& text) {
    if (path.empty()) return;
    std::ofstream file(path);
    if (!(file << text << std::flush)) throw std::runtime_error(path + ": cannot be written");
  }

  [[nodiscard]] bool isWanted(const std::string& name) const {
    return name.find(options_.only) != name.npos;
  }

  [[nodiscard]] Effort effort() const {
    Effort effort;
    effort.turn *= std::min(1.0, options_.effort);
    effort.rounds = std::max(3, static_cast<int>(effort.rounds * options_.effort));
    return effort;
  }

  void add(Row row) {
    std::string text = fmt::format("{}, {}: {:.2f} µs", row.name, row.placement, row.median);
    for (const Ratio& ratio : row.ratios) {
      text += fmt::format(", {:.3f} of {}", ratio.median, ratio.floor);
    }
    std::cerr << text << std::endl;
    rows_.push_back(std::move(row));
  }

  template <class Library>
  void compareWith(const std::string& name, const Shape& shape,
                   const std::function<double(Library&)>& once, const std::vector<Floor>& floors) {
    if (!isWanted(name)) return;
    std::vector<std::string> names;
    for (const Floor& floor : floors) names.emplace_back(floor.name);
    Comparison comparison(name, placement_ == Placement::one ? "one" : "two", names);
    isQuiet_ = awaitQuiet(patience_) && isQuiet_;
    const int sets =
        std::max(1, static_cast<int>(setsOfProcesses * std::min(1.0, options_.effort)));
    for (int set = 0; set < sets; ++set) takeTurns(comparison, shape, once, floors);
    add(comparison.row());
  }

  /// With processes of their own, which all end with it.
  template <class Library>
  void takeTurns(Comparison& comparison, const Shape& shape,
                 const std::function<double(Library&)>& once, const std::vector<Floor>& floors) {
    Library library(Server::Kind::library, shape, placement_);
    std::vector<std::unique_ptr<Peer>> peers;
    for (const Floor& floor : floors) {
      Shape shapeOfFloor = shape;
      shapeOfFloor.piece = floor.piece;
      peers.push_back(std::make_unique<Peer>(Server::Kind::floor, shapeOfFloor, placement_));
    }
    library.connect();
    std::vector<Side> sides;
    for (std::size_t index = 0; index < floors.size(); ++index) {
      peers[index]->connect();
      sides.push_back({floors[index].name,
                       [&once = floors[index].once, &peer = *peers[index]] { return once(peer); },
                       {}});
    }
    // Seven sets together take a little more than twice the rounds of one.
    Effort part = effort();
    part.rounds = std::max(3, part.rounds / 3);
    comparison.takeTurns(part,
                         {"the library", [&] { return once(library); },
                          [&](std::size_t times) { library.server.prepare(times); }},
                         sides);
  }

  /// The library with a bare client.
  void compareBare(const std::string& name, const Shape& shape,
                   const std::function<double(Peer&)>& once,
                   const std::vector<std::pair<const char*, std::size_t>>& floors = {
                       {theFloor, 1}}) {
    std::vector<Floor> sides;
    for (const auto& [floor, piece] : floors) sides.push_back({floor, piece, once});
    compareWith<Peer>(name, shape, once, sides);
  }

  void measureQueries() {
    compareBare("round trip: integer", {},
                [](Peer& peer) { return timed([&] { askService(peer.control, peer.record); }); });
    compareBare("round trip: text", {},
                [](Peer& peer) { return timed([&] { askFormat(peer.control, peer.record); }); });
    compareBare("round trip: media bounds", {},
                [](Peer& peer) { return timed([&] { askBounds(peer.control, peer.record); }); });
    for (const std::size_t count : {1U, 4U, 16U}) {
      Shape shape;
      shape.listeners = count;
      compareBare(fmt::format("integer, asked of {} listeners", count), shape,
                  [](Peer& peer) { return timed([&] { askService(peer.control, peer.record); }); });
    }
    compareWith<LibraryPeer>(
        "client library: integer", {},
        [](LibraryPeer& peer) {
          return timed([&] {
            require(peer.channel->getCurrentService() == currentService, "the current service");
          });
        },
        {{theFloor, 1,
          [](Peer& peer) { return timed([&] { askService(peer.control, peer.record); }); }}});
  }

  void measureLists() {
    const std::vector<std::pair<const char*, std::size_t>> floors{{samePieces, maxPiece},
                                                                  {eachRecord, 1}};
    for (const std::size_t count : {0U, 1U, 10U, 200U, 2000U, 20'000U}) {
      Shape shape;
      shape.services = count;
      compareBare(
          fmt::format("services: {}", count), shape,
          [count](Peer& peer) {
            return timed([&] { askServices(peer.control, peer.record, count); });
          },
          floors);
    }
    for (const std::size_t count : {10U, 200U, 2000U}) measureServicesInTheClientLibrary(count);
    Shape events;
    events.events = 10;
    events.eventBytes = 16;
    events.eventTexts = 2;
    compareBare(
        "program events: 10, with their lists", events,
        [events](Peer& peer) {
          return timed([&] { askEvents(peer.control, peer.record, events); });
        },
        floors);
    for (const auto& [count, bytes] :
         {std::pair<std::size_t, std::size_t>{20, 64}, {200, 1}, {20'000, 1}}) {
      Shape shape;
      shape.descriptors = count;
      shape.descriptorBytes = bytes;
      compareBare(
          fmt::format("descriptors: {} of {} bytes", count, bytes), shape,
          [shape](Peer& peer) {
            return timed([&] { askDescriptors(peer.control, peer.record, shape); });
          },
          floors);
    }
  }

  void measureServicesInTheClientLibrary(std::size_t count) {
    Shape shape;
    shape.services = count;
    const auto atLarge = [count](Peer& peer) {
      return timed([&] { askServicesAtLarge(peer.control, peer.record, count); });
    };
    const auto recordByRecord = [count](Peer& peer) {
      return timed([&] { askServices(peer.control, peer.record, count); });
    };
    compareWith<LibraryPeer>(
        fmt::format("client library: {} services", count), shape,
        [count](LibraryPeer& peer) {
          return timed([&] {
            const auto services = peer.channel->getServices();
            require(services.size() == count && services.back().name == serviceName,
                    "the client library's services");
          });
        },
        {{samePieces, maxPiece, atLarge},
         {eachRecord, 1, recordByRecord},
         {oneSend, count + 1, atLarge}});
  }

  void measureNotifications() {
    compareBare("notification, one way", {}, [](Peer& peer) { return timeNotification(peer); });
    compareWith<LibraryPeer>("client library: notification, one way", {},
                             [](LibraryPeer& peer) { return timeNotification(peer); },
                             {{theFloor, 1, [](Peer& peer) { return timeNotification(peer); }}});
    compareBare("request and notification at once", {}, [](Peer& peer) {
      return timed([&] {
        peer.server.notify();
        askServiceAndHear(peer.control, peer.record);
      });
    });
  }

  void measureSections() {
    for (const std::size_t size : {0U, 16U, 1024U, 4096U}) {
      Shape shape;
      shape.section = size;
      compareBare(fmt::format("section: {} bytes", size), shape,
                  [size](Peer& peer) { return timed([&] { readSection(peer.sections, size); }); });
    }
    compareBare("filter set, then a section of 0 bytes", {}, [](Peer& peer) {
      return timed([&] {
        setFilter(peer.sections);
        readSection(peer.sections, 0);
      });
    });
  }

  void measureConnections() {
    compareBare("connect, ask, disconnect", {}, [](Peer& peer) {
      close(peer.control);
      return timed([&] {
        peer.control = connectTo(peer.server.controlPath());
        askService(peer.control, peer.record);
      });
    });
  }

  void measureAdapter();

  static constexpr std::size_t maxPiece = 16;
  static constexpr int setsOfProcesses = 7;

  Options options_;
  Placement placement_ = Placement::two;
  /// How long to wait for a quiet machine, in all.
  std::chrono::milliseconds patience_{static_cast<int>(30'000 * std::min(1.0, options_.effort))};
  bool isQuiet_ = true;
  std::vector<Row> rows_;
  std::vector<Size> sizes_;
};

/// The adapter's sockets and threads, bare: what stays behind stays behind with the library, too.
class BareAdapter {
 public:
  BareAdapter() : control_(listenAt("/dev/shm/ipc.socket")), thread_(wait(control_)) {
    wait(listenAt("/dev/shm/ipcdemux.socket")).detach();
  }
  ~BareAdapter() {
    pthread_cancel(thread_.native_handle());
    thread_.join();
    close(control_);
  }
  BareAdapter(const BareAdapter&) = delete;
  BareAdapter& operator=(const BareAdapter&) = delete;

 private:
  static std::thread wait(int listening) {
    return std::thread([listening] { accept(listening, nullptr, nullptr); });
  }

  int control_;
  std::thread thread_;
};

/// Makes and deletes a Thing, and stores both times.
template <class Make>
void timeLife(Make make, double& construction, double& deletion) {
  decltype(make()) thing;
  construction = timed([&] { thing = make(); });
  deletion = timed([&] { thing.reset(); });
}

void Bench::measureAdapter() {
  const std::string made = "adapter: made";
  const std::string deleted = "adapter: deleted";
  if (!isWanted(made) && !isWanted(deleted)) return;
  struct Figures {
    double median, p99, ratio, lower, upper;
  };
  auto* const figures = static_cast<Figures*>(mmap(
      nullptr, 2 * sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (figures == MAP_FAILED) throw std::runtime_error("no memory");
  isQuiet_ = awaitQuiet(patience_) && isQuiet_;
  // In a process that ends with all that is left behind; few lives make a turn, for each leaves
  // sockets and a thread.
  const pid_t process = fork();
  if (process == 0) {
    takeOwnSharedMemory();
    if (freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    Effort lives = effort();
    lives.turn = 200;
    for (const bool isDeletion : {false, true}) {
      const auto time = [isDeletion](auto make) {
        double construction = 0;
        double deletion = 0;
        timeLife(make, construction, deletion);
        return isDeletion ? deletion : construction;
      };
      const Row row = compare(
          made, "", lives,
          {"the library", [&] { return time([] { return std::make_unique<Host>(Shape{}); }); }, {}},
          {{theFloor, [&] { return time([] { return std::make_unique<BareAdapter>(); }); }, {}}});
      const Ratio& ratio = row.ratios[0];
      figures[isDeletion] = {row.median, row.p99, ratio.median, ratio.lower, ratio.upper};
    }
    _exit(0);
  }
  int status = -1;
  waitpid(process, &status, 0);
  require(status == 0, "the adapter's process has ended badly");
  for (const bool isDeletion : {false, true}) {
    const Figures& row = figures[isDeletion];
    add({isDeletion ? deleted : made,
         "one",
         row.median,
         row.p99,
         {{theFloor, row.ratio, row.lower, row.upper}}});
  }
  munmap(figures, 2 * sizeof(Figures));
}

}  // namespace

int main(int count, char** values) {
  CLI::App app{"Measures the library against bare socket loops"};
  Options options;
  app.add_option("--json", options.json, "write the figures to this file, too");
  app.add_option("--table", options.table, "write the tables to this file, too");
  app.add_option("--only", options.only, "only the rows whose names hold this text");
  app.add_option("--effort", options.effort, "so many times the usual number of samples")
      ->check(CLI::PositiveNumber);
  CLI11_PARSE(app, count, values);
  try {
    pinTo(clientProcessor);
    Bench bench(options);
    bench.run();
    bench.report();
  } catch (const std::exception& error) {
    std::cerr << "quillwork-bench: " << error.what() << '\n';
    return 1;
  }
}
