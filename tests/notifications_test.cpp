// What the library sends on its own, and the call that waits for the client's answer.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <thread>

#include "protocol/ApplicationState.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/ApplicationStateWait.h"
#include "support/CallLog.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/StandardStreams.h"
#include "support/Threads.h"

namespace quillwork {
namespace {

class Arrivals : public ConnectionListener {
 public:
  void clientConnected() override { log.add("connected"); }
  void clientDisconnected() override { log.add("disconnected"); }
  CallLog log;
};

class Notifications : public testing::Test {
 protected:
  Notifications() { manager->addConnectionListener(&arrivals); }
  ~Notifications() override { IpcServerManager::destroy(); }

  /// A client that the server has accepted.
  std::unique_ptr<RawClient> connect() {
    auto client = std::make_unique<RawClient>();
    EXPECT_TRUE(arrivals.log.await("connected()"));
    arrivals.log.take();
    return client;
  }

  /// Starts the call and returns when the client has its record and the call waits.
  std::future<bool> call(RawClient& client, int newState) {
    auto answer = std::async(std::launch::async, [this, newState] {
      return manager->setApplicationState(state{newState});
    });
    const message record = client.receiveRecord();
    EXPECT_EQ(bytesOf(record), bytesOf(request(APPLICATION_STATE, newState)));
    awaitApplicationStateWait();
    return answer;
  }

  Arrivals arrivals;
  IpcServerManager* manager = makeManager();
};

TEST_F(Notifications, EndOfMedia) {
  const auto client = connect();
  EXPECT_TRUE(manager->endOfMedia(42));
  message expected = request(MEDIA, 16);
  expected[3] = 42;
  EXPECT_EQ(bytesOf(client->receiveRecord()), bytesOf(expected));
}

TEST_F(Notifications, ChangedGraphicsSettingsFillEightWordsAndNoMore) {
  const auto client = connect();
  EXPECT_TRUE(manager->changeGraphicsSettings({1, 2, 3, 4}, {5, 6, 7, 8}));
  message expected = request(VIDEO, 17);
  for (std::size_t index = 0; index < 8; ++index) expected[3 + index] = static_cast<int>(index + 1);
  EXPECT_EQ(bytesOf(client->receiveRecord()), bytesOf(expected));
}

TEST_F(Notifications, AFinishedDownloadCarriesTwoTextsOfAtMost254Characters) {
  const auto client = connect();
  EXPECT_TRUE(manager->downloadComplete("first", "second"));
  message expected = request(CAROUSEL, 2);
  putBytes(expected, 12, "first", 5);
  putBytes(expected, 267, "second", 6);
  EXPECT_EQ(bytesOf(client->receiveRecord()), bytesOf(expected));
  EXPECT_TRUE(manager->downloadComplete(std::string(300, 'f'), ""));
  expected = request(CAROUSEL, 2);
  putBytes(expected, 12, std::string(254, 'f').data(), 254);
  EXPECT_EQ(bytesOf(client->receiveRecord()), bytesOf(expected));
}

/// A record of a command's text.
message part(const std::string& text) {
  message record = request(DSMCC_COMMAND, 7);
  put(record, 16, 1.5);
  put(record, 24, std::uint8_t{200});
  putBytes(record, 25, text.data(), text.size());
  return record;
}

TEST_F(Notifications, ACommandsTextIsSplitIntoPartsOf1920Characters) {
  const auto client = connect();
  const std::string a(1920, 'a');
  const std::string b(1920, 'b');
  const std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
      {"", {""}},          {"short", {"short"}}, {a, {a}},
      {a + "z", {a, "z"}}, {a + b, {a, b, ""}},  {a + b + "z", {a, b, "z"}},
  };
  for (const auto& [text, parts] : rows) {
    EXPECT_TRUE(manager->sendDsmCCCommand({7, 1.5, 200, text}));
    if (parts.size() > 1) {
      EXPECT_EQ(bytesOf(client->receiveRecord()),
                bytesOf(request(LIST_HEADER, static_cast<int>(parts.size()))));
    }
    for (const std::string& expected : parts) {
      EXPECT_EQ(bytesOf(client->receiveRecord()), bytesOf(part(expected)));
    }
  }
  EXPECT_TRUE(manager->endOfMedia(1));
  EXPECT_EQ(client->receiveRecord().group, MEDIA);
}

TEST_F(Notifications, WithoutAClientEverySenderFailsAndSaysSo) {
  const CaughtStream errors(stderr);
  EXPECT_FALSE(manager->endOfMedia(1));
  EXPECT_FALSE(manager->changeGraphicsSettings({}, {}));
  EXPECT_FALSE(manager->downloadComplete("", ""));
  EXPECT_FALSE(manager->sendDsmCCCommand({1, 0, 0, ""}));
  EXPECT_FALSE(manager->setApplicationState(state{1}));
  const std::string line = std::string("Can't send message: ") + std::strerror(EBADF) + "\n";
  EXPECT_EQ(errors.text(), line + line + line + line + line);
}

TEST_F(Notifications, TheClientsAnswerIsTheCallsResult) {
  const auto client = connect();
  for (const bool expected : {false, true, false}) {
    auto answer = call(*client, 3);
    message reply = request(APPLICATION_STATE, 55);
    reply[3] = expected ? 0x100 + 2 : 0x100;
    client->send(reply);
    EXPECT_EQ(answer.get(), expected);
  }
}

TEST_F(Notifications, ADisconnectionAnswersTrueAndStillReachesTheConnectionListeners) {
  auto client = connect();
  auto answer = call(*client, 3);
  client->close();
  EXPECT_TRUE(answer.get());
  EXPECT_TRUE(arrivals.log.await("disconnected()"));
}

TEST_F(Notifications, ADisconnectionBetweenTheSendAndTheWaitIsNotLost) {
  for (int round = 0; round < 200; ++round) {
    auto client = connect();
    auto answer =
        std::async(std::launch::async, [&] { return manager->setApplicationState(state{1}); });
    static_cast<void>(client->receiveRecord());
    client->close();
    EXPECT_TRUE(answer.get());
    EXPECT_TRUE(arrivals.log.await("disconnected()"));
  }
}

TEST_F(Notifications, ALongCommandThatTheHostCancelsInTheMiddleEndsTheConnection) {
  const auto client = connect();
  struct Call {
    IpcServerManager* manager;
    std::atomic<pid_t> id{0};
  } call{manager};
  pthread_t thread{};
  pthread_create(
      &thread, nullptr,
      [](void* argument) -> void* {
        auto& made = *static_cast<Call*>(argument);
        made.id = threadId();
        made.manager->sendDsmCCCommand({1, 2.5, 3, std::string(2'000'000, 't')});
        return nullptr;
      },
      &call);
  // The client does not read.
  awaitSleeping(call.id);
  pthread_cancel(thread);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  // Until the end; without one it never returns.
  client->drain();
  const auto next = connect();
  EXPECT_EQ(next->ask(request(VERSION, 1)).group, VERSION);
}

TEST_F(Notifications, TheWaitDoesNotBeginWhenTheConnectionHasEndedSinceTheSend) {
  const std::uint32_t whenSent = application_state::endedConnections();
  application_state::endConnection();
  EXPECT_TRUE(application_state::await(whenSent));
}

TEST_F(Notifications, AnUnrequestedAnswerOnlyStoresItsByte) {
  const auto client = connect();
  message reply = request(APPLICATION_STATE, 0);
  reply[3] = 1;
  client->send(reply);
  // An answered request tells that the answer before it has been dealt with.
  EXPECT_EQ(client->ask(request(VERSION, 1)).group, VERSION);
  auto answer = call(*client, 3);
  reply[3] = 0;
  client->send(reply);
  EXPECT_FALSE(answer.get());
}

TEST_F(Notifications, TheManagersEndAnswersTrue) {
  const auto client = connect();
  auto answer = call(*client, 3);
  IpcServerManager::destroy();
  EXPECT_TRUE(answer.get());
}

TEST_F(Notifications, DestructionBreaksOffANotificationThatTheClientHoldsUp) {
  const auto client = connect();
  const CaughtStream errors(stderr);
  std::atomic<pid_t> thread{0};
  std::thread flood([&] {
    thread = threadId();
    while (manager->endOfMedia(1)) {
    }
  });
  awaitSleeping(thread);
  IpcServerManager::destroy();
  flood.join();
  manager = makeManager();
  manager->addConnectionListener(&arrivals);
  const auto next = connect();
  EXPECT_TRUE(manager->endOfMedia(2));
  EXPECT_EQ(next->receiveRecord()[3], 2);
}

TEST_F(Notifications, NothingFallsBetweenTheRecordsOfAReplyOrTheBytesBehindThem) {
  CallLog log;
  RecordingListener listener(log);
  const std::string bytes(200, '\x5a');
  listener.descriptorLists["getNetworkDescriptors"] = {{1, bytes}, {2, bytes}, {3, bytes}};
  manager->addIpcServerListener(&listener);
  const auto client = connect();
  std::atomic<bool> done{false};
  const CaughtStream errors(stderr);
  std::thread notifier([&] {
    while (!done) {
      manager->endOfMedia(9);
      manager->sendDsmCCCommand({1, 0, 0, std::string(4000, 'c')});
    }
  });
  for (int round = 0; round < 100; ++round) {
    client->send(request(SI, 15));
    message record = client->receiveRecord();
    // Notifications before the reply; a command's parts follow their header at once.
    while (record.group != LIST_HEADER || record.reserved != 0 || record.type == 3) {
      if (record.group == LIST_HEADER && record.type == 3) {
        record = client->receiveRecord();
        if (record.group == SI) break;
        ASSERT_EQ(record.group, DSMCC_COMMAND);
        ASSERT_EQ(client->receiveRecord().group, DSMCC_COMMAND);
        ASSERT_EQ(client->receiveRecord().group, DSMCC_COMMAND);
      } else {
        ASSERT_EQ(record.group, MEDIA);
      }
      record = client->receiveRecord();
    }
    for (int index = 0; index < 3; ++index) {
      if (index > 0) record = client->receiveRecord();
      ASSERT_EQ(record.group, SI);
      ASSERT_EQ(client->receive(200), bytes);
    }
  }
  done = true;
  client->close();
  notifier.join();
  IpcServerManager::destroy();
}

}  // namespace
}  // namespace quillwork
