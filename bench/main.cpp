// Measures the library against the floor under it: the same requests to both, one after the other,
// so that whatever else the machine does hits both.

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <thread>

#include "bench/Host.h"
#include "bench/Measurement.h"
#include "bench/Server.h"
#include "bench/floor.h"
#include "bench/memory.h"
#include "client/ControlChannel.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/OwnSharedMemory.h"

namespace {

using namespace bench;
using quillwork::message;

struct Options {
  std::string json;
  std::string table;
  std::string only;
  double effort = 1;
};

void require(bool right, const char* what) {
  if (!right) throw std::runtime_error(std::string("a wrong answer: ") + what);
}

/// Microseconds that an operation takes.
template <class Operation>
double timed(Operation operation) {
  const auto begin = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
      .count();
}

// The bare client.

void sendAll(int connection, const void* data, std::size_t size) {
  require(send(connection, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size), "not taken");
}

void receive(int connection, void* data, std::size_t size) {
  require(recv(connection, data, size, MSG_WAITALL) == static_cast<ssize_t>(size), "cut short");
}

void ask(int connection, message& record, std::int32_t group, std::int32_t type) {
  record.group = group;
  record.type = type;
  sendAll(connection, &record, sizeof record);
  receive(connection, &record, sizeof record);
}

void askService(int connection, message& record) {
  ask(connection, record, quillwork::SI, 7);
  require(record[3] == currentService, "the current service");
}

void askFormat(int connection, message& record) {
  ask(connection, record, quillwork::SI, 0);
  require(
      std::strcmp(reinterpret_cast<const char*>(&record) + quillwork::operations::payloadPosition,
                  codingFormat) == 0,
      "the coding format");
}

void askBounds(int connection, message& record) {
  record[3] = 1;
  ask(connection, record, quillwork::MEDIA, 9);
  for (std::size_t index = 0; index < 4; ++index) {
    require(record[4 + index] == mediaBounds[index], "the media's bounds");
  }
}

void askCount(int connection, message& record, std::int32_t type, std::size_t count) {
  ask(connection, record, quillwork::SI, type);
  require(record.group == quillwork::LIST_HEADER, "a list's header");
  require(record.type == static_cast<std::int32_t>(count), "a list's length");
}

void receiveElement(int connection, message& record, std::size_t index) {
  receive(connection, &record, sizeof record);
  require(record.group == quillwork::SI &&
              static_cast<std::int16_t>(record[3]) == static_cast<std::int16_t>(index),
          "a list's element");
}

void receiveFiller(int connection, std::size_t count) {
  unsigned char bytes[4096];
  if (count == 0) return;
  receive(connection, bytes, count);
  require(bytes[0] == filler && std::memcmp(bytes, bytes + 1, count - 1) == 0, "raw bytes");
}

void askServices(int connection, message& record, std::size_t count) {
  askCount(connection, record, 6, count);
  for (std::size_t index = 0; index < count; ++index) receiveElement(connection, record, index);
}

void askDescriptors(int connection, message& record, const Shape& shape) {
  askCount(connection, record, 15, shape.descriptors);
  for (std::size_t index = 0; index < shape.descriptors; ++index) {
    receiveElement(connection, record, index);
    require(record[4] == static_cast<std::int32_t>(shape.descriptorBytes), "a length");
    receiveFiller(connection, shape.descriptorBytes);
  }
}

void askEvents(int connection, message& record, const Shape& shape) {
  askCount(connection, record, 1, shape.events);
  for (std::size_t index = 0; index < shape.events; ++index) {
    receiveElement(connection, record, index);
  }
  for (std::size_t index = 0; index < shape.events; ++index) {
    receiveFiller(connection, 3 * shape.eventBytes);
    for (std::size_t text = 0; text < 3 * shape.eventTexts; ++text) {
      std::uint32_t length = 0;
      char bytes[256];
      receive(connection, &length, sizeof length);
      require(length == std::strlen(eventText), "a text's length");
      receive(connection, bytes, length);
      require(std::memcmp(bytes, eventText, length) == 0, "a text");
    }
  }
}

void readSection(int connection, std::size_t size) {
  const std::int32_t code = 13;
  sendAll(connection, &code, sizeof code);
  std::int32_t count = 0;
  receive(connection, &count, sizeof count);
  require(count == static_cast<std::int32_t>(size), "a section's length");
  receiveFiller(connection, size);
}

void setFilter(int connection) {
  // Set positive filter, for filterArg 0, with two vectors of eight bytes.
  struct {
    std::int32_t code = 4;
    std::int32_t filterArg = 0;
    std::int32_t firstCount = 8;
    unsigned char first[8] = {};
    std::int32_t secondCount = 8;
    unsigned char second[8] = {};
  } request;
  sendAll(connection, &request, sizeof request);
}

/// One side of a comparison.
struct Peer {
  Server server;
  int control = -1;
  int sections = -1;
  message record{};

  Peer(Server::Kind kind, const Shape& shape) : server(kind, shape) {}
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

/// From before the send on the notifier's thread until the record is here.
double timeNotification(const Peer& peer) {
  peer.server.notify();
  message record;
  receive(peer.control, &record, sizeof record);
  const std::int32_t now = stamp();
  require(record.group == quillwork::MEDIA && record.type == 16, "a notification");
  return ((now - record[3]) & 0x7fffffff) / 1000.0;
}

/// A request whose reply and a notification are sent at the same time, in any order.
double timeRequestWithNotification(Peer& peer) {
  return timed([&] {
    peer.server.notify();
    peer.record.group = quillwork::SI;
    peer.record.type = 7;
    sendAll(peer.control, &peer.record, sizeof peer.record);
    int replies = 0;
    for (int left = 2; left > 0; --left) {
      message record;
      receive(peer.control, &record, sizeof record);
      if (record.group != quillwork::SI) continue;
      require(record[3] == currentService, "the current service");
      ++replies;
    }
    require(replies == 1, "one reply and one notification");
  });
}

class Bench {
 public:
  explicit Bench(Options options) : options_(std::move(options)) {}

  void run() {
    const Shape none;
    using P = Peer;
    compare("round trip: integer", none, 20'000,
            [](P& peer) { return timed([&] { askService(peer.control, peer.record); }); });
    compare("round trip: text", none, 20'000,
            [](P& peer) { return timed([&] { askFormat(peer.control, peer.record); }); });
    compare("round trip: media bounds", none, 20'000,
            [](P& peer) { return timed([&] { askBounds(peer.control, peer.record); }); });
    for (const auto& [count, samples] : {std::pair<std::size_t, int>{0, 10'000},
                                         {1, 10'000},
                                         {10, 5000},
                                         {200, 1000},
                                         {2000, 100}}) {
      Shape shape;
      shape.services = count;
      compare(fmt::format("services: {}", count), shape, samples, [count = count](P& peer) {
        return timed([&] { askServices(peer.control, peer.record, count); });
      });
    }
    Shape events;
    events.events = 10;
    events.eventBytes = 16;
    events.eventTexts = 2;
    compare("program events: 10, with their lists", events, 500,
            [&](P& peer) { return timed([&] { askEvents(peer.control, peer.record, events); }); });
    for (const auto& [count, bytes, samples] :
         {std::tuple<std::size_t, std::size_t, int>{20, 64, 500}, {200, 1, 500}, {20'000, 1, 20}}) {
      Shape shape;
      shape.descriptors = count;
      shape.descriptorBytes = bytes;
      compare(fmt::format("descriptors: {} of {} bytes", count, bytes), shape, samples,
              [&](P& peer) {
                return timed([&] { askDescriptors(peer.control, peer.record, shape); });
              });
    }
    compare("notification, one way", none, 10'000, [](P& peer) { return timeNotification(peer); });
    compare("request and notification at once", none, 10'000,
            [](P& peer) { return timeRequestWithNotification(peer); });
    for (const auto& [size, samples] :
         {std::pair<std::size_t, int>{0, 20'000}, {16, 5000}, {1024, 500}, {4096, 200}}) {
      Shape shape;
      shape.section = size;
      compare(fmt::format("section: {} bytes", size), shape, samples,
              [size = size](P& peer) { return timed([&] { readSection(peer.sections, size); }); });
    }
    compare("filter set, then a section of 0 bytes", none, 5000, [](P& peer) {
      return timed([&] {
        setFilter(peer.sections);
        readSection(peer.sections, 0);
      });
    });
    for (const std::size_t count : {1U, 4U, 16U}) {
      Shape shape;
      shape.listeners = count;
      compare(fmt::format("integer, asked of {} listeners", count), shape, 20'000,
              [](P& peer) { return timed([&] { askService(peer.control, peer.record); }); });
    }
    compare("connect, ask, disconnect", none, 5000, [](P& peer) {
      close(peer.control);
      return timed([&] {
        peer.control = connectTo(peer.server.controlPath());
        askService(peer.control, peer.record);
      });
    });
    measureAdapter();
    measureClientLibrary();
    if (options_.only.empty()) sizes_ = measureMemory();
  }

  void report() const {
    const std::string tables = table(rows_) + (sizes_.empty() ? "" : "\n" + table(sizes_));
    std::cout << tables;
    write(options_.table, tables);
    write(options_.json, json(rows_, sizes_));
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

  [[nodiscard]] int scaled(int samples) const {
    return std::max(2, static_cast<int>(samples * options_.effort));
  }

  void add(Measurement measurement) {
    rows_.push_back(summarise(std::move(measurement)));
    const Row& row = rows_.back();
    fmt::print(stderr, "{}: {:.2f} µs, ratio {:.3f}\n", row.name, row.median, row.ratio);
  }

  /// Takes both sides' samples by turns, either side first every other time.
  template <class Floor, class Library>
  void measure(const std::string& name, int samples, Floor floor, Library library) {
    Measurement measurement{name, {}, {}};
    const int warmUp = scaled(samples) / 10 + 1;
    for (int index = -warmUp; index < scaled(samples); ++index) {
      double times[2] = {};
      for (const bool isLibrary : {index % 2 != 0, index % 2 == 0}) {
        times[isLibrary] = isLibrary ? library() : floor();
      }
      if (index < 0) continue;
      measurement.floor.push_back(times[0]);
      measurement.library.push_back(times[1]);
    }
    add(std::move(measurement));
  }

  /// `sample` asks for something and returns its time.
  void compare(const std::string& name, const Shape& shape, int samples,
               const std::function<double(Peer&)>& sample) {
    if (!isWanted(name)) return;
    Peer floor(Server::Kind::floor, shape);
    Peer library(Server::Kind::library, shape);
    floor.connect();
    library.connect();
    measure(
        name, samples, [&] { return sample(floor); }, [&] { return sample(library); });
  }

  void measureAdapter();
  void measureClientLibrary();

  Options options_;
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
  // In a process that ends with all that is left behind.
  struct Times {
    double floorMade, floorDeleted, made, deleted;
  };
  const auto count = static_cast<std::size_t>(scaled(200));
  auto* const times = static_cast<Times*>(mmap(
      nullptr, count * sizeof(Times), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (times == MAP_FAILED) throw std::runtime_error("no memory");
  const pid_t process = fork();
  if (process == 0) {
    takeOwnSharedMemory();
    if (freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    for (std::size_t index = 0; index < count; ++index) {
      Times& row = times[index];
      timeLife([] { return std::make_unique<BareAdapter>(); }, row.floorMade, row.floorDeleted);
      timeLife([] { return std::make_unique<Host>(Shape{}); }, row.made, row.deleted);
    }
    _exit(0);
  }
  int status = -1;
  waitpid(process, &status, 0);
  require(status == 0, "the adapter's process has ended badly");
  Measurement construction{made, {}, {}};
  Measurement deletion{deleted, {}, {}};
  for (std::size_t index = 0; index < count; ++index) {
    construction.floor.push_back(times[index].floorMade);
    construction.library.push_back(times[index].made);
    deletion.floor.push_back(times[index].floorDeleted);
    deletion.library.push_back(times[index].deleted);
  }
  munmap(times, count * sizeof(Times));
  add(std::move(construction));
  add(std::move(deletion));
}

/// The floor here is the bare client on the same connection.
void Bench::measureClientLibrary() {
  const std::string name = "client library: 200 services, over the bare client";
  if (!isWanted(name)) return;
  Shape shape;
  shape.services = 200;
  const Server server(Server::Kind::library, shape);
  quillwork::client::ControlChannel channel(server.controlPath());
  message record{};
  measure(
      name, 1000,
      [&] { return timed([&] { askServices(channel.fileDescriptor(), record, shape.services); }); },
      [&] {
        return timed([&] {
          const auto services = channel.getServices();
          require(services.size() == shape.services && services.back().name == serviceName,
                  "the client library's services");
        });
      });
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
    pinTo(Processor::client);
    Bench bench(options);
    bench.run();
    bench.report();
  } catch (const std::exception& error) {
    std::cerr << "quillwork-bench: " << error.what() << '\n';
    return 1;
  }
}
