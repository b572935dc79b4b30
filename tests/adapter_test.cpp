// The adapter between the channels and the facades: its life, its queries, its forwards.

#include "adapter/MiddlewareIpc.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>

#include "adapter/VideoScale.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ReplyLists.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/Adapter.h"
#include "support/FakeHost.h"
#include "support/OwnProcess.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace {

using namespace quillwork;
using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

const Calls creation = {
    "createVideo()",
    "addGraphicsSettingsListener()",
    "createProperty()",
    "createSI()",
    "createCarousel()",
    "createDemux()",
    "createTuner()",
    "createDsmCCCommand()",
    "addCommandListener(nclEditingCommand)",
    "createVersion()",
    "setVersion(r2483)",
};

const std::set<std::string> allButVersion = {"Video", "Property", "SI",          "Carousel",
                                             "Demux", "Tuner",    "DsmCCCommand"};

class Adapter : public testing::Test {
 protected:
  ~Adapter() override { stop(); }

  void start() {
    adapter = MiddlewareIpc::getInstance();
    host.log.take();
  }

  void startWithoutFacades() {
    host.missing = allButVersion;
    start();
  }

  void stop() {
    if (adapter == nullptr) return;
    const CaughtStream output(stdout);
    deleteAdapter(std::exchange(adapter, nullptr));
  }

  Calls calls() { return host.log.take(); }

  void failToConstruct() {
    host.throwing = "Tuner";
    EXPECT_THROW(static_cast<void>(MiddlewareIpc::getInstance()), std::runtime_error);
    EXPECT_EQ(calls(), (Calls{"createVideo()", "addGraphicsSettingsListener()", "createProperty()",
                              "createSI()", "createCarousel()", "createDemux()", "createTuner()",
                              "removeGraphicsSettingsListener(1)", "~Video()", "~Property()",
                              "~SI()", "~Carousel()", "~Demux()"}));
    // Both channels go on without the object.
    RawClient control;
    EXPECT_EQ(control.ask(request(SI, 6)).type, 0);
    RawClient client(RawClient::sectionFilter);
    client.send(word(2) + word(5) + word(13));
    EXPECT_EQ(client.receive(4), word(0));
    EXPECT_TRUE(calls().empty());
    IpcServerManager::destroy();
  }

  FakeHost host;
  MiddlewareIpc* adapter = nullptr;
};

// Its life.

TEST_F(Adapter, ConstructionCreatesAndRegistersInOrder) {
  adapter = MiddlewareIpc::getInstance();
  EXPECT_EQ(calls(), creation);
  EXPECT_EQ(host.graphicsListener, adapter);
  EXPECT_EQ(host.commandListener, adapter);
  EXPECT_EQ(host.carouselListener, nullptr);
  EXPECT_EQ(host.mediaListener, nullptr);
  EXPECT_EQ(graphicsPlaneWidth, 1280);
  EXPECT_EQ(graphicsPlaneHeight, 720);
  EXPECT_EQ(videoScaleX, 1.5F);
  EXPECT_EQ(videoScaleY, 1.5F);
}

TEST_F(Adapter, IsOneInstance) {
  start();
  EXPECT_EQ(MiddlewareIpc::getInstance(), adapter);
  EXPECT_TRUE(calls().empty());
}

TEST_F(Adapter, ConcurrentFirstCallsAllReturnTheOneAdapter) {
  constexpr int count = 8;
  std::latch ready(count);
  MiddlewareIpc* found[count] = {};
  std::vector<std::thread> threads;
  for (MiddlewareIpc*& result : found) {
    threads.emplace_back([&ready, &result] {
      ready.arrive_and_wait();
      result = MiddlewareIpc::getInstance();
    });
  }
  for (std::thread& thread : threads) thread.join();
  adapter = found[0];
  for (const MiddlewareIpc* const result : found) EXPECT_EQ(result, adapter);
  EXPECT_EQ(calls(), creation);
}

TEST_F(Adapter, TeardownPrintsItsLineAndUnregistersInOrder) {
  start();
  std::string printed;
  {
    const CaughtStream output(stdout);
    deleteAdapter(std::exchange(adapter, nullptr));
    printed = output.text();
  }
  EXPECT_EQ(printed, "deleting middleware ipc\n");
  // The version facade stays.
  EXPECT_EQ(calls(), (Calls{"removeGraphicsSettingsListener(1)", "~Video()",
                            "removeCommandListener(nclEditingCommand, 1)", "~DsmCCCommand()",
                            "~Property()", "~SI()", "~Carousel()", "~Demux()", "~Tuner()"}));
}

TEST_F(Adapter, ANewAdapterAfterATeardownServesBothChannels) {
  start();
  RawClient old;
  EXPECT_EQ(old.ask(request(SI, 6)).group, LIST_HEADER);
  for (int round = 0; round < 20; ++round) {
    stop();
    EXPECT_TRUE(round > 0 || old.isAtEnd());
    host.log.take();
    adapter = MiddlewareIpc::getInstance();
    EXPECT_EQ(calls(), creation);
    RawClient control;
    EXPECT_EQ(control.ask(request(SI, 6)).group, LIST_HEADER);
    RawClient sections(RawClient::sectionFilter);
    host.section = {1, 2};
    sections.send(word(13));
    EXPECT_EQ(sections.receive(6), word(2) + "\1\2");
  }
}

TEST_F(Adapter, TheVersionFacadeIsRequired) {
  startDeathTestAnew();
  host.missing = {"Version"};
  EXPECT_DEATH(static_cast<void>(MiddlewareIpc::getInstance()), "");
}

TEST_F(Adapter, AFailedConstructionLeavesNoRegistrationBehind) {
  // After it the process can have no adapter any more, so that it is made in one of its own.
  startDeathTestAnew();
  EXPECT_EXIT(
      {
        failToConstruct();
        std::exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(Adapter, TeardownReturnsWhileASectionIsBeingWaitedForAndTheClientGetsTheCountZero) {
  start();
  std::latch reading(1);
  host.onReadSection = [&] {
    reading.count_down();
    for (;;) pause();
  };
  RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  reading.wait();
  {
    const Watchdog watchdog{2s};
    stop();
  }
  EXPECT_EQ(client.receive(4), word(0));
  client.send(word(4) + word(0) + word(1) + "a" + word(1) + "b" + word(13));
  EXPECT_EQ(client.receive(4), word(0));
}

TEST_F(Adapter, NotificationsAfterTheManagersEndAreDropped) {
  start();
  MiddlewareIpc* const listener = adapter;
  // The facades are deleted when the manager is gone already.
  host.onVideoDeletion = [listener] {
    listener->endOfMedia(1);
    listener->graphicsSettingsChanged({}, {});
    listener->downloadComplete("file");
    listener->commandReceived({});
    EXPECT_FALSE(listener->sendAppState(state{1}));
  };
  const CaughtStream errors(stderr);
  stop();
  EXPECT_EQ(errors.text(), "");
}

// Without facades.

TEST_F(Adapter, WithoutFacadesEveryRequestAnswersWithNothing) {
  startWithoutFacades();
  RawClient client;
  EXPECT_EQ(adapter->getVideoProperty(command{9}), -1);
  EXPECT_EQ(adapter->getVideoLanguage(command{3}), "");
  EXPECT_EQ(adapter->getVideoLanguages().size(), 0U);
  EXPECT_EQ(adapter->getSystemProperty("p"), "");
  EXPECT_EQ(adapter->getSystemProperties().size(), 0U);
  EXPECT_EQ(adapter->getCurrentTransportStreamID(), -1);
  for (const int kind : {0, 1, 2, 3, 4, 5}) {
    tuner_data tuner{kind, 1};
    EXPECT_EQ(adapter->getAllIDs(tuner).size(), 0U);
  }
  EXPECT_EQ(adapter->getChannelName(1, 2), "");
  EXPECT_EQ(adapter->getVirtualChannelNumber(1, 2), -1);
  EXPECT_EQ(adapter->mountCarousel("l"), "");
  EXPECT_EQ(adapter->getSICodingFormat(), "");
  EXPECT_EQ(adapter->getProgramEvents().size(), 0U);
  EXPECT_EQ(adapter->getServices().size(), 0U);
  EXPECT_EQ(adapter->getCurrentService(), -1);
  EXPECT_EQ(adapter->getCASystemIds().size(), 0U);
  EXPECT_FALSE(adapter->isProtectedService());
  EXPECT_EQ(adapter->getServiceDescription(), "");
  EXPECT_EQ(adapter->getServiceComponents(1).size(), 0U);
  EXPECT_EQ(adapter->getNetworkDescriptors().size(), 0U);
  EXPECT_EQ(adapter->getTransportStreamDescriptors(1).size(), 0U);
  EXPECT_EQ(adapter->getServiceDescriptors(1).size(), 0U);
  EXPECT_EQ(adapter->getProgramEventDescriptors(1, 2).size(), 0U);
  EXPECT_EQ(adapter->getServiceComponentDescriptors(1).size(), 0U);
  EXPECT_EQ(adapter->getPMTs(1).size(), 0U);
  int player = 77;
  EXPECT_EQ(adapter->open("l", player), 0);
  EXPECT_EQ(player, 77);
  EXPECT_EQ(adapter->getDuration(1), -1);
  EXPECT_EQ(adapter->getCurrentTime(1), -1);
  EXPECT_EQ(adapter->setCurrentTime(1, 2, 3), -1);
  EXPECT_EQ(adapter->play(1), 0);
  EXPECT_EQ(adapter->setMediaBounds(1, 2, 3, 4, 5), -1);
  int bounds[4] = {1, 2, 3, 4};
  adapter->getMediaBounds(1, bounds[0], bounds[1], bounds[2], bounds[3]);
  EXPECT_EQ(bounds[3], 4);
  adapter->getMainVideoBounds(bounds[0], bounds[1], bounds[2], bounds[3]);
  for (const int bound : bounds) EXPECT_EQ(bound, -1);
  ipcutil::Rectangle_t first{1, 1, 1, 1};
  ipcutil::Rectangle_t second{2, 2, 2, 2};
  adapter->getInitCropValue(&first, &second);
  EXPECT_EQ(second.height, 2);
  for (const std::uint32_t selector : {0U, 2U, 6U, 7U, 8U}) {
    video_data data{};
    data.type = selector;
    adapter->setVideoProperty(data);
  }
  for (const int selector : {0, 1, 2, 3, 4}) adapter->setVideoAudio({selector, {}, 0.5});
  system_property property{};
  adapter->setSystemProperty(property);
  adapter->removeSystemProperty("p");
  adapter->umountCarousel("l");
  adapter->addCarouselListener();
  adapter->removeCarouselListener();
  adapter->addMediaListener(1);
  adapter->stop(1);
  adapter->close(1);
  adapter->setMediaFreeze(1, true);
  adapter->setMediaMute(1, true);
  adapter->setMediaBalanceLevel(1, 1);
  adapter->setMediaSoundLevel(1, 1);
  adapter->setMediaBassLevel(1, 1);
  adapter->setMediaTrebleLevel(1, 1);
  EXPECT_TRUE(calls().empty());
}

TEST_F(Adapter, WithoutFacadesRecordsAreAllZero) {
  startWithoutFacades();
  const program_event event = adapter->getProgramEvent();
  const program_event zeroEvent{};
  EXPECT_EQ(std::memcmp(&event, &zeroEvent, sizeof event), 0);
  const network net = adapter->getNetwork();
  const network zeroNetwork{};
  EXPECT_EQ(std::memcmp(&net, &zeroNetwork, sizeof net), 0);
  const transport_stream stream = adapter->getTransportStream();
  const transport_stream zeroStream{};
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): every byte is what is meant.
  EXPECT_EQ(std::memcmp(&stream, &zeroStream, sizeof stream), 0);
}

TEST_F(Adapter, WithoutADemultiplexerRequestsAreIgnoredAndASectionHasTheCountZero) {
  startWithoutFacades();
  RawClient client(RawClient::sectionFilter);
  for (const int code : {0, 1, 9, 10, 11, 12}) client.send(word(code));
  for (const int code : {2, 3, 8}) client.send(word(code) + word(1));
  for (const int code : {4, 5, 6}) client.send(word(code) + word(0) + word(0) + word(0));
  client.send(word(7) + word(0) + word(0) + word(0) + word(0));
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
  EXPECT_TRUE(calls().empty());
}

TEST_F(Adapter, EveryRequestReachesAFacade) {
  start();
  host.events.emplace_back();
  const RawClient client;
  for (const operations::Request& row : operations::requests) {
    // Answered by the manager, and dropped by the adapter.
    const std::string_view name = row.name;
    if (name == "answerApplicationState" || name == "setVideoProperty" || name == "setVideoAudio")
      continue;
    client.send(request(row.group, isAnyOther(row.types) ? 1 : row.types.first));
    client.send(request(VERSION, 99));
    while (client.receiveRecord().type != 99) {
    }
    EXPECT_GT(calls().size(), 1U) << name;
  }
}

// Service information.

TEST_F(Adapter, ServicesCarryTheirIntegersAndTheirNameCutTo254Characters) {
  start();
  for (const std::size_t length : {10U, 254U, 300U}) {
    host.services.push_back({1, 2, 3, std::string(length, 's'), 4, 5, "not carried"});
  }
  const auto services = adapter->getServices();
  EXPECT_EQ(calls(), Calls{"getServices()"});
  ASSERT_EQ(services.size(), 3U);
  const std::size_t carried[] = {10, 254, 254};
  std::size_t index = 0;
  for (const service& element : services) {
    EXPECT_EQ(element.value_1, 1);
    EXPECT_EQ(element.value_2, 2);
    EXPECT_EQ(element.value_3, 3);
    EXPECT_EQ(element.value_4, 4);
    EXPECT_EQ(element.value_5, 5);
    EXPECT_EQ(element.reserved, 0);
    const std::size_t length = carried[index++];
    EXPECT_EQ(std::string(element.name, 255),
              std::string(length, 's') + std::string(255 - length, '\0'));
    for (const std::uint8_t byte : element.reserved_tail) EXPECT_EQ(byte, 0);
  }
}

middlewarefacade::ProgramEvent_ sampleEvent() {
  return {1, 2, 3,        4,  "one", std::string(300, '2'),        "", 7,   6,
          5, 4, {1, 255}, {}, {3},   {"t", std::string(400, 'u')}, {}, {""}};
}

TEST_F(Adapter, EventsCarryEverythingAndTheSingleEventLacksItsFifthInteger) {
  start();
  host.events = {sampleEvent(), {}};
  OwnedRecords<program_event> events(adapter->getProgramEvents());
  EXPECT_EQ(calls(), Calls{"getProgramEvents()"});
  ASSERT_EQ(events->size(), 2U);
  OwnedRecord<program_event> single(adapter->getProgramEvent());
  EXPECT_EQ(calls(), Calls{"getProgramEvent()"});
  EXPECT_EQ(events->front().value_5, 7);
  EXPECT_EQ(single->value_5, 0);
  for (const program_event* const event : {&events->front(), &*single}) {
    EXPECT_EQ(event->value_1, 1);
    EXPECT_EQ(event->value_2, 2);
    EXPECT_EQ(event->value_3, 3);
    EXPECT_EQ(event->value_4, 4);
    EXPECT_EQ(event->value_6, 6);
    EXPECT_EQ(event->value_7, 5);
    EXPECT_EQ(event->value_8, 4);
    EXPECT_EQ(fieldText(event->text_1), "one");
    EXPECT_EQ(fieldText(event->text_2), std::string(254, '2'));
    EXPECT_EQ(fieldText(event->text_3), "");
    EXPECT_EQ(event->byte_list_1_count, 2);
    EXPECT_EQ(event->byte_list_2_count, 0);
    EXPECT_EQ(event->byte_list_3_count, 1);
    EXPECT_EQ(event->text_list_1_count, 2);
    EXPECT_EQ(event->text_list_2_count, 0);
    EXPECT_EQ(event->text_list_3_count, 1);
    EXPECT_EQ(*event->byte_list_1, (std::list<char>{1, '\xff'}));
    EXPECT_EQ(*event->byte_list_3, (std::list<char>{3}));
    EXPECT_EQ(*event->text_list_1, (std::list<std::string>{"t", std::string(400, 'u')}));
    EXPECT_EQ(*event->text_list_3, (std::list<std::string>{""}));
  }
  // Empty lists are lists all the same.
  forEachList(events->back(), [](const auto* list) {
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(list->empty());
  });
}

TEST_F(Adapter, DescriptorsCarryTagLengthAndBytes) {
  start();
  host.descriptors = {{0x48, {1, 2, 255}}, {-2, {}}};
  const auto check = [&](std::list<descriptor> list, const std::string& call) {
    EXPECT_EQ(calls(), Calls{call});
    const OwnedRecords<descriptor> owned(std::move(list));
    auto records = const_cast<OwnedRecords<descriptor>&>(owned).operator->();
    ASSERT_EQ(records->size(), 2U);
    EXPECT_EQ(records->front().tag, 0x48);
    EXPECT_EQ(records->front().length, 3);
    EXPECT_EQ(*records->front().data, (std::list<char>{1, 2, '\xff'}));
    EXPECT_EQ(records->back().tag, -2);
    EXPECT_EQ(records->back().length, 0);
    ASSERT_NE(records->back().data, nullptr);
    EXPECT_TRUE(records->back().data->empty());
  };
  check(adapter->getNetworkDescriptors(), "getNetworkDescriptors()");
  check(adapter->getTransportStreamDescriptors(4), "getTransportStreamDescriptors(4)");
  check(adapter->getServiceDescriptors(5), "getServiceDescriptors(5)");
  check(adapter->getProgramEventDescriptors(6, 7), "getProgramEventDescriptors(6, 7)");
  check(adapter->getServiceComponentDescriptors(8), "getServiceComponentDescriptors(8)");
}

TEST_F(Adapter, ComponentsProgramMapsAndIdentifiersAreCopiedInOrder) {
  start();
  host.components = {{1, 2, 3, 4, 5, 6}, {-1, -2, -3, -4, -5, -6}};
  host.programMaps = {{1, 2, 3, 4}, {5, 6, 7, 8}};
  host.identifiers = {0x0b00, -1};
  const auto components = adapter->getServiceComponents(12);
  ASSERT_EQ(components.size(), 2U);
  EXPECT_EQ(components.front().value_1, 1);
  EXPECT_EQ(components.front().value_6, 6);
  EXPECT_EQ(components.back().value_3, -3);
  const auto pmts = adapter->getPMTs(-1);
  ASSERT_EQ(pmts.size(), 2U);
  EXPECT_EQ(pmts.front().value_4, 4);
  EXPECT_EQ(pmts.back().value_1, 5);
  EXPECT_EQ(adapter->getCASystemIds(), (std::list<int>{0x0b00, -1}));
  EXPECT_EQ(calls(), (Calls{"getServiceComponents(12)", "getPMTs(-1)", "getCASystemIds()"}));
}

TEST_F(Adapter, TheNetworkCarriesItsValueAndName) {
  start();
  host.network = {std::string(300, 'n'), 65281};
  const network answer = adapter->getNetwork();
  EXPECT_EQ(calls(), Calls{"getNetwork()"});
  EXPECT_EQ(answer.network_value, 65281);
  EXPECT_EQ(std::string(answer.name, 255), std::string(254, 'n') + '\0');
  EXPECT_EQ(answer.padding, 0);
}

TEST_F(Adapter, TheTransportStreamCarriesAModeFromZeroToThree) {
  start();
  const std::pair<int, int> modes[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 0}, {-1, 0}};
  for (const auto& [given, carried] : modes) {
    host.transportStream = {1, 2, "not carried", 99, 570.5F, given, 3};
    const transport_stream answer = adapter->getTransportStream();
    EXPECT_EQ(answer.value_1, 1);
    EXPECT_EQ(answer.value_2, 2);
    EXPECT_EQ(answer.value_3, 3);
    EXPECT_EQ(answer.reserved, 0);
    EXPECT_EQ(answer.real_value, 570.5F);
    EXPECT_EQ(answer.mode, carried) << given;
    for (const std::uint8_t byte : answer.reserved_tail) EXPECT_EQ(byte, 0);
  }
}

TEST_F(Adapter, SingleValuesComeFromTheirFacade) {
  start();
  host.numbers = {{"getCurrentService", 5},
                  {"isProtectedService", 256},
                  {"getCurrentTransportStreamID", 6},
                  {"getVirtualChannelNumber", 7}};
  host.texts = {
      {"getServiceDescription", "d"}, {"getSICodingFormat", "f"}, {"getChannelName", "c"}};
  EXPECT_EQ(adapter->getCurrentService(), 5);
  EXPECT_TRUE(adapter->isProtectedService());
  EXPECT_EQ(adapter->getCurrentTransportStreamID(), 6);
  EXPECT_EQ(adapter->getVirtualChannelNumber(1, 2), 7);
  EXPECT_EQ(adapter->getServiceDescription(), "d");
  EXPECT_EQ(adapter->getSICodingFormat(), "f");
  EXPECT_EQ(adapter->getChannelName(3, 4), "c");
  EXPECT_EQ(calls(),
            (Calls{"getCurrentService()", "isProtectedService()", "getCurrentTransportStreamID()",
                   "getVirtualChannelNumber(1, 2)", "getServiceDescription()",
                   "getSICodingFormat()", "getChannelName(3, 4)"}));
}

TEST_F(Adapter, TheKindChoosesTheIdentifierList) {
  start();
  host.identifiers = {3, 1, 2};
  const std::pair<int, Calls> rows[] = {{0, {}},
                                        {1, {"getIdListFor(9)"}},
                                        {2, {"getIdList()"}},
                                        {3, {"getSecondIdListFor(9)"}},
                                        {4, {"getThirdIdListFor(9)"}},
                                        {5, {}},
                                        {-1, {}}};
  for (const auto& [kind, expected] : rows) {
    tuner_data tuner{kind, 9};
    EXPECT_EQ(adapter->getAllIDs(tuner), expected.empty() ? std::list<int>() : host.identifiers);
    EXPECT_EQ(calls(), expected) << kind;
  }
}

// Media, video, properties.

TEST_F(Adapter, MediaOperationsAreForwarded) {
  start();
  host.numbers = {
      {"getDuration", 1}, {"getCurrentTime", 2}, {"setCurrentTime", 3}, {"play", 4},
      {"open", 5},        {"open.player", 6},    {"setMediaBounds", 7}, {"checkVersionFlag", 8}};
  EXPECT_EQ(adapter->getDuration(11), 1);
  EXPECT_EQ(adapter->getCurrentTime(11), 2);
  EXPECT_EQ(adapter->setCurrentTime(11, 12, 13), 3);
  EXPECT_EQ(adapter->play(11), 4);
  int player = 9;
  EXPECT_EQ(adapter->open("locator", player), 5);
  EXPECT_EQ(player, 6);
  EXPECT_EQ(adapter->setMediaBounds(1, 2, 3, 4, 5), 7);
  int bounds[4] = {};
  adapter->getMediaBounds(1, bounds[0], bounds[1], bounds[2], bounds[3]);
  EXPECT_EQ(bounds[0], 1);
  EXPECT_EQ(bounds[3], 4);
  adapter->addMediaListener(11);
  EXPECT_EQ(host.mediaListener, adapter);
  adapter->stop(11);
  adapter->close(11);
  adapter->setMediaFreeze(11, true);
  adapter->setMediaBalanceLevel(11, 0.5);
  adapter->setMediaSoundLevel(11, 0.25);
  adapter->setMediaMute(11, false);
  adapter->setMediaBassLevel(11, -1);
  adapter->setMediaTrebleLevel(11, 2);
  EXPECT_EQ(adapter->checkVersionFlag(3), 8);
  EXPECT_EQ(
      calls(),
      (Calls{"getDuration(11)", "getCurrentTime(11)", "setCurrentTime(11, 12, 13)", "play(11)",
             "open(locator, 9)", "setMediaBounds(1, 2, 3, 4, 5)", "getMediaBounds(1, 0, 0, 0, 0)",
             "addMediaListener(11)", "stop(11)", "close(11)", "setMediaFreeze(11, 1)",
             "setMediaBalanceLevel(11, 0.5)", "setMediaSoundLevel(11, 0.25)", "setMediaMute(11, 0)",
             "setMediaBassLevel(11, -1)", "setMediaTrebleLevel(11, 2)", "checkVersionFlag(3)"}));
}

TEST_F(Adapter, TheCropRectanglesComeFromTheVideoFacade) {
  start();
  ipcutil::Rectangle_t first{};
  ipcutil::Rectangle_t second{};
  adapter->getInitCropValue(&first, &second);
  EXPECT_EQ(first.width, 3);
  EXPECT_EQ(second.x, 5);
  EXPECT_EQ(calls(), Calls{"getInitCropValue()"});
}

TEST_F(Adapter, VideoPropertiesNineToSixteenHaveAGetterEach) {
  start();
  for (int value = 9; value <= 16; ++value) {
    const std::string operation = "getVideoProperty" + std::to_string(value);
    host.numbers[operation] = value * 100;
    EXPECT_EQ(adapter->getVideoProperty(command{value}), value * 100);
    EXPECT_EQ(calls(), Calls{operation + "()"});
  }
  for (const int value : {8, 17, 0, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(adapter->getVideoProperty(command{value}), -1);
  }
  EXPECT_TRUE(calls().empty());
}

TEST_F(Adapter, LanguagesThreeAndFiveHaveAGetterEach) {
  start();
  host.texts = {{"getVideoLanguageA", "a"}, {"getVideoLanguageB", "b"}};
  host.languages = {"x", "y"};
  EXPECT_EQ(adapter->getVideoLanguage(command{3}), "a");
  EXPECT_EQ(adapter->getVideoLanguage(command{5}), "b");
  EXPECT_EQ(adapter->getVideoLanguage(command{4}), "");
  EXPECT_EQ(adapter->getVideoLanguage(command{-1}), "");
  EXPECT_EQ(adapter->getVideoLanguages(), host.languages);
  EXPECT_EQ(calls(), (Calls{"getVideoLanguageA()", "getVideoLanguageB()", "getVideoLanguages()"}));
}

TEST_F(Adapter, EachVideoSelectorHasItsAction) {
  start();
  const auto with = [](std::uint32_t selector, const std::string& bytes = "") {
    video_data data{};
    data.type = selector;
    std::memcpy(&data.x, bytes.data(), std::min(bytes.size(), sizeof data - 4));
    return data;
  };
  const std::pair<video_data, Calls> rows[] = {
      {with(0, word(1) + word(2) + word(3) + word(4)), {"setVideoBounds(1, 2, 3, 4)"}},
      {with(1), {}},
      {with(2), {"videoPropertyAction()"}},
      {with(3), {}},
      {with(4), {}},
      {with(5), {}},
      {with(6, "por"), {"selectVideoLanguage(por)"}},
      {with(6, std::string(3000, 'l')), {"selectVideoLanguage(" + std::string(1948, 'l') + ")"}},
      {with(7, "\x02"), {"setVideoFreeze(1)"}},
      {with(7, std::string("\0\1", 2)), {"setVideoFreeze(0)"}},
      {with(8, "\x80"), {"setVideoOption(1)"}},
      {with(8), {"setVideoOption(0)"}},
      {with(9), {}},
      {with(17), {}},
      {with(0xffffffffU), {}},
  };
  for (const auto& [data, expected] : rows) {
    video_data given = data;
    adapter->setVideoProperty(given);
    EXPECT_EQ(calls(), expected) << data.type;
  }
}

TEST_F(Adapter, EachAudioSelectorHasItsAction) {
  start();
  const std::pair<int, Calls> rows[] = {{0, {"setVideoSoundLevel(0.5)"}},
                                        {1, {"setVideoBalanceLevel(0.5)"}},
                                        {2, {"setVideoBassLevel(0.5)"}},
                                        {3, {"setVideoTrebleLevel(0.5)"}},
                                        {5, {}},
                                        {-1, {}}};
  for (const auto& [selector, expected] : rows) {
    adapter->setVideoAudio({selector, {}, 0.5});
    EXPECT_EQ(calls(), expected) << selector;
  }
  for (const std::uint8_t byte : std::initializer_list<std::uint8_t>{0, 1, 2, 255}) {
    audio_data data{4, {}, 0.5};
    std::memcpy(&data.level, &byte, 1);
    adapter->setVideoAudio(data);
    EXPECT_EQ(calls(), Calls{byte == 0 ? "setVideoMute(0)" : "setVideoMute(1)"});
  }
}

TEST_F(Adapter, TheMainVideosBoundsAreAlwaysMinusOneThoughTheFacadeIsAsked) {
  start();
  int x = 1;
  int y = 2;
  int width = 3;
  int height = 4;
  adapter->getMainVideoBounds(x, y, width, height);
  EXPECT_EQ(calls(), Calls{"getMainVideoBounds(1, 2, 3, 4)"});
  for (const int bound : {x, y, width, height}) EXPECT_EQ(bound, -1);
}

TEST_F(Adapter, AGraphicsRegionIsTracedAndForwarded) {
  start();
  std::string printed;
  {
    const CaughtStream output(stdout);
    adapter->updateGraphicsRegion({0, 0, 1280, 720});
    printed = output.text();
  }
  EXPECT_EQ(printed, " >>> graphics region update <<< \nregion = {0,0,1280,720}\n");
  EXPECT_EQ(calls(), Calls{"updateGraphicsRegion(0, 0, 1280, 720)"});
}

TEST_F(Adapter, AGraphicsRegionIsTracedWithoutAVideoFacade) {
  startWithoutFacades();
  const CaughtStream output(stdout);
  adapter->updateGraphicsRegion({-1, 2, 3, 4});
  EXPECT_EQ(output.text(), " >>> graphics region update <<< \nregion = {-1,2,3,4}\n");
}

TEST_F(Adapter, SystemPropertiesAreConvertedBothWays) {
  start();
  host.properties = {{std::string(300, 'n'), std::string(255, 'v')}, {"a", "b"}};
  host.texts["getProperty"] = "answer";
  const auto properties = adapter->getSystemProperties();
  ASSERT_EQ(properties.size(), 2U);
  EXPECT_EQ(std::string(properties.front().name, 255), std::string(254, 'n') + '\0');
  EXPECT_EQ(std::string(properties.front().value, 255), std::string(254, 'v') + '\0');
  EXPECT_EQ(properties.front().reserved, 0);
  EXPECT_EQ(std::string(properties.back().name, 255), "a" + std::string(254, '\0'));
  EXPECT_EQ(adapter->getSystemProperty("asked"), "answer");
  system_property property{};
  setFieldText(property.name, "name");
  setFieldText(property.value, "value");
  adapter->setSystemProperty(property);
  adapter->removeSystemProperty("old");
  EXPECT_EQ(calls(), (Calls{"getProperties()", "getProperty(asked)", "setProperty(name, value)",
                            "removeProperty(old)"}));
}

// The section filter.

TEST_F(Adapter, TheSectionFiltersOperationsAreForwardedOneByOne) {
  start();
  host.section = {9, 8, 7};
  RawClient client(RawClient::sectionFilter);
  const std::string a = word(2) + "ab";
  const std::string b = word(1) + "c";
  client.send(word(0) + word(1) + word(2) + word(256) + word(3) + word(66) + word(4) + word(1) + a +
              b + word(5) + word(2) + b + a + word(6) + word(3) + a + a + word(7) + word(4) + a +
              b + b + word(8) + word(-5) + word(9) + word(10) + word(11) + word(12) + word(13));
  EXPECT_EQ(client.receive(7), word(3) + "\x9\x8\x7");
  EXPECT_EQ(calls(),
            (Calls{"start()", "stop()", "setPid(256)", "setTableId(66)",
                   "setPositiveFilter(1, {61 62}, {63})", "setGreaterThanFilter(2, {63}, {61 62})",
                   "setLessThanFilter(3, {61 62}, {61 62})", "setXorFilter(4, {61 62}, {63}, {63})",
                   "setTimeOut(-5)", "clearTableId()", "clearPositiveFilter()",
                   "clearLessThanFilter()", "clearXorFilter()", "readSection()"}));
}

// Carousels and notifications.

TEST_F(Adapter, CarouselRequestsAreForwarded) {
  start();
  host.texts["mountCarousel"] = "/mnt";
  EXPECT_EQ(adapter->mountCarousel("l"), "/mnt");
  adapter->umountCarousel("m");
  adapter->removeCarouselListener();
  adapter->addCarouselListener();
  adapter->addCarouselListener();
  EXPECT_EQ(host.carouselListener, adapter);
  adapter->removeCarouselListener();
  EXPECT_EQ(calls(),
            (Calls{"mountCarousel(l)", "umountCarousel(m)", "removeCarouselListener(1)",
                   "addCarouselListener()", "addCarouselListener()", "removeCarouselListener(1)"}));
}

TEST_F(Adapter, WhatTheFacadesReportReachesTheClient) {
  start();
  RawClient client;
  // The first request tells that the client is connected.
  EXPECT_EQ(client.ask(request(SI, 6)).group, LIST_HEADER);
  adapter->addCarouselListener();
  adapter->addMediaListener(1);

  host.mediaListener->endOfMedia(5);
  message expected = request(MEDIA, 16);
  expected[3] = 5;
  EXPECT_EQ(bytesOf(client.receiveRecord()), bytesOf(expected));

  host.graphicsListener->graphicsSettingsChanged({1, 2, 3, 4}, {0, 0, 1920, 1440});
  EXPECT_EQ(videoScaleX, 1.5F);
  EXPECT_EQ(videoScaleY, 2.0F);
  expected = request(VIDEO, 17);
  const int words[] = {1, 2, 3, 4, 0, 0, 1920, 1440};
  std::memcpy(expected.payload, words, sizeof words);
  EXPECT_EQ(bytesOf(client.receiveRecord()), bytesOf(expected));

  host.carouselListener->downloadComplete("file");
  host.carouselListener->downloadComplete("file", "");
  const message one = client.receiveRecord();
  EXPECT_EQ(one.group, CAROUSEL);
  EXPECT_EQ(getString(one, 12), "file");
  EXPECT_EQ(bytesOf(client.receiveRecord()), bytesOf(one));

  host.commandListener->commandReceived({7, 1.5, 9, "text"});
  const message command = client.receiveRecord();
  EXPECT_EQ(command.group, DSMCC_COMMAND);
  EXPECT_EQ(command.type, 7);
  EXPECT_EQ(get<double>(command, 16), 1.5);
  EXPECT_EQ(get<std::uint8_t>(command, 24), 9);
  EXPECT_EQ(getString(command, 25), "text");

  std::thread caller([&] { EXPECT_TRUE(adapter->sendAppState(state{3})); });
  EXPECT_EQ(client.receiveRecord().type, 3);
  client.close();
  caller.join();
  EXPECT_TRUE(host.log.await("videoPropertyAction()"));
}

TEST_F(Adapter, AnOverriddenDownloadNotificationSeesTheFormWithOneText) {
  struct Overriding : MiddlewareIpc {
    Overriding() : MiddlewareIpc(1920, 1080) {}
    using MiddlewareIpc::downloadComplete;
    void downloadComplete(std::string first, std::string second) override {
      log.add("downloadComplete", first, second);
    }
    CallLog log;
  };
  const CaughtStream output(stdout);
  Overriding overriding;
  overriding.downloadComplete("only");
  EXPECT_EQ(overriding.log.take(), Calls{"downloadComplete(only, )"});
}

}  // namespace
