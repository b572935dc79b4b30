// No memory: what the library needs on its own threads, and on the way to its end, is refused.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "facade/CarouselFacade.h"
#include "facade/DemuxFacade.h"
#include "facade/DsmCCCommandFacade.h"
#include "facade/PropertyFacade.h"
#include "facade/SIFacade.h"
#include "facade/TunerFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/CallLog.h"
#include "support/Leftovers.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/RefusingNew.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace {

enum class Starving { nobody, others, everybody };
const char* nameOf(Starving who) { return who == Starving::others ? "ItsThreads" : "EveryThread"; }
void PrintTo(Starving who, std::ostream* out) { *out << nameOf(who); }
std::atomic<Starving> starving{Starving::nobody};
thread_local bool isTheTests = false;
// How many more allocations the calling thread gets.
constexpr int unlimited = std::numeric_limits<int>::max();
thread_local int allowance = unlimited;

/// Takes the memory away for a scope.
class NoMemory {
 public:
  explicit NoMemory(Starving who) {
    isTheTests = true;
    starving = who;
  }
  ~NoMemory() { starving = Starving::nobody; }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace

bool isRefused() {
  const Starving who = starving;
  if (who == Starving::everybody || (who == Starving::others && !isTheTests)) return true;
  return allowance != unlimited && allowance-- <= 0;
}

// A sanitizer has a malloc of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && defined(__GLIBC__)
// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

std::atomic<bool> libraryStarves{false};

void* malloc(std::size_t size) { return libraryStarves ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) {
  return libraryStarves ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  return libraryStarves ? nullptr : __libc_realloc(memory, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)
#else
std::atomic<bool> libraryStarves{false};
#endif

// The host of this test: facades that need no memory themselves.
namespace {

std::atomic<int> facadesAlive{0};
std::atomic<bool> sectionsBlock{false};
std::atomic<int> callsInside{0};

struct Counted {
  Counted() { ++facadesAlive; }
  ~Counted() { --facadesAlive; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
};

struct Inside {
  Inside() { ++callsInside; }
  ~Inside() { --callsInside; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
};

void blockIfAsked() {
  const Inside inside;
  while (sectionsBlock) pause();
}

class Demultiplexer : public middlewarefacade::DemuxFacade, Counted {
 public:
  void start() override {}
  void stop() override {}
  void setPid(int) override {}
  void setTableId(int) override {}
  void setPositiveFilter(int, const Bytes&, const Bytes&) override {}
  void setGreaterThanFilter(int, const Bytes&, const Bytes&) override {}
  void setLessThanFilter(int, const Bytes&, const Bytes&) override {}
  void setXorFilter(int, const Bytes&, const Bytes&, const Bytes&) override {}
  void setTimeOut(long) override {}
  void clearTableId() override {}
  void clearPositiveFilter() override {}
  void clearLessThanFilter() override {}
  void clearXorFilter() override {}
  Bytes readSection() override {
    blockIfAsked();
    return {};
  }
};

class StreamEvents : public middlewarefacade::DsmCCCommandFacade, Counted {
 public:
  void addCommandListener(std::string, middlewarefacade::DsmCCCommandListener*) override {}
  void removeCommandListener(std::string, middlewarefacade::DsmCCCommandListener*) override {}
};

class Version : public middlewarefacade::VersionFacade {
 public:
  int checkVersionFlag(int) override { return 1; }
  void setVersion(std::string) override {}
};

}  // namespace

namespace middlewarefacade {
VideoFacade* VideoFacade::createVideoFacade() { return nullptr; }
PropertyFacade* PropertyFacade::createPropertyFacade() { return nullptr; }
SIFacade* SIFacade::createSIFacade() { return nullptr; }
CarouselFacade* CarouselFacade::createCarouselFacade() { return nullptr; }
DemuxFacade* DemuxFacade::createDemuxFacade() { return new Demultiplexer; }
TunerFacade* TunerFacade::createTunerFacade() { return nullptr; }
DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() { return new StreamEvents; }
VersionFacade* VersionFacade::createVersionFacade() {
  static Version version;
  return &version;
}
}  // namespace middlewarefacade

namespace quillwork {
namespace {

constexpr std::chrono::seconds hang{30};

/// The section-filter channel's listener, which needs no memory either.
class Sections : public IpcDemuxServerListener {
 public:
  using Bytes = std::vector<unsigned char>;
  void start() override {}
  void stop() override {}
  void set_pid(int) override {}
  void set_table_id(int) override {}
  void set_positive_filter(int, const Bytes&, const Bytes&) override {}
  void set_greater_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_less_than_filter(int, const Bytes&, const Bytes&) override {}
  void set_xor_filter(int, const Bytes&, const Bytes&, const Bytes&) override {}
  void set_time_out(long) override {}
  void clear_table_id() override {}
  void clear_positive_filter() override {}
  void clear_less_than_filter() override {}
  void clear_xor_filter() override {}
  Bytes read_section() override {
    blockIfAsked();
    return {};
  }
};

/// Waits without memory for what a client can get whose request was broken off: the count 0, or
/// its connection's end.
void expectNothingOrTheEnd(const RawClient& client) {
  std::int32_t count = 0;
  const ssize_t received = recv(client.descriptor(), &count, sizeof count, MSG_WAITALL);
  EXPECT_TRUE((received == sizeof count && count == 0) || received == 0 ||
              (received < 0 && errno == ECONNRESET))
      << received << " bytes, count " << count << ", error " << errno;
}

void expectServiceOfSectionFilter() {
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
}

void expectServiceOfControl() {
  const RawClient client;
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
}

class WithoutMemory : public testing::TestWithParam<Starving> {
 protected:
  /// A client whose section never comes.
  static void awaitBlockedCall(const RawClient& client) {
    sectionsBlock = true;
    client.send(word(13));
    while (callsInside == 0) std::this_thread::yield();
  }

  const Watchdog watchdog{hang};
};

TEST_P(WithoutMemory, ASectionFilterServerStartsAndStops) {
  Sections sections;
  IpcDemuxServer server;
  server.setListener(&sections);
  for (int count = 0; count < 3; ++count) {
    {
      const NoMemory noMemory(GetParam());
      EXPECT_NO_THROW(server.start());
      EXPECT_NO_THROW(server.stop());
    }
    {
      const NoMemory noMemory(GetParam());
      EXPECT_NO_THROW(server.start());
    }
    server.stop();
  }
  server.start();
  expectServiceOfSectionFilter();
  server.stop();
}

TEST_P(WithoutMemory, ABlockedThreadIsReplaced) {
  Sections sections;
  IpcDemuxServer server;
  server.setListener(&sections);
  server.start();
  {
    const RawClient client(RawClient::sectionFilter);
    awaitBlockedCall(client);
    const NoMemory noMemory(GetParam());
    EXPECT_NO_THROW(IpcDemuxServer::releaseListener(&sections));
    EXPECT_EQ(callsInside, 0);
    expectNothingOrTheEnd(client);
  }
  // No lock has stayed locked.
  sectionsBlock = false;
  IpcDemuxServer::releaseListener(&sections);
  server.stop();
  server.setListener(&sections);
  server.start();
  expectServiceOfSectionFilter();
  IpcDemuxServer second;
  second.setListener(&sections);
  second.start();
  expectServiceOfSectionFilter();
  second.stop();
  server.stop();
}

// The first cancellation of a process needs the unwinder, which the C library loads.
TEST(WithoutMemoryOfTheCLibrary, ABlockedThreadIsReplaced) {
  const Watchdog watchdog{hang};
  Sections sections;
  IpcDemuxServer server;
  server.setListener(&sections);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  sectionsBlock = true;
  client.send(word(13));
  while (callsInside == 0) std::this_thread::yield();
  libraryStarves = true;
  IpcDemuxServer::releaseListener(&sections);
  libraryStarves = false;
  sectionsBlock = false;
  EXPECT_EQ(callsInside, 0);
  expectNothingOrTheEnd(client);
  server.stop();
}

TEST_P(WithoutMemory, ABlockedThreadIsStopped) {
  Sections sections;
  IpcDemuxServer server;
  server.setListener(&sections);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  awaitBlockedCall(client);
  {
    const NoMemory noMemory(GetParam());
    EXPECT_NO_THROW(server.stop());
  }
  EXPECT_EQ(callsInside, 0);
  EXPECT_TRUE(client.isAtEnd());
  sectionsBlock = false;
  IpcDemuxServer::releaseListener(&sections);
  server.setListener(&sections);
  server.start();
  expectServiceOfSectionFilter();
  server.stop();
}

TEST_P(WithoutMemory, AnAdapterIsDeleted) {
  for (int count = 0; count < 2; ++count) {
    leavesBehind(ofAManager);
    MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
    expectServiceOfControl();
    expectServiceOfSectionFilter();
    const NoMemory noMemory(GetParam());
    deleteAdapter(adapter);
    EXPECT_EQ(facadesAlive, 0);
  }
  leavesBehind(ofAManager);
  MiddlewareIpc* const next = MiddlewareIpc::getInstance();
  expectServiceOfControl();
  expectServiceOfSectionFilter();
  deleteAdapter(next);
}

TEST_P(WithoutMemory, AnAdapterIsDeletedWhileItsClientsAreServed) {
  leavesBehind(ofAManager);
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  {
    const RawClient control;
    EXPECT_EQ(control.ask(request(VERSION, 1)).group, VERSION);
    const RawClient sections(RawClient::sectionFilter);
    awaitBlockedCall(sections);
    const NoMemory noMemory(GetParam());
    deleteAdapter(adapter);
    EXPECT_EQ(facadesAlive, 0);
    EXPECT_EQ(callsInside, 0);
    EXPECT_TRUE(control.isAtEnd());
    expectNothingOrTheEnd(sections);
  }
  sectionsBlock = false;
  leavesBehind(ofAManager);
  MiddlewareIpc* const next = MiddlewareIpc::getInstance();
  expectServiceOfControl();
  expectServiceOfSectionFilter();
  deleteAdapter(next);
}

TEST_P(WithoutMemory, TheManagerIsDestroyedWithACallThatWaits) {
  IpcServerManager* const manager = makeManager();
  const RawClient client;
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  bool answer = false;
  std::thread call([&] { answer = manager->setApplicationState(state{2}); });
  EXPECT_EQ(client.receiveRecord().group, APPLICATION_STATE);
  {
    const NoMemory noMemory(GetParam());
    IpcServerManager::destroy();
  }
  call.join();
  EXPECT_TRUE(answer);
  makeManager();
  expectServiceOfControl();
  IpcServerManager::destroy();
}

INSTANTIATE_TEST_SUITE_P(Of, WithoutMemory, testing::Values(Starving::others, Starving::everybody),
                         [](const auto& who) { return std::string(nameOf(who.param)); });

class ControlWithoutMemory : public testing::Test {
 protected:
  ~ControlWithoutMemory() override { IpcServerManager::destroy(); }

  const Watchdog watchdog{hang};
  IpcServerManager* manager = makeManager();
};

TEST_F(ControlWithoutMemory, AnUnknownRequestEndsNoProcess) {
  const CaughtStream errors(stderr);
  {
    const RawClient client;
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    const NoMemory noMemory(Starving::others);
    client.send(request(-1, 0));
    client.closeSending();
    client.drain();
  }
  expectServiceOfControl();
}

TEST_F(ControlWithoutMemory, AListThatCannotBeMadeEndsTheConnection) {
  CallLog log;
  RecordingListener listener(log);
  listener.services.assign(100, service{});
  manager->addIpcServerListener(&listener);
  const CaughtStream errors(stderr);
  {
    const RawClient client;
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    const NoMemory noMemory(Starving::others);
    client.send(request(SI, 6));
    EXPECT_TRUE(client.isAtEnd());
  }
  expectServiceOfControl();
  manager->removeIpcServerListener(&listener);
}

TEST(AnExceptionWithoutMemory, IsPrintedAsOneLine) {
  class Fault : public std::exception {
   public:
    [[nodiscard]] const char* what() const noexcept override {
      return "a text of two lines,\nof which each is too long for a string without memory";
    }
  };
  class Throwing : public IpcListener {
   public:
    void update(message& record) override {
      if (record.group == SI) throw Fault();
    }
    void update(std::list<message>) override {}
    void clientConnected() override { isConnected = true; }
    void clientDisconnected() override {}
    std::atomic<bool> isConnected{false};
  } listener;
  const Watchdog watchdog{hang};
  const CaughtStream errors(stderr);
  IpcServer server(&listener, "/dev/shm/memory.socket", 22);
  server.start();
  const RawClient client("/dev/shm/memory.socket");
  while (!listener.isConnected) std::this_thread::yield();
  {
    const NoMemory noMemory(Starving::others);
    client.send(request(SI, 6));
    EXPECT_TRUE(client.isAtEnd());
  }
  server.stop();
  const std::string printed = errors.text();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1) << printed;
  EXPECT_TRUE(printed.starts_with("Client's connection ended by an exception")) << printed;
}

TEST(TheManager, ThatCannotBeMadeLeavesNothingLocked) {
  const Watchdog watchdog{hang};
  bool isMade = false;
  for (int allowed = 0; !isMade; ++allowed) {
    allowance = allowed;
    try {
      IpcServerManager::getInstance();
      isMade = true;
    } catch (const std::bad_alloc&) {
      isMade = false;
    }
    allowance = unlimited;
    // The one that was made lacked memory for its section-filter thread.
    if (!isMade) makeManager();
    expectServiceOfControl();
    IpcServerManager::destroy();
  }
}

}  // namespace
}  // namespace quillwork
