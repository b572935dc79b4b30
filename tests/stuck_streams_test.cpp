// Standard streams that take no more: whoever should read them does not.

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <iostream>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "adapter/MiddlewareIpc.h"
#include "ipc/IpcDemuxServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Adapter.h"
#include "support/Asleep.h"
#include "support/DemuxRecorder.h"
#include "support/FakeHost.h"
#include "support/HostThread.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"
#include "support/StuckStream.h"

namespace quillwork {
namespace {

constexpr std::chrono::seconds hang{20};
constexpr std::int32_t unknownGroup = -1;
constexpr std::int32_t graphicsRegion = 18;

/// Whether the work comes to its end while nobody reads. If not, it is let go, so that the test
/// can say so.
bool isDoneMeanwhile(StuckStream& stream, const std::function<void()>& work) {
  auto done = std::async(std::launch::async, work);
  const bool inTime = done.wait_for(hang) == std::future_status::ready;
  if (!inTime) stream.release();
  done.get();
  return inTime;
}

/// Waits until the thread's work is done, or held up for good.
void awaitReturnedOrAsleep(const HostThread<bool>& thread) {
  constexpr int looks = 200;
  std::optional<std::string> before;
  for (int unchanged = 0; unchanged < looks && !thread.hasReturned();) {
    auto now = waitsOf(thread.id());
    unchanged = now && now == before ? unchanged + 1 : 0;
    before = std::move(now);
    std::this_thread::yield();
  }
}

/// Sends what the library has a line to print for, and then what is answered.
void askBehindUnknownRequests(const RawClient& client) {
  for (int count = 0; count < 3; ++count) client.send(request(unknownGroup, 0));
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
}

class StuckStreams : public testing::TestWithParam<Stuck> {};

TEST_P(StuckStreams, OfErrorsHoldsUpNeitherTheControlChannelNorTheManagersEnd) {
  makeManager();
  bool isServed = false;
  bool hasEnded = false;
  {
    const RawClient client;
    StuckStream errors(stderr, GetParam());
    isServed = isDoneMeanwhile(errors, [&] { askBehindUnknownRequests(client); });
  }
  {
    const RawClient client;
    StuckStream errors(stderr, GetParam());
    hasEnded = isDoneMeanwhile(errors, [&] {
      for (int count = 0; count < 3; ++count) client.send(request(unknownGroup, 0));
      IpcServerManager::destroy();
    });
  }
  EXPECT_TRUE(isServed);
  EXPECT_TRUE(hasEnded);
}

TEST_P(StuckStreams, OfErrorsDoesNotHoldUpTheSectionFiltersChannel) {
  DemuxRecorder recorder;
  recorder.section = []() -> DemuxRecorder::Bytes { throw std::runtime_error("a fault"); };
  IpcDemuxServer server;
  server.setListener(&recorder);
  server.start();
  bool isServed = false;
  {
    StuckStream errors(stderr, GetParam());
    isServed = isDoneMeanwhile(errors, [&] {
      for (int count = 0; count < 3; ++count) {
        const RawClient client(RawClient::sectionFilter);
        client.send(word(13));
        EXPECT_TRUE(client.isAtEnd());
      }
      server.stop();
    });
  }
  EXPECT_TRUE(isServed);
}

TEST_P(StuckStreams, OfErrorsDoesNotHoldUpTheManagersEndThroughANotificationThatFails) {
  IpcServerManager* const manager = makeManager();
  bool hasEnded = false;
  {
    StuckStream errors(stderr, GetParam());
    // Nobody is connected: the send prints that it has failed.
    HostThread<bool> notifier([&] { return manager->endOfMedia(1); });
    awaitReturnedOrAsleep(notifier);
    hasEnded = isDoneMeanwhile(errors, [] { IpcServerManager::destroy(); });
    errors.release();
    EXPECT_FALSE(notifier.result());
  }
  EXPECT_TRUE(hasEnded);
}

TEST_P(StuckStreams, OfOutputDoesNotHoldUpTheDeletion) {
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  bool isDeleted = false;
  {
    StuckStream output(stdout, GetParam());
    isDeleted = isDoneMeanwhile(output, [&] { deleteAdapter(adapter); });
  }
  EXPECT_TRUE(isDeleted);
}

TEST_P(StuckStreams, OfOutputDoesNotHoldUpAGraphicsRegion) {
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  bool isServed = false;
  bool isDeleted = false;
  {
    const RawClient client;
    StuckStream output(stdout, GetParam());
    isServed = isDoneMeanwhile(output, [&] {
      for (int count = 0; count < 3; ++count) client.send(request(VIDEO, graphicsRegion));
      EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    });
    isDeleted = isDoneMeanwhile(output, [&] { deleteAdapter(adapter); });
  }
  EXPECT_TRUE(isServed);
  EXPECT_TRUE(isDeleted);
  EXPECT_TRUE(host.log.await("updateGraphicsRegion(0, 0, 0, 0)"));
}

TEST_P(StuckStreams, KeepTheirFlags) {
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  std::list<std::pair<int, int>> flags;
  bool isDone = false;
  {
    const RawClient client;
    StuckStream output(stdout, GetParam());
    StuckStream errors(stderr, GetParam());
    const auto before = std::pair(output.flags(), errors.flags());
    isDone = isDoneMeanwhile(output, [&] {
      const auto service = std::async(std::launch::async, [&] {
        askBehindUnknownRequests(client);
        client.send(request(VIDEO, graphicsRegion));
      });
      if (service.wait_for(hang) != std::future_status::ready) errors.release();
      service.wait();
      deleteAdapter(adapter);
    });
    flags = {before, std::pair(output.flags(), errors.flags())};
  }
  EXPECT_TRUE(isDone);
  EXPECT_EQ(flags.front(), flags.back());
}

/// A thread of the host's that is itself in the middle of a print that does not come back.
TEST_P(StuckStreams, WithAPrintOfTheHostsHoldUpNothing) {
  FakeHost host;
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  bool isDone = false;
  {
    const RawClient client;
    StuckStream output(stdout, GetParam());
    StuckStream errors(stderr, GetParam());
    const auto print = [](std::FILE* stream) {
      std::fputs("the host's own line\n", stream);
      return std::fflush(stream);
    };
    HostThread<int> printingOutput([&] { return print(stdout); });
    HostThread<int> printingErrors([&] { return print(stderr); });
    awaitAsleepTogether({printingOutput.id(), printingErrors.id()});
    isDone = isDoneMeanwhile(output, [&] {
      const auto service =
          std::async(std::launch::async, [&] { askBehindUnknownRequests(client); });
      if (service.wait_for(hang) != std::future_status::ready) errors.release();
      service.wait();
      client.send(request(VIDEO, graphicsRegion));
      EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
      deleteAdapter(adapter);
    });
    errors.release();
    output.release();
    printingOutput.result();
    printingErrors.result();
  }
  EXPECT_TRUE(isDone);
}

INSTANTIATE_TEST_SUITE_P(EachKind, StuckStreams,
                         testing::Values(Stuck::fullPipe, Stuck::fullSocket,
                                         Stuck::stoppedTerminal),
                         [](const auto& kind) { return std::string(nameOf(kind.param)); });

/// Streams that would take everything, but whose lock somebody has.
class HeldStreams : public testing::Test {
 protected:
  /// As isDoneMeanwhile(), with the stream's lock held by a thread of the host's.
  static bool isDoneWhileHeld(std::FILE* stream, const std::function<void()>& work) {
    std::promise<void> held;
    std::promise<void> over;
    std::thread holder([&] {
      flockfile(stream);
      held.set_value();
      over.get_future().wait();
      funlockfile(stream);
    });
    held.get_future().wait();
    auto done = std::async(std::launch::async, work);
    const bool inTime = done.wait_for(hang) == std::future_status::ready;
    over.set_value();
    holder.join();
    done.get();
    return inTime;
  }

  FakeHost host;
};

TEST_F(HeldStreams, OfErrorsHoldsUpNeitherTheControlChannelNorTheDeletion) {
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const bool isDone = isDoneWhileHeld(stderr, [&] {
    const RawClient client;
    askBehindUnknownRequests(client);
    client.send(request(unknownGroup, 0));
    deleteAdapter(adapter);
  });
  EXPECT_TRUE(isDone);
}

TEST_F(HeldStreams, OfOutputHoldsUpNeitherAGraphicsRegionNorTheDeletion) {
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const bool isDone = isDoneWhileHeld(stdout, [&] {
    const RawClient client;
    client.send(request(VIDEO, graphicsRegion));
    EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
    deleteAdapter(adapter);
  });
  EXPECT_TRUE(isDone);
}

/// Streams that take everything get everything, as it was always printed.
class ReadStreams : public testing::Test {
 protected:
  FakeHost host;
};

TEST_F(ReadStreams, OfErrorsGetEveryLine) {
  MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
  const CaughtStream errors(stderr);
  const RawClient client;
  std::string expected;
  for (int count = 0; count < 100; ++count) {
    client.send(request(unknownGroup - count, 0));
    expected += "Unknown message: " + std::to_string(unknownGroup - count) + "\n";
  }
  client.send(request(SI, 9999));
  expected += "Unknown si message type:  9999\n";
  EXPECT_EQ(client.ask(request(VERSION, 1)).group, VERSION);
  EXPECT_EQ(errors.text(), expected);
  deleteAdapter(adapter);
}

TEST_F(ReadStreams, OfOutputGetTheirLinesBetweenTheHosts) {
  std::string printed;
  {
    const CaughtStream output(stdout);
    MiddlewareIpc* const adapter = MiddlewareIpc::getInstance();
    // Without an end of line: the C library keeps it back.
    std::fputs("one, ", stdout);
    adapter->updateGraphicsRegion({1, 2, 3, 4});
    std::cout << "two, ";
    deleteAdapter(adapter);
    std::fputs("three", stdout);
    printed = output.text();
  }
  EXPECT_EQ(printed,
            "one,  >>> graphics region update <<< \nregion = {1,2,3,4}\n"
            "two, deleting middleware ipc\nthree");
}

TEST_F(ReadStreams, OfOutputIsFlushedBehindTheLineOfTheDeletion) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int original = dup(STDOUT_FILENO);
  std::fflush(stdout);
  dup2(ends[1], STDOUT_FILENO);
  deleteAdapter(MiddlewareIpc::getInstance());
  pollfd ready{ends[0], POLLIN, 0};
  const int arrived = poll(&ready, 1, 0);
  char bytes[100] = {};
  if (arrived == 1) static_cast<void>(!read(ends[0], bytes, sizeof bytes - 1));
  dup2(original, STDOUT_FILENO);
  close(original);
  close(ends[0]);
  close(ends[1]);
  EXPECT_STREQ(bytes, "deleting middleware ipc\n");
}

}  // namespace
}  // namespace quillwork
