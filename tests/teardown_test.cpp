// The adapter's end while clients do their worst.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "adapter/MiddlewareIpc.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/FakeHost.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"
#include "support/UnixSocket.h"
#include "support/Watchdog.h"

namespace {

using namespace quillwork;

// As many as a slow process can be asked for, or as QUILLWORK_LIFETIMES says.
int lifetimes() {
  const char* const wanted = std::getenv("QUILLWORK_LIFETIMES");
  return wanted != nullptr ? std::atoi(wanted) : std::max(1000 / TEST_STRIDE, 30);
}

/// What a client does until its adapter is gone.
enum class Manner {
  floodsAndNeverReads,
  floodsAndReads,
  sleeps,
  sendsHalf,
  hasClosedSending,
  hasClosedReceiving,
  comesAndGoes,
};
constexpr std::size_t manners = 7;

/// A client of one channel that connects to one adapter after the other. It never blocks, so that
/// it ends with the generation it belongs to.
class Attacker {
 public:
  Attacker(const char* path, std::string request, unsigned seed, const std::atomic<int>& generation,
           std::atomic<int>& connections)
      : path_(path),
        random_(seed),
        generation_(generation),
        connections_(connections),
        thread_([this, request = std::move(request)] {
          while (generation_ != ended) attack(request);
        }) {}
  void join() { thread_.join(); }

  static constexpr int ended = -1;

 private:
  void attack(const std::string& request) {
    const int generation = generation_;
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connectTo(client, path_) == 0) {
      const auto manner = static_cast<Manner>(random_() % manners);
      begin(client, manner, request);
      ++connections_;
      while (generation_ == generation && goOn(client, manner, request)) {
      }
    } else {
      std::this_thread::yield();
    }
    close(client);
  }

  static void begin(int client, Manner manner, const std::string& request) {
    const std::size_t size = manner == Manner::sendsHalf ? request.size() / 2 : request.size();
    send(client, request.data(), size, MSG_NOSIGNAL);
    if (manner == Manner::hasClosedSending) shutdown(client, SHUT_WR);
    if (manner == Manner::hasClosedReceiving) shutdown(client, SHUT_RD);
  }

  /// False when the connection has ended, or shall.
  static bool goOn(int client, Manner manner, const std::string& request) {
    const bool floods = manner == Manner::floodsAndNeverReads || manner == Manner::floodsAndReads ||
                        manner == Manner::hasClosedReceiving;
    if (manner == Manner::comesAndGoes) return false;
    pollfd ready{client, static_cast<short>(floods ? POLLOUT : 0), 0};
    poll(&ready, 1, 1);
    if ((ready.revents & (POLLHUP | POLLERR)) != 0) return false;
    if (floods && (ready.revents & POLLOUT) != 0 &&
        send(client, request.data(), request.size(), MSG_NOSIGNAL) < 0 && errno != EAGAIN) {
      return false;
    }
    char buffer[65536];
    while (manner == Manner::floodsAndReads && recv(client, buffer, sizeof buffer, 0) > 0) {
    }
    return true;
  }

  const char* const path_;
  std::mt19937 random_;
  const std::atomic<int>& generation_;
  std::atomic<int>& connections_;
  std::thread thread_;
};

std::string controlRequests() {
  std::string bytes;
  for (const int type : {6, 1, 15, 7}) bytes += bytesOf(request(SI, type));
  return bytes;
}

std::string sectionRequests() {
  std::string bytes = word(2) + word(17) + word(0);
  for (int count = 0; count < 20; ++count) bytes += word(13);
  return bytes + word(4) + word(0) + word(3) + "abc" + word(3) + "def";
}

/// As a facade does it: it tells its listener of changes from a thread of its own, and never after
/// the listener has been removed.
class Notifier {
 public:
  explicit Notifier(const std::atomic<int>& generation)
      : thread_([this, &generation] {
          while (generation != Attacker::ended) {
            isWanted_.wait(true);
            const std::lock_guard lock(mutex_);
            if (listener_ != nullptr) listener_->graphicsSettingsChanged({}, {});
          }
        }) {}
  void setListener(middlewarefacade::GraphicsSettingsListener* listener) {
    // The thread would take the mutex again before anybody else has woken.
    isWanted_ = true;
    {
      const std::lock_guard lock(mutex_);
      listener_ = listener;
    }
    isWanted_ = false;
    isWanted_.notify_one();
  }
  void join() { thread_.join(); }

 private:
  std::mutex mutex_;
  std::atomic<bool> isWanted_{false};
  middlewarefacade::GraphicsSettingsListener* listener_ = nullptr;
  std::thread thread_;
};

TEST(TeardownUnderFire, AThousandLifetimes) {
  // Each lifetime leaves the section-filter server's socket and thread: the process has one
  // adapter in its life, and this one has a thousand.
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  if (sizeof(void*) == 4) {
    // A thousand stacks of the usual size do not fit the address space.
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 256 * 1024);
    pthread_setattr_default_np(&small);
    pthread_attr_destroy(&small);
  }

  const CaughtStream output(stdout);
  const CaughtStream errors(stderr);
  FakeHost host;
  host.section.assign(4096, 's');
  host.services.resize(100);
  host.descriptors.resize(10);
  host.events.resize(5);
  std::atomic<int> generation{0};
  std::atomic<int> connections{0};
  std::atomic<bool> sectionsBlock{false};
  Notifier notifier(generation);
  host.onCall = [&](const std::string& operation) {
    if (operation == "removeGraphicsSettingsListener") notifier.setListener(nullptr);
  };
  host.onReadSection = [&] {
    while (sectionsBlock) poll(nullptr, 0, 1);
  };
  std::list<Attacker> attackers;
  for (unsigned seed = 0; seed < 2; ++seed) {
    attackers.emplace_back(RawClient::control, controlRequests(), seed, generation, connections);
    attackers.emplace_back(RawClient::sectionFilter, sectionRequests(), 100 + seed, generation,
                           connections);
  }
  const int count = lifetimes();
  for (int round = 0; round < count; ++round) {
    sectionsBlock = round % 20 == 0;
    MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
    notifier.setListener(adapter);
    connections = 0;
    ++generation;
    // At once, or when some of them are at work.
    while (connections < round % 5) std::this_thread::yield();
    const Watchdog watchdog{std::chrono::seconds(2)};
    deleteAdapter(adapter);
    host.log.take();
  }
  generation = Attacker::ended;
  for (Attacker& attacker : attackers) attacker.join();
  notifier.join();
  sectionsBlock = false;

  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  {
    RawClient control;
    control.send(request(SI, 6));
    EXPECT_EQ(control.receiveRecord().type, 100);
    RawClient sections(RawClient::sectionFilter);
    sections.send(word(13));
    EXPECT_EQ(sections.receive(4 + 4096).size(), 4U + 4096U);
  }
  deleteAdapter(adapter);
}

TEST(TheWatchdog, EndsWhatHangsWithTheStacksOfItsThreads) {
  EXPECT_DEATH(
      {
        const Watchdog watchdog{std::chrono::milliseconds(10)};
        for (;;) pause();
      },
      "not done after 10 ms\n(.|\n)*[Tt]hread");
}

}  // namespace
