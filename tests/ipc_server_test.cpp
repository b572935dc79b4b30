// The control channel's transport, with raw bytes on real sockets.

#include "ipc/IpcServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>

#include "support/CallLog.h"
#include "support/Leftovers.h"
#include "support/Limit.h"
#include "support/RawClient.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/Threads.h"

namespace quillwork {
namespace {

constexpr const char* path = "/dev/shm/transport.socket";
constexpr int pathLength = 25;

/// Writes down the events; a record as its group, type, and words 3 and 489.
class Recorder : public IpcListener {
 public:
  void update(message& record) override {
    log.add("update", record.group, record.type, record[3], record[489]);
    if (onUpdate) onUpdate(record);
  }
  void update(std::list<message>) override { log.add("updateList"); }
  void clientConnected() override {
    log.add("clientConnected");
    if (onConnected) onConnected();
  }
  void clientDisconnected() override { log.add("clientDisconnected"); }

  CallLog log;
  std::function<void(message&)> onUpdate;
  std::function<void()> onConnected;
};

using Calls = std::vector<std::string>;

class ControlTransport : public testing::Test {
 protected:
  void start() { server.start(); }

  /// Inside the listener: returns when a stop has begun, for sends fail from then on.
  void awaitStop() {
    std::thread([this] {
      while (server.sendMessage("x", 1)) std::this_thread::yield();
    }).join();
  }

  Recorder recorder;
  IpcServer server{&recorder, path, pathLength};
};

message numbered(std::int32_t group, std::int32_t type, std::int32_t value) {
  message record = request(group, type);
  record[3] = value;
  record[489] = -value;
  return record;
}

TEST_F(ControlTransport, OneRecordAndACloseGiveTheFourEventsInOrderAndTheNextClientIsServed) {
  start();
  RawClient first(path);
  first.send(numbered(6, 7, 5));
  first.close();
  ASSERT_TRUE(recorder.log.awaitCount(4));
  // The end-of-connection record keeps the rest of the record before it.
  EXPECT_EQ(recorder.log.take(), (Calls{"clientConnected()", "update(6, 7, 5, -5)",
                                        "update(0, 2, 5, -5)", "clientDisconnected()"}));
  RawClient second(path);
  second.send(numbered(1, 2, 3));
  ASSERT_TRUE(recorder.log.await("update(1, 2, 3, -3)"));
}

TEST_F(ControlTransport, TheBufferStartsAsZeroBytesAndKeepsWhatTheClientBeforeSent) {
  start();
  {
    RawClient client(path);
    client.close();
    ASSERT_TRUE(recorder.log.awaitCount(3));
    EXPECT_EQ(recorder.log.take(),
              (Calls{"clientConnected()", "update(0, 2, 0, 0)", "clientDisconnected()"}));
  }
  {
    RawClient client(path);
    client.send(numbered(6, 7, 5));
    client.close();
    ASSERT_TRUE(recorder.log.awaitCount(4));
  }
  recorder.log.take();
  RawClient client(path);
  client.close();
  ASSERT_TRUE(recorder.log.awaitCount(3));
  EXPECT_EQ(recorder.log.take(),
            (Calls{"clientConnected()", "update(0, 2, 5, -5)", "clientDisconnected()"}));
}

TEST_F(ControlTransport, AThousandBytesAndACloseAreARecordInFrontOfTheBytesBeforeIt) {
  start();
  RawClient client(path);
  client.send(numbered(6, 7, 5));
  client.send(bytesOf(numbered(3, 4, 9)).substr(0, 1000));
  client.close();
  ASSERT_TRUE(recorder.log.awaitCount(5));
  EXPECT_EQ(recorder.log.take(),
            (Calls{"clientConnected()", "update(6, 7, 5, -5)", "update(3, 4, 9, -5)",
                   "update(0, 2, 9, -5)", "clientDisconnected()"}));
}

TEST_F(ControlTransport, ARecordThatArrivesByteByByteIsOneRecord) {
  start();
  RawClient client(path);
  for (const char byte : bytesOf(numbered(6, 7, 5))) client.send(std::string_view(&byte, 1));
  ASSERT_TRUE(recorder.log.awaitCount(2));
  EXPECT_EQ(recorder.log.take(), (Calls{"clientConnected()", "update(6, 7, 5, -5)"}));
}

TEST_F(ControlTransport, SeveralRecordsInOneWriteAreSeveralRecords) {
  start();
  RawClient client(path);
  client.send(bytesOf(numbered(1, 1, 1)) + bytesOf(numbered(2, 2, 2)) + bytesOf(numbered(3, 3, 3)));
  ASSERT_TRUE(recorder.log.awaitCount(4));
  EXPECT_EQ(recorder.log.take(), (Calls{"clientConnected()", "update(1, 1, 1, -1)",
                                        "update(2, 2, 2, -2)", "update(3, 3, 3, -3)"}));
}

TEST_F(ControlTransport, ClientConnectedComesBeforeTheFirstReceive) {
  start();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  client.send(numbered(6, 7, 5));
  ASSERT_TRUE(recorder.log.awaitCount(2));
}

TEST_F(ControlTransport, ASecondClientWaitsUntilTheFirstHasGone) {
  start();
  RawClient first(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  RawClient second(path);
  second.send(numbered(5, 5, 5));
  first.send(numbered(4, 4, 4));
  ASSERT_TRUE(recorder.log.await("update(4, 4, 4, -4)"));
  first.close();
  ASSERT_TRUE(recorder.log.await("update(5, 5, 5, -5)"));
  EXPECT_EQ(recorder.log.take(),
            (Calls{"clientConnected()", "update(4, 4, 4, -4)", "update(0, 2, 4, -4)",
                   "clientDisconnected()", "clientConnected()", "update(5, 5, 5, -5)"}));
}

TEST_F(ControlTransport, RecordsAreDiscardedWithoutAListener) {
  IpcServer silent(nullptr, path, pathLength);
  silent.start();
  {
    RawClient client(path);
    client.send(numbered(6, 7, 5));
    message answer = numbered(1, 1, 1);
    // The record has been read when a send has found the client.
    while (!silent.sendMessage(answer)) std::this_thread::yield();
    EXPECT_EQ(bytesOf(client.receiveRecord()), bytesOf(answer));
  }
  RawClient next(path);
  message answer = numbered(2, 2, 2);
  while (!silent.sendMessage(answer)) std::this_thread::yield();
  EXPECT_EQ(bytesOf(next.receiveRecord()), bytesOf(answer));
  EXPECT_TRUE(recorder.log.calls().empty());
}

TEST_F(ControlTransport, AReplyTravelsInTheReceivedRecord) {
  recorder.onUpdate = [&](message& record) {
    if (record.type != 7) return;
    record[3] = 1234;
    EXPECT_TRUE(server.sendMessage(record));
  };
  start();
  RawClient client(path);
  message expected = numbered(6, 7, 5);
  expected.reserved = 77;
  const message answer = client.ask(expected);
  expected[3] = 1234;
  EXPECT_EQ(bytesOf(answer), bytesOf(expected));
}

TEST_F(ControlTransport, RawBytesAreSentAsTheyAre) {
  recorder.onUpdate = [&](message& record) {
    if (record.type != 7) return;
    EXPECT_TRUE(server.sendMessage("raw", 3));
    EXPECT_TRUE(server.sendMessage("", 0));
    EXPECT_TRUE(server.sendMessage("!", 1));
  };
  start();
  RawClient client(path);
  client.send(numbered(6, 7, 5));
  EXPECT_EQ(client.receive(4), "raw!");
}

TEST_F(ControlTransport, ASendWithoutAClientFailsAndSaysSo) {
  message record = numbered(1, 2, 3);
  const std::string suffix = std::string(": ") + std::strerror(EBADF) + "\n";
  const auto expectFailure = [&] {
    const CaughtStream errors(stderr);
    EXPECT_FALSE(server.sendMessage(record));
    EXPECT_FALSE(server.sendMessage("x", 1));
    EXPECT_EQ(errors.text(), "Can't send message" + suffix + "Can't send raw message" + suffix);
  };
  expectFailure();
  start();
  expectFailure();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  EXPECT_TRUE(server.sendMessage(record));
  client.close();
  ASSERT_TRUE(recorder.log.await("clientDisconnected()"));
  expectFailure();
  server.stop();
  expectFailure();
}

TEST_F(ControlTransport, ASendNeverReachesAFileThatTheHostHasOpenedUnderTheOldNumber) {
  start();
  auto client = std::make_unique<RawClient>(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  server.stop();
  // The lowest free numbers are those that the server has just closed.
  int pair[2] = {};
  int spare[2] = {};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, spare), 0);
  message record = numbered(1, 2, 3);
  {
    const CaughtStream errors(stderr);
    EXPECT_FALSE(server.sendMessage(record));
    start();
    EXPECT_FALSE(server.sendMessage(record));
    server.stop();
    server.stop();
  }
  char byte = 0;
  for (const int descriptor : {pair[0], pair[1], spare[0], spare[1]}) {
    EXPECT_EQ(recv(descriptor, &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN) << "descriptor " << descriptor << " was closed or written to";
  }
  for (const int descriptor : {pair[0], pair[1], spare[0], spare[1]}) ::close(descriptor);
}

TEST_F(ControlTransport, AVanishedPeerFailsTheSendWithoutASignal) {
  std::latch closed(1);
  std::latch connected(1);
  recorder.onConnected = [&] {
    connected.count_down();
    closed.wait();
    message record = numbered(1, 2, 3);
    const CaughtStream errors(stderr);
    EXPECT_FALSE(server.sendMessage(record));
    EXPECT_EQ(errors.text(), std::string("Can't send message: ") + std::strerror(EPIPE) + "\n");
  };
  start();
  RawClient client(path);
  connected.wait();
  client.close();
  closed.count_down();
  ASSERT_TRUE(recorder.log.await("clientDisconnected()"));
}

TEST_F(ControlTransport, ANameOf107BytesIsAcceptedAndOneOf108IsNot) {
  const std::string accepted = "/dev/shm/" + std::string(98, 'n');
  ASSERT_EQ(accepted.size(), 107U);
  IpcServer longest(&recorder, accepted.c_str(), 107);
  longest.start();
  {
    RawClient client(accepted.c_str());
    ASSERT_TRUE(recorder.log.await("clientConnected()"));
  }
  longest.stop();

  IpcServer tooLong(&recorder, (accepted + "n").c_str(), 108);
  const CaughtStream errors(stderr);
  tooLong.start();
  const std::string text = errors.text();
  EXPECT_EQ(text.substr(0, text.find(':')), "Invalid file name or file name is too big");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST_F(ControlTransport, OnlyTheGivenLengthOfTheNameIsUsed) {
  IpcServer server2(&recorder, "/dev/shm/cut.socket.and.more", 19);
  server2.start();
  RawClient client("/dev/shm/cut.socket");
  EXPECT_TRUE(recorder.log.await("clientConnected()"));
}

TEST_F(ControlTransport, AStaleFileAtThePathIsReplacedAndTheSocketStaysAfterwards) {
  std::ofstream(path) << "stale";
  start();
  {
    RawClient client(path);
    ASSERT_TRUE(recorder.log.await("clientConnected()"));
  }
  server.stop();
  EXPECT_TRUE(std::filesystem::is_socket(path));
}

TEST_F(ControlTransport, AFailedBindIsReportedAndASecondStartTriesAgain) {
  const std::string directory = "/dev/shm/missing";
  const std::string name = directory + "/s";
  IpcServer lost(&recorder, name.c_str(), static_cast<int>(name.size()));
  {
    const CaughtStream errors(stderr);
    lost.start();
    EXPECT_EQ(errors.text(), std::string("Can't bind filename: ") + std::strerror(ENOENT) + "\n");
    lost.stop();
  }
  std::filesystem::create_directory(directory);
  lost.start();
  RawClient client(name.c_str());
  EXPECT_TRUE(recorder.log.await("clientConnected()"));
}

TEST_F(ControlTransport, FailedStartsLeaveNoMoreThanTheLastOnesSocket) {
  IpcServer lost(&recorder, "/dev/shm/none/s", 15);
  const CaughtStream errors(stderr);
  lost.start();
  const auto before = openDescriptors();
  for (int attempt = 0; attempt < 50; ++attempt) lost.start();
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ControlTransport, WhatTheSystemRefusesAtTheStartIsReportedAndASecondStartTriesAgain) {
  // A sanitizer needs descriptors when it meets an object of a class for the first time.
  start();
  server.stop();
  recorder.log.take();
  const auto before = openDescriptors();
  {
    const CaughtStream errors(stderr);
    const Limit files(RLIMIT_NOFILE, 3);
    start();
    EXPECT_EQ(errors.text(), std::string("Can't create socket: ") + std::strerror(EMFILE) + "\n");
  }
  if (canLimitMemory()) {
    // No stack for a thread.
    const Limit memory(RLIMIT_AS, 1'000'000);
    start();
  }
  server.stop();
  start();
  {
    const RawClient client(path);
    EXPECT_TRUE(recorder.log.await("clientConnected()"));
  }
  ASSERT_TRUE(recorder.log.await("clientDisconnected()"));
  server.stop();
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ControlTransport, ASecondStartWhileRunningDoesNothing) {
  start();
  const auto before = openDescriptors();
  struct stat first {};
  struct stat second {};
  ASSERT_EQ(stat(path, &first), 0);
  start();
  ASSERT_EQ(stat(path, &second), 0);
  EXPECT_EQ(first.st_ino, second.st_ino);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ControlTransport, AStopBeforeAStartAndASecondStopDoNothing) {
  server.stop();
  start();
  server.stop();
  server.stop();
}

TEST_F(ControlTransport, AStopRightAfterAStartAlwaysFindsTheThread) {
  for (int round = 0; round < 200; ++round) {
    start();
    server.stop();
    // The path is left, and nobody listens there any more.
    EXPECT_TRUE(std::filesystem::is_socket(path));
  }
}

TEST_F(ControlTransport, AStopClosesAConnectionThatIsJustBeingAccepted) {
  for (int round = 0; round < 200; ++round) {
    start();
    RawClient client(path);
    server.stop();
    EXPECT_TRUE(client.isAtEnd());
  }
}

TEST_F(ControlTransport, AConnectionCutByAStopRaisesNoEvent) {
  start();
  RawClient client(path);
  client.send(numbered(6, 7, 5));
  ASSERT_TRUE(recorder.log.awaitCount(2));
  server.stop();
  EXPECT_TRUE(client.isAtEnd());
  EXPECT_EQ(recorder.log.take(), (Calls{"clientConnected()", "update(6, 7, 5, -5)"}));
}

TEST_F(ControlTransport, AListenerThatThrowsWhileTheServerStopsRaisesNoFurtherEvent) {
  std::latch inside(1);
  recorder.onUpdate = [&](message&) {
    inside.count_down();
    awaitStop();
    throw std::runtime_error("too late");
  };
  start();
  RawClient client(path);
  client.send(numbered(6, 7, 5));
  inside.wait();
  const CaughtStream errors(stderr);
  server.stop();
  EXPECT_EQ(recorder.log.take(), (Calls{"clientConnected()", "update(6, 7, 5, -5)"}));
}

TEST_F(ControlTransport, AListenerIsNotCancelledInsideOfItsOwnWait) {
  std::latch inside(1);
  bool hasFinished = false;
  recorder.onUpdate = [&](message&) {
    inside.count_down();
    awaitStop();
    // A wait of the host's is a cancellation point.
    poll(nullptr, 0, 1);
    hasFinished = true;
  };
  start();
  RawClient client(path);
  client.send(numbered(6, 7, 5));
  inside.wait();
  const CaughtStream errors(stderr);
  server.stop();
  EXPECT_TRUE(hasFinished);
}

TEST_F(ControlTransport, AStoppedServerStartsAgainWithANewSocketAndThread) {
  start();
  server.stop();
  start();
  RawClient client(path);
  EXPECT_TRUE(recorder.log.await("clientConnected()"));
}

TEST_F(ControlTransport, AStopBreaksOffASendThatIsBlocked) {
  start();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  const CaughtStream errors(stderr);
  // The client never reads, so the sender blocks once the buffers are full; more wait behind it.
  std::vector<std::thread> senders;
  std::atomic<pid_t> threads[3] = {};
  for (std::atomic<pid_t>& thread : threads) {
    senders.emplace_back([&] {
      thread = threadId();
      message record = numbered(1, 2, 3);
      while (server.sendMessage(record)) {
      }
    });
  }
  for (const std::atomic<pid_t>& thread : threads) awaitSleeping(thread);
  server.stop();
  for (std::thread& sender : senders) sender.join();
  EXPECT_EQ(recorder.log.take(), Calls{"clientConnected()"});
}

TEST_F(ControlTransport, AClientThatComesWhenTheSendsHaveBeenBrokenOffIsNotServed) {
  start();
  server.breakOffSends();
  const RawClient client(path);
  EXPECT_TRUE(client.isAtEnd());
  EXPECT_TRUE(recorder.log.calls().empty());
  server.stop();
  start();
  const RawClient next(path);
  EXPECT_TRUE(recorder.log.await("clientConnected()"));
}

TEST_F(ControlTransport, AStopDoesNotWaitForTheRestOfALongReply) {
  std::latch replying(1);
  recorder.onUpdate = [&](message& record) {
    IpcServer::SendGuard guard(server);
    replying.count_down();
    for (int part = 0; part < 1'000'000; ++part) guard.sendMessage(record);
  };
  start();
  RawClient client(path);
  client.send(numbered(1, 2, 3));
  replying.wait();
  const CaughtStream errors(stderr);
  server.stop();
  // The send that was broken off, and one for all the others.
  const std::string printed = errors.text();
  EXPECT_LE(std::count(printed.begin(), printed.end(), '\n'), 2);
}

TEST_F(ControlTransport, ASenderThatIsBlockedTowardsAHalfClosedClientIsWokenAtTheConnectionsEnd) {
  start();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  const CaughtStream errors(stderr);
  std::atomic<pid_t> thread{0};
  std::thread sender([&] {
    thread = threadId();
    message record = numbered(1, 2, 3);
    while (server.sendMessage(record)) {
    }
  });
  awaitSleeping(thread);
  client.closeSending();
  sender.join();
  EXPECT_TRUE(recorder.log.await("clientDisconnected()"));
}

TEST_F(ControlTransport, AClientThatComesInTheMiddleOfASequenceGetsNothingOfIt) {
  start();
  const CaughtStream errors(stderr);
  message record = numbered(1, 2, 3);
  {
    IpcServer::SendGuard guard(server);
    EXPECT_FALSE(guard.sendMessage(record));
    const RawClient client(path);
    ASSERT_TRUE(recorder.log.await("clientConnected()"));
    EXPECT_FALSE(guard.sendMessage(record));
  }
  ASSERT_TRUE(recorder.log.await("clientDisconnected()"));
  const std::string printed = errors.text();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2) << printed;
}

TEST_F(ControlTransport, NothingFallsBetweenTheSendsOfAGuard) {
  start();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  constexpr int rounds = 200;
  std::thread other([&] {
    for (int round = 0; round < rounds; ++round) server.sendMessage("b", 1);
  });
  std::thread guards([&] {
    for (int round = 0; round < rounds; ++round) {
      IpcServer::SendGuard guard(server);
      guard.sendMessage("(", 1);
      std::this_thread::yield();
      guard.sendMessage(")", 1);
    }
  });
  const std::string bytes = client.receive(3 * rounds);
  other.join();
  guards.join();
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (bytes[index] == '(') {
      EXPECT_EQ(bytes[index + 1], ')') << index;
    }
  }
}

TEST_F(ControlTransport, AnEscapingExceptionEndsTheConnectionWithOneLineAndTheNextClientIsServed) {
  recorder.onUpdate = [](message& record) {
    if (record.group == 9) throw std::runtime_error("listener's fault");
    if (record.group == 8) throw 1;
  };
  start();
  for (const int group : {9, 8}) {
    recorder.log.take();
    const CaughtStream errors(stderr);
    RawClient client(path);
    client.send(numbered(group, 1, 1));
    EXPECT_TRUE(client.isAtEnd());
    ASSERT_TRUE(recorder.log.awaitCount(4));
    EXPECT_EQ(recorder.log.calls().back(), "clientDisconnected()");
    EXPECT_EQ(errors.text(),
              group == 9 ? "Client's connection ended by an exception: listener's fault\n"
                         : "Client's connection ended by an exception of an unknown type\n");
  }
}

TEST_F(ControlTransport, AnExceptionInTheEndOfConnectionRecordOrTheEventsKillsNobody) {
  recorder.onUpdate = [](message&) { throw std::runtime_error("again"); };
  recorder.onConnected = [] { throw std::runtime_error("at once"); };
  start();
  const CaughtStream errors(stderr);
  for (int round = 0; round < 2; ++round) {
    RawClient client(path);
    EXPECT_TRUE(client.isAtEnd());
    ASSERT_TRUE(recorder.log.awaitCount(3));
    EXPECT_EQ(recorder.log.take(),
              (Calls{"clientConnected()", "update(0, 2, 0, 0)", "clientDisconnected()"}));
  }
}

TEST_F(ControlTransport, RunWithoutAServerReturnsNull) {
  EXPECT_EQ(IpcServer::run(nullptr), nullptr);
}

TEST_F(ControlTransport, AFailedAcceptEndsTheThreadAndOnlyAStopAndAStartReviveIt) {
  start();
  const CaughtStream errors(stderr);
  // Takes the listening socket away under the thread: the only socket that listens here.
  forEachSocket([](int descriptor) {
    int listening = 0;
    socklen_t size = sizeof listening;
    getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size);
    if (listening != 0) shutdown(descriptor, SHUT_RDWR);
  });
  const std::string expected =
      std::string("Can't accept new connections: ") + std::strerror(EINVAL);
  while (errors.text().empty()) std::this_thread::yield();
  EXPECT_EQ(errors.text(), expected + "\n");
  start();
  server.stop();
  start();
  RawClient client(path);
  EXPECT_TRUE(recorder.log.await("clientConnected()"));
}

TEST_F(ControlTransport, TheSocketsAreClosedInAChildOfTheHost) {
  const OpenSockets before = openSockets();
  start();
  RawClient client(path);
  ASSERT_TRUE(recorder.log.await("clientConnected()"));
  EXPECT_EQ(openSockets().all, before.all + 3);
  EXPECT_EQ(openSockets().inherited, 0);
}

}  // namespace
}  // namespace quillwork
