// quillwork-receiver: the reference host process. It implements the facades on a transport stream
// and serves the library's one client until it is told to end.

#include <fmt/format.h>
#include <pthread.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "adapter/MiddlewareIpc.h"
#include "receiver/Commands.h"
#include "receiver/Host.h"

namespace {

using receiver::Host;
using receiver::ServiceInformation;
using receiver::StreamFile;

std::string timeText(std::optional<std::int64_t> time) {
  if (!time) return "none";
  // With std::chrono, for a time_t of 32 bits ends in 2038.
  const std::chrono::sys_seconds when{std::chrono::seconds(*time)};
  const auto day = std::chrono::floor<std::chrono::days>(when);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(when - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

void printSummary(const std::string& path, const ServiceInformation& information) {
  const receiver::Counters counters = information.counters();
  fmt::print(
      "{}: {} packets ({} damaged, {} gaps), {} sections ({} bad, {} changes), {} services, {} "
      "events, broadcast time {}\n",
      path, counters.packets, counters.errors.damagedPackets, counters.errors.lostPackets,
      counters.sections, counters.errors.badSections, counters.changes,
      information.services().size(), information.events().size(),
      timeText(information.broadcastTime()));
}

/// Reads the stream. A map can come before the first PAT, which is not repeated in a short capture,
/// so the stream begins anew once its programs are known.
void readStream(const StreamFile& stream, ServiceInformation& information) {
  std::size_t index = 0;
  for (; index < stream.packets() && information.firstProgram() == -1; ++index) {
    information.feed(stream.packet(index));
  }
  if (index == stream.packets()) return;
  information.restart();
  for (index = 0; index < stream.packets(); ++index) information.feed(stream.packet(index));
}

/// SIGINT and SIGTERM, blocked in every thread so that one place waits for them.
sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

void deleteAdapter(MiddlewareIpc* adapter) {
  // The adapter's class has no virtual destructor, and this is an object of that class.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
  delete adapter;
#pragma GCC diagnostic pop
}

void serve(const std::string& path, bool once, const std::string& charset) {
  // In the background it may not read from its terminal, and shall not be stopped for trying.
  std::signal(SIGTTIN, SIG_IGN);
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const StreamFile stream(path);
  ServiceInformation information(
      charset.empty() ? std::nullopt : std::optional(receiver::CharacterTable::named(charset)));
  Host host{stream, information, once, {}};
  Host::current() = &host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  readStream(stream, information);
  printSummary(path, information);
  fmt::print("serving\n");
  std::fflush(stdout);
  {
    receiver::Commands commands(*adapter);
    int signal = 0;
    sigwait(&signals, &signal);
    commands.stop();
    deleteAdapter(adapter);
  }
  Host::current() = nullptr;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  CLI::App application{
      "Serves a transport stream to the client of quillwork-ipc, on the sockets "
      "/dev/shm/ipc.socket and /dev/shm/ipcdemux.socket, until SIGINT or SIGTERM"};
  std::string path;
  std::string charset;
  bool once = false;
  application.add_option("STREAM.ts", path, "MPEG transport stream of 188-byte packets")
      ->required();
  application.add_flag("--once", once,
                       "let the section filter end with the stream instead of beginning again");
  application.add_option("--charset", charset,
                         "character table of texts that do not name their own: an iconv name, or "
                         "ARIB; found out from the stream without it");
  CLI11_PARSE(application, argumentCount, arguments);
  try {
    serve(path, once, charset);
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillwork-receiver: {}\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
