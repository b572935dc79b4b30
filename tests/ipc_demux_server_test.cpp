// The section-filter channel, with raw bytes on real sockets.

#include "ipc/IpcDemuxServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <latch>
#include <new>
#include <stdexcept>
#include <thread>

#include "support/DemuxRecorder.h"
#include "support/Leftovers.h"
#include "support/Limit.h"
#include "support/RawClient.h"
#include "support/Sockets.h"
#include "support/StandardStreams.h"
#include "support/Threads.h"

namespace quillwork {
namespace {

using Bytes = std::vector<unsigned char>;
using Calls = std::vector<std::string>;

constexpr const char* path = RawClient::sectionFilter;

std::string vectorOf(const std::string& bytes) {
  return word(static_cast<std::int32_t>(bytes.size())) + bytes;
}

class SectionFilterTransport : public testing::Test {
 protected:
  void SetUp() override { server.setListener(&recorder); }
  void TearDown() override { server.stop(); }

  /// What the listener was called with, up to a stop() request that marks the end.
  Calls callsFor(const std::string& bytes) {
    RawClient client(path);
    client.send(bytes + word(1));
    EXPECT_TRUE(recorder.log.await("stop()"));
    Calls calls = recorder.log.take();
    EXPECT_EQ(calls.back(), "stop()");
    calls.pop_back();
    return calls;
  }

  DemuxRecorder recorder;
  IpcDemuxServer server;
};

TEST_F(SectionFilterTransport, EachCodeIsTheCallInItsPosition) {
  server.start();
  const std::string a("\x42\x00", 2);
  const std::string b("\xff\x00", 2);
  const std::string c("\x01", 1);
  const struct {
    std::string bytes;
    std::string call;
  } rows[] = {
      {word(0), "start()"},
      {word(2) + std::string("\x00\x01\x00\x00", 4), "set_pid(256)"},
      {word(3) + word(0x4e), "set_table_id(78)"},
      {word(4) + word(0) + vectorOf(a) + vectorOf(b), "set_positive_filter(0, {42 00}, {ff 00})"},
      {word(5) + word(7) + vectorOf(a) + vectorOf(c), "set_greater_than_filter(7, {42 00}, {01})"},
      {word(6) + word(-1) + vectorOf("") + vectorOf(c), "set_less_than_filter(-1, {}, {01})"},
      {word(7) + word(3) + vectorOf(a) + vectorOf(b) + vectorOf(c),
       "set_xor_filter(3, {42 00}, {ff 00}, {01})"},
      {word(7) + word(0) + vectorOf("") + vectorOf("") + vectorOf(""),
       "set_xor_filter(0, {}, {}, {})"},
      {word(8) + word(5000), "set_time_out(5000)"},
      {word(8) + word(-5), "set_time_out(-5)"},
      {word(9), "clear_table_id()"},
      {word(10), "clear_positive_filter()"},
      {word(11), "clear_less_than_filter()"},
      {word(12), "clear_xor_filter()"},
      {word(13), "read_section()"},
  };
  for (const auto& row : rows) EXPECT_EQ(callsFor(row.bytes), Calls{row.call});
  EXPECT_EQ(callsFor(word(0) + word(9)), (Calls{"start()", "clear_table_id()"}));
}

TEST_F(SectionFilterTransport, AVectorWithANegativeCountIsEmptyAndNoByteIsReadForIt) {
  server.start();
  EXPECT_EQ(callsFor(word(4) + word(0) + word(-3) + vectorOf("z")),
            Calls{"set_positive_filter(0, {}, {7a})"});
}

TEST_F(SectionFilterTransport, UnknownCodesAreDroppedAndTheNextFourBytesAreACode) {
  server.start();
  EXPECT_EQ(callsFor(word(14) + word(9)), Calls{"clear_table_id()"});
  EXPECT_EQ(callsFor(word(-1) + word(9)), Calls{"clear_table_id()"});
  EXPECT_EQ(callsFor(word(0x7fffffff) + word(2) + word(5)), Calls{"set_pid(5)"});
}

TEST_F(SectionFilterTransport, WithoutAListenerArgumentsAreReadAsCodes) {
  server.setListener(nullptr);
  server.start();
  RawClient client(path);
  client.send(word(2) + word(13) + word(13));
  client.closeSending();
  // No read was answered.
  EXPECT_TRUE(client.isAtEnd());
  server.setListener(&recorder);
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, ASecondListenerReplacesTheFirst) {
  server.start();
  DemuxRecorder second;
  server.setListener(&second);
  RawClient client(path);
  client.send(word(2) + word(1));
  ASSERT_TRUE(second.log.await("set_pid(1)"));
  EXPECT_TRUE(recorder.log.calls().empty());
  server.stop();
}

TEST_F(SectionFilterTransport, ReadSectionIsAnsweredWithACountAndTheBytes) {
  server.start();
  RawClient client(path);
  for (const std::size_t size : {0U, 1U, 16U, 4096U}) {
    Bytes section(size);
    for (std::size_t index = 0; index < size; ++index) {
      section[index] = static_cast<unsigned char>(index * 7);
    }
    recorder.section = [&] { return section; };
    client.send(word(13));
    const std::string answer = client.receive(4 + size);
    EXPECT_EQ(answer.substr(0, 4), word(static_cast<std::int32_t>(size)));
    EXPECT_EQ(Bytes(answer.begin() + 4, answer.end()), section);
  }
  // Nothing came behind the last section.
  recorder.section = [] { return Bytes(); };
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
}

TEST_F(SectionFilterTransport, EveryByteThatCannotBeSentIsReported) {
  std::latch reading(1);
  std::latch closed(1);
  recorder.section = [&] {
    reading.count_down();
    closed.wait();
    return Bytes(3);
  };
  server.start();
  const CaughtStream errors(stderr);
  RawClient client(path);
  client.send(word(13));
  reading.wait();
  client.close();
  closed.count_down();
  RawClient next(path);
  next.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  // The count already fails, so no byte is tried.
  EXPECT_EQ(errors.text(), std::string("Can't send size: ") + std::strerror(EPIPE) + "\n");
}

TEST_F(SectionFilterTransport, BytesAreStillTriedAfterAFailedOne) {
  // A client that takes the count and then goes: the section is too long for its buffers.
  const std::size_t size = 20'000;
  recorder.section = [&] { return Bytes(size); };
  server.start();
  const CaughtStream errors(stderr);
  RawClient client(path);
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(static_cast<std::int32_t>(size)));
  client.close();
  RawClient next(path);
  next.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  const std::string text = errors.text();
  const std::string line = std::string("Can't send data[i]: ") + std::strerror(EPIPE) + "\n";
  EXPECT_EQ(text.substr(text.size() - line.size()), line);
  EXPECT_GT(text.size(), 100 * line.size());
}

TEST_F(SectionFilterTransport, AFailedArgumentKeepsItsValueAndTheListenerIsCalledAllTheSame) {
  server.start();
  const struct {
    std::string bytes;
    std::string call;
  } rows[] = {
      {word(2), "set_pid(-1)"},
      {word(2) + "ab", "set_pid(-1)"},
      {word(3), "set_table_id(-1)"},
      {word(8), "set_time_out(0)"},
      {word(4), "set_positive_filter(0, {}, {})"},
      {word(4) + word(6), "set_positive_filter(6, {}, {})"},
      {word(5) + word(6) + word(2), "set_greater_than_filter(6, {00 00}, {00 00})"},
      // The count of the vector before it serves the one whose count failed, and the last byte
      // fills it up.
      {word(6) + word(6) + word(3) + "ab", "set_less_than_filter(6, {61 62 62}, {62 62 62})"},
      {word(7) + word(6) + vectorOf("xy"), "set_xor_filter(6, {78 79}, {79 79}, {79 79})"},
      {word(7) + word(6) + vectorOf("xy") + word(-1), "set_xor_filter(6, {78 79}, {}, {})"},
  };
  for (const auto& row : rows) {
    { RawClient(path).send(row.bytes); }
    ASSERT_TRUE(recorder.log.awaitCount(1));
    EXPECT_EQ(recorder.log.take(), Calls{row.call});
  }
}

TEST_F(SectionFilterTransport, AnIncompleteCodeKeepsTheRestOfTheCodeBeforeIt) {
  server.start();
  {
    RawClient client(path);
    client.send(word(0x109) + "\x0a");  // 0x109 is dropped; 0x10a would be, too.
  }
  { RawClient(path).send(word(9) + "\x0a"); }
  ASSERT_TRUE(recorder.log.await("clear_positive_filter()"));
  EXPECT_EQ(recorder.log.take(), (Calls{"clear_table_id()", "clear_positive_filter()"}));
}

TEST_F(SectionFilterTransport, ACloseBetweenRequestsFreesTheChannelAndTellsNobody) {
  server.start();
  { RawClient(path).send(word(9)); }
  { RawClient(path).send(word(10)); }
  ASSERT_TRUE(recorder.log.awaitCount(2));
  EXPECT_EQ(recorder.log.take(), (Calls{"clear_table_id()", "clear_positive_filter()"}));
}

TEST_F(SectionFilterTransport, ASecondStartDoesNothingAndAStoppedServerStartsAgain) {
  server.start();
  server.start();
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
  server.stop();
  server.stop();
  server.start();
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, AStopCancelsAListenerThatBlocks) {
  std::latch reading(1);
  recorder.section = [&]() -> Bytes {
    reading.count_down();
    for (;;) pause();
  };
  server.start();
  RawClient client(path);
  client.send(word(13));
  reading.wait();
  server.stop();
  EXPECT_TRUE(client.isAtEnd());
}

TEST_F(SectionFilterTransport, AFailedStartIsNotRetriedAndItsStopIsHarmless) {
  std::filesystem::remove(path);
  // A directory at the path can be neither removed nor bound.
  std::filesystem::create_directory(path);
  const std::string line = std::string("Can't bind filename: ") + std::strerror(EADDRINUSE) + "\n";
  {
    const CaughtStream errors(stderr);
    server.start();
    EXPECT_EQ(errors.text(), line);
    server.start();
    EXPECT_EQ(errors.text(), line);
  }
  server.stop();
  std::filesystem::remove(path);
  server.start();
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, WhatTheSystemRefusesAtTheStartIsReported) {
  const CaughtStream errors(stderr);
  {
    const Limit files(RLIMIT_NOFILE, 3);
    server.start();
  }
  EXPECT_EQ(errors.text(), std::string("Can't create socket: ") + std::strerror(EMFILE) + "\n");
  server.stop();
  if (canLimitMemory()) {
    // No stack for a thread.
    const Limit memory(RLIMIT_AS, 1'000'000);
    server.start();
  }
  server.stop();
  server.start();
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, AStopNeverClosesAFileThatTheHostHasOpenedUnderAnOldNumber) {
  server.start();
  {
    RawClient client(path);
    client.send(word(9));
    ASSERT_TRUE(recorder.log.awaitCount(1));
    server.stop();
  }
  int pair[2] = {};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  server.stop();
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  {
    const CaughtStream errors(stderr);
    server.start();
  }
  server.stop();
  std::filesystem::remove(path);
  EXPECT_EQ(send(pair[0], "x", 1, MSG_NOSIGNAL), 1);
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST_F(SectionFilterTransport, ADestroyedServersThreadLivesOnWithoutAListener) {
  leavesBehind({.descriptors = 1, .threads = 1});
  auto* const doomed = new IpcDemuxServer;
  doomed->setListener(&recorder);
  doomed->start();
  RawClient client(path);
  client.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  delete doomed;
  // Nobody answers, yet the connection stands and the next client is accepted.
  client.send(word(13) + word(10));
  client.close();
  RawClient next(path);
  next.send(word(13));
  EXPECT_EQ(recorder.log.take(), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, ASecondServerServesItsOwnClientsBesideTheFirst) {
  server.start();
  RawClient old(path);
  old.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  DemuxRecorder secondRecorder;
  secondRecorder.section = [] { return Bytes{1, 2, 3}; };
  auto* const second = new IpcDemuxServer;
  second->setListener(&secondRecorder);
  second->start();
  RawClient fresh(path);
  fresh.send(word(13));
  EXPECT_EQ(fresh.receive(7), word(3) + "\1\2\3");
  recorder.section = [] { return Bytes{9}; };
  old.send(word(13));
  EXPECT_EQ(old.receive(5), word(1) + "\x09");
  // The end of the first server's client is not the end of the second one's.
  const auto open = openDescriptors();
  old.close();
  // A stop before the first server's thread has closed its end would leave that open.
  ASSERT_TRUE(becomes(openDescriptors, open - 2));
  fresh.send(word(13));
  EXPECT_EQ(fresh.receive(7), word(3) + "\1\2\3");
  fresh.close();
  RawClient next(path);
  next.send(word(13));
  EXPECT_EQ(next.receive(7), word(3) + "\1\2\3");
  second->stop();
  delete second;
  // Its sockets are the second one's by now; what is left of it is its thread.
}

TEST_F(SectionFilterTransport, AnEscapingExceptionEndsTheConnectionWithOneLine) {
  recorder.section = []() -> Bytes { throw std::runtime_error("no tuner"); };
  server.start();
  const CaughtStream errors(stderr);
  RawClient client(path);
  client.send(word(13));
  EXPECT_TRUE(client.isAtEnd());
  EXPECT_EQ(errors.text(), "Client's connection ended by an exception: no tuner\n");
  recorder.log.take();
  RawClient next(path);
  next.send(word(9));
  EXPECT_TRUE(recorder.log.await("clear_table_id()"));
}

TEST_F(SectionFilterTransport, AVectorThatMemoryCannotHoldEndsTheConnection) {
  server.start();
  for (const std::int32_t count : {2147483647, (16 << 20) + 1}) {
    const CaughtStream errors(stderr);
    RawClient client(path);
    client.send(word(4) + word(0) + word(count) + "abc");
    EXPECT_TRUE(client.isAtEnd());
    EXPECT_EQ(errors.text(), "Client's connection ended by an exception: a vector of " +
                                 std::to_string(count) + " bytes\n");
    EXPECT_TRUE(recorder.log.calls().empty());
  }
  EXPECT_EQ(callsFor(word(10)), Calls{"clear_positive_filter()"});
}

TEST_F(SectionFilterTransport, AMemoryThatHasRunOutEndsTheConnection) {
  if (!canLimitMemory()) GTEST_SKIP() << "the fuzzer's target takes memory away otherwise";
  server.start();
  RawClient client(path);
  client.send(word(9));
  ASSERT_TRUE(recorder.log.await("clear_table_id()"));
  const CaughtStream errors(stderr);
  {
    // Less than what is in use: nothing more is to be had.
    const Limit memory(RLIMIT_AS, 1'000'000);
    client.send(word(4) + word(0) + word(16 << 20) + "abc");
    client.closeSending();
    EXPECT_TRUE(client.isAtEnd());
  }
  EXPECT_EQ(errors.text(), "Client's connection ended by an exception: std::bad_alloc\n");
  EXPECT_EQ(recorder.log.take(), Calls{"clear_table_id()"});
  EXPECT_EQ(callsFor(word(10)), Calls{"clear_positive_filter()"});
}

TEST_F(SectionFilterTransport, TheBytesThatAVanishedPeerOwesAreFilledUpWithoutReceivingThem) {
  server.start();
  { RawClient(path).send(word(4) + word(0) + word(5'000'000) + "a"); }
  ASSERT_TRUE(recorder.log.awaitCount(1));
  // The second vector repeats the count.
  EXPECT_EQ(recorder.log.take().front().size(),
            std::string("set_positive_filter(0, {}, {})").size() + 2 * (5'000'000 * 3 - 1));
}

TEST_F(SectionFilterTransport, AReleasedListenerIsNeverCalledAgainAndRequestsAreIgnored) {
  server.start();
  IpcDemuxServer::releaseListener(&recorder);
  RawClient client(path);
  const std::string two = word(0) + vectorOf("ab") + vectorOf("cd");
  client.send(word(0) + word(1) + word(2) + word(13) + word(3) + word(13) + word(4) + two +
              word(5) + two + word(6) + two + word(7) + two + vectorOf("e") + word(8) + word(13) +
              word(9) + word(10) + word(11) + word(12) + word(13));
  // Arguments are read as what they are: the four bytes behind 2, 3 and 8 are no requests.
  EXPECT_EQ(client.receive(4), word(0));
  EXPECT_TRUE(recorder.log.calls().empty());
}

TEST_F(SectionFilterTransport, ReleasingAnotherListenerChangesNothing) {
  server.start();
  DemuxRecorder other;
  IpcDemuxServer::releaseListener(&other);
  EXPECT_EQ(callsFor(word(9)), Calls{"clear_table_id()"});
}

TEST_F(SectionFilterTransport, ReleasingWaitsForACallThatComesBack) {
  const std::atomic<pid_t> releasing = threadId();
  std::atomic<bool> isReading{false};
  bool finished = false;
  recorder.section = [&] {
    isReading = true;
    awaitSleeping(releasing);
    finished = true;
    return Bytes{5};
  };
  server.start();
  RawClient client(path);
  client.send(word(13));
  while (!isReading) std::this_thread::yield();
  IpcDemuxServer::releaseListener(&recorder);
  EXPECT_TRUE(finished);
  EXPECT_EQ(client.receive(5), word(1) + "\x05");
}

TEST_F(SectionFilterTransport, ReleasingCancelsACallThatBlocksAndItsClientGetsTheCountZero) {
  std::latch reading(1);
  recorder.section = [&]() -> Bytes {
    reading.count_down();
    for (;;) pause();
  };
  server.start();
  RawClient client(path);
  client.send(word(13));
  reading.wait();
  IpcDemuxServer::releaseListener(&recorder);
  EXPECT_EQ(client.receive(4), word(0));
  client.send(word(3) + word(13) + word(13));
  EXPECT_EQ(client.receive(4), word(0));
  client.close();
  RawClient next(path);
  next.send(word(13));
  EXPECT_EQ(next.receive(4), word(0));
}

TEST_F(SectionFilterTransport, RunWithoutAServerReturnsNull) {
  EXPECT_EQ(IpcDemuxServer::run(nullptr), nullptr);
}

}  // namespace
}  // namespace quillwork
