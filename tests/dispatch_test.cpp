// The control channel's requests on the real socket: every reply byte by byte.

#include <gtest/gtest.h>

#include <set>

#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/Golden.h"
#include "support/GoldenListener.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"

namespace quillwork {
namespace {

using Calls = std::vector<std::string>;

class Dispatch : public testing::Test {
 protected:
  Dispatch() { manager->addIpcServerListener(&listener); }
  ~Dispatch() override { IpcServerManager::destroy(); }

  /// Waits until everything sent so far has been handled: version requests are answered always.
  void expectNothingMore(const RawClient& client) {
    message mark = request(VERSION, 99);
    mark.reserved = 31337;
    const message answer = client.ask(mark);
    EXPECT_EQ(answer.group, VERSION);
    EXPECT_EQ(answer.reserved, 31337);
    Calls calls = listener.log.take();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "checkVersionFlag(99)");
    calls.pop_back();
    seen = std::move(calls);
  }

  CallLog log;
  RecordingListener listener{log};
  IpcServerManager* manager = makeManager();
  Calls seen;
};

class GoldenRequest : public Dispatch, public testing::WithParamInterface<Golden> {};

TEST_P(GoldenRequest, CallsTheListenerAndIsAnsweredByteByByte) {
  const Golden& golden = GetParam();
  giveGoldenAnswers(listener);
  const CaughtStream errors(stderr);
  RawClient client;
  for (const Golden::Part& part : golden.parts) {
    if (part.fromClient) {
      client.send(part.bytes);
    } else {
      EXPECT_EQ(differences(part, client.receive(part.bytes.size()), sizeof(void*) > 4), "");
    }
  }
  expectNothingMore(client);
  EXPECT_EQ(seen, golden.callTexts());
  EXPECT_EQ(errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(Files, GoldenRequest, testing::ValuesIn(Golden::readAll(GOLDEN_DIRECTORY)),
                         [](const auto& row) { return testName(row.param); });

TEST_F(Dispatch, UnknownGroupsAreReportedAndNotAnswered) {
  RawClient client;
  const CaughtStream errors(stderr);
  for (const int group : {-1, 11, 7, 9, INT32_MIN, INT32_MAX}) client.send(request(group, 3));
  expectNothingMore(client);
  EXPECT_EQ(errors.text(),
            "Unknown message: -1\nUnknown message: 11\nUnknown message: 7\nUnknown message: 9\n"
            "Unknown message: -2147483648\nUnknown message: 2147483647\n");
  EXPECT_TRUE(seen.empty());
}

TEST_F(Dispatch, UnknownSiTypesAreReportedWithTwoBlanks) {
  RawClient client;
  const CaughtStream errors(stderr);
  for (const int type : {17, -1, INT32_MAX}) client.send(request(SI, type));
  expectNothingMore(client);
  EXPECT_EQ(errors.text(),
            "Unknown si message type:  17\nUnknown si message type:  -1\n"
            "Unknown si message type:  2147483647\n");
  EXPECT_TRUE(seen.empty());
}

TEST_F(Dispatch, OtherUnknownTypesAreDroppedWithoutAWord) {
  RawClient client;
  const CaughtStream errors(stderr);
  for (const auto& [group, type] :
       std::initializer_list<std::pair<int, int>>{{VIDEO, 19},
                                                  {VIDEO, -1},
                                                  {VIDEO, 256},
                                                  {MEDIA, 16},
                                                  {MEDIA, -1},
                                                  {CAROUSEL, 2},
                                                  {CAROUSEL, 5},
                                                  {CAROUSEL, -1},
                                                  {SYSTEM_PROPERTY, 4},
                                                  {SYSTEM_PROPERTY, -1}}) {
    client.send(request(group, type));
  }
  expectNothingMore(client);
  EXPECT_EQ(errors.text(), "");
  EXPECT_TRUE(seen.empty());
}

TEST_F(Dispatch, AnEmptyRegistryAnswersWithNothing) {
  manager->removeIpcServerListener(&listener);
  RawClient client;
  std::set<const operations::Request*> asked;
  const auto ask = [&](const message& record) {
    asked.insert(rowFor(operations::requests, record.group, record.type));
    return client.ask(record);
  };
  for (const auto& [group, type] : std::initializer_list<std::pair<int, int>>{{VIDEO, 4},
                                                                              {SYSTEM_PROPERTY, 1},
                                                                              {TUNER, 2},
                                                                              {SI, 1},
                                                                              {SI, 3},
                                                                              {SI, 4},
                                                                              {SI, 6},
                                                                              {SI, 9},
                                                                              {SI, 10},
                                                                              {SI, 11},
                                                                              {SI, 13},
                                                                              {SI, 15},
                                                                              {SI, 16}}) {
    message expected = request(group, type);
    expected.reserved = 77;
    const message answer = ask(expected);
    expected.group = LIST_HEADER;
    expected.type = 0;
    EXPECT_EQ(bytesOf(answer), bytesOf(expected)) << group << ' ' << type;
  }
  EXPECT_EQ(ask(request(VIDEO, 9))[3], -1);
  EXPECT_EQ(ask(request(TUNER, 0))[3], -1);
  EXPECT_EQ(ask(request(SI, 7))[3], -1);
  EXPECT_EQ(ask(request(MEDIA, 1))[4], -1);
  EXPECT_EQ(ask(request(MEDIA, 2))[4], -1);
  EXPECT_EQ(ask(request(MEDIA, 3))[4], -1);
  EXPECT_EQ(ask(request(MEDIA, 8))[4], -1);
  for (const auto& [group, type, position] :
       std::initializer_list<std::tuple<int, int, std::size_t>>{
           {SI, 5, 12}, {MEDIA, 0, 16}, {MEDIA, 5, 16}, {VERSION, 1, 12}}) {
    message record = request(group, type);
    putBoolean(record, position, true);
    EXPECT_FALSE(getBoolean(ask(record), position)) << group << ' ' << type;
  }
  for (const auto& [group, type, position] :
       std::initializer_list<std::tuple<int, int, std::size_t>>{{VIDEO, 3, 12},
                                                                {VIDEO, 5, 12},
                                                                {SYSTEM_PROPERTY, 0, 267},
                                                                {CAROUSEL, 0, 267},
                                                                {SI, 0, 12},
                                                                {SI, 8, 12}}) {
    message record = request(group, type);
    putShortString(record, position, "not the answer");
    EXPECT_EQ(getString(ask(record), position), "") << group << ' ' << type;
  }
  EXPECT_EQ(ask(request(SI, 14))[3], -1);
  EXPECT_EQ(ask(request(SI, 12))[4], -1);
  // An event without lists: null references and nothing behind the record.
  const message event = ask(request(SI, 2));
  EXPECT_EQ(event[4], -1);
  for (std::size_t index = 209; index < 215; ++index) EXPECT_EQ(event[index], 0);
  for (const int group : {VIDEO, MEDIA}) {
    const message bounds = request(group, group == VIDEO ? 1 : 9);
    EXPECT_EQ(bytesOf(ask(bounds)), bytesOf(bounds));
  }
  for (const operations::Request& row : operations::requests) {
    EXPECT_EQ(asked.contains(&row), row.reply != operations::Reply::none) << row.name;
  }
}

TEST_F(Dispatch, ATextOfTheReplyIsCutTo254Characters) {
  listener.texts["getServiceDescription"] = std::string(300, 'd');
  RawClient client;
  const std::string answer = bytesOf(client.ask(request(SI, 8)));
  EXPECT_EQ(answer.substr(12, 255), std::string(254, 'd') + '\0');
}

TEST_F(Dispatch, TextsOfARequestEndWithTheRecordAtTheLatest) {
  RawClient client;
  message full{};
  std::memset(&full, 'q', sizeof full);
  full.group = SYSTEM_PROPERTY;
  full.type = 3;
  client.send(full);
  full.group = VIDEO;
  full.type = 6;
  client.send(full);
  full.group = SYSTEM_PROPERTY;
  full.type = 2;
  client.send(full);
  expectNothingMore(client);
  EXPECT_EQ(seen, (Calls{"removeSystemProperty(" + std::string(1948, 'q') + ")",
                         "setVideoProperty(6, 1948, qqqqqqqqqq)",
                         "setSystemProperty(2, " + std::string(255, 'q') + ", " +
                             std::string(255, 'q') + ")"}));
}

TEST_F(Dispatch, ABroadcastReachesEveryListenerInTheOrderOfTheirAddresses) {
  RecordingListener more[2] = {RecordingListener(log, "a"), RecordingListener(log, "b")};
  manager->addIpcServerListener(&more[1]);
  manager->addIpcServerListener(&more[0]);
  manager->removeIpcServerListener(&listener);
  RawClient client;
  client.send(request(CAROUSEL, 3));
  ASSERT_TRUE(log.awaitCount(2));
  EXPECT_EQ(log.take(), (Calls{"a.addCarouselListener()", "b.addCarouselListener()"}));
  client.close();
  ASSERT_TRUE(log.awaitCount(2));
  for (RecordingListener& removed : more) manager->removeIpcServerListener(&removed);
}

TEST_F(Dispatch, MediaBoundsThatNobodyWritesComeBackAsTheyWere) {
  RawClient client;
  message asked = request(MEDIA, 9);
  asked[3] = 1;
  for (std::size_t index = 4; index < 8; ++index) asked[index] = static_cast<int>(index * 11);
  EXPECT_EQ(bytesOf(client.ask(asked)), bytesOf(asked));
}

TEST_F(Dispatch, AListOfThousandsTravelsWhole) {
  listener.services.resize(3000);
  int number = 0;
  for (service& element : listener.services) element.value_1 = number++;
  RawClient client;
  EXPECT_EQ(client.ask(request(SI, 6)).type, 3000);
  for (int index = 0; index < 3000; ++index) {
    const message element = client.receiveRecord();
    ASSERT_EQ(element[3], index);
    ASSERT_EQ(element.group, SI);
  }
}

TEST_F(Dispatch, AnExceptionInAListenerReleasesTheMutex) {
  listener.makeEvents = []() -> std::list<program_event> { throw std::bad_alloc(); };
  const CaughtStream errors(stderr);
  {
    RawClient client;
    client.send(request(SI, 1));
    EXPECT_TRUE(client.isAtEnd());
  }
  ASSERT_TRUE(log.await("setVideoProperty(2, 0, 0, 0, 0)"));
  RawClient next;
  EXPECT_EQ(next.ask(request(SI, 7))[3], -1);
  EXPECT_EQ(manager->getCurrentService(), -1);
}

TEST_F(Dispatch, TheRecordOfADisconnectionKeepsWhatTheLastReplyLeft) {
  {
    RawClient client;
    message asked = request(MEDIA, 2);
    asked[3] = 8;
    client.send(asked);
    static_cast<void>(client.receiveRecord());
    log.take();
  }
  ASSERT_TRUE(log.awaitCount(1));
  EXPECT_EQ(log.take(), Calls{"setVideoProperty(2, 8, -1, 0, 0)"});
}

}  // namespace
}  // namespace quillwork
