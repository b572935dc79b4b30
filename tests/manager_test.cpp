// The manager: its one instance, its registries, its connection events and its fan-out rules.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <thread>

#include "ipc/FairMutex.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/Mutex.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/DemuxRecorder.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/StandardStreams.h"
#include "support/Threads.h"

namespace quillwork {
namespace {

using Calls = std::vector<std::string>;

class ConnectionRecorder : public ConnectionListener {
 public:
  ConnectionRecorder(CallLog& callLog, std::string listenerName)
      : log(callLog), name(std::move(listenerName)) {}
  void clientConnected() override { log.add(name + ".clientConnected"); }
  void clientDisconnected() override { log.add(name + ".clientDisconnected"); }
  CallLog& log;
  std::string name;
};

class Manager : public testing::Test {
 protected:
  ~Manager() override { IpcServerManager::destroy(); }

  void add(RecordingListener& listener) { manager->addIpcServerListener(&listener); }

  CallLog log;
  // In an array, so that their addresses have an order.
  RecordingListener listeners[3] = {RecordingListener(log, "a"), RecordingListener(log, "b"),
                                    RecordingListener(log, "c")};
  IpcServerManager* manager = makeManager();
};

TEST_F(Manager, IsOneInstance) { EXPECT_EQ(IpcServerManager::getInstance(), manager); }

TEST_F(Manager, ServesBothChannelsBeforeAnyListenerIsRegistered) {
  RawClient control;
  const message answer = control.ask(request(SI, 6));
  EXPECT_EQ(answer.group, LIST_HEADER);
  EXPECT_EQ(answer.type, 0);
  RawClient sections(RawClient::sectionFilter);
}

TEST_F(Manager, AfterDestructionANewInstanceServesNewClientsAndTheOldSectionFilterRunsOn) {
  DemuxRecorder first;
  manager->addIpcDemuxServerListener(&first);
  RawClient old(RawClient::sectionFilter);
  old.send(word(9));
  ASSERT_TRUE(first.log.awaitCount(1));
  RawClient control;
  IpcServerManager::destroy();
  IpcServerManager::destroy();
  EXPECT_TRUE(control.isAtEnd());
  manager = makeManager();
  DemuxRecorder second;
  manager->addIpcDemuxServerListener(&second);
  RawClient fresh(RawClient::sectionFilter);
  fresh.send(word(10));
  ASSERT_TRUE(second.log.await("clear_positive_filter()"));
  old.send(word(11));
  ASSERT_TRUE(first.log.await("clear_less_than_filter()"));
  RawClient next;
  EXPECT_EQ(next.ask(request(SI, 6)).group, LIST_HEADER);
  IpcDemuxServer::releaseListener(&first);
  IpcDemuxServer::releaseListener(&second);
}

TEST_F(Manager, DestructionForgetsTheListeners) {
  add(listeners[0]);
  IpcServerManager::destroy();
  manager = makeManager();
  EXPECT_EQ(manager->play(1), 0);
  EXPECT_TRUE(log.calls().empty());
}

TEST_F(Manager, ConnectionListenersHearOfArrivalAndDepartureInTheOrderOfTheirAddresses) {
  ConnectionRecorder recorders[2] = {{log, "x"}, {log, "y"}};
  manager->addConnectionListener(&recorders[1]);
  manager->addConnectionListener(&recorders[0]);
  {
    RawClient client;
    ASSERT_TRUE(log.awaitCount(2));
  }
  ASSERT_TRUE(log.awaitCount(4));
  EXPECT_EQ(log.take(), (Calls{"x.clientConnected()", "y.clientConnected()",
                               "x.clientDisconnected()", "y.clientDisconnected()"}));
  manager->removeConnectionListener(&recorders[0]);
  manager->removeConnectionListener(&recorders[1]);
}

TEST_F(Manager, AConnectionListenerThatWasAddedTwiceIsGoneWhenItWasRemovedOnce) {
  ConnectionRecorder recorders[2] = {{log, "x"}, {log, "y"}};
  manager->addConnectionListener(&recorders[0]);
  manager->addConnectionListener(&recorders[0]);
  manager->addConnectionListener(&recorders[1]);
  manager->removeConnectionListener(&recorders[0]);
  manager->removeConnectionListener(&recorders[0]);
  RawClient client;
  ASSERT_TRUE(log.awaitCount(1));
  EXPECT_EQ(log.take(), Calls{"y.clientConnected()"});
  manager->removeConnectionListener(&recorders[1]);
}

TEST_F(Manager, AServerListenerThatWasAddedTwiceIsCalledOnceAndNotAtAllWhenRemoved) {
  add(listeners[0]);
  add(listeners[0]);
  manager->stop(4);
  EXPECT_EQ(log.take(), Calls{"a.stop(4)"});
  manager->removeIpcServerListener(&listeners[0]);
  manager->removeIpcServerListener(&listeners[0]);
  manager->stop(4);
  EXPECT_TRUE(log.take().empty());
}

TEST_F(Manager, ADisconnectionBroadcastsSelectorTwoToEveryListener) {
  add(listeners[0]);
  add(listeners[1]);
  { RawClient client; }
  ASSERT_TRUE(log.awaitCount(2));
  EXPECT_EQ(log.take(),
            (Calls{"a.setVideoProperty(2, 0, 0, 0, 0)", "b.setVideoProperty(2, 0, 0, 0, 0)"}));
}

TEST_F(Manager, AListOfRecordsIsIgnored) {
  add(listeners[0]);
  manager->update(std::list<message>{request(SI, 6), request(MEDIA, 5)});
  EXPECT_TRUE(log.take().empty());
}

// The rules, for every query of the rule.

struct NumberQuery {
  const char* operation;
  int nothing;
  std::function<int(IpcServerManager&)> ask;
  const char* call;
};

void PrintTo(const NumberQuery& query, std::ostream* stream) { *stream << query.operation; }

class NumberRule : public Manager, public testing::WithParamInterface<NumberQuery> {};

TEST_P(NumberRule, TheFirstAnswerWinsAndNobodyIsAskedAfterIt) {
  const auto& [operation, nothing, ask, call] = GetParam();
  EXPECT_EQ(ask(*manager), nothing);
  for (RecordingListener& listener : listeners) add(listener);
  EXPECT_EQ(ask(*manager), nothing);
  const std::string text = call;
  EXPECT_EQ(log.take(), (Calls{"a." + text, "b." + text, "c." + text}));
  listeners[1].numbers[operation] = 1;
  listeners[2].numbers[operation] = 3;
  EXPECT_EQ(ask(*manager), 1);
  EXPECT_EQ(log.take(), (Calls{"a." + text, "b." + text}));
  // The other rule's "nothing" is an answer here, except where an answer is a truth value.
  if (operation == std::string("isProtectedService")) return;
  listeners[0].numbers[operation] = nothing == 0 ? -1 : 0;
  EXPECT_EQ(ask(*manager), nothing == 0 ? -1 : 0);
  EXPECT_EQ(log.take(), Calls{"a." + text});
}

INSTANTIATE_TEST_SUITE_P(
    Queries, NumberRule,
    testing::Values(
        NumberQuery{"checkVersionFlag", 0, [](auto& m) { return m.checkVersionFlag(5); },
                    "checkVersionFlag(5)"},
        NumberQuery{"isProtectedService", 0, [](auto& m) { return m.isProtectedService() ? 1 : 0; },
                    "isProtectedService()"},
        NumberQuery{"play", 0, [](auto& m) { return m.play(2); }, "play(2)"},
        NumberQuery{"open", 0,
                    [](auto& m) {
                      int player = 9;
                      return m.open("file", player);
                    },
                    "open(file, 9)"},
        NumberQuery{"getCurrentTime", -1, [](auto& m) { return m.getCurrentTime(3); },
                    "getCurrentTime(3)"},
        NumberQuery{"getDuration", -1, [](auto& m) { return m.getDuration(3); }, "getDuration(3)"},
        NumberQuery{"getCurrentService", -1, [](auto& m) { return m.getCurrentService(); },
                    "getCurrentService()"},
        NumberQuery{"getVirtualChannelNumber", -1,
                    [](auto& m) { return m.getVirtualChannelNumber(1, 2); },
                    "getVirtualChannelNumber(1, 2)"},
        NumberQuery{"getCurrentTransportStreamID", -1,
                    [](auto& m) { return m.getCurrentTransportStreamID(); },
                    "getCurrentTransportStreamID()"},
        NumberQuery{"getVideoProperty", -1, [](auto& m) { return m.getVideoRate(command{9}); },
                    "getVideoProperty(9)"},
        NumberQuery{"setCurrentTime", -1, [](auto& m) { return m.setCurrentTime(1, 2, 3); },
                    "setCurrentTime(1, 2, 3)"},
        NumberQuery{"setMediaBounds", -1, [](auto& m) { return m.setMediaBounds(1, 2, 3, 4, 5); },
                    "setMediaBounds(1, 2, 3, 4, 5)"}),
    [](const auto& query) { return std::string(query.param.operation); });

TEST_F(Manager, OpenPassesItsPlayerToEveryListenerThatIsAsked) {
  for (RecordingListener& listener : listeners) add(listener);
  listeners[0].numbers["open.player"] = 11;
  listeners[1].numbers = {{"open", 1}, {"open.player", 12}};
  int player = 10;
  EXPECT_EQ(manager->open("x", player), 1);
  EXPECT_EQ(player, 12);
  EXPECT_EQ(log.take(), (Calls{"a.open(x, 10)", "b.open(x, 11)"}));
}

struct TextQuery {
  const char* operation;
  std::function<std::string(IpcServerManager&)> ask;
  const char* call;
};

void PrintTo(const TextQuery& query, std::ostream* stream) { *stream << query.operation; }

class TextRule : public Manager, public testing::WithParamInterface<TextQuery> {};

TEST_P(TextRule, TheFirstTextThatIsNotEmptyWins) {
  const auto& [operation, ask, call] = GetParam();
  EXPECT_EQ(ask(*manager), "");
  for (RecordingListener& listener : listeners) add(listener);
  EXPECT_EQ(ask(*manager), "");
  listeners[1].texts[operation] = "second";
  listeners[2].texts[operation] = "third";
  log.take();
  EXPECT_EQ(ask(*manager), "second");
  const std::string text = call;
  EXPECT_EQ(log.take(), (Calls{"a." + text, "b." + text}));
}

INSTANTIATE_TEST_SUITE_P(
    Queries, TextRule,
    testing::Values(TextQuery{"getServiceDescription",
                              [](auto& m) { return m.getServiceDescription(); },
                              "getServiceDescription()"},
                    TextQuery{"getSICodingFormat", [](auto& m) { return m.getSICodingFormat(); },
                              "getSICodingFormat()"},
                    TextQuery{"getChannelName", [](auto& m) { return m.getChannelName(3, 4); },
                              "getChannelName(3, 4)"},
                    TextQuery{"getVideoLanguage",
                              [](auto& m) { return m.getVideoLanguage(command{5}); },
                              "getVideoLanguage(5)"},
                    TextQuery{"getSystemProperty", [](auto& m) { return m.getSystemProperty("p"); },
                              "getSystemProperty(p)"},
                    TextQuery{"mountCarousel", [](auto& m) { return m.mountCarousel("l"); },
                              "mountCarousel(l)"}),
    [](const auto& query) { return std::string(query.param.operation); });

struct ListQuery {
  const char* operation;
  std::function<std::size_t(IpcServerManager&)> count;
  /// Gives the listener a list of so many elements.
  std::function<void(RecordingListener&, std::size_t)> fill;
  const char* call;
};

void PrintTo(const ListQuery& query, std::ostream* stream) { *stream << query.operation; }

std::function<void(RecordingListener&, std::size_t)> identifiers(const char* operation) {
  return [operation](RecordingListener& listener, std::size_t count) {
    listener.identifiers[operation].resize(count);
  };
}

std::function<void(RecordingListener&, std::size_t)> descriptors(const char* operation) {
  return [operation](RecordingListener& listener, std::size_t count) {
    listener.descriptorLists[operation].resize(count);
  };
}

std::size_t countAndFree(std::list<descriptor> list) {
  for (descriptor& element : list) delete element.data;
  return list.size();
}

class ListRule : public Manager, public testing::WithParamInterface<ListQuery> {};

TEST_P(ListRule, TheFirstListThatIsNotEmptyWins) {
  const auto& [operation, count, fill, call] = GetParam();
  EXPECT_EQ(count(*manager), 0U);
  for (RecordingListener& listener : listeners) add(listener);
  EXPECT_EQ(count(*manager), 0U);
  fill(listeners[1], 2);
  fill(listeners[2], 3);
  log.take();
  EXPECT_EQ(count(*manager), 2U);
  const std::string text = call;
  EXPECT_EQ(log.take(), (Calls{"a." + text, "b." + text}));
}

INSTANTIATE_TEST_SUITE_P(
    Queries, ListRule,
    testing::Values(
        ListQuery{"getServices", [](auto& m) { return m.getServices().size(); },
                  [](auto& l, std::size_t n) { l.services.resize(n); }, "getServices()"},
        ListQuery{"getServiceComponents", [](auto& m) { return m.getServiceComponents(7).size(); },
                  [](auto& l, std::size_t n) { l.components.resize(n); },
                  "getServiceComponents(7)"},
        ListQuery{"getProgramEvents", [](auto& m) { return m.getProgramEvents().size(); },
                  [](auto& l, std::size_t n) {
                    // Two sizes are all that the rule's test needs.
                    l.makeEvents = n == 2 ? [] { return std::list<program_event>(2); }
                                          : [] { return std::list<program_event>(3); };
                  },
                  "getProgramEvents()"},
        ListQuery{"getSystemProperties", [](auto& m) { return m.getSystemProperties().size(); },
                  [](auto& l, std::size_t n) { l.properties.resize(n); }, "getSystemProperties()"},
        ListQuery{"getPMTs", [](auto& m) { return m.getPMTs(8).size(); },
                  [](auto& l, std::size_t n) { l.pmts.resize(n); }, "getPMTs(8)"},
        ListQuery{"getCASystemIds", [](auto& m) { return m.getCASystemIds().size(); },
                  identifiers("getCASystemIds"), "getCASystemIds()"},
        ListQuery{"getAllIDs",
                  [](auto& m) {
                    tuner_data tuner{3, 4};
                    return m.getAllIDs(tuner).size();
                  },
                  identifiers("getAllIDs"), "getAllIDs(3, 4)"},
        ListQuery{"getServiceComponentDescriptors",
                  [](auto& m) { return countAndFree(m.getServiceComponentDescriptors(1)); },
                  descriptors("getServiceComponentDescriptors"),
                  "getServiceComponentDescriptors(1)"},
        ListQuery{"getProgramEventDescriptors",
                  [](auto& m) { return countAndFree(m.getProgramEventDescriptors(1, 2)); },
                  descriptors("getProgramEventDescriptors"), "getProgramEventDescriptors(1, 2)"},
        ListQuery{"getServiceDescriptors",
                  [](auto& m) { return countAndFree(m.getServiceDescriptors(1)); },
                  descriptors("getServiceDescriptors"), "getServiceDescriptors(1)"},
        ListQuery{"getTransportStreamDescriptors",
                  [](auto& m) { return countAndFree(m.getTransportStreamDescriptors(1)); },
                  descriptors("getTransportStreamDescriptors"), "getTransportStreamDescriptors(1)"},
        ListQuery{"getNetworkDescriptors",
                  [](auto& m) { return countAndFree(m.getNetworkDescriptors()); },
                  descriptors("getNetworkDescriptors"), "getNetworkDescriptors()"},
        ListQuery{"getVideoLanguages", [](auto& m) { return m.getVideoLanguages().size(); },
                  [](auto& l, std::size_t n) { l.languages.resize(n); }, "getVideoLanguages()"}),
    [](const auto& query) { return std::string(query.param.operation); });

struct AllQuery {
  const char* operation;
  std::function<void(IpcServerManager&)> call;
  const char* text;
};

void PrintTo(const AllQuery& query, std::ostream* stream) { *stream << query.operation; }

class AllRule : public Manager, public testing::WithParamInterface<AllQuery> {};

TEST_P(AllRule, EveryListenerIsCalledLowestAddressFirst) {
  const auto& [operation, call, text] = GetParam();
  call(*manager);
  add(listeners[2]);
  add(listeners[0]);
  add(listeners[1]);
  call(*manager);
  const std::string expected = text;
  EXPECT_EQ(log.take(), (Calls{"a." + expected, "b." + expected, "c." + expected}));
}

INSTANTIATE_TEST_SUITE_P(
    Operations, AllRule,
    testing::Values(
        AllQuery{"getMediaBounds",
                 [](auto& m) {
                   int x = 1;
                   int y = 2;
                   int width = 3;
                   int height = 4;
                   m.getMediaBounds(9, x, y, width, height);
                 },
                 "getMediaBounds(9, 1, 2, 3, 4)"},
        AllQuery{"setMediaFreeze", [](auto& m) { m.setMediaFreeze(9, true); },
                 "setMediaFreeze(9, 1)"},
        AllQuery{"setMediaMute", [](auto& m) { m.setMediaMute(9, false); }, "setMediaMute(9, 0)"},
        AllQuery{"setMediaSoundLevel", [](auto& m) { m.setMediaSoundLevel(9, 0.5); },
                 "setMediaSoundLevel(9, 0.5)"},
        AllQuery{"setMediaBalanceLevel", [](auto& m) { m.setMediaBalanceLevel(9, -0.5); },
                 "setMediaBalanceLevel(9, -0.5)"},
        AllQuery{"setMediaBassLevel", [](auto& m) { m.setMediaBassLevel(9, 0.25); },
                 "setMediaBassLevel(9, 0.25)"},
        AllQuery{"setMediaTrebleLevel", [](auto& m) { m.setMediaTrebleLevel(9, 2); },
                 "setMediaTrebleLevel(9, 2)"},
        AllQuery{"addMediaListener", [](auto& m) { m.addMediaListener(9); }, "addMediaListener(9)"},
        AllQuery{"stop", [](auto& m) { m.stop(9); }, "stop(9)"},
        AllQuery{"close", [](auto& m) { m.close(9); }, "close(9)"},
        AllQuery{"umountCarousel", [](auto& m) { m.umountCarousel("l"); }, "umountCarousel(l)"}),
    [](const auto& query) { return std::string(query.param.operation); });

TEST_F(Manager, ARecordsKeyIsMinusOneAndTheRestIsZeroWithoutAListener) {
  const network noNetwork = manager->getNetwork();
  EXPECT_EQ(noNetwork.network_value, -1);
  EXPECT_EQ(std::string(noNetwork.name, 255), std::string(255, '\0'));
  const transport_stream noStream = manager->getTransportStream();
  EXPECT_EQ(noStream.value_1, 0);
  EXPECT_EQ(noStream.value_2, -1);
  const program_event noEvent = manager->getProgramEvent();
  EXPECT_EQ(noEvent.value_1, 0);
  EXPECT_EQ(noEvent.value_2, -1);
  EXPECT_EQ(noEvent.byte_list_1, nullptr);
  EXPECT_EQ(noEvent.text_list_3, nullptr);
}

TEST_F(Manager, TheFirstRecordWhoseKeyIsNotMinusOneWinsAndReplacesTheOthers) {
  for (RecordingListener& listener : listeners) add(listener);
  listeners[0].networkAnswer = {-1, "dropped", 0};
  listeners[1].networkAnswer = {0, "b", 0};
  EXPECT_EQ(manager->getNetwork().network_value, 0);
  EXPECT_EQ(fieldText(manager->getNetwork().name), "b");
  listeners[1].transportStream.value_2 = 7;
  EXPECT_EQ(manager->getTransportStream().value_2, 7);
  log.take();
  // The replaced answer's lists are freed: the leak checker watches.
  listeners[0].makeEvent = [] {
    program_event event{};
    event.value_2 = -1;
    event.byte_list_1 = new std::list<char>(10);
    event.text_list_3 = new std::list<std::string>(10, "long enough to be on the heap");
    return event;
  };
  listeners[1].makeEvent = [] {
    program_event event{};
    event.value_2 = 5;
    event.byte_list_2 = new std::list<char>(3);
    return event;
  };
  const program_event event = manager->getProgramEvent();
  EXPECT_EQ(event.value_2, 5);
  EXPECT_EQ(event.byte_list_1, nullptr);
  EXPECT_EQ(event.byte_list_2->size(), 3U);
  delete event.byte_list_2;
  EXPECT_EQ(log.take(), (Calls{"a.getProgramEvent()", "b.getProgramEvent()"}));
}

TEST_F(Manager, MainVideoBoundsAreAskedUntilNoneIsMinusOne) {
  int x = 1;
  int y = 2;
  int width = 3;
  int height = 4;
  manager->getMainVideoBounds(x, y, width, height);
  EXPECT_EQ(height, 4);
  for (RecordingListener& listener : listeners) add(listener);
  const int partial[] = {10, 20, 30, -1};
  const int rest[] = {RecordingListener::untouched, RecordingListener::untouched,
                      RecordingListener::untouched, 40};
  std::copy(std::begin(partial), std::end(partial), listeners[0].bounds);
  std::copy(std::begin(rest), std::end(rest), listeners[1].bounds);
  manager->getMainVideoBounds(x, y, width, height);
  EXPECT_EQ(x, 10);
  EXPECT_EQ(y, 20);
  EXPECT_EQ(width, 30);
  EXPECT_EQ(height, 40);
  EXPECT_EQ(log.take(),
            (Calls{"a.getMainVideoBounds(1, 2, 3, 4)", "b.getMainVideoBounds(10, 20, 30, -1)"}));
}

TEST_F(Manager, MainVideoBoundsStayAsTheLastListenerLeavesThem) {
  add(listeners[0]);
  add(listeners[1]);
  std::fill_n(listeners[0].bounds, 4, -1);
  std::fill_n(listeners[1].bounds, 2, -1);
  int x = 1;
  int y = 1;
  int width = 1;
  int height = 1;
  manager->getMainVideoBounds(x, y, width, height);
  EXPECT_EQ(width, -1);
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(Manager, AClientThatFloodsASlowListenerKeepsNobodyOut) {
  RecordingListener slow(log);
  std::atomic<int> calls{0};
  slow.onCall = [&](const std::string&) {
    ++calls;
    poll(nullptr, 0, 2);
  };
  manager->addIpcServerListener(&slow);
  std::thread flood([client = std::make_unique<RawClient>()] {
    const std::string bytes = bytesOf(request(AUDIO, 0));
    while (send(client->descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
    }
  });
  int before = 0;
  for (int round = 0; round < 100; ++round) {
    while (calls == before) std::this_thread::yield();
    before = calls;
    manager->removeConnectionListener(nullptr);
    // The next call may have begun before this thread has asked for the mutex, and one after.
    EXPECT_LE(calls - before, 2);
    before = calls;
  }
  IpcServerManager::destroy();
  flood.join();
}

TEST_F(Manager, ItsMutexPassesOnInTheOrderOfComing) {
  FairMutex mutex;
  mutex.lock();
  std::vector<int> order;
  std::list<std::thread> threads;
  for (int number = 0; number < 5; ++number) {
    std::atomic<pid_t> id{0};
    threads.emplace_back([&, number] {
      id = threadId();
      mutex.lock();
      order.push_back(number);
      mutex.unlock();
    });
    awaitSleeping(id);
  }
  mutex.unlock();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(order, (std::vector{0, 1, 2, 3, 4}));
}

TEST_F(Manager, AThreadThatIsCancelledWhileItWaitsForTheMutexStillPassesItOn) {
  struct Shared {
    FairMutex mutex;
    std::atomic<pid_t> id{0};
    bool hasLocked = false;
  } shared;
  shared.mutex.lock();
  pthread_t cancelled{};
  pthread_create(
      &cancelled, nullptr,
      [](void* argument) -> void* {
        auto& waitedFor = *static_cast<Shared*>(argument);
        waitedFor.id = threadId();
        const Lock lock(waitedFor.mutex);
        waitedFor.hasLocked = true;
        pthread_testcancel();
        return nullptr;
      },
      &shared);
  awaitSleeping(shared.id);
  pthread_cancel(cancelled);
  shared.mutex.unlock();
  void* result = nullptr;
  pthread_join(cancelled, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_TRUE(shared.hasLocked);
  const Lock lock(shared.mutex);
}

TEST_F(Manager, DestructionDoesNotWaitForAnAcceptThreadThatWaitsForItsMutex) {
  // The client's requests keep the accept thread going for the manager mutex.
  for (int round = 0; round < 50; ++round) {
    std::thread flood([client = std::make_unique<RawClient>()] {
      const std::string bytes = bytesOf(request(AUDIO, 0));
      while (send(client->descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
      }
    });
    IpcServerManager::destroy();
    flood.join();
    manager = makeManager();
  }
}

}  // namespace
}  // namespace quillwork
