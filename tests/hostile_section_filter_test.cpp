// What a client can do to the section-filter channel that no client should.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

#include "ipc/IpcDemuxServer.h"
#include "protocol/operations.h"
#include "support/DemuxRecorder.h"
#include "support/RawClient.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace quillwork {
namespace {

constexpr std::size_t stride = TEST_STRIDE;
constexpr const char* path = RawClient::sectionFilter;

using Bytes = std::vector<unsigned char>;
using Calls = std::vector<std::string>;

std::string vectorOf(const std::string& bytes) {
  return word(static_cast<std::int32_t>(bytes.size())) + bytes;
}

/// One of each request, and its call.
struct Request {
  std::string bytes;
  std::string call;
};
const std::vector<Request> requests = {
    {word(0), "start()"},
    {word(1), "stop()"},
    {word(2) + word(17), "set_pid(17)"},
    {word(3) + word(66), "set_table_id(66)"},
    {word(4) + word(1) + vectorOf("ab") + vectorOf("c"), "set_positive_filter(1, {61 62}, {63})"},
    {word(5) + word(2) + vectorOf("") + vectorOf("d"), "set_greater_than_filter(2, {}, {64})"},
    {word(6) + word(3) + vectorOf("e") + vectorOf(""), "set_less_than_filter(3, {65}, {})"},
    {word(7) + word(4) + vectorOf("f") + vectorOf("gh") + vectorOf("i"),
     "set_xor_filter(4, {66}, {67 68}, {69})"},
    {word(8) + word(500), "set_time_out(500)"},
    {word(9), "clear_table_id()"},
    {word(10), "clear_positive_filter()"},
    {word(11), "clear_less_than_filter()"},
    {word(12), "clear_xor_filter()"},
    {word(13), "read_section()"},
};

TEST(SectionFilterRequests, AreOnesOfEachRowInItsOrder) {
  ASSERT_EQ(requests.size(), std::size(operations::sectionFilterRequests));
  for (std::size_t code = 0; code < requests.size(); ++code) {
    const std::string name = operations::sectionFilterRequests[code].name;
    EXPECT_EQ(requests[code].call.substr(0, name.size() + 1), name + '(');
  }
}

class HostileSectionFilter : public testing::Test {
 protected:
  void SetUp() override {
    server.setListener(&recorder);
    recorder.section = [] { return Bytes{1, 2, 3}; };
    server.start();
  }
  void TearDown() override { server.stop(); }

  void expectTheNextClientIsServed() {
    const RawClient client(path);
    client.send(word(13));
    EXPECT_EQ(client.receive(7), word(3) + "\1\2\3");
  }

  const OpenSockets socketsBefore = openSockets();
  DemuxRecorder recorder;
  IpcDemuxServer server;
};

TEST_F(HostileSectionFilter, EveryRequestByteByByteAndAllInOneWrite) {
  Calls expected;
  std::string all;
  for (const Request& request : requests) {
    all += request.bytes;
    expected.push_back(request.call);
  }
  {
    const RawClient client(path);
    for (const char& byte : all) client.send(std::string_view(&byte, 1));
    ASSERT_TRUE(recorder.log.awaitCount(expected.size()));
    EXPECT_EQ(recorder.log.take(), expected);
    EXPECT_EQ(client.receive(7), word(3) + "\1\2\3");
  }
  const RawClient client(path);
  client.send(all);
  ASSERT_TRUE(recorder.log.awaitCount(expected.size()));
  EXPECT_EQ(recorder.log.take(), expected);
}

TEST_F(HostileSectionFilter, ACloseAfterEachByteOfEachRequest) {
  const CaughtStream errors(stderr);
  for (const Request& request : requests) {
    for (std::size_t size = 0; size <= request.bytes.size(); ++size) {
      const RawClient client(path);
      client.send(request.bytes.substr(0, size));
    }
    // A code that is cut keeps the end of the one before, so that a call need not be its own.
    expectTheNextClientIsServed();
    const Calls calls = recorder.log.take();
    EXPECT_GT(std::count(calls.begin(), calls.end(), request.call), 0) << request.call;
  }
}

TEST_F(HostileSectionFilter, CountsThatLie) {
  const CaughtStream errors(stderr);
  for (const std::int32_t count : {-2147483647 - 1, -1, 1, 2, 255, 4096, 100'000}) {
    { RawClient(path).send(word(4) + word(0) + word(count) + "a"); }
    ASSERT_TRUE(recorder.log.awaitCount(1));
    recorder.log.take();
    // The rest of the vector comes late, or is the next request.
    if (count > 0) {
      const RawClient client(path);
      client.send(word(4) + word(0) + word(count) + "a");
      client.send(std::string(static_cast<std::size_t>(count) - 1, 'b') + vectorOf("") + word(9));
      ASSERT_TRUE(recorder.log.await("clear_table_id()"));
      EXPECT_EQ(recorder.log.take().size(), 2U);
    }
  }
  expectTheNextClientIsServed();
}

TEST_F(HostileSectionFilter, RandomBytes) {
  const CaughtStream errors(stderr);
  // The same ones each time.
  std::mt19937 random(20'261'121);
  for (std::size_t connection = 0; connection < 2000; connection += stride) {
    std::string bytes;
    for (std::size_t left = random() % 60; left > 0; --left) {
      // Small words mostly: codes, counts and identifiers.
      bytes += word(static_cast<std::int32_t>(random() % 16) - 1);
      if (random() % 8 == 0) bytes += static_cast<char>(random());
    }
    const RawClient client(path);
    client.send(bytes);
    client.closeSending();
    client.drain();
    recorder.log.take();
  }
  expectTheNextClientIsServed();
}

TEST_F(HostileSectionFilter, AClientThatHasClosedASide) {
  const CaughtStream errors(stderr);
  {
    const RawClient client(path);
    client.send(word(13));
    client.closeSending();
    EXPECT_EQ(client.receive(7), word(3) + "\1\2\3");
    EXPECT_TRUE(client.isAtEnd());
  }
  const RawClient client(path);
  shutdown(client.descriptor(), SHUT_RD);
  client.send(word(13) + word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  EXPECT_EQ(errors.text(), "Can't send size: Broken pipe\n");
}

TEST_F(HostileSectionFilter, ASecondClientIsServedWhenTheFirstHasGoneAndAThirdAfterIt) {
  RawClient first(path);
  first.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  RawClient second(path);
  RawClient third(path);
  second.send(word(10));
  third.send(word(11));
  first.send(word(0));
  ASSERT_TRUE(recorder.log.await("start()"));
  first.close();
  ASSERT_TRUE(recorder.log.await("clear_positive_filter()"));
  second.close();
  ASSERT_TRUE(recorder.log.await("clear_less_than_filter()"));
  EXPECT_EQ(recorder.log.take(), (Calls{"clear_table_id()", "start()", "clear_positive_filter()",
                                        "clear_less_than_filter()"}));
}

TEST_F(HostileSectionFilter, TenThousandConnectionsLeaveNothingBehind) {
  const auto descriptors = openDescriptors();
  const auto threads = runningThreads();
  for (std::size_t round = 0; round < 10'000; round += stride) {
    const RawClient client(path);
    if (round % 3 == 0) client.send("ab");
    recorder.log.take();
  }
  expectTheNextClientIsServed();
  EXPECT_TRUE(becomes(openDescriptors, descriptors)) << openDescriptors();
  EXPECT_TRUE(becomes(runningThreads, threads)) << runningThreads();
}

// A client that does not read, with the smallest buffers.

class SilentSectionReader : public HostileSectionFilter {
 protected:
  /// Returns when the accept thread is in the middle of a section that nobody takes.
  void holdUp() {
    recorder.section = [this] { return isLong ? Bytes(4096) : Bytes{1, 2, 3}; };
    client = std::make_unique<RawClient>(path);
    client->send(word(9));
    ASSERT_TRUE(recorder.log.await("clear_table_id()"));
    shrinkSendBuffers();
    client->send(word(13));
    ASSERT_TRUE(recorder.log.await("read_section()"));
  }

  std::unique_ptr<RawClient> client;
  std::atomic<bool> isLong{true};
};

TEST_F(SilentSectionReader, DoesNotHoldUpAStop) {
  holdUp();
  {
    const Watchdog watchdog{std::chrono::seconds(2)};
    server.stop();
  }
  server.start();
  isLong = false;
  expectTheNextClientIsServed();
}

TEST_F(SilentSectionReader, DoesNotHoldUpTheReleaseOfTheListener) {
  holdUp();
  {
    const Watchdog watchdog{std::chrono::seconds(2)};
    IpcDemuxServer::releaseListener(&recorder);
  }
  // The section is the one that was being sent; the next one is a missing demultiplexer's.
  EXPECT_EQ(client->receive(4 + 4096).substr(0, 4), word(4096));
  client->send(word(13));
  EXPECT_EQ(client->receive(4), word(0));
}

TEST_F(SilentSectionReader, LetsTheNextClientInWhenItGoes) {
  const CaughtStream errors(stderr);
  holdUp();
  client->close();
  isLong = false;
  expectTheNextClientIsServed();
}

TEST_F(HostileSectionFilter, AVectorThatNeverEndsHoldsUpNeitherAStopNorARelease) {
  const RawClient client(path);
  client.send(word(4) + word(0) + word(2147483647) + "abc");
  {
    const Watchdog watchdog{std::chrono::seconds(2)};
    IpcDemuxServer::releaseListener(&recorder);
    server.stop();
  }
  EXPECT_TRUE(client.isAtEnd());
}

TEST_F(HostileSectionFilter, TheSocketsAreClosedInAChildOfTheHost) {
  const RawClient client(path);
  client.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  EXPECT_EQ(openSockets().all, socketsBefore.all + 3);
  EXPECT_EQ(openSockets().inherited, 0);
}

}  // namespace
}  // namespace quillwork
