// Everything that two threads can reach, reached by all of them at once: a race shows under
// ThreadSanitizer, a reply that was torn apart everywhere.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "ipc/IpcDemuxServer.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ReplyLists.h"
#include "support/AskEverything.h"
#include "support/DemuxRecorder.h"
#include "support/GoldenListener.h"
#include "support/Manager.h"
#include "support/StandardStreams.h"

namespace {

using namespace quillwork;
using namespace quillwork::client;

constexpr int rounds = 200;

class Everything : public testing::Test {
 protected:
  Everything() {
    for (RecordingListener* const listener : {&first, &second}) {
      giveGoldenAnswers(*listener);
      manager->addIpcServerListener(listener);
    }
    recorder.section = [] { return DemuxRecorder::Bytes(300, 's'); };
    manager->addIpcDemuxServerListener(&recorder);
  }
  ~Everything() override {
    IpcDemuxServer::releaseListener(&recorder);
    IpcServerManager::destroy();
  }

  /// A thread that does the same again and again until the test ends.
  void repeat(std::function<void()> work) {
    threads.emplace_back([this, work = std::move(work)] {
      do {
        work();
        std::this_thread::yield();
      } while (!hasEnded);
    });
  }

  CallLog firstLog;
  CallLog secondLog;
  RecordingListener first{firstLog};
  RecordingListener second{secondLog};
  DemuxRecorder recorder;
  IpcServerManager* manager = makeManager();
  std::atomic<bool> hasEnded{false};
  std::vector<std::thread> threads;
};

TEST_F(Everything, AtOnce) {
  ControlChannel channel;
  const std::string longText(5000, 't');
  int received = 0;
  channel.onNotification([&](const Notification& notification) {
    ++received;
    const auto* const command = std::get_if<DsmCCCommand>(&notification);
    if (command != nullptr) {
      EXPECT_EQ(command->text, longText);
    }
  });
  channel.checkVersionFlag(1);

  repeat([&] { manager->endOfMedia(7); });
  repeat([&] { manager->changeGraphicsSettings({1, 2, 3, 4}, {5, 6, 7, 8}); });
  repeat([&] { manager->downloadComplete("first", "second"); });
  repeat([&] { manager->sendDsmCCCommand({1, 2.5, 3, longText}); });
  repeat([&] { manager->setApplicationState(state{2}); });
  // The host's own queries, and listeners that come and go.
  repeat([&] {
    const OwnedRecords<program_event> events(manager->getProgramEvents());
    EXPECT_EQ(manager->getServices().size(), 2U);
    EXPECT_EQ(manager->getCurrentService(), 101);
  });
  repeat([&] {
    CallLog log;
    RecordingListener passing(log);
    manager->addIpcServerListener(&passing);
    manager->removeIpcServerListener(&passing);
  });
  repeat([&] {
    class Passing : public ConnectionListener {
      void clientConnected() override {}
      void clientDisconnected() override {}
    } passing;
    manager->addConnectionListener(&passing);
    manager->removeConnectionListener(&passing);
  });
  repeat([&] {
    SectionFilterChannel sections;
    sections.set_pid(17);
    sections.set_positive_filter(0, {1}, {2});
    EXPECT_EQ(sections.read_section().size(), 300U);
  });
  repeat([&] {
    // The logs would grow for as long as the test goes on.
    firstLog.take();
    secondLog.take();
    recorder.log.take();
  });

  for (int round = 0; round < rounds || received < 5 * rounds; ++round) {
    askEverything(channel);
    channel.answerApplicationState(round % 2 == 0);
  }
  hasEnded = true;
  // Some of them are in the middle of a notification, and one may be waiting for its answer.
  std::atomic<bool> haveLeft{false};
  std::thread joiner([&] {
    for (std::thread& thread : threads) thread.join();
    haveLeft = true;
  });
  while (!haveLeft) {
    channel.answerApplicationState(true);
    channel.checkVersionFlag(1);
  }
  joiner.join();
}

TEST_F(Everything, WhileClientsComeAndGo) {
  repeat([&] { manager->endOfMedia(7); });
  repeat([&] { manager->sendDsmCCCommand({1, 2.5, 3, std::string(3000, 't')}); });
  repeat([&] { manager->setApplicationState(state{2}); });
  repeat([&] {
    firstLog.take();
    secondLog.take();
  });
  const CaughtStream errors(stderr);
  for (int round = 0; round < 5 * rounds; ++round) {
    ControlChannel channel;
    EXPECT_EQ(channel.getServices().size(), 2U);
  }
  hasEnded = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
