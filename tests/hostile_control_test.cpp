// What a client can do to the control channel that no client should.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <random>
#include <stdexcept>
#include <thread>

#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/DemuxRecorder.h"
#include "support/Golden.h"
#include "support/GoldenListener.h"
#include "support/Manager.h"
#include "support/OwnProcess.h"
#include "support/RawClient.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/Threads.h"
#include "support/UnixSocket.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

constexpr std::size_t stride = TEST_STRIDE;

class Departures : public ConnectionListener {
 public:
  void clientConnected() override { log.add("connected"); }
  void clientDisconnected() override { log.add("disconnected"); }
  CallLog log;
};

class HostileControl : public testing::Test {
 protected:
  HostileControl() {
    giveGoldenAnswers(listener);
    manager->addIpcServerListener(&listener);
    manager->addConnectionListener(&departures);
  }
  ~HostileControl() override { IpcServerManager::destroy(); }

  /// What of the replies arrives otherwise than the file has it; nothing where all is well.
  static std::string exchange(const RawClient& client, const Golden& golden) {
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) client.send(part.bytes);
    }
    return receive(client, golden);
  }

  static std::string receive(const RawClient& client, const Golden& golden) {
    std::string all;
    for (const Golden::Part& part : golden.parts) {
      if (!part.fromClient) {
        all += differences(part, client.receive(part.bytes.size()), sizeof(void*) > 4);
      }
    }
    return all;
  }

  void expectTheNextClientIsServed() {
    const RawClient client;
    for (const Golden& golden : goldens) {
      if (golden.name == "si-01-events") {
        EXPECT_EQ(exchange(client, golden), "");
      }
    }
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  }

  static std::string requestOf(const Golden& golden) {
    std::string bytes;
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) bytes += part.bytes;
    }
    return bytes;
  }

  static inline const std::vector<Golden> goldens = Golden::readAll(GOLDEN_DIRECTORY);
  CallLog log;
  RecordingListener listener{log};
  Departures departures;
  IpcServerManager* manager = makeManager();
};

/// Keeps the records as they arrive.
class Keeper : public IpcListener {
 public:
  void update(message& record) override {
    records.push_back(bytesOf(record));
    log.add("update");
  }
  void update(std::list<message>) override {}
  void clientConnected() override {}
  void clientDisconnected() override { log.add("clientDisconnected"); }
  std::vector<std::string> records;
  CallLog log;
};

TEST(HostileTransport, EveryFrontOfARecordIsARecordOverTheBufferAsItWas) {
  constexpr const char* path = "/dev/shm/hostile.socket";
  Keeper keeper;
  IpcServer server(&keeper, path, 23);
  server.start();
  std::string pattern(sizeof(message), '\0');
  for (std::size_t index = 0; index < pattern.size(); ++index) {
    pattern[index] = static_cast<char>(1 + index % 251);
  }
  // The buffer lasts from client to client. The record of a connection's end has its own group and
  // type in it.
  std::string expected(sizeof(message), '\0');
  for (std::size_t size = pattern.size() - 1; size > 0; size -= std::min(stride, size)) {
    {
      const RawClient client(path);
      client.send(std::string_view(pattern).substr(0, size));
    }
    ASSERT_TRUE(keeper.log.await("clientDisconnected()"));
    keeper.log.take();
    expected.replace(0, size, pattern, 0, size);
    ASSERT_EQ(keeper.records.size(), 2U);
    EXPECT_EQ(keeper.records.front(), expected) << size;
    expected.replace(0, 4, word(0)).replace(8, 4, word(2));
    EXPECT_EQ(keeper.records.back(), expected) << size;
    keeper.records.clear();
  }
}

TEST_F(HostileControl, EveryRequestByteByByte) {
  const RawClient client;
  for (const Golden& golden : goldens) {
    for (const char& byte : requestOf(golden)) client.send(std::string_view(&byte, 1));
    EXPECT_EQ(receive(client, golden), "") << golden.name;
  }
}

TEST_F(HostileControl, EveryRequestInOneWrite) {
  const RawClient client;
  std::string all;
  for (const Golden& golden : goldens) all += requestOf(golden);
  // The replies fill the buffers of a client that goes on writing.
  std::thread writer([&] { client.send(all); });
  for (const Golden& golden : goldens) EXPECT_EQ(receive(client, golden), "") << golden.name;
  writer.join();
}

TEST_F(HostileControl, ACloseAfterEachByteOfEachRequest) {
  const CaughtStream errors(stderr);
  for (const Golden& golden : goldens) {
    const std::string bytes = requestOf(golden);
    for (std::size_t size = 0; size <= bytes.size(); size += stride) {
      const RawClient client;
      client.send(std::string_view(bytes).substr(0, size));
    }
    log.take();
    departures.log.take();
  }
  expectTheNextClientIsServed();
}

TEST_F(HostileControl, RandomAndMutatedRecords) {
  const CaughtStream errors(stderr);
  // The same ones each time.
  std::mt19937 random(20'261'121);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int connection = 0; connection < 20; ++connection) {
    std::string bytes;
    for (int record = 0; record < 100; ++record) {
      std::string next = requestOf(goldens[below(goldens.size())]);
      for (std::size_t left = below(20); left > 0; --left) {
        // Half of the changes are in the words that choose the handler.
        const std::size_t place = below(2) == 0 ? below(24) : below(next.size());
        next[place] = static_cast<char>(random());
      }
      if (below(10) == 0) {
        std::generate(next.begin(), next.end(), [&] { return static_cast<char>(random()); });
      }
      bytes += next;
    }
    if (below(2) == 0) bytes.resize(bytes.size() - below(sizeof(message)));
    const RawClient client;
    std::thread writer([&] {
      client.send(bytes);
      client.closeSending();
    });
    client.drain();
    writer.join();
    log.take();
  }
  expectTheNextClientIsServed();
}

TEST_F(HostileControl, AListenerThatThrowsInAnyOperationEndsOneConnection) {
  const auto throwing = [](const std::string&) { throw std::runtime_error("a listener's fault"); };
  for (const Golden& golden : goldens) {
    const bool callsNobody = golden.calls.empty();
    const CaughtStream errors(stderr);
    {
      listener.onCall = throwing;
      const RawClient client;
      client.send(requestOf(golden));
      if (callsNobody) client.closeSending();
      EXPECT_TRUE(client.isAtEnd()) << golden.name;
      ASSERT_TRUE(departures.log.await("disconnected()"));
    }
    departures.log.take();
    listener.onCall = nullptr;
    // The record of the connection's end throws, too.
    const std::string line = "Client's connection ended by an exception: a listener's fault\n";
    EXPECT_EQ(errors.text(), callsNobody ? line : line + line) << golden.name;
  }
  expectTheNextClientIsServed();
}

TEST_F(HostileControl, AClientThatHasClosedItsSendingSideGetsItsWholeReply) {
  listener.services.assign(2000, service{});
  const RawClient client;
  client.send(request(SI, 6));
  client.closeSending();
  EXPECT_EQ(client.receiveRecord().type, 2000);
  EXPECT_EQ(client.receive(2000 * sizeof(message)).size(), 2000 * sizeof(message));
  EXPECT_TRUE(client.isAtEnd());
}

TEST_F(HostileControl, AClientThatHasClosedItsReceivingSideIsStillHeard) {
  const CaughtStream errors(stderr);
  const RawClient client;
  shutdown(client.descriptor(), SHUT_RD);
  client.send(request(SI, 6));
  client.send(request(CAROUSEL, 3));
  ASSERT_TRUE(log.await("addCarouselListener()"));
  // The list's header and its two elements have failed.
  const std::string line = "Can't send message: Broken pipe\n";
  EXPECT_EQ(errors.text(), line + line + line);
}

TEST_F(HostileControl, ASecondClientIsServedWhenTheFirstHasGoneAndAThirdAfterIt) {
  RawClient first;
  ASSERT_EQ(first.ask(request(VERSION, 1)).group, VERSION);
  RawClient second;
  RawClient third;
  second.send(request(VERSION, 2));
  third.send(request(VERSION, 3));
  EXPECT_EQ(first.ask(request(VERSION, 1)).type, 1);
  first.close();
  EXPECT_EQ(second.receiveRecord().type, 2);
  second.close();
  EXPECT_EQ(third.receiveRecord().type, 3);
}

TEST_F(HostileControl, TenThousandConnectionsLeaveNothingBehind) {
  const auto descriptors = openDescriptors();
  const auto threads = runningThreads();
  for (std::size_t round = 0; round < 10'000; round += stride) {
    const RawClient client;
    if (round % 3 == 0) client.send("half a record");
    departures.log.take();
    log.take();
  }
  expectTheNextClientIsServed();
  EXPECT_TRUE(becomes(openDescriptors, descriptors)) << openDescriptors();
  EXPECT_TRUE(becomes(runningThreads, threads)) << runningThreads();
}

// A client that does not read, with the smallest buffers.

class SilentReader : public HostileControl {
 protected:
  /// Connects a client that asks for lists and never reads, and host threads that notify it, and
  /// waits until everybody is held up.
  void holdUp() {
    listener.services.assign(50, service{});
    ASSERT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    shrinkSendBuffers();
    for (std::atomic<pid_t>& thread : threads) {
      notifiers.emplace_back([&] {
        thread = threadId();
        while (!hasEnded && manager->endOfMedia(1)) {
        }
      });
    }
    client.send(bytesOf(request(SI, 6)) + bytesOf(request(SI, 1)));
    for (const std::atomic<pid_t>& thread : threads) awaitSleeping(thread);
  }

  void joinNotifiers() {
    for (std::thread& notifier : notifiers) notifier.join();
  }

  const CaughtStream errors{stderr};
  RawClient client;
  std::atomic<bool> hasEnded{false};
  std::atomic<pid_t> threads[3] = {};
  std::vector<std::thread> notifiers;
};

TEST_F(SilentReader, DoesNotHoldUpTheManagersEnd) {
  holdUp();
  {
    const Watchdog watchdog{std::chrono::seconds(2)};
    IpcServerManager::destroy();
  }
  joinNotifiers();
  EXPECT_EQ(departures.log.take(), std::vector<std::string>{"connected()"});
  manager = makeManager();
  manager->addIpcServerListener(&listener);
  expectTheNextClientIsServed();
}

TEST_F(SilentReader, LetsEverybodyGoWhenItGoes) {
  holdUp();
  hasEnded = true;
  client.close();
  joinNotifiers();
  ASSERT_TRUE(departures.log.await("disconnected()"));
  expectTheNextClientIsServed();
}

TEST_F(SilentReader, LetsEverybodyGoWhenItNoLongerReceives) {
  holdUp();
  hasEnded = true;
  shutdown(client.descriptor(), SHUT_RD);
  joinNotifiers();
  client.send(request(CAROUSEL, 3));
  ASSERT_TRUE(log.await("addCarouselListener()"));
}

TEST_F(SilentReader, GetsEveryRecordWholeWhenItReadsAfterAll) {
  holdUp();
  hasEnded = true;
  std::thread closer([&] {
    joinNotifiers();
    client.closeSending();
  });
  std::size_t listElements = 0;
  for (;;) {
    const std::string bytes = client.receive(sizeof(message));
    if (bytes.empty()) break;
    ASSERT_EQ(bytes.size(), sizeof(message));
    message record{};
    std::memcpy(&record, bytes.data(), sizeof record);
    if (record.group == LIST_HEADER && record.type == 2) break;
    if (record.group == SI) ++listElements;
  }
  EXPECT_EQ(listElements, 50U);
  client.drain();
  closer.join();
}

// The accept threads.

TEST_F(SilentReader, DoesNotMakeTheManagersEndUnwindAListenerThatNotifies) {
  std::atomic<pid_t> acceptThread{0};
  bool hasFinished = false;
  listener.onCall = [&](const std::string& operation) {
    if (operation != "getCurrentService") return;
    acceptThread = threadId();
    // Behind the notifiers, until the end breaks off the one that is in front.
    manager->endOfMedia(1);
    hasFinished = true;
  };
  ASSERT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  shrinkSendBuffers();
  std::thread notifier([&] {
    threads[0] = threadId();
    while (manager->endOfMedia(1)) {
    }
  });
  awaitSleeping(threads[0]);
  client.send(request(SI, 7));
  awaitSleeping(acceptThread);
  IpcServerManager::destroy();
  EXPECT_TRUE(hasFinished);
  notifier.join();
}

TEST_F(HostileControl, DescriptorsThatAClientSendsAlongAreRefused) {
#ifndef SO_PASSRIGHTS
  constexpr int SO_PASSRIGHTS = 83;
#endif
  for (const char* const path : {RawClient::control, RawClient::sectionFilter}) {
    const RawClient client(path);
    const int off = 0;
    if (setsockopt(client.descriptor(), SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof off) != 0) {
      GTEST_SKIP() << "this kernel lets nobody refuse descriptors";
    }
    char byte = 0;
    iovec bytes{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int passed = client.descriptor();
    std::memcpy(CMSG_DATA(header), &passed, sizeof passed);
    EXPECT_EQ(sendmsg(client.descriptor(), &message, MSG_NOSIGNAL), -1) << path;
    EXPECT_EQ(errno, EPERM) << path;
  }
}

/// A socket that connects to the path, with a number far above the standard streams'.
int connectedFarAbove(const char* path) {
  const int low = socket(AF_UNIX, SOCK_STREAM, 0);
  const int high = fcntl(low, F_DUPFD, 100);
  close(low);
  return connectTo(high, path) == 0 ? high : -1;
}

/// Whether both channels of a host without standard streams keep out of their places.
bool keepsOutOfTheStreamsPlaces() {
  for (int number = 0; number <= 2; ++number) close(number);
  // The channel outlives the function.
  static DemuxRecorder recorder;
  IpcServerManager::getInstance()->addIpcDemuxServerListener(&recorder);
  const int control = connectedFarAbove(RawClient::control);
  const int sections = connectedFarAbove(RawClient::sectionFilter);
  // The answers tell that both connections have been accepted.
  const std::string asked = bytesOf(request(VERSION, 1));
  send(control, asked.data(), asked.size(), MSG_NOSIGNAL);
  send(sections, word(13).data(), 4, MSG_NOSIGNAL);
  char bytes[sizeof(message)];
  if (recv(control, bytes, sizeof bytes, MSG_WAITALL) != sizeof bytes) return false;
  if (recv(sections, bytes, 4, MSG_WAITALL) != 4) return false;
  bool keepsOut = true;
  forEachSocket([&](int number) { keepsOut = keepsOut && number > 2; });
  return keepsOut;
}

// What is printed must not reach a client.
TEST(HostWithoutStandardStreams, HasNoSocketOfTheLibraryInTheirPlaces) {
  if (IS_EMULATED) GTEST_SKIP() << "an emulator has files of its own in their places";
  startDeathTestAnew();
  EXPECT_EXIT(_exit(keepsOutOfTheStreamsPlaces() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(HostileControl, TheAcceptThreadsCarryNames) {
  std::vector<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    names.push_back(name);
  }
  EXPECT_EQ(std::count(names.begin(), names.end(), "ipc-control"), 1);
  EXPECT_GE(std::count(names.begin(), names.end(), "ipc-demux"), 1);
}

TEST_F(HostileControl, TheHostsSignalsDoNotReachTheAcceptThreads) {
  static volatile std::sig_atomic_t handled = 0;
  std::signal(SIGUSR1, [](int) { handled = 1; });
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, SIGUSR1);
  // With this thread blocking it, too, nobody is left to take it.
  pthread_sigmask(SIG_BLOCK, &one, nullptr);
  kill(getpid(), SIGUSR1);
  const RawClient control;
  EXPECT_EQ(control.ask(request(VERSION, 1)).group, VERSION);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
  EXPECT_EQ(handled, 0);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  EXPECT_EQ(handled, 1);
}

}  // namespace
}  // namespace quillwork
