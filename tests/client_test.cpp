// The client library: against the library itself, and against servers that do what they should not.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <set>
#include <thread>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/ApplicationStateWait.h"
#include "support/AskEverything.h"
#include "support/DemuxRecorder.h"
#include "support/GoldenListener.h"
#include "support/Limit.h"
#include "support/Manager.h"
#include "support/Patience.h"
#include "support/RawClient.h"
#include "support/UnixSocket.h"

namespace {

using namespace quillwork::client;
using quillwork::DSMCC_COMMAND;
using quillwork::IpcServerManager;
using quillwork::LIST_HEADER;
using quillwork::MEDIA;
using quillwork::message;
using quillwork::SI;
using Calls = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

template <class Record>
auto values(const Record& record) {
  return std::vector<std::int32_t>(record.values.begin(), record.values.end());
}

using Numbers = std::vector<std::int32_t>;

class AgainstTheLibrary : public testing::Test {
 protected:
  AgainstTheLibrary() {
    giveGoldenAnswers(listener);
    manager->addIpcServerListener(&listener);
  }
  ~AgainstTheLibrary() override { IpcServerManager::destroy(); }

  /// Waits until the requests without a reply have been handled, too.
  Calls calls() {
    EXPECT_TRUE(channel.checkVersionFlag(99));
    Calls all = log.take();
    all.pop_back();
    return all;
  }

  CallLog log;
  RecordingListener listener{log};
  IpcServerManager* manager = makeManager();
  ControlChannel channel;
};

TEST_F(AgainstTheLibrary, VideoAndAudio) {
  channel.setVideoBounds({1, 2, 3, 4});
  channel.videoPropertyAction();
  channel.selectVideoLanguage("spa");
  channel.setVideoFreeze(true);
  channel.setVideoOption(false);
  const Rectangle bounds = channel.getMainVideoBounds({5, 6, 7, 8});
  EXPECT_EQ(bounds.x, 10);
  EXPECT_EQ(bounds.y, 6);
  EXPECT_EQ(bounds.width, 640);
  EXPECT_EQ(bounds.height, 480);
  EXPECT_EQ(channel.getVideoLanguage(3), "por");
  EXPECT_EQ(channel.getVideoLanguages(), (std::vector<std::string>{"por", "eng", "spa"}));
  EXPECT_EQ(channel.getVideoProperty(16), 42);
  channel.updateGraphicsRegion({1, 2, 3, 4});
  channel.setVideoAudio(2, 0.5);
  channel.setVideoMute(true);
  const Calls seen = calls();
  EXPECT_EQ(
      Calls(seen.begin(), seen.end() - 1),
      (Calls{"setVideoProperty(0, 1, 2, 3, 4)", "setVideoProperty(2, 0, 0, 0, 0)",
             "setVideoProperty(6, 3, spa)", "setVideoProperty(7, 1)", "setVideoProperty(8, 0)",
             "getMainVideoBounds(5, 6, 7, 8)", "getVideoLanguage(3)", "getVideoLanguages()",
             "getVideoProperty(16)", "updateGraphicsRegion(1, 2, 3, 4)", "setVideoAudio(2, 0.5)"}));
  EXPECT_EQ(seen.back().substr(0, 15), "setVideoAudio(4");
  EXPECT_THROW(channel.getVideoLanguage(4), Error);
  EXPECT_THROW(channel.getVideoProperty(8), Error);
}

TEST_F(AgainstTheLibrary, PropertiesTunerAndCarousels) {
  EXPECT_EQ(channel.getSystemProperty("model"), "value of it");
  const auto properties = channel.getSystemProperties();
  ASSERT_EQ(properties.size(), 2U);
  EXPECT_EQ(properties[1].name, "b");
  EXPECT_EQ(properties[1].value, "2");
  channel.setSystemProperty("name", "value");
  channel.removeSystemProperty("name");
  EXPECT_EQ(channel.getCurrentTransportStreamID(), 4097);
  EXPECT_EQ(channel.getAllIDs(4, 55), (Numbers{1, -2, 65535}));
  EXPECT_EQ(channel.mountCarousel("dvb://1"), "/mnt/oc");
  channel.umountCarousel("dvb://1");
  channel.addCarouselListener();
  channel.removeCarouselListener();
  EXPECT_EQ(calls(), (Calls{"getSystemProperty(model)", "getSystemProperties()",
                            "setSystemProperty(2, name, value)", "removeSystemProperty(name)",
                            "getCurrentTransportStreamID()", "getAllIDs(4, 55)",
                            "mountCarousel(dvb://1)", "umountCarousel(dvb://1)",
                            "addCarouselListener()", "removeCarouselListener()"}));
  EXPECT_THROW(channel.getAllIDs(0, 1), Error);
  EXPECT_THROW(channel.removeSystemProperty(std::string(255, 'n')), Error);
}

TEST_F(AgainstTheLibrary, ServiceInformation) {
  EXPECT_EQ(channel.getSICodingFormat(), "UTF-8");
  EXPECT_EQ(channel.getCASystemIds(), (Numbers{0x0b00, 0x0b01}));
  EXPECT_TRUE(channel.isProtectedService());
  EXPECT_EQ(channel.getCurrentService(), 101);
  EXPECT_EQ(channel.getServiceDescription(), "a description");
  const auto services = channel.getServices();
  ASSERT_EQ(services.size(), 2U);
  EXPECT_EQ(values(services[0]), (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(services[0].name, "Alpha TV");
  EXPECT_EQ(services[1].name, std::string(254, 'n'));
  const auto components = channel.getServiceComponents(101);
  ASSERT_EQ(components.size(), 2U);
  EXPECT_EQ(values(components[0]), (Numbers{1, 2, 3, 4, 5, 6}));
  const auto maps = channel.getPMTs(-1);
  ASSERT_EQ(maps.size(), 2U);
  EXPECT_EQ(values(maps[1]), (Numbers{101, 102, 103, 104}));
  const TransportStream stream = channel.getTransportStream();
  EXPECT_EQ(values(stream), (Numbers{4097, 65281, 3}));
  EXPECT_EQ(stream.real, 570.5F);
  EXPECT_EQ(stream.mode, 2);
  EXPECT_EQ(channel.getNetwork().value, 65281);
  EXPECT_EQ(channel.getNetwork().name, "Sample Net");
}

TEST_F(AgainstTheLibrary, DescriptorsWithAndWithoutBytes) {
  const auto check = [&](const std::vector<Descriptor>& descriptors, const std::string& call) {
    ASSERT_EQ(descriptors.size(), 3U);
    EXPECT_EQ(descriptors[0].tag, 0x48);
    EXPECT_EQ(descriptors[0].data, (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(descriptors[1].tag, 0x4d);
    EXPECT_TRUE(descriptors[1].data.empty());
    EXPECT_EQ(descriptors[2].tag, -1);
    EXPECT_EQ(descriptors[2].data, (Bytes{0, 255}));
    EXPECT_EQ(calls(), Calls{call});
  };
  check(channel.getProgramEventDescriptors(101, 1000), "getProgramEventDescriptors(101, 1000)");
  check(channel.getServiceComponentDescriptors(5), "getServiceComponentDescriptors(5)");
  check(channel.getTransportStreamDescriptors(6), "getTransportStreamDescriptors(6)");
  check(channel.getNetworkDescriptors(), "getNetworkDescriptors()");
}

TEST_F(AgainstTheLibrary, EventsWithTheListsBehindThem) {
  const ProgramEvent single = channel.getProgramEvent();
  const auto events = channel.getProgramEvents();
  ASSERT_EQ(events.size(), 2U);
  for (const ProgramEvent* const event : {&single, &events[0]}) {
    EXPECT_EQ(values(*event), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(event->texts, (std::array<std::string, 3>{"one", "text two", ""}));
    EXPECT_EQ(event->byteLists, (std::array<Bytes, 3>{Bytes{1, 2}, Bytes{}, Bytes{}}));
    EXPECT_EQ(event->textLists[0], (std::vector<std::string>{"first", "", "second"}));
  }
  EXPECT_EQ(events[1].texts[0], std::string(254, 'x'));
  EXPECT_EQ(events[1].byteLists, (std::array<Bytes, 3>{Bytes{3, 4, 5}, Bytes{255}, Bytes{0}}));
  EXPECT_EQ(events[1].textLists[1].at(0).size(), 400U);
  EXPECT_EQ(events[1].textLists[2].at(0), "end");
}

TEST_F(AgainstTheLibrary, MediaAndVersion) {
  const OpenedMedia media = channel.open("file:///a.ts");
  EXPECT_TRUE(media.opened);
  EXPECT_EQ(media.player, 9);
  EXPECT_EQ(channel.getDuration(9), 3600);
  EXPECT_EQ(channel.getCurrentTime(9), 12);
  EXPECT_EQ(channel.setCurrentTime(9, 1, 2), 1);
  channel.addMediaListener(9);
  EXPECT_TRUE(channel.play(9));
  channel.close(9);
  channel.stop(9);
  EXPECT_EQ(channel.setMediaBounds(9, {1, 2, 3, 4}), 0);
  const Rectangle bounds = channel.getMediaBounds(9, {5, 6, 7, 8});
  EXPECT_EQ(bounds.x, 10);
  EXPECT_EQ(bounds.y, 6);
  channel.setMediaFreeze(9, true);
  channel.setMediaBalanceLevel(9, -0.5);
  channel.setMediaSoundLevel(9, 0.25);
  channel.setMediaMute(9, false);
  channel.setMediaBassLevel(9, 1);
  channel.setMediaTrebleLevel(9, 2);
  EXPECT_EQ(
      calls(),
      (Calls{"open(file:///a.ts, 0)", "getDuration(9)", "getCurrentTime(9)",
             "setCurrentTime(9, 1, 2)", "addMediaListener(9)", "play(9)", "close(9)", "stop(9)",
             "setMediaBounds(9, 1, 2, 3, 4)", "getMediaBounds(9, 5, 6, 7, 8)",
             "setMediaFreeze(9, 1)", "setMediaBalanceLevel(9, -0.5)", "setMediaSoundLevel(9, 0.25)",
             "setMediaMute(9, 0)", "setMediaBassLevel(9, 1)", "setMediaTrebleLevel(9, 2)"}));
}

TEST_F(AgainstTheLibrary, NotificationsReachWhoeverWaitsForThem) {
  EXPECT_EQ(channel.getCurrentService(), 101);
  manager->endOfMedia(7);
  manager->changeGraphicsSettings({1, 2, 3, 4}, {5, 6, 7, 8});
  manager->downloadComplete("a", "b");
  manager->sendDsmCCCommand({1, 2.5, 3, "short"});
  const std::string longText = std::string(1920, 'a') + std::string(1920, 'b');
  manager->sendDsmCCCommand({1, 2.5, 3, longText});
  std::set<std::size_t> kinds;
  const auto next = [&] {
    const Notification notification = channel.waitForNotification(patience).value();
    kinds.insert(notification.index());
    return notification;
  };
  EXPECT_EQ(std::get<EndOfMedia>(next()).player, 7);
  EXPECT_EQ(std::get<GraphicsSettingsChanged>(next()).second.height, 8);
  EXPECT_EQ(std::get<DownloadComplete>(next()).second, "b");
  const auto command = std::get<DsmCCCommand>(next());
  EXPECT_EQ(command.code, 1);
  EXPECT_EQ(command.time, 2.5);
  EXPECT_EQ(command.flag, 3);
  EXPECT_EQ(command.text, "short");
  EXPECT_EQ(std::get<DsmCCCommand>(next()).text, longText);
  EXPECT_FALSE(channel.waitForNotification(std::chrono::milliseconds(0)));
  std::thread caller([&] { EXPECT_TRUE(manager->setApplicationState(quillwork::state{4})); });
  EXPECT_EQ(std::get<ApplicationState>(next()).state, 4);
  awaitApplicationStateWait();
  channel.answerApplicationState(true);
  caller.join();
  EXPECT_EQ(kinds.size(), std::size(quillwork::operations::notifications));
}

/// A host that asks one question after the other.
class Questions {
 public:
  Questions(IpcServerManager& manager, int count)
      : thread_([this, &manager, count] {
          for (int question = 0; question < count; ++question) {
            answers_.push_back(manager.setApplicationState(quillwork::state{question}));
            ++answered_;
          }
        }) {}
  ~Questions() { thread_.join(); }
  Questions(const Questions&) = delete;
  Questions& operator=(const Questions&) = delete;

  [[nodiscard]] int answered() const { return answered_; }
  /// Waits for the answer to a question, which `ask` brings on its way; calls `again` when it has
  /// been lost: a host that had no processor for so long did not wait yet.
  template <class Ask, class Again>
  bool awaitAnswer(int question, Ask ask, Again again) const {
    for (int looks = 0; answered_ <= question; ++looks) {
      ask();
      poll(nullptr, 0, 1);
      if (looks < 2000) continue;
      while (answered_ <= question && !isApplicationStateAwaited()) std::this_thread::yield();
      if (answered_ > question) break;
      again();
      while (answered_ <= question) poll(nullptr, 0, 1);
      return false;
    }
    return true;
  }
  [[nodiscard]] bool answerTo(int question) const {
    return answers_[static_cast<std::size_t>(question)];
  }

 private:
  // The other thread writes an answer before it counts it.
  std::vector<bool> answers_;
  std::atomic<int> answered_{0};
  std::thread thread_;
};

// Each answer follows its question at once, and is the other one than that before. One that comes
// before the wait would be lost, a second one would answer the next question.
TEST_F(AgainstTheLibrary, AnApplicationStateIsAnsweredOnceAndInTime) {
  constexpr int count = 30;
  int lost = 0;
  // A question before the library has taken the connection would not be sent.
  EXPECT_EQ(channel.getCurrentService(), 101);
  const Questions questions(*manager, count);
  for (int question = 0; question < count; ++question) {
    const bool answer = question % 2 == 0;
    const auto notification = channel.waitForNotification(patience);
    EXPECT_EQ(std::get<ApplicationState>(notification.value()).state, question);
    const auto say = [&] { channel.answerApplicationState(answer); };
    say();
    if (!questions.awaitAnswer(
            question, [] {}, say))
      ++lost;
  }
  for (int question = 0; question < count; ++question) {
    EXPECT_EQ(questions.answerTo(question), question % 2 == 0) << question;
  }
  EXPECT_LT(lost, count / 3);
}

TEST_F(AgainstTheLibrary, TheHandlerMayAnswerAnApplicationState) {
  channel.onNotification([&](const Notification& notification) {
    if (std::holds_alternative<ApplicationState>(notification)) {
      channel.answerApplicationState(false);
    }
  });
  // As above.
  EXPECT_EQ(channel.getCurrentService(), 101);
  const Questions questions(*manager, 1);
  questions.awaitAnswer(
      0, [&] { EXPECT_EQ(channel.getCurrentService(), 101); },
      [&] { channel.answerApplicationState(false); });
  EXPECT_FALSE(questions.answerTo(0));
}

TEST_F(AgainstTheLibrary, NotificationsBetweenTheRepliesGoToTheCallback) {
  std::vector<std::size_t> kinds;
  channel.onNotification(
      [&](const Notification& notification) { kinds.push_back(notification.index()); });
  EXPECT_EQ(channel.getCurrentService(), 101);
  manager->endOfMedia(7);
  manager->sendDsmCCCommand({1, 2.5, 3, std::string(5000, 'c')});
  EXPECT_EQ(channel.getServices().size(), 2U);
  manager->sendDsmCCCommand({1, 2.5, 3, std::string(1921, 'c')});
  manager->downloadComplete("a", "b");
  EXPECT_EQ(channel.getCurrentService(), 101);
  EXPECT_EQ(kinds, (std::vector<std::size_t>{0, 4, 4, 2}));
}

TEST_F(AgainstTheLibrary, TheSectionFiltersOperations) {
  DemuxRecorder recorder;
  recorder.section = [] { return Bytes(4096, 's'); };
  manager->addIpcDemuxServerListener(&recorder);
  SectionFilterChannel sections;
  askEverything(sections);
  EXPECT_EQ(recorder.log.take(), everySectionFilterCall);
}

TEST(AskEverything, AsksEveryRequestOfTheSectionFilter) {
  ASSERT_EQ(everySectionFilterCall.size(), std::size(quillwork::operations::sectionFilterRequests));
  for (std::size_t code = 0; code < everySectionFilterCall.size(); ++code) {
    const std::string name = quillwork::operations::sectionFilterRequests[code].name;
    EXPECT_EQ(everySectionFilterCall[code].substr(0, name.size() + 1), name + '(');
  }
}

/// A server that sends what the test says, whatever it is asked.
class Impostor {
 public:
  explicit Impostor(std::string reply) {
    unlink(path);
    listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    listenAt(listening_, path);
    thread_ = std::thread([this, reply = std::move(reply)] {
      const int client = accept(listening_, nullptr, nullptr);
      char request[4];
      if (recv(client, request, sizeof request, MSG_WAITALL) > 0) {
        send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
      }
      // What is left unread must not turn the close into a reset.
      shutdown(client, SHUT_WR);
      char rest[4096];
      while (recv(client, rest, sizeof rest, 0) > 0) {
      }
      close(client);
    });
  }
  ~Impostor() {
    thread_.join();
    close(listening_);
  }
  Impostor(const Impostor&) = delete;
  Impostor& operator=(const Impostor&) = delete;

  static constexpr const char* path = "/dev/shm/impostor.socket";

 private:
  int listening_;
  std::thread thread_;
};

std::string complaintAbout(const std::string& reply,
                           const std::function<void(ControlChannel&)>& ask) {
  const Impostor impostor(reply);
  ControlChannel channel(Impostor::path, patience);
  try {
    ask(channel);
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

const std::string prefix = std::string(Impostor::path) + ": ";

void services(ControlChannel& channel) { channel.getServices(); }
void service(ControlChannel& channel) { channel.getCurrentService(); }
void event(ControlChannel& channel) { channel.getProgramEvent(); }
void descriptors(ControlChannel& channel) { channel.getNetworkDescriptors(); }

TEST(AgainstImpostors, ARepliesEndIsMissed) {
  const std::string whole = bytesOf(request(SI, 7));
  EXPECT_EQ(complaintAbout("", service), prefix + "the receiver has closed the connection");
  for (const std::size_t size : {1U, 12U, 1959U}) {
    EXPECT_EQ(complaintAbout(whole.substr(0, size), service),
              prefix + "the receiver has closed the connection in the middle of a reply");
  }
  EXPECT_EQ(complaintAbout(whole, service), "");
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, 3)) + bytesOf(request(SI, 6)), services),
            prefix + "the receiver has closed the connection");
}

TEST(AgainstImpostors, AnotherAnswerIsNamed) {
  EXPECT_EQ(complaintAbout(bytesOf(request(SI, 8)), service),
            prefix + "getCurrentService was answered with group 6, type 8");
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, 0)), service),
            prefix + "getCurrentService was answered with group 7, type 0");
  EXPECT_EQ(complaintAbout(bytesOf(request(SI, 6)), services),
            prefix + "getServices was answered with group 6, type 6 instead of a list");
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, 1)) + bytesOf(request(0, 0)), services),
            prefix + "the list of getServices is broken off by group 0, type 0");
}

TEST(AgainstImpostors, CountsAreBounded) {
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, -1)), services),
            prefix + "a list of -1 elements");
  EXPECT_EQ(
      complaintAbout(bytesOf(request(LIST_HEADER, INT32_MAX)) + bytesOf(request(SI, 6)), services),
      prefix + "a list of 2147483647 elements");
  message record = request(SI, 2);
  put(record, 12 + 800, std::int32_t{-5});
  put(record, 12 + 824, std::int32_t{1});
  EXPECT_EQ(complaintAbout(bytesOf(record), event), prefix + "a list of -5 elements");
  record = request(SI, 2);
  put(record, 12 + 812, std::int32_t{1});
  put(record, 12 + 836, std::int32_t{1});
  EXPECT_EQ(complaintAbout(bytesOf(record) + word(INT32_MAX), event),
            prefix + "a text of 2147483647 bytes");
  record = request(SI, 3);
  record[4] = INT32_MAX;
  record[5] = 1;
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, 1)) + bytesOf(record), descriptors),
            prefix + "a list of 2147483647 elements");
}

TEST(AgainstImpostors, ABrokenCommandIsNamed) {
  EXPECT_EQ(complaintAbout(bytesOf(request(LIST_HEADER, 3)) + bytesOf(request(DSMCC_COMMAND, 1)) +
                               bytesOf(request(MEDIA, 16)),
                           service),
            prefix + "the parts of a command are broken off by group 8, type 16");
  EXPECT_EQ(
      complaintAbout(bytesOf(request(LIST_HEADER, INT32_MAX)) + bytesOf(request(DSMCC_COMMAND, 1)),
                     service),
      prefix + "a command is too long");
  EXPECT_EQ(complaintAbout(bytesOf(request(SI, 7)),
                           [](ControlChannel& channel) {
                             channel.videoPropertyAction();
                             channel.waitForNotification(patience);
                           }),
            prefix + "group 6, type 7 came without a request");
}

TEST(AgainstImpostors, ASilentReceiverIsNotWaitedForForEver) {
  const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
  listenAt(listening, "/dev/shm/silent.socket");
  ControlChannel channel("/dev/shm/silent.socket", std::chrono::milliseconds(20));
  EXPECT_THROW(channel.getCurrentService(), TimeOut);
  // Nobody reads, either: sooner or later a request is not taken.
  EXPECT_THROW(
      {
        for (;;) channel.videoPropertyAction();
      },
      TimeOut);
  close(listening);
}

/// A server that sends drop after drop to its client for as long as that stays: one a millisecond,
/// or as many as the socket takes.
class Dripping {
 public:
  Dripping(std::string beginning, std::string drop, bool isFlood = false)
      : listening_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(path);
    listenAt(listening_, path);
    thread_ =
        std::thread([this, isFlood, beginning = std::move(beginning), drop = std::move(drop)] {
          const int client = accept(listening_, nullptr, nullptr);
          send(client, beginning.data(), beginning.size(), MSG_NOSIGNAL);
          while (send(client, drop.data(), drop.size(), MSG_NOSIGNAL) > 0) {
            if (!isFlood) poll(nullptr, 0, 1);
          }
          ::close(client);
        });
  }
  ~Dripping() {
    thread_.join();
    ::close(listening_);
  }
  Dripping(const Dripping&) = delete;
  Dripping& operator=(const Dripping&) = delete;

  static constexpr const char* path = "/dev/shm/dripping.socket";

 private:
  int listening_;
  std::thread thread_;
};

// Without an end of the whole, each of these would go on for hours.
TEST(AgainstImpostors, AReplyThatDripsEndsWithItsTimeLimit) {
  constexpr std::chrono::milliseconds limit(30);
  {
    const Dripping records(bytesOf(request(LIST_HEADER, 1 << 20)), bytesOf(message{}));
    ControlChannel channel(Dripping::path, limit);
    EXPECT_THROW(channel.getVideoLanguages(), TimeOut);
  }
  {
    const Dripping bytes("", "x");
    ControlChannel channel(Dripping::path, limit);
    EXPECT_THROW(channel.getCurrentService(), TimeOut);
  }
  {
    const Dripping bytes("", "x");
    ControlChannel channel(Dripping::path, limit);
    // What has begun to come has the time of any operation.
    EXPECT_THROW(channel.waitForNotification(std::chrono::seconds(1)), TimeOut);
  }
  {
    const Dripping bytes(word(1 << 20), "x");
    SectionFilterChannel channel(Dripping::path, limit);
    EXPECT_THROW(channel.read_section(limit), TimeOut);
  }
  {
    // Notifications are no answer.
    const Dripping notifications("", bytesOf(request(MEDIA, 16)));
    ControlChannel channel(Dripping::path, limit);
    EXPECT_THROW(channel.getCurrentService(), TimeOut);
  }
  {
    // However many there are: the socket is never empty.
    std::string piece;
    for (int index = 0; index < 64; ++index) piece += bytesOf(request(MEDIA, 16));
    const Dripping notifications("", piece, true);
    ControlChannel channel(Dripping::path, limit);
    EXPECT_THROW(channel.getCurrentService(), TimeOut);
  }
}

TEST(AgainstImpostors, AReplyFillsNoMemory) {
  constexpr std::int32_t size = 16 << 20;
  message record = request(SI, 2);
  put(record, 12 + 812, std::int32_t{5});
  put(record, 12 + 836, std::int32_t{1});
  std::string reply = bytesOf(record);
  for (int text = 0; text < 3; ++text) {
    reply += word(size) + std::string(static_cast<std::size_t>(size), 't');
  }
  EXPECT_EQ(complaintAbout(reply + word(size), event), prefix + "a reply is too long");
  // Small ones, which take more memory here than on their way.
  put(record, 12 + 812, std::int32_t{1 << 20});
  put(record, 12 + 816, std::int32_t{1 << 20});
  put(record, 12 + 840, std::int32_t{1});
  put(record, 12 + 820, std::int32_t{1 << 20});
  put(record, 12 + 844, std::int32_t{1});
  EXPECT_EQ(complaintAbout(bytesOf(record) + std::string(std::size_t{3} << 22U, '\0'), event),
            prefix + "a reply is too long");
}

TEST(AgainstImpostors, AReplyMayTakeWhatIsSaid) {
  message property{};
  property.group = quillwork::SYSTEM_PROPERTY;
  std::string list = bytesOf(request(LIST_HEADER, 1000));
  for (int index = 0; index < 1000; ++index) list += bytesOf(property);
  const auto ask = [&list](std::size_t limit) {
    const Impostor impostor(list);
    ControlChannel channel(Impostor::path, patience);
    channel.setReplyLimit(limit);
    return channel.getSystemProperties().size();
  };
  EXPECT_EQ(ask(2000 * sizeof(SystemProperty)), 1000U);
  EXPECT_THROW(ask(2000 * sizeof(SystemProperty) - 1), Error);
}

/// The most memory that the process has had at once, in bytes.
long mostMemory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss * 1024;
}

// The texts of the elements count, which are four times what the elements are without them.
TEST(AgainstImpostors, AListsTextsFillNoMemory) {
  message property{};
  property.group = quillwork::SYSTEM_PROPERTY;
  putShortString(property, 12, std::string(254, 'n'));
  putShortString(property, 267, std::string(254, 'v'));
  std::string piece;
  for (int index = 0; index < 64; ++index) piece += bytesOf(property);
  const Dripping properties(bytesOf(request(LIST_HEADER, 1 << 20)), piece, true);
  ControlChannel channel(Dripping::path, patience);
  const long before = mostMemory();
  EXPECT_THROW(channel.getSystemProperties(), Error);
  // A sanitizer, valgrind and an emulator keep books of their own.
  if (canLimitMemory()) {
    EXPECT_LT(mostMemory() - before, 128 << 20);
  }
}

TEST(AgainstImpostors, ASectionsCountIsBounded) {
  for (const std::int32_t count : {-1, INT32_MAX}) {
    const Impostor impostor(word(count));
    SectionFilterChannel channel(Impostor::path);
    EXPECT_THROW(channel.read_section(), Error);
  }
}

TEST(NoReceiver, IsSaidInOneLine) {
  try {
    const ControlChannel channel;
    FAIL();
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "/dev/shm/ipc.socket: no receiver is running");
  }
}

}  // namespace
