// Ends that cross: the manager's, the connection's, a call's and a host thread's, in every order.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/Asleep.h"
#include "support/CallLog.h"
#include "support/DemuxRecorder.h"
#include "support/FakeHost.h"
#include "support/HostThread.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

constexpr std::chrono::seconds hang{30};

message answer(bool value) {
  message record = request(APPLICATION_STATE, 0);
  record[3] = value ? 1 : 0;
  return record;
}

/// A client that the server has accepted: what is sent to it arrives.
std::unique_ptr<RawClient> acceptedClient() {
  auto client = std::make_unique<RawClient>();
  EXPECT_EQ(client->ask(request(VERSION, 1)).group, VERSION);
  return client;
}

/// setApplicationState() calls of host threads.
class Calls {
 public:
  /// Begins so many calls and returns when the client has the record of each, and all wait.
  void begin(IpcServerManager* manager, const RawClient& client, int count) {
    for (int index = 0; index < count; ++index) {
      calls_.emplace_back([manager] { return manager->setApplicationState(state{2}); });
      EXPECT_EQ(client.receiveRecord().group, APPLICATION_STATE);
    }
    awaitWaiting();
  }

  /// Returns when those that have not returned wait.
  void awaitWaiting() {
    std::vector<pid_t> threads;
    for (const auto& call : calls_) {
      if (!call.hasReturned()) threads.push_back(call.id());
    }
    awaitAsleepTogether(threads);
  }

  [[nodiscard]] int returned() const {
    int count = 0;
    for (const auto& call : calls_) count += call.hasReturned() ? 1 : 0;
    return count;
  }

  void awaitReturned(int count) const {
    while (returned() < count) std::this_thread::yield();
  }

  /// Waits for all of them; how many have returned true.
  int answeredTrue() {
    int count = 0;
    for (auto& call : calls_) count += call.result() ? 1 : 0;
    return count;
  }

 private:
  std::list<HostThread<bool>> calls_;
};

class ApplicationStateCalls : public testing::Test {
 protected:
  ~ApplicationStateCalls() override { IpcServerManager::destroy(); }

  void begin(int count) { calls.begin(manager, *client, count); }

  /// The client answers once, and the one call that this releases has returned.
  void answerOne(bool value) {
    const int before = calls.returned();
    client->send(answer(value));
    calls.awaitReturned(before + 1);
  }

  const Watchdog watchdog{hang};
  IpcServerManager* manager = makeManager();
  std::unique_ptr<RawClient> client = acceptedClient();
  Calls calls;
};

TEST_F(ApplicationStateCalls, AllReturnTrueWhenTheManagerEnds) {
  begin(3);
  IpcServerManager::destroy();
  EXPECT_EQ(calls.answeredTrue(), 3);
}

TEST_F(ApplicationStateCalls, TheOneThatAnAnswerHasLeftWaitingReturnsTrueWhenTheManagerEnds) {
  begin(2);
  answerOne(false);
  IpcServerManager::destroy();
  EXPECT_EQ(calls.answeredTrue(), 1);
}

TEST_F(ApplicationStateCalls, AllReturnTrueWhenTheClientLeaves) {
  begin(3);
  client->close();
  EXPECT_EQ(calls.answeredTrue(), 3);
}

TEST_F(ApplicationStateCalls, ThoseThatAnAnswerHasLeftWaitingReturnTrueWhenTheClientLeaves) {
  begin(3);
  answerOne(false);
  client->close();
  EXPECT_EQ(calls.answeredTrue(), 2);
}

TEST_F(ApplicationStateCalls, OneAnswerReleasesExactlyOne) {
  begin(3);
  for (int answered = 1; answered <= 3; ++answered) {
    client->send(answer(false));
    calls.awaitReturned(answered);
    // The answer behind it has been dealt with, and nobody else has woken.
    EXPECT_EQ(client->ask(request(VERSION, 1)).group, VERSION);
    calls.awaitWaiting();
    EXPECT_EQ(calls.returned(), answered);
  }
  EXPECT_EQ(calls.answeredTrue(), 0);
}

TEST_F(ApplicationStateCalls, OneAfterADisconnectionWaitsForTheNextClientsAnswer) {
  begin(2);
  client->close();
  calls.awaitReturned(2);
  const auto next = acceptedClient();
  Calls later;
  later.begin(manager, *next, 2);
  EXPECT_EQ(later.returned(), 0);
  next->send(answer(false));
  later.awaitReturned(1);
  EXPECT_EQ(next->ask(request(VERSION, 1)).group, VERSION);
  later.awaitWaiting();
  EXPECT_EQ(later.returned(), 1);
  next->send(answer(false));
  EXPECT_EQ(later.answeredTrue(), 0);
}

TEST_F(ApplicationStateCalls, ADisconnectionReleasesThemAlsoWhenAConnectionListenerThrows) {
  class Throwing : public ConnectionListener {
   public:
    void clientConnected() override {}
    void clientDisconnected() override { throw std::runtime_error("a listener's fault"); }
  } throwing;
  manager->addConnectionListener(&throwing);
  const CaughtStream errors(stderr);
  begin(2);
  client->close();
  EXPECT_EQ(calls.answeredTrue(), 2);
  IpcServerManager::destroy();
}

TEST(ApplicationStateCallsOfAnAdapter, TheDeletionReturnsWhenOneOfTwoWasAnswered) {
  const Watchdog watchdog{hang};
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const auto client = acceptedClient();
  Calls calls;
  calls.begin(IpcServerManager::getInstance(), *client, 2);
  client->send(answer(false));
  calls.awaitReturned(1);
  deleteAdapter(adapter);
  EXPECT_EQ(calls.answeredTrue(), 1);
}

/// A host whose one lock is held by a thread that asks the client for its application state, and
/// wanted by whatever the client has the host do.
class LockOfTheHosts : public testing::Test {
 protected:
  ~LockOfTheHosts() override { IpcServerManager::destroy(); }

  /// One whose listener wants the lock in an operation.
  IpcServerManager* managerWithListenerThatLocksIn(const std::string& locking) {
    listener.onCall = [this, locking](const std::string& operation) {
      if (operation != locking) return;
      const std::lock_guard wanted(lock);
    };
    IpcServerManager* const manager = makeManager();
    manager->addIpcServerListener(&listener);
    return manager;
  }

  /// Returns when the holder of the lock waits for the client's answer.
  void hold(IpcServerManager* manager) {
    client = acceptedClient();
    holder = std::make_unique<HostThread<bool>>([this, manager] {
      const std::lock_guard held(lock);
      return manager->setApplicationState(state{2});
    });
    EXPECT_EQ(client->receiveRecord().group, APPLICATION_STATE);
    awaitAsleepTogether({holder->id()});
  }

  const Watchdog watchdog{hang};
  std::mutex lock;
  CallLog log;
  RecordingListener listener{log};
  std::unique_ptr<RawClient> client;
  std::unique_ptr<HostThread<bool>> holder;
};

TEST_F(LockOfTheHosts, ThatAListenerWaitsForDoesNotHoldUpTheManagersEnd) {
  IpcServerManager* const manager = managerWithListenerThatLocksIn("getServices");
  hold(manager);
  client->send(request(SI, 6));
  ASSERT_TRUE(log.await("getServices()"));
  IpcServerManager::destroy();
  EXPECT_TRUE(holder->result());
}

TEST_F(LockOfTheHosts, ThatAListenerWaitsForAtTheConnectionsEndHangsNoCallForAClientThatHasGone) {
  IpcServerManager* const manager = managerWithListenerThatLocksIn("setVideoProperty");
  hold(manager);
  client->close();
  EXPECT_TRUE(holder->result());
  const auto next = acceptedClient();
  EXPECT_EQ(next->ask(request(VERSION, 1)).group, VERSION);
  IpcServerManager::destroy();
}

TEST_F(LockOfTheHosts, ThatTheDemultiplexerWaitsForDoesNotHoldUpTheAdaptersDeletion) {
  FakeHost host;
  std::atomic<bool> isReading{false};
  host.onReadSection = [&] {
    isReading = true;
    const std::lock_guard wanted(lock);
  };
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  hold(IpcServerManager::getInstance());
  const RawClient sections(RawClient::sectionFilter);
  sections.send(word(13));
  while (!isReading) std::this_thread::yield();
  deleteAdapter(adapter);
  EXPECT_TRUE(holder->result());
}

TEST_F(LockOfTheHosts, ThatAConnectionListenerWaitsForDoesNotHoldUpTheManagersEnd) {
  // It is told of a client that other threads can already send to.
  class Waiting : public ConnectionListener {
   public:
    explicit Waiting(std::mutex& lock) : lock_(lock) {}
    void clientConnected() override {
      isCalled = true;
      while (!isHeld) std::this_thread::yield();
      const std::lock_guard wanted(lock_);
    }
    void clientDisconnected() override {}
    std::atomic<bool> isCalled{false};
    std::atomic<bool> isHeld{false};

   private:
    std::mutex& lock_;
  } waiting(lock);
  IpcServerManager* const manager = makeManager();
  manager->addConnectionListener(&waiting);
  const RawClient arriving;
  while (!waiting.isCalled) std::this_thread::yield();
  holder = std::make_unique<HostThread<bool>>([&] {
    const std::lock_guard held(lock);
    return manager->setApplicationState(state{2});
  });
  ASSERT_EQ(arriving.receiveRecord().group, APPLICATION_STATE);
  awaitAsleepTogether({holder->id()});
  waiting.isHeld = true;
  IpcServerManager::destroy();
  EXPECT_TRUE(holder->result());
}

TEST_F(LockOfTheHosts, ThatAFacadeWaitsForDoesNotHoldUpTheAdaptersDeletion) {
  FakeHost host;
  host.onCall = [&](const std::string& operation) {
    if (operation != "getServices") return;
    const std::lock_guard wanted(lock);
  };
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  hold(IpcServerManager::getInstance());
  client->send(request(SI, 6));
  ASSERT_TRUE(host.log.await("getServices()"));
  deleteAdapter(adapter);
  EXPECT_TRUE(holder->result());
}

/// The manager deleted as what it is, without destroy().
class DirectDeletion : public testing::Test {
 protected:
  const Watchdog watchdog{hang};
  IpcServerManager* manager = makeManager();
  std::unique_ptr<RawClient> client = acceptedClient();
};

TEST_F(DirectDeletion, ReleasesEveryCallAlsoWhenOneWasAnswered) {
  Calls calls;
  calls.begin(manager, *client, 3);
  client->send(answer(false));
  calls.awaitReturned(1);
  delete manager;
  EXPECT_EQ(calls.answeredTrue(), 2);
}

TEST_F(DirectDeletion, LetsNoCallWaitForEverThatBeginsMeanwhile) {
  CallLog log;
  RecordingListener listener(log);
  std::atomic<bool> mayEnd{false};
  listener.onCall = [&](const std::string&) {
    while (!mayEnd) std::this_thread::yield();
  };
  manager->addIpcServerListener(&listener);
  const CaughtStream errors(stderr);
  Calls calls;
  calls.begin(manager, *client, 1);
  // What the deletion has to wait for.
  client->send(request(SI, 6));
  ASSERT_TRUE(log.await("getServices()"));
  std::thread deletion([this] { delete manager; });
  // It has begun when the call comes back.
  EXPECT_EQ(calls.answeredTrue(), 1);
  HostThread<bool> late([this] { return manager->setApplicationState(state{3}); });
  static_cast<void>(late.result());
  mayEnd = true;
  deletion.join();
}

/// Nothing of the library's is unwound by the cancellation of a host thread that takes it down.
class CancelledHost : public testing::Test {
 protected:
  static void expectDoneThenCancelled(CancelledThread& thread) {
    const CancelledWork work = thread.join();
    EXPECT_TRUE(work.isDone);
    EXPECT_TRUE(work.isCancelled);
  }

  static constexpr const char* path = "/dev/shm/crossing.socket";
  static constexpr int pathLength = 24;

  const Watchdog watchdog{hang};
};

TEST_F(CancelledHost, DeletesTheAdapterFirst) {
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const auto client = acceptedClient();
  host.log.take();
  CancelledThread thread([&] { deleteAdapter(adapter); });
  expectDoneThenCancelled(thread);
  const auto calls = host.log.calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.back(), "~Tuner()");
  EXPECT_TRUE(client->isAtEnd());
}

TEST_F(CancelledHost, DeletesTheAdapterFirstAlsoWhileASectionIsBeingWaitedFor) {
  FakeHost host;
  host.onReadSection = [] {
    for (;;) pause();
  };
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const RawClient sections(RawClient::sectionFilter);
  sections.send(word(13));
  ASSERT_TRUE(host.log.await("readSection()"));
  CancelledThread thread([&] { deleteAdapter(adapter); });
  expectDoneThenCancelled(thread);
  EXPECT_EQ(sections.receive(4), word(0));
}

TEST_F(CancelledHost, DestroysTheManagerFirst) {
  makeManager();
  const auto client = acceptedClient();
  CancelledThread thread([] { IpcServerManager::destroy(); });
  expectDoneThenCancelled(thread);
  EXPECT_TRUE(client->isAtEnd());
  // No lock has stayed locked.
  makeManager();
  acceptedClient();
  IpcServerManager::destroy();
}

TEST_F(CancelledHost, DestroysTheManagerFirstAlsoWhenItIsCancelledInTheMiddleOfIt) {
  CallLog log;
  RecordingListener listener(log);
  std::atomic<bool> mayEnd{false};
  listener.onCall = [&](const std::string& operation) {
    while (operation == "getServices" && !mayEnd) std::this_thread::yield();
  };
  makeManager()->addIpcServerListener(&listener);
  const auto client = acceptedClient();
  client->send(request(SI, 6));
  ASSERT_TRUE(log.await("getServices()"));
  CancelledThread thread([] { IpcServerManager::destroy(); }, false);
  awaitAsleepTogether({thread.id()});
  thread.cancel();
  mayEnd = true;
  expectDoneThenCancelled(thread);
}

TEST_F(CancelledHost, StopsTheControlChannelFirst) {
  IpcServer server(nullptr, path, pathLength);
  server.start();
  const RawClient client(path);
  CancelledThread thread([&] { server.stop(); });
  expectDoneThenCancelled(thread);
  server.start();
  const RawClient next(path);
  next.send(request(SI, 6));
}

TEST_F(CancelledHost, DeletesTheControlChannelFirst) {
  auto server = std::make_unique<IpcServer>(nullptr, path, pathLength);
  server->start();
  const RawClient client(path);
  CancelledThread thread([&] { server.reset(); });
  expectDoneThenCancelled(thread);
  EXPECT_TRUE(client.isAtEnd());
}

TEST_F(CancelledHost, StopsTheSectionFilterChannelFirst) {
  DemuxRecorder recorder;
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  CancelledThread thread([&] { server.stop(); });
  expectDoneThenCancelled(thread);
  EXPECT_TRUE(client.isAtEnd());
}

TEST_F(CancelledHost, ReleasesTheSectionFiltersListenerFirst) {
  DemuxRecorder recorder;
  recorder.section = [] {
    for (;;) pause();
    return DemuxRecorder::Bytes();
  };
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  ASSERT_TRUE(recorder.log.await("read_section()"));
  CancelledThread thread([&] { IpcDemuxServer::releaseListener(&recorder); });
  expectDoneThenCancelled(thread);
  EXPECT_EQ(client.receive(4), word(0));
  server.stop();
}

/// A listener whose section never comes, and which knows how many calls are in it.
class Blocking : public DemuxRecorder {
 public:
  Blocking() {
    section = [this] {
      const Inside here(inside);
      for (;;) pause();
      return Bytes();
    };
  }

  void awaitInside(int count) const {
    while (inside != count) std::this_thread::yield();
  }

  std::atomic<int> inside{0};

 private:
  struct Inside {
    explicit Inside(std::atomic<int>& counter) : count(counter) { ++count; }
    ~Inside() { --count; }
    std::atomic<int>& count;
  };
};

class TwoSectionFilterServers : public testing::Test {
 protected:
  /// A client of a server that starts now and calls the listener, which blocks.
  static std::unique_ptr<RawClient> readFrom(IpcDemuxServer& server, Blocking& listener) {
    const int before = listener.inside;
    server.setListener(&listener);
    server.start();
    auto client = std::make_unique<RawClient>(RawClient::sectionFilter);
    client->send(word(13));
    listener.awaitInside(before + 1);
    return client;
  }

  /// The read is answered, and the thread serves the client on.
  static void expectNothingAndService(const RawClient& client) {
    EXPECT_EQ(client.receive(4), word(0));
    client.send(word(2) + word(17) + word(13));
    EXPECT_EQ(client.receive(4), word(0));
  }

  const Watchdog watchdog{std::chrono::seconds(60)};
  IpcDemuxServer first;
  IpcDemuxServer second;
};

TEST_F(TwoSectionFilterServers, ReleasingTheirListenerEndsTheCallsOfBoth) {
  Blocking listener;
  const auto one = readFrom(first, listener);
  const auto other = readFrom(second, listener);
  IpcDemuxServer::releaseListener(&listener);
  EXPECT_EQ(listener.inside, 0);
  expectNothingAndService(*one);
  expectNothingAndService(*other);
  first.stop();
  second.stop();
}

TEST_F(TwoSectionFilterServers, ReleasingTheListenerOfOneLeavesTheCallOfTheOtherAlone) {
  Blocking released;
  Blocking kept;
  const auto one = readFrom(first, released);
  const auto other = readFrom(second, kept);
  IpcDemuxServer::releaseListener(&released);
  EXPECT_EQ(released.inside, 0);
  EXPECT_EQ(kept.inside, 1);
  expectNothingAndService(*one);
  IpcDemuxServer::releaseListener(&kept);
  expectNothingAndService(*other);
  first.stop();
  second.stop();
}

TEST_F(TwoSectionFilterServers, ReplacedThreadsAreStoppedLikeAnyOther) {
  Blocking listener;
  const auto one = readFrom(first, listener);
  const auto other = readFrom(second, listener);
  IpcDemuxServer::releaseListener(&listener);
  EXPECT_EQ(one->receive(4), word(0));
  EXPECT_EQ(other->receive(4), word(0));
  first.stop();
  second.stop();
  EXPECT_TRUE(one->isAtEnd());
  EXPECT_TRUE(other->isAtEnd());
}

}  // namespace
}  // namespace quillwork
