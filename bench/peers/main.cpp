// The same work through other ways for two processes to talk, in the turns of the benchmark.

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>

#include "bench/Measurement.h"
#include "bench/peers/Peer.h"
#include "bench/quiet.h"
#include "bench/timed.h"
#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"

namespace bench::peers {

Answers::Answers(const Shape& shape) : section(shape.section, filler) {
  for (std::size_t index = 0; index < shape.services; ++index) {
    services.push_back({{static_cast<std::int32_t>(index)}, std::string(shape.nameLength, 'n')});
  }
}

std::size_t Orders::take() const {
  std::size_t count = 0;
  if (read(file_, &count, sizeof count) != sizeof count) _exit(0);
  return count;
}

std::vector<Peer> all() {
  return {
#ifdef HAVE_SD_BUS
      sdBus(),
      busDaemon(),
#endif
#ifdef HAVE_ZEROMQ
      zeroMq(),
#endif
#ifdef HAVE_GRPC
      grpc(),
#endif
  };
}

namespace {

void require(bool right, const std::string& what) {
  if (!right) throw std::runtime_error("a wrong answer: " + what);
}

/// A client and its server. Who sends notifications is told through `notify`.
struct Contestant {
  std::string name;
  std::unique_ptr<Connection> connection;
  std::function<void(std::size_t count)> notify;
};

/// This library with its client library.
class OwnConnection : public Connection {
 public:
  explicit OwnConnection(const Server& server)
      : control_(server.controlPath()), sections_(server.sectionPath()) {}

  std::int32_t integer() override { return control_.getCurrentService(); }
  std::vector<Service> services() override { return control_.getServices(); }
  Section section() override { return sections_.read_section(); }
  std::int32_t notification() override {
    const auto received = control_.waitForNotification(std::chrono::seconds(10));
    require(received.has_value(), "a notification");
    return std::get<quillwork::client::EndOfMedia>(*received).player;
  }

 private:
  quillwork::client::ControlChannel control_;
  quillwork::client::SectionFilterChannel sections_;
};

/// A server's process.
class Process {
 public:
  Process(const Peer& peer, const Shape& shape, unsigned processor)
      : prepared_(peer.prepare ? peer.prepare(processor) : nullptr) {
    std::array<int, 2> orders{};
    if (pipe2(orders.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    orders_ = orders[1];
    process_ = fork();
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(orders[1]);
      pinTo(processor);
      const Answers answers(shape);
      const Orders end(orders[0]);
      try {
        peer.serve(answers, end);
      } catch (const std::exception& error) {
        std::cerr << peer.name << ": " << error.what() << '\n';
      }
      _exit(1);
    }
    close(orders[0]);
  }
  ~Process() {
    close(orders_);
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void notify(std::size_t count) const {
    if (write(orders_, &count, sizeof count) != sizeof count) throw std::runtime_error("no order");
  }

 private:
  std::shared_ptr<void> prepared_;
  int orders_ = -1;
  pid_t process_ = -1;
};

std::unique_ptr<Connection> connectTo(const Peer& peer) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    try {
      return peer.connect();
    } catch (const std::runtime_error&) {
      // It is starting.
      if (std::chrono::steady_clock::now() > end) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

struct Work {
  std::string name;
  Shape shape;
  std::function<double(Contestant&)> once;
};

std::function<double(Contestant&)> askServices(std::size_t count, std::size_t length) {
  return [=](Contestant& contestant) {
    return timed([&] {
      const auto services = contestant.connection->services();
      require(services.size() == count &&
                  services.back().values[0] == static_cast<std::int32_t>(count) - 1 &&
                  services.back().name.size() == length,
              contestant.name + ": services");
    });
  };
}

std::vector<Work> works() {
  constexpr std::size_t burst = 100;
  std::vector<Work> all;
  all.push_back({"an integer", {}, [](Contestant& contestant) {
                   return timed([&] {
                     require(contestant.connection->integer() == currentService,
                             contestant.name + ": the current service");
                   });
                 }});
  for (const std::size_t length : {8U, 200U}) {
    Shape shape;
    shape.services = 200;
    shape.nameLength = length;
    all.push_back({fmt::format("200 services, names of {} characters", length), shape,
                   askServices(200, length)});
  }
  Shape section;
  section.section = 4096;
  all.push_back({"a section of 4,096 bytes", section, [](Contestant& contestant) {
                   return timed([&] {
                     const Section bytes = contestant.connection->section();
                     require(bytes == Section(4096, filler), contestant.name + ": a section");
                   });
                 }});
  all.push_back({"a notification, one way", {}, [](Contestant& contestant) {
                   contestant.notify(1);
                   return since(contestant.connection->notification());
                 }});
  all.push_back(
      {fmt::format("{} notifications at once, each", burst), {}, [](Contestant& contestant) {
         return timed([&] {
                  contestant.notify(burst);
                  for (std::size_t left = burst; left > 0; --left) {
                    contestant.connection->notification();
                  }
                }) /
                burst;
       }});
  return all;
}

Row measure(const Work& work, Placement placement, const Effort& effort) {
  const unsigned processor = placement == Placement::one ? clientProcessor : clientProcessor + 1;
  // All servers before any connection: they would inherit it.
  const Server server(Server::Kind::library, work.shape, placement);
  const std::vector<Peer> peers = all();
  std::vector<std::unique_ptr<Process>> processes;
  for (const Peer& peer : peers) {
    processes.push_back(std::make_unique<Process>(peer, work.shape, processor));
  }
  std::vector<Contestant> contestants;
  contestants.push_back(
      {"quillwork-ipc", std::make_unique<OwnConnection>(server), [&server](std::size_t count) {
         while (count-- > 0) server.notify();
       }});
  for (std::size_t index = 0; index < peers.size(); ++index) {
    contestants.push_back(
        {peers[index].name, connectTo(peers[index]),
         [&process = *processes[index]](std::size_t count) { process.notify(count); }});
  }
  std::vector<Side> sides;
  for (Contestant& contestant : contestants) {
    // Nobody's first answer counts.
    contestant.connection->integer();
    sides.push_back({contestant.name, [&] { return work.once(contestant); }, {}});
  }
  return compare(work.name, placement == Placement::one ? "one" : "two", effort, sides[0],
                 {sides.begin() + 1, sides.end()});
}

/// Measures in a process of its own: a library that has started its threads cannot be forked.
Row measureApart(const Work& work, Placement placement, const Effort& effort) {
  std::array<int, 2> result{};
  if (pipe2(result.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const pid_t process = fork();
  if (process == 0) {
    close(result[0]);
    try {
      const Row row = measure(work, placement, effort);
      nlohmann::json figures{row.median, row.p99};
      for (const Ratio& ratio : row.ratios) {
        figures.push_back({ratio.floor, ratio.median, ratio.lower, ratio.upper});
      }
      const std::string text = figures.dump();
      const bool isSaid = write(result[1], text.data(), text.size()) != -1;
      _exit(isSaid ? 0 : 1);
    } catch (const std::exception& error) {
      std::cerr << work.name << ": " << error.what() << '\n';
      _exit(1);
    }
  }
  close(result[1]);
  std::string text;
  char bytes[4096];
  for (ssize_t size = 0; (size = read(result[0], bytes, sizeof bytes)) > 0;) {
    text.append(bytes, static_cast<std::size_t>(size));
  }
  close(result[0]);
  int status = -1;
  waitpid(process, &status, 0);
  require(status == 0, "a process has ended badly");
  const auto figures = nlohmann::json::parse(text);
  Row row{work.name, placement == Placement::one ? "one" : "two", figures[0], figures[1], {}};
  for (std::size_t index = 2; index < figures.size(); ++index) {
    const auto& ratio = figures[index];
    row.ratios.push_back({ratio[0], ratio[1], ratio[2], ratio[3]});
  }
  return row;
}

/// Microseconds: those of the others from the ratios of the turns.
std::string table(const std::vector<Row>& rows) {
  std::string head = "| What | processors | quillwork-ipc |";
  std::string line = "|---|---|---:|";
  for (const Ratio& ratio : rows.front().ratios) {
    head += ' ' + ratio.floor + " |";
    line += "---:|";
  }
  std::string text = head + '\n' + line + '\n';
  for (const Row& row : rows) {
    text += fmt::format("| {} | {} | {:.1f} |", row.name, row.placement, row.median);
    for (const Ratio& ratio : row.ratios)
      text += fmt::format(" {:.1f} |", row.median / ratio.median);
    text += '\n';
  }
  return text;
}

}  // namespace
}  // namespace bench::peers

int main(int count, char** values) {
  using namespace bench;
  CLI::App app{"Measures the library beside other ways for two processes to talk"};
  std::string tableFile;
  std::string jsonFile;
  double share = 1;
  app.add_option("--table", tableFile, "write the table to this file, too");
  app.add_option("--json", jsonFile, "write the figures to this file, too");
  app.add_option("--effort", share, "so many times the usual number of samples")
      ->check(CLI::PositiveNumber);
  CLI11_PARSE(app, count, values);
  try {
    if (peers::all().empty()) throw std::runtime_error("built without any of the others");
    pinTo(clientProcessor);
    Effort effort;
    effort.turn *= std::min(1.0, share);
    effort.rounds = std::max(3, static_cast<int>(effort.rounds * share));
    std::chrono::milliseconds patience(30'000);
    bool isQuiet = true;
    std::vector<Row> rows;
    for (const Placement placement : {Placement::one, Placement::two}) {
      for (const peers::Work& work : peers::works()) {
        isQuiet = awaitQuiet(patience) && isQuiet;
        rows.push_back(peers::measureApart(work, placement, effort));
        std::cerr << rows.back().name << ", " << rows.back().placement << '\n';
      }
    }
    std::string text = peers::table(rows);
    if (!isQuiet) text += "\nThe machine was not quiet: other programs had processor time.\n";
    std::cout << text;
    for (const auto& [file, content] :
         {std::pair{tableFile, text}, std::pair{jsonFile, json(rows, {}, isQuiet)}}) {
      if (file.empty()) continue;
      std::ofstream stream(file);
      if (!(stream << content << std::flush))
        throw std::runtime_error(file + ": cannot be written");
    }
  } catch (const std::exception& error) {
    std::cerr << "quillwork-bench-peers: " << error.what() << '\n';
    return 1;
  }
}
