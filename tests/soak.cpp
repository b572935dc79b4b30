// Everything together for as long as is asked: the receiver on the sample stream, clients on both
// channels that come, ask, break off and go, notifications all the while. At the end the receiver
// must have no more descriptors, threads and memory than in the beginning.
//
//   quillwork-soak MINUTES

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "support/OwnSharedMemory.h"
#include "support/Program.h"

namespace {

using namespace quillwork::client;
using Clock = std::chrono::steady_clock;

// What one growing heap may add to the pages in use, through fragmentation alone.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long toleratedKilobytes = 1L << 20;  // A sanitizer's own.
#else
constexpr long toleratedKilobytes = 1024;
#endif

struct Usage {
  long descriptors = 0;
  long threads = 0;
  long kilobytes = 0;
};

Usage usageOf(pid_t process) {
  const std::filesystem::path directory = "/proc/" + std::to_string(process);
  const auto entries = [&](const char* name) {
    return static_cast<long>(
        std::distance(std::filesystem::directory_iterator(directory / name), {}));
  };
  std::ifstream file(directory / "statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return {entries("fd"), entries("task"), resident * (sysconf(_SC_PAGESIZE) / 1024)};
}

struct Counts {
  std::atomic<long> requests{0};
  std::atomic<long> sections{0};
  std::atomic<long> notifications{0};
  std::atomic<long> connections{0};
  std::atomic<long> failures{0};
};

Counts counts;
std::atomic<bool> hasEnded{false};

/// A channel, as soon as the receiver takes one more client.
template <class Channel, class... Arguments>
std::unique_ptr<Channel> connect(Arguments&&... arguments) {
  while (!hasEnded) {
    try {
      auto channel = std::make_unique<Channel>(arguments...);
      ++counts.connections;
      return channel;
    } catch (const Error&) {
      std::this_thread::yield();
    }
  }
  return nullptr;
}

/// Connects again and again and works. Whatever is answered otherwise than it should is a failure.
template <class Channel>
void repeat(unsigned seed, const std::function<void(Channel&, std::mt19937&)>& work) {
  std::mt19937 random(seed);
  while (const auto channel = connect<Channel>()) {
    try {
      for (auto left = random() % 50; left > 0 && !hasEnded; --left) work(*channel, random);
    } catch (const Error& error) {
      std::fprintf(stderr, "%s\n", error.what());
      ++counts.failures;
    }
  }
}

void expect(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "wrong: %s\n", what);
  ++counts.failures;
}

void askTheControlChannel(ControlChannel& channel, std::mt19937& random) {
  channel.onNotification([](const Notification&) { ++counts.notifications; });
  expect(channel.getServices().size() == 5, "the services");
  expect(!channel.getProgramEvents().empty(), "the events");
  expect(!channel.getProgramEvent().texts[1].empty(), "the present event");
  expect(!channel.getPMTs(-1).empty(), "the maps");
  expect(!channel.getNetworkDescriptors().empty(), "the network's descriptors");
  expect(channel.getNetwork().value != -1, "the network");
  expect(channel.getCurrentService() != -1, "the current service");
  expect(channel.getSystemProperty("none").empty(), "a property");
  channel.setSystemProperty("name", "value");
  channel.getMediaBounds(1);
  channel.getCASystemIds();
  counts.requests += 10;
  // The answer to a state that was asked for meanwhile; one too many does no harm.
  channel.answerApplicationState(true);
  if (random() % 20 == 0) channel.getServiceDescription();
}

void readSections(SectionFilterChannel& channel, std::mt19937& random) {
  const auto pid = static_cast<std::int32_t>(random() % 3);
  channel.stop();
  channel.set_pid(pid == 0 ? 0 : pid == 1 ? 17 : 18);
  if (random() % 2 == 0) channel.set_positive_filter(0, {0}, {0});
  channel.clear_positive_filter();
  channel.set_time_out(1000);
  channel.start();
  expect(!channel.read_section().empty(), "a section");
  // Whoever breaks off leaves requests for sections behind; none of them is to wait for one.
  channel.stop();
  ++counts.sections;
}

/// Connections that end in the middle of a request, or of its reply.
void breakOff() {
  std::mt19937 random(7);
  const auto below = [&](unsigned limit) { return static_cast<std::int32_t>(random() % limit); };
  for (;;) {
    const bool isControl = below(2) == 0;
    std::vector<std::int32_t> words;
    for (std::int32_t left = 1 + below(3); left > 0; --left) {
      const std::size_t first = words.size();
      // For the section filter: sections, and nothing that would change what others filter.
      words.resize(first + 490, 13);
      if (!isControl) continue;
      words[first] = below(12);
      words[first + 2] = below(20);
      for (std::size_t word = 3; word < 20; ++word) words[first + word] = below(16);
    }
    const auto channel = connect<Channel>(
        isControl ? ControlChannel::defaultPath : SectionFilterChannel::defaultPath,
        std::chrono::seconds(30));
    if (channel == nullptr) return;
    try {
      channel->send(
          words.data(),
          static_cast<std::size_t>(below(static_cast<unsigned>(words.size() * sizeof words[0]))));
    } catch (const Error&) {
      // Cut off by the receiver.
    }
  }
}

/// Waits until every client has gone, then looks.
Usage usageWhenIdle(const Program& host, const Usage& expected) {
  Usage usage = usageOf(host.process());
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  while (Clock::now() < deadline &&
         (usage.descriptors > expected.descriptors || usage.threads > expected.threads)) {
    std::this_thread::yield();
    usage = usageOf(host.process());
  }
  return usage;
}

void print(const char* when, const Usage& usage) {
  std::printf(
      "%s: %ld requests, %ld sections, %ld notifications, %ld connections, %ld failures; "
      "%ld descriptors, %ld threads, %ld KiB\n",
      when, counts.requests.load(), counts.sections.load(), counts.notifications.load(),
      counts.connections.load(), counts.failures.load(), usage.descriptors, usage.threads,
      usage.kilobytes);
  std::fflush(stdout);
}

void trafficUntil(Program& host, Clock::time_point end) {
  hasEnded = false;
  std::vector<std::thread> threads;
  threads.emplace_back([] { repeat<ControlChannel>(1, askTheControlChannel); });
  threads.emplace_back([] { repeat<SectionFilterChannel>(2, readSections); });
  threads.emplace_back(breakOff);
  threads.emplace_back([&] {
    const std::string longText(5000, 't');
    while (!hasEnded) {
      host.say("event 7 short");
      host.say("event 8 " + longText);
      host.say("state 3");
    }
  });
  auto nextReport = Clock::now() + std::chrono::minutes(1);
  while (Clock::now() < end) {
    std::this_thread::sleep_until(std::min(end, nextReport));
    if (Clock::now() < nextReport) continue;
    print("running", usageOf(host.process()));
    host.forgetOutput();
    nextReport += std::chrono::minutes(1);
  }
  hasEnded = true;
  for (std::thread& thread : threads) thread.join();
}

int soak(double minutes) {
  // The tables come several times a second.
  Program host({receiverProgram(), "--loop", "--bitrate", "5000000", TABLES});
  if (!host.awaitOutput("broadcast time")) {
    std::fputs(host.errors().c_str(), stderr);
    return EXIT_FAILURE;
  }
  // A broken-off request may be the first for a player, which loads the media framework.
  connect<ControlChannel>()->open("file:///nothing");
  const Usage atRest = usageOf(host.process());
  const auto begin = Clock::now();
  const auto length = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double, std::ratio<60>>(minutes));
  // The heap finds its size in the first tenth, and not before a few seconds have passed.
  trafficUntil(host, begin + std::max<Clock::duration>(length / 10, std::chrono::seconds(4)));
  const Usage before = usageWhenIdle(host, atRest);
  print("warm", before);
  trafficUntil(host, begin + length);
  const Usage after = usageWhenIdle(host, before);
  print("end", after);
  host.signal(SIGTERM);
  const int status = host.wait();
  const bool isSound = status == 0 && counts.failures == 0 &&
                       after.descriptors == before.descriptors && after.threads == before.threads &&
                       after.kilobytes <= before.kilobytes + toleratedKilobytes;
  std::printf("%s: exit status %d, %+ld descriptors, %+ld threads, %+ld KiB\n",
              isSound ? "sound" : "NOT SOUND", status, after.descriptors - before.descriptors,
              after.threads - before.threads, after.kilobytes - before.kilobytes);
  return isSound ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const char* const text = argumentCount == 2 ? arguments[1] : "";
  char* end = nullptr;
  const double minutes = std::strtod(text, &end);
  if (end == text || *end != '\0' || !(minutes > 0)) {
    std::fputs("usage: quillwork-soak MINUTES\n", stderr);
    return EXIT_FAILURE;
  }
  takeOwnSharedMemory();
  return soak(minutes);
}
