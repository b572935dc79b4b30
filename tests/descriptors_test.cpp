// The library's descriptors: each is closed once, by whoever serves it, and none is left behind.

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/CallLog.h"
#include "support/DemuxRecorder.h"
#include "support/FakeHost.h"
#include "support/Leftovers.h"
#include "support/RawClient.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/UnixSocket.h"
#include "support/Watchdog.h"

// The linker gives the library the __wrap_ functions below for its own.
extern "C" {
int __real_close(int descriptor);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __real_pthread_cancel(pthread_t thread);
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
}

namespace {

// How many closes have hit a number that was not open.
std::atomic<int> closedTwice{0};

/// When a cancellation strikes the section-filter thread in a close, which is a cancellation point.
enum class Strike { never, before, behind };
const char* nameOf(Strike when) {
  return when == Strike::before ? "TheSectionFilterBefore" : "TheSectionFilterBehind";
}
void PrintTo(Strike when, std::ostream* out) { *out << nameOf(when); }
std::atomic<Strike> strike{Strike::never};
std::atomic<int> struckCloses{0};

std::atomic<bool> threadsFail{false};

std::atomic<int> cancellations{0};

/// What has become of the mutexes that were initialised at run time.
class Mutexes {
 public:
  void initialised(const pthread_mutex_t* mutex) {
    const Turn turn(busy_);
    if (!live_.insert(mutex).second) ++initialisedTwice;
    destroyed_.erase(mutex);
  }
  void destroyed(const pthread_mutex_t* mutex) {
    const Turn turn(busy_);
    live_.erase(mutex);
    destroyed_.insert(mutex);
  }
  void locked(const pthread_mutex_t* mutex) {
    const Turn turn(busy_);
    if (destroyed_.count(mutex) != 0) ++lockedAfterTheirEnd;
  }

  std::atomic<int> initialisedTwice{0};
  std::atomic<int> lockedAfterTheirEnd{0};

 private:
  // No mutex: its lock would be counted, too.
  struct Turn {
    explicit Turn(std::atomic_flag& taken) : busy(taken) {
      while (busy.test_and_set()) std::this_thread::yield();
    }
    ~Turn() { busy.clear(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    std::atomic_flag& busy;
  };
  std::atomic_flag busy_ = ATOMIC_FLAG_INIT;
  std::set<const pthread_mutex_t*> live_;
  std::set<const pthread_mutex_t*> destroyed_;
};

Mutexes& mutexes() {
  static Mutexes all;
  return all;
}

bool isSectionFilterThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::strcmp(name, "ipc-demux") == 0;
}

/// A cancellation that comes just here.
void strikeHere() {
  ++struckCloses;
  pthread_cancel(pthread_self());
  pthread_testcancel();
}

}  // namespace

extern "C" {

int __wrap_close(int descriptor) {
  const Strike when = isSectionFilterThread() ? strike.load() : Strike::never;
  if (when == Strike::before) strikeHere();
  const int result = __real_close(descriptor);
  const int error = errno;
  if (result != 0 && error == EBADF) ++closedTwice;
  if (when == Strike::behind) strikeHere();
  errno = error;
  return result;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
  if (threadsFail) return EAGAIN;
  return __real_pthread_create(thread, attributes, body, argument);
}

int __wrap_pthread_cancel(pthread_t thread) {
  const int result = __real_pthread_cancel(thread);
  ++cancellations;
  return result;
}

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  mutexes().initialised(mutex);
  return __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
  mutexes().destroyed(mutex);
  return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  mutexes().locked(mutex);
  return __real_pthread_mutex_lock(mutex);
}
}

namespace quillwork {
namespace {

constexpr std::chrono::seconds hang{30};
constexpr int rounds = 500;

constexpr const char* firstPath = "/dev/shm/first.socket";
constexpr int firstLength = 21;
constexpr const char* secondPath = "/dev/shm/second.socket";
constexpr int secondLength = 22;
constexpr const char* directoryPath = "/dev/shm/taken.socket";
constexpr int directoryLength = 21;

/// A directory, where no socket can be bound.
class TakenPath {
 public:
  explicit TakenPath(const char* path) : path_(path) { std::filesystem::create_directory(path_); }
  ~TakenPath() { std::filesystem::remove(path_); }
  TakenPath(const TakenPath&) = delete;
  TakenPath& operator=(const TakenPath&) = delete;

 private:
  const char* path_;
};

class Recorder : public IpcListener {
 public:
  void update(message& record) override {
    log.add("update", record.group, record.type);
    if (throws && record.group != VIDEO) throw std::runtime_error("a listener's fault");
  }
  void update(std::list<message>) override {}
  void clientConnected() override { log.add("connected"); }
  void clientDisconnected() override { log.add("disconnected"); }
  CallLog log;
  std::atomic<bool> throws{false};
};

class CancelledClose : public testing::TestWithParam<Strike> {
 protected:
  /// A client that comes and goes while the thread is cancelled in the middle of the close.
  void connectAndLeave() {
    DemuxRecorder recorder;
    IpcDemuxServer server;
    server.setListener(&recorder);
    server.start();
    struckCloses = 0;
    strike = GetParam();
    {
      const RawClient client(RawClient::sectionFilter);
      client.send(word(9));
      ASSERT_TRUE(recorder.log.await("clear_table_id()"));
    }
    while (struckCloses == 0) std::this_thread::yield();
    server.stop();
    strike = Strike::never;
  }

  const Watchdog watchdog{hang};
};

TEST_P(CancelledClose, ClosesNoNumberTwiceAndLeavesNoneOpen) {
  connectAndLeave();
  const auto descriptors = openDescriptors();
  for (int round = 0; round < 10; ++round) connectAndLeave();
  EXPECT_EQ(closedTwice, 0);
  EXPECT_EQ(openDescriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Of, CancelledClose, testing::Values(Strike::before, Strike::behind),
                         [](const auto& when) { return std::string(nameOf(when.param)); });

TEST(ReleasedCall, ThatEndsByAnExceptionAfterAllEndsTheConnection) {
  const Watchdog watchdog{std::chrono::seconds(60)};
  std::atomic<bool> isInside{false};
  DemuxRecorder recorder;
  const int before = cancellations;
  recorder.section = [&]() -> DemuxRecorder::Bytes {
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    isInside = true;
    while (cancellations == before) std::this_thread::yield();
    throw std::runtime_error("late");
  };
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  while (!isInside) std::this_thread::yield();
  {
    const CaughtStream errors(stderr);
    IpcDemuxServer::releaseListener(&recorder);
    EXPECT_EQ(errors.text(), "Client's connection ended by an exception: late\n");
  }
  EXPECT_TRUE(client.isAtEnd());
  const RawClient next(RawClient::sectionFilter);
  next.send(word(13));
  EXPECT_EQ(next.receive(4), word(0));
  server.stop();
}

TEST(StartsAndStops, OfTheSectionFilterCloseNoNumberTwice) {
  DemuxRecorder recorder;
  IpcDemuxServer server;
  server.setListener(&recorder);
  for (int round = 0; round < rounds; ++round) {
    const Watchdog watchdog{hang};
    server.start();
    {
      const RawClient client(RawClient::sectionFilter);
      client.send(word(9));
      ASSERT_TRUE(recorder.log.await("clear_table_id()"));
      recorder.log.take();
    }
    // The thread may be closing the connection.
    server.stop();
  }
  EXPECT_EQ(closedTwice, 0);
}

TEST(StartsAndStops, OfTheControlChannelCloseNoNumberTwice) {
  Recorder recorder;
  IpcServer server(&recorder, firstPath, firstLength);
  for (int round = 0; round < rounds; ++round) {
    const Watchdog watchdog{hang};
    server.start();
    {
      const RawClient client(firstPath);
      ASSERT_TRUE(recorder.log.await("connected()"));
      recorder.log.take();
    }
    server.stop();
  }
  EXPECT_EQ(closedTwice, 0);
}

/// Two control channels at once, on paths of their own.
class TwoControlServers : public testing::Test {
 protected:
  ~TwoControlServers() override { EXPECT_EQ(closedTwice, 0); }

  /// The server hears its client, and the client hears it.
  static void expectExchange(const RawClient& client, Recorder& recorder, IpcServer& server) {
    client.send(request(SI, 6));
    ASSERT_TRUE(recorder.log.await("update(6, 6)"));
    recorder.log.take();
    message record = request(MEDIA, 16);
    EXPECT_TRUE(server.sendMessage(record));
    EXPECT_EQ(client.receiveRecord().group, MEDIA);
  }

  static void expectService(Recorder& recorder, const char* path) {
    recorder.log.take();
    const RawClient client(path);
    client.send(request(SI, 7));
    EXPECT_TRUE(recorder.log.await("update(6, 7)"));
  }

  const Watchdog watchdog{hang};
  Recorder firstRecorder;
  Recorder secondRecorder;
  IpcServer first{&firstRecorder, firstPath, firstLength};
  IpcServer second{&secondRecorder, secondPath, secondLength};
};

TEST_F(TwoControlServers, TheSecondsClientSurvivesTheStopOfTheFirst) {
  first.start();
  second.start();
  {
    const RawClient client(secondPath);
    ASSERT_TRUE(secondRecorder.log.await("connected()"));
    first.stop();
    expectExchange(client, secondRecorder, second);
  }
  ASSERT_TRUE(secondRecorder.log.await("disconnected()"));
  expectService(secondRecorder, secondPath);
}

TEST_F(TwoControlServers, TheFirstsClientSurvivesTheStopOfTheSecond) {
  first.start();
  second.start();
  {
    const RawClient client(firstPath);
    ASSERT_TRUE(firstRecorder.log.await("connected()"));
    second.stop();
    expectExchange(client, firstRecorder, first);
  }
  ASSERT_TRUE(firstRecorder.log.await("disconnected()"));
  expectService(firstRecorder, firstPath);
}

TEST_F(TwoControlServers, AStopEndsTheClientOfItsOwn) {
  first.start();
  const RawClient one(firstPath);
  ASSERT_TRUE(firstRecorder.log.await("connected()"));
  second.start();
  const RawClient other(secondPath);
  ASSERT_TRUE(secondRecorder.log.await("connected()"));
  first.stop();
  EXPECT_TRUE(one.isAtEnd());
  expectExchange(other, secondRecorder, second);
  second.stop();
  EXPECT_TRUE(other.isAtEnd());
}

TEST_F(TwoControlServers, LeaveNothingBehindWithFailedStartsInBetween) {
  const TakenPath taken(directoryPath);
  const CaughtStream errors(stderr);
  const auto round = [&] {
    IpcServer failing(nullptr, directoryPath, directoryLength);
    first.start();
    failing.start();
    second.start();
    failing.start();
    for (const auto& [path, recorder] :
         {std::pair(firstPath, &firstRecorder), std::pair(secondPath, &secondRecorder)}) {
      {
        const RawClient client(path);
        ASSERT_TRUE(recorder->log.await("connected()"));
      }
      ASSERT_TRUE(recorder->log.await("disconnected()"));
      recorder->log.take();
    }
    first.stop();
    failing.start();
    second.stop();
  };
  round();
  const auto descriptors = openDescriptors();
  for (int count = 0; count < 20; ++count) round();
  // The socket of the last failed start may be open.
  EXPECT_LE(openDescriptors(), descriptors + 1);
  EXPECT_EQ(closedTwice, 0);
}

TEST_F(TwoControlServers, OneAfterTheOtherLeaveNothingBehind) {
  const auto descriptors = openDescriptors();
  const auto threads = runningThreads();
  for (int count = 0; count < 20; ++count) {
    for (const char* const path : {firstPath, secondPath}) {
      Recorder recorder;
      IpcServer server(&recorder, path, static_cast<int>(std::strlen(path)));
      server.start();
      const RawClient client(path);
      ASSERT_TRUE(recorder.log.await("connected()"));
    }
  }
  EXPECT_TRUE(becomes(openDescriptors, descriptors));
  EXPECT_TRUE(becomes(runningThreads, threads));
  EXPECT_EQ(closedTwice, 0);
}

TEST(AControlServer, ThatCannotHaveAThreadIsStartedAgain) {
  const Watchdog watchdog{hang};
  Recorder recorder;
  IpcServer server(&recorder, firstPath, firstLength);
  const auto descriptors = openDescriptors();
  for (int count = 0; count < 3; ++count) {
    threadsFail = true;
    server.start();
    server.start();
    threadsFail = false;
    server.start();
    {
      const RawClient client(firstPath);
      ASSERT_TRUE(recorder.log.await("connected()"));
      recorder.log.take();
    }
    server.stop();
  }
  EXPECT_EQ(mutexes().initialisedTwice, 0);
  EXPECT_EQ(closedTwice, 0);
  EXPECT_LE(openDescriptors(), descriptors + 1);
}

TEST(AControlServer, WhoseAcceptHasFailedIsStoppedAndStartedAgain) {
  const Watchdog watchdog{hang};
  Recorder recorder;
  IpcServer server(&recorder, firstPath, firstLength);
  const auto descriptors = openDescriptors();
  const auto threads = runningThreads();
  for (int count = 0; count < 3; ++count) {
    const CaughtStream errors(stderr);
    server.start();
    forEachSocket([](int socket) { shutdown(socket, SHUT_RDWR); });
    ASSERT_TRUE(becomes(runningThreads, threads));
    // It counts as running: nothing begins.
    server.start();
    server.start();
    EXPECT_EQ(errors.text(),
              std::string("Can't accept new connections: ") + std::strerror(EINVAL) + "\n");
    server.stop();
    server.start();
    {
      const RawClient client(firstPath);
      ASSERT_TRUE(recorder.log.await("connected()"));
      recorder.log.take();
    }
    server.stop();
  }
  EXPECT_EQ(mutexes().initialisedTwice, 0);
  EXPECT_EQ(closedTwice, 0);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(AControlServer, ThatWasStoppedSendsToNoFileOfTheHosts) {
  const Watchdog watchdog{hang};
  const CaughtStream errors(stderr);
  Recorder firstRecorder;
  IpcServer server(&firstRecorder, firstPath, firstLength);
  Recorder secondRecorder;
  IpcServer other(&secondRecorder, secondPath, secondLength);
  server.start();
  const RawClient client(firstPath);
  ASSERT_TRUE(firstRecorder.log.await("connected()"));
  server.stop();
  // Open the gates again, if there are any that servers share.
  other.start();
  std::array<std::array<int, 2>, 8> pairs{};
  for (auto& pair : pairs) {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair.data()), 0);
  }
  message record = request(MEDIA, 16);
  EXPECT_FALSE(server.sendMessage(record));
  EXPECT_FALSE(server.sendMessage("x", 1));
  server.stop();
  for (const auto& pair : pairs) {
    for (const int end : pair) {
      char byte = 0;
      EXPECT_EQ(recv(end, &byte, 1, 0), -1);
      EXPECT_EQ(errno, EAGAIN);
    }
  }
  for (const auto& pair : pairs) {
    for (const int end : pair) close(end);
  }
  other.stop();
  EXPECT_EQ(mutexes().lockedAfterTheirEnd, 0);
  EXPECT_EQ(closedTwice, 0);
}

class TwoSectionFilters : public testing::Test {
 protected:
  TwoSectionFilters() {
    first.setListener(&firstRecorder);
    second.setListener(&secondRecorder);
    for (DemuxRecorder* const recorder : {&firstRecorder, &secondRecorder}) {
      recorder->section = [] { return DemuxRecorder::Bytes{'s'}; };
    }
  }
  ~TwoSectionFilters() override {
    first.stop();
    second.stop();
    EXPECT_EQ(closedTwice, 0);
  }

  static void expectService(const RawClient& client) {
    client.send(word(13));
    EXPECT_EQ(client.receive(5), word(1) + "s");
  }

  const Watchdog watchdog{hang};
  DemuxRecorder firstRecorder;
  DemuxRecorder secondRecorder;
  IpcDemuxServer first;
  IpcDemuxServer second;
};

TEST_F(TwoSectionFilters, TheSecondsClientSurvivesTheStopOfTheFirst) {
  first.start();
  second.start();
  {
    const RawClient client(RawClient::sectionFilter);
    expectService(client);
    first.stop();
    expectService(client);
  }
  expectService(RawClient(RawClient::sectionFilter));
}

TEST_F(TwoSectionFilters, TheFirstsClientSurvivesTheStopOfTheSecond) {
  first.start();
  const RawClient client(RawClient::sectionFilter);
  expectService(client);
  second.start();
  expectService(RawClient(RawClient::sectionFilter));
  second.stop();
  expectService(client);
}

TEST_F(TwoSectionFilters, AStopEndsTheClientOfItsOwn) {
  first.start();
  const RawClient one(RawClient::sectionFilter);
  expectService(one);
  second.start();
  const RawClient other(RawClient::sectionFilter);
  expectService(other);
  first.stop();
  EXPECT_TRUE(one.isAtEnd());
  expectService(other);
  second.stop();
  EXPECT_TRUE(other.isAtEnd());
}

TEST(FailedStarts, OfAHundredAdaptersSectionFiltersLeaveNoDescriptorBehind) {
  const Watchdog watchdog{std::chrono::seconds(60)};
  const TakenPath taken(RawClient::sectionFilter);
  FakeHost host;
  const auto lifetimes = [](int count) {
    const CaughtStream output(stdout);
    const CaughtStream errors(stderr);
    for (int done = 0; done < count; ++done) {
      deleteAdapter(MiddlewareIpc::getInstance());
      // The facades' host declares what an adapter leaves that could bind.
      leavesBehind({.descriptors = -1, .threads = -1});
    }
  };
  lifetimes(1);
  const auto descriptors = openDescriptors();
  const auto threads = runningThreads();
  lifetimes(100);
  EXPECT_EQ(openDescriptors(), descriptors);
  // The kernel lists a thread for a moment after it was joined.
  EXPECT_TRUE(becomes(runningThreads, threads));
}

TEST(FailedStarts, OfAHundredSectionFiltersLeaveNoDescriptorBehind) {
  const TakenPath taken(RawClient::sectionFilter);
  const CaughtStream errors(stderr);
  const auto descriptors = openDescriptors();
  for (int count = 0; count < 100; ++count) {
    IpcDemuxServer server;
    server.start();
    if (count % 2 == 0) server.stop();
  }
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FailedStarts, OfAHundredSectionFiltersWithoutAThreadLeaveNoDescriptorBehind) {
  const auto descriptors = openDescriptors();
  threadsFail = true;
  for (int count = 0; count < 100; ++count) {
    IpcDemuxServer server;
    server.start();
    if (count % 2 == 0) server.stop();
  }
  threadsFail = false;
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(FailedStarts, OfAHundredControlServersLeaveOneDescriptorBehind) {
  const TakenPath taken(directoryPath);
  const CaughtStream errors(stderr);
  const auto descriptors = openDescriptors();
  for (int count = 0; count < 100; ++count) {
    IpcServer server(nullptr, directoryPath, directoryLength);
    server.start();
    server.start();
  }
  EXPECT_LE(openDescriptors(), descriptors + 1);
}

/// A child of the host's, which has a copy of every descriptor, and keeps it.
class Child {
 public:
  Child() : process_(fork()) {
    if (process_ != 0) return;
    for (;;) pause();
  }
  ~Child() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

 private:
  pid_t process_;
};

/// Whether the connection has ended in both directions.
bool hasEnded(const RawClient& client) {
  if (!client.isAtEnd()) return false;
  pollfd state{client.descriptor(), POLLOUT, 0};
  return poll(&state, 1, 20'000) == 1 && (state.revents & POLLHUP) != 0;
}

TEST(AForkedChild, DoesNotKeepAControlClientConnectedThroughAStop) {
  const Watchdog watchdog{hang};
  Recorder recorder;
  IpcServer server(&recorder, firstPath, firstLength);
  server.start();
  const RawClient client(firstPath);
  ASSERT_TRUE(recorder.log.await("connected()"));
  const Child child;
  server.stop();
  EXPECT_TRUE(hasEnded(client));
}

TEST(AForkedChild, DoesNotKeepAControlClientConnectedThroughAnException) {
  const Watchdog watchdog{hang};
  const CaughtStream errors(stderr);
  Recorder recorder;
  recorder.throws = true;
  IpcServer server(&recorder, firstPath, firstLength);
  server.start();
  const RawClient client(firstPath);
  ASSERT_TRUE(recorder.log.await("connected()"));
  const Child child;
  client.send(request(SI, 6));
  EXPECT_TRUE(hasEnded(client));
}

TEST(AForkedChild, DoesNotKeepASectionFilterClientConnectedThroughAStop) {
  const Watchdog watchdog{hang};
  DemuxRecorder recorder;
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
  const Child child;
  server.stop();
  EXPECT_TRUE(hasEnded(client));
}

TEST(AForkedChild, DoesNotKeepASectionFilterClientConnectedThroughAnException) {
  const Watchdog watchdog{hang};
  const CaughtStream errors(stderr);
  DemuxRecorder recorder;
  recorder.section = []() -> DemuxRecorder::Bytes { throw std::runtime_error("a fault"); };
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  const Child child;
  client.send(word(13));
  EXPECT_TRUE(hasEnded(client));
  server.stop();
}

TEST(AForkedChild, DoesNotKeepAnAdaptersClientConnectedThroughItsDeletion) {
  const Watchdog watchdog{hang};
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const RawClient client;
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  const Child child;
  deleteAdapter(adapter);
  EXPECT_TRUE(hasEnded(client));
}

}  // namespace
}  // namespace quillwork
