// Carousels, stream events and the service information of the captures, as the streams go on.

#include "receiver/DataBroadcast.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>

#include "receiver/CarouselMounts.h"
#include "receiver/EditingCommands.h"
#include "receiver/Source.h"
#include "receiver/bitstream.h"
#include "sample/carousel_sections.h"

namespace receiver {
namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

/// By the program that everybody has.
std::string sha256(const std::vector<std::uint8_t>& bytes) {
  const std::string path = "/dev/shm/hashed";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  std::FILE* const pipe = popen(("sha256sum " + path).c_str(), "r");
  char hash[65] = {};
  const bool isRead = std::fgets(hash, sizeof hash, pipe) != nullptr;
  pclose(pipe);
  return isRead ? hash : "";
}

std::string hex(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    constexpr char digits[] = "0123456789abcdef";
    text += {digits[byte >> 4U], digits[byte & 15U]};
  }
  return text;
}

/// A capture that is played to the receiver's parts packet by packet.
class OnAir : public testing::Test {
 protected:
  void SetUp() override {
    const char* const streams = std::getenv("QUILLWORK_STREAMS");
    if (streams == nullptr) GTEST_SKIP() << "QUILLWORK_STREAMS does not name the captures";
    directory = std::string(streams) + "/";
    data.onTree(
        [this](const CarouselPlace& place, const std::shared_ptr<const CarouselTree>& tree) {
          trees.emplace_back(place, tree);
          treeTimes.push_back(now());
        });
    data.onEvent([this](const std::string& name, const StreamEvent& event) {
      events.push_back(name + " " + std::to_string(event.id) + " " + hex(event.data));
      eventTimes.push_back(now());
    });
  }

  void open(const std::string& name) { source.emplace(directory + name + ".ts"); }
  Json json(const std::string& name) const {
    std::ifstream file(directory + name + ".json");
    return Json::parse(file);
  }

  /// Seconds since the first packet.
  [[nodiscard]] double now() const {
    return static_cast<double>(packets) * packetSize * 8 / bitRate;
  }
  /// Plays on to a time in seconds, or to the end.
  void playTo(double time) {
    while (now() < time) {
      const auto packet = source->next();
      if (!packet) break;
      ++packets;
      information.take(*packet);
      data.take(*packet);
    }
  }
  void play() { playTo(1e9); }

  static void expectTree(const CarouselTree& tree, const Json& expected) {
    std::set<std::string> paths;
    for (const auto& [path, entry] : expected.items()) {
      const auto found = tree.find(path);
      ASSERT_NE(found, tree.end()) << path;
      paths.insert(path);
      if (entry.contains("sha256")) {
        ASSERT_EQ(found->second.kind, CarouselObject::Kind::file) << path;
        EXPECT_EQ(found->second.content->size(), entry["size"].get<std::size_t>()) << path;
        EXPECT_EQ(sha256(*found->second.content), entry["sha256"].get<std::string>()) << path;
      } else if (entry.contains("stream_event_object")) {
        ASSERT_EQ(found->second.kind, CarouselObject::Kind::streamEvent) << path;
        Json pairs = Json::array();
        for (const auto& [name, id] : found->second.events) pairs.push_back({name, id});
        EXPECT_EQ(pairs, entry["stream_event_object"]) << path;
        EXPECT_EQ(found->second.componentTag, entry["association_tag"].get<int>()) << path;
      }
    }
    for (const auto& [path, object] : tree) {
      if (object.kind == CarouselObject::Kind::directory) continue;
      EXPECT_EQ(paths.count(path), 1U) << path;
    }
  }

  /// The objects of an expected file in the form that a time line has.
  static Json objects(const Json& expected, int pid) {
    Json tree;
    for (const Json& part : expected["dsmcc"]) {
      if (part["pid"] != pid) continue;
      for (const Json& object : part["objects"]) {
        Json& entry = tree[object["path"].get<std::string>()];
        if (object["kind"] == "ste") {
          entry["stream_event_object"] = Json::array();
          for (std::size_t index = 0; index < object["event_ids"].size(); ++index) {
            entry["stream_event_object"].push_back(
                {object["event_names"][index], object["event_ids"][index]});
          }
          entry["association_tag"] = object["taps"][0]["association_tag"];
        } else if (object["kind"] == "fil") {
          entry = {{"size", object["size"]}, {"sha256", object["sha256"]}};
        }
      }
    }
    return tree;
  }

  std::string directory;
  double bitRate = 1e6;
  std::uint64_t packets = 0;
  std::optional<FileSource> source;
  ServiceInformation information{std::nullopt};
  DataBroadcast data{information};
  std::vector<std::pair<CarouselPlace, std::shared_ptr<const CarouselTree>>> trees;
  std::vector<double> treeTimes;
  Words events;
  std::vector<double> eventTimes;
};

TEST_F(OnAir, ACompressedCarousel) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  open("oc-compressed");
  data.want({100, 10});
  play();
  ASSERT_EQ(trees.size(), 1U);
  expectTree(*trees[0].second, objects(json("oc-compressed.expected"), 1898));
}

TEST_F(OnAir, AnIsdbCarouselAndItsEvents) {
  bitRate = 300'000;
  open("made-isdbtb-a");
  data.want({51200, -1});
  play();
  ASSERT_EQ(trees.size(), 1U);
  expectTree(*trees[0].second, objects(json("made-isdbtb-a.expected"), 900));
  EXPECT_EQ(events, (Words{"inicio 1 696e6963696f21", "fim 2 66696d21"}));
  EXPECT_NEAR(eventTimes[0], 3, 0.5);
  EXPECT_NEAR(eventTimes[1], 8, 0.5);
}

TEST_F(OnAir, StreamEventsWithVersionsThatWrap) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  open("oc-streamevent");
  data.want({28186, 23});
  play();
  ASSERT_EQ(trees.size(), 1U);
  const Json expected = json("oc-streamevent.expected");
  expectTree(*trees[0].second, objects(expected, 5006));
  // Some come before the carousel is complete and have no name yet.
  const std::map<int, std::string> names = {{1, "testevent"}, {2, "badid"}};
  const Json* sections = nullptr;
  for (const Json& part : expected["dsmcc"]) {
    if (part["pid"] == 5007) sections = &part["stream_event_sections"];
  }
  ASSERT_NE(sections, nullptr);
  ASSERT_EQ(events.size(), sections->size());
  for (std::size_t index = 0; index < events.size(); ++index) {
    const Json& event = (*sections)[index]["descriptors"][0];
    const int id = event["event_id"];
    const std::string rest =
        " " + std::to_string(id) + " " + event["private_hex"].get<std::string>();
    const bool isNamed = eventTimes[index] > treeTimes[0];
    EXPECT_EQ(events[index], (isNamed ? names.at(id) : "") + rest);
  }
  EXPECT_LT(treeTimes[0], eventTimes.back());
}

TEST_F(OnAir, ACarouselThatNeverCompletesStaysPending) {
  open("dvbt-it-rai-mux");
  for (const int service : {3401, 3402, 3403}) data.want({service, -1});
  play();
  EXPECT_TRUE(trees.empty());
}

class Dynamic : public OnAir {
 protected:
  void SetUp() override {
    OnAir::SetUp();
    if (IsSkipped()) return;
    bitRate = 900'000;
    open("made-dynamic-a");
    timeLine = json("made-dynamic-a.timeline");
  }
  Json timeLine;
};

TEST_F(Dynamic, TheCarouselChanges) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  data.want({101, 65});
  playTo(17.9);
  ASSERT_EQ(trees.size(), 1U);
  expectTree(*trees[0].second, timeLine["carousel"]["from_0"]);
  EXPECT_EQ(trees[0].first, (CarouselPlace{101, 65}));
  play();
  ASSERT_EQ(trees.size(), 2U) << "each version is given out once";
  EXPECT_GT(treeTimes[1], 18);
  EXPECT_LT(treeTimes[1], 22);
  expectTree(*trees[1].second, timeLine["carousel"]["from_18"]);
  EXPECT_EQ(data.want({101, 65}), trees[1].second);
  EXPECT_EQ(data.want({102, -1}), nullptr);
}

TEST_F(Dynamic, StreamEventsComeOnceByNameAndTime) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  play();
  const std::map<int, std::string> names = {{1, "start"}, {2, "quiz.open"}, {5, "npt.mark"}};
  const Json& expected = timeLine["stream_events"];
  ASSERT_EQ(events.size(), expected.size());
  for (std::size_t index = 0; index < events.size(); ++index) {
    const int id = expected[index]["event_id"];
    const auto name = names.find(id);
    EXPECT_EQ(events[index], (name == names.end() ? "" : name->second) + " " + std::to_string(id) +
                                 " " + expected[index]["data_hex"].get<std::string>());
    const double time = expected[index].contains("at")
                            ? expected[index]["at"].get<double>()
                            : expected[index]["at_npt_s_after_start"].get<double>();
    // Its time references are ahead of its clock by 0.7 s.
    EXPECT_NEAR(eventTimes[index], time, expected[index].contains("at") ? 0.35 : 0.8);
  }
}

TEST_F(Dynamic, WhatBeginsAnewBringsItsEventsAgain) {
  playTo(7);
  EXPECT_EQ(events.size(), 1U);
  source->rewind();
  information.interrupted(false);
  data.interrupted(false);
  packets = 0;
  playTo(7);
  EXPECT_EQ(events.size(), 2U);
}

TEST_F(Dynamic, AnotherServiceHasOtherEvents) {
  information.selectService(102);
  play();
  EXPECT_TRUE(events.empty());
}

TEST_F(Dynamic, TheServiceInformationFollowsTheTimeLine) {
  const auto hasThird = [this] {
    for (const Service& service : information.services()) {
      if (service.id == 103) return service.isInPat && !service.name.empty();
    }
    return false;
  };
  const auto versionOfFirst = [this] {
    for (const ProgramMap& map : information.programMaps()) {
      if (map.program == 101) return std::pair(int{map.version}, map.components.size());
    }
    return std::pair(-1, std::size_t{0});
  };
  const auto presentEvent = [this] {
    for (const Event& event : information.events()) {
      if (event.service == 101 && event.tableId == 0x4e && event.section == 0) return int{event.id};
    }
    return -1;
  };
  // What changes is sent again after a while.
  constexpr double late = 2.5;
  playTo(late);
  for (const Json& step : timeLine["pmt_of_first_service"]) {
    if (step["from"] != 0) playTo(step["from"].get<double>() + late);
    EXPECT_EQ(versionOfFirst(),
              (std::pair(step["version"].get<int>(), step["streams"].get<std::size_t>())));
    EXPECT_EQ(presentEvent(), now() < 20 ? 1000 : 1001);
    EXPECT_EQ(hasThird(), now() > 24);
  }
  EXPECT_EQ(information.broadcastTime(), 1'773'511'200 + 32);
}

/// What no capture shows.
class Hard : public OnAir {
 protected:
  void SetUp() override {
    OnAir::SetUp();
    directory += "hard/";
    data.onEvent([this](const std::string& name, const StreamEvent& event) {
      events.push_back(name + " " + std::string(event.data.begin(), event.data.end()));
      if (name != "nclEditingCommand") return;
      if (const auto command = editing.take(event)) {
        commands.push_back(std::to_string(command->command_code) + " " + command->text);
      }
    });
  }

  /// The packet of a PAT or a map with the next version of its one section, which differs: the PAT
  /// has its two programs in the other order, a map another PID of the clock.
  static std::vector<std::uint8_t> withNextVersion(Packet packet) {
    std::vector<std::uint8_t> changed(packet.begin(), packet.end());
    std::uint8_t* const section = &changed[5];
    const unsigned version = (section[5] >> 1U & 31U) + 1;
    section[5] = static_cast<std::uint8_t>((section[5] & 0xc1U) | (version & 31U) << 1U);
    if (section[0] == 0) {
      std::swap_ranges(section + 8, section + 12, section + 12);
    } else {
      section[9] ^= 1U;
    }
    psi_set_crc(section);
    // One that is repeated would be a repeated packet.
    changed[3] = static_cast<std::uint8_t>((changed[3] & 0xf0U) | ((changed[3] + 1U) & 15U));
    return changed;
  }

  EditingCommands editing;
  Words commands;
};

TEST_F(Hard, ServicesThatShareAPidHaveTheSameCarousel) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  for (const std::vector<int>& order : {std::vector{100, 200}, std::vector{200, 100}}) {
    SetUp();
    open("shared-pid");
    trees.clear();
    for (const int service : order) data.want({service, 0x17});
    play();
    ASSERT_EQ(trees.size(), 2U);
    EXPECT_EQ(trees[0].second, trees[1].second);
    EXPECT_FALSE(trees[0].second->empty());
    EXPECT_NE(trees[0].first, trees[1].first);
    information.interrupted(true);
    data.interrupted(true);
  }
}

TEST_F(Hard, ASharedCarouselIsThereForTheServiceThatIsMountedLater) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  open("shared-pid");
  play();
  EXPECT_EQ(information.currentService(), 100);
  EXPECT_NE(data.want({100, -1}), nullptr);
  EXPECT_EQ(data.want({200, -1}), data.want({100, 0x17})) << "and no packet has come since";
  EXPECT_TRUE(trees.empty());
}

TEST_F(Hard, StreamEventsOnASharedPidGoOnForTheCurrentService) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  std::optional<Words> alone;
  for (const int current : {100, 200}) {
    for (const int mounted : {-1, 100, 200}) {
      information.selectService(current);
      open("shared-pid");
      events.clear();
      packets = 0;
      playTo(1);
      if (mounted != -1) data.want({mounted, -1});
      play();
      if (!alone) alone = events;
      EXPECT_GT(events.size(), 50U);
      EXPECT_EQ(events, *alone) << current << " with " << mounted;
      data.leave({mounted, -1});
      information.interrupted(true);
      data.interrupted(true);
    }
  }
}

TEST_F(Hard, NewMapsOfTheSameComponentsKeepWhatHasCome) {
  if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
  open("shared-pid");
  data.want({200, -1});
  play();
  ASSERT_EQ(trees.size(), 1U);
  const double complete = treeTimes[0];
  information.interrupted(true);
  data.interrupted(true);
  trees.clear();
  treeTimes.clear();
  source->rewind();
  packets = 0;
  const std::uint64_t generation = information.programGeneration();
  while (now() < complete) {
    const auto packet = source->next();
    ASSERT_TRUE(packet);
    ++packets;
    std::vector<std::vector<std::uint8_t>> all = {{packet->begin(), packet->end()}};
    const bool isTable = pidOf(*packet) == 0 || pidOf(*packet) == 256 || pidOf(*packet) == 257;
    if (isTable) all.push_back(withNextVersion(*packet));
    for (const auto& bytes : all) {
      information.take(Packet(bytes.data(), packetSize));
      data.take(Packet(bytes.data(), packetSize));
    }
  }
  EXPECT_GE(information.programGeneration(), generation + 6) << "three tables, twice each";
  ASSERT_EQ(trees.size(), 1U) << "as early as with one version of the tables";
}

TEST_F(Hard, EverySectionOfAVersionHasItsEvents) {
  open("event-sections");
  play();
  Words expected;
  for (const char version : {'0', '1', '2', '3', '4', '5'}) {
    expected.push_back(std::string(" first") + version);
    expected.push_back(std::string(" second") + version);
  }
  EXPECT_EQ(events, expected);
}

TEST_F(Hard, EditingCommandsAreTheDescriptorsPrivateData) {
  open("editing-commands");
  play();
  EXPECT_EQ(commands, (Words{"5 base,doc",
                             "11 " + std::string(200, 'a') + std::string(200, 'b') + "c", "6 "}));
  ASSERT_EQ(events.size(), 6U);
  EXPECT_EQ(events.back(), "other not a command");
}

// Locators and directories.

/// Plays a section on a PID in packets of its own.
class Played {
 public:
  Played(ServiceInformation& information, DataBroadcast& data)
      : information_(information), data_(data) {}

  void operator()(std::uint16_t pid, const Section& section) {
    Section bytes{0};
    bytes.insert(bytes.end(), section.begin(), section.end());
    for (std::size_t begin = 0; begin < bytes.size(); begin += payload) {
      std::vector<std::uint8_t> packet(packetSize, 0xff);
      packet[0] = 0x47;
      packet[1] = static_cast<std::uint8_t>((begin == 0 ? 0x40U : 0U) | pid >> 8U);
      packet[2] = static_cast<std::uint8_t>(pid);
      packet[3] = static_cast<std::uint8_t>(0x10U | (counters_[pid]++ & 15U));
      const std::size_t size = std::min(payload, bytes.size() - begin);
      std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(begin), size, packet.begin() + 4);
      information_.take(Packet(packet.data(), packetSize));
      data_.take(Packet(packet.data(), packetSize));
    }
  }

 private:
  static constexpr std::size_t payload = packetSize - 4;

  ServiceInformation& information_;
  DataBroadcast& data_;
  std::map<std::uint16_t, unsigned> counters_;
};

Section withCrc(Section section) {
  section.resize(section.size() + 4);
  psi_set_crc(section.data());
  return section;
}

// Each name is an event of its own: a carousel with thousands for one id would multiply what one
// section brings.
TEST(StreamEventNames, AreSixteenAtMostForOneId) {
  ServiceInformation information{std::nullopt};
  DataBroadcast data(information);
  Words names;
  data.onEvent([&](const std::string& name, const StreamEvent&) { names.push_back(name); });
  Played play(information, data);
  // A PAT with program 100 on PID 0x100.
  play(0, withCrc({0x00, 0xb0, 0x0d, 0x00, 0x01, 0xc1, 0x00, 0x00, 0x00, 0x64, 0xe1, 0x00}));
  // Its map: the carousel 1 on PID 0x200 with tag 0x17, sections on PID 0x201 with tag 0x13.
  play(0x100, withCrc({0x02, 0xb0, 0x24, 0x00, 0x64, 0xc1, 0x00, 0x00, 0xff, 0xff, 0xf0, 0x00,
                       0x0b, 0xe2, 0x00, 0xf0, 0x0a, 0x52, 0x01, 0x17, 0x13, 0x05, 0x00, 0x00,
                       0x00, 0x01, 0x00, 0x0d, 0xe2, 0x01, 0xf0, 0x03, 0x52, 0x01, 0x13}));
  data.want({100, 0x17});
  CarouselTree tree;
  CarouselObject& events = tree["/events"];
  events.kind = CarouselObject::Kind::streamEvent;
  events.componentTag = 0x13;
  for (char letter = 'a'; letter <= 't'; ++letter)
    events.events.emplace_back(std::string(1, letter), 7);
  for (const Section& section : sample::carouselSections(1, 0, tree)) play(0x200, section);
  // Event 7 at once, without data.
  play(0x201, withCrc({0x3d, 0xb0, 0x15, 0x00, 0x01, 0xc1, 0x00, 0x00, 0x1a, 0x0a,
                       0x00, 0x07, 0xff, 0xff, 0xff, 0xfe, 0x00, 0x00, 0x00, 0x00}));
  ASSERT_EQ(names.size(), 16U);
  EXPECT_EQ(names.front(), "a");
  EXPECT_EQ(names.back(), "p");
}

TEST(Locators, AreNumbersInHexadecimal) {
  const auto parsed = CarouselLocator::parse("dvb://ff01.1001.65.41");
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->originalNetwork, 0xff01);
  EXPECT_EQ(parsed->transportStream, 0x1001);
  EXPECT_EQ(parsed->place, (CarouselPlace{0x65, 0x41}));
  EXPECT_EQ(CarouselLocator::parse("dvb://..65")->place, (CarouselPlace{0x65, -1}));
  EXPECT_EQ(CarouselLocator::parse("dvb://..65")->transportStream, -1);
  for (const char* const wrong :
       {"", "dvb://", "dvb://65", "dvb://1.2", "dvb://1.2.", "dvb://1.2.3.", "dvb://1.2.3.4.5",
        "dvb://1.2.x", "dvb://1.2.-3", "dvb:/1.2.3", "http://1.2.3", "dvb://1.2.100000000"}) {
    EXPECT_FALSE(CarouselLocator::parse(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace receiver
