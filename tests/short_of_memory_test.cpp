// Memory is short for a moment: each allocation in turn is refused, once. Afterwards the receiver
// knows what it knows where none was refused.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "receiver/DataBroadcast.h"
#include "receiver/SectionStore.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamFile.h"
#include "receiver/Text.h"
#include "sample/carousel_sections.h"
#include "support/RefusingNew.h"

namespace {

constexpr int unlimited = std::numeric_limits<int>::max();
// How many more allocations the calling thread gets before one is refused.
thread_local int allowance = unlimited;

/// Refuses one allocation of a scope: the first one behind so many.
class OneRefusal {
 public:
  explicit OneRefusal(int behind) { allowance = behind; }
  ~OneRefusal() { allowance = unlimited; }
  OneRefusal(const OneRefusal&) = delete;
  OneRefusal& operator=(const OneRefusal&) = delete;
  /// Whether it has come.
  static bool hasCome() { return allowance == unlimited; }
};

}  // namespace

bool isRefused() {
  if (allowance == unlimited || allowance-- > 0) return false;
  allowance = unlimited;
  return true;
}

namespace receiver {
namespace {

/// Calls `test(number)` with the number of each allocation, or of every so many-th, until it
/// returns false: there is none with that number any more.
template <class Test>
void withEachRefusal(int stride, Test&& test) {
  int number = 0;
  while (test(number)) number += stride;
  EXPECT_GT(number, 0) << "nothing was refused";
}

/// Goes on where memory has run out, as the stream's player does.
template <class Call>
bool attempt(Call&& call) {
  try {
    call();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

Section section(std::uint8_t tableId, std::uint16_t extension, const sample::ByteBuilder& body,
                std::uint8_t number = 0, std::uint8_t last = 0) {
  return sample::longSection(tableId, extension, 0, number, last, body);
}

/// What a store holds, with its bookkeeping.
auto contentOf(const SectionStore& store) {
  std::vector<std::pair<SubTable, Section>> sections;
  store.forEach([&](const SubTable& table, const Section& section) {
    sections.emplace_back(table, section);
  });
  return std::tuple(std::move(sections), store.bytes(), store.puts());
}

std::size_t countSubTables(SectionStore& store) {
  std::size_t count = 0;
  store.eraseIf([&](const SubTable&, std::uint64_t) {
    ++count;
    return false;
  });
  return count;
}

TEST(ShortOfMemory, ASectionThatCannotBeKeptLeavesTheStoreAsItWas) {
  const SubTable known{16, 0x40, 1, 0};
  const SubTable unknown{17, 0x42, 1, 0};
  const auto body = sample::ByteBuilder().number(1, 8);
  const auto other = sample::ByteBuilder().number(2, 8);
  const std::pair<SubTable, Section> puts[] = {
      {known, section(0x40, 1, other, 0, 1)},  // other content
      {known, section(0x40, 1, body, 1, 1)},   // another number
      {unknown, section(0x42, 1, body)}};      // another sub-table
  for (const auto& [table, bytes] : puts) {
    withEachRefusal(1, [&, &itsTable = table, &itsBytes = bytes](int number) {
      SectionStore store(10'000);
      store.put(known, section(0x40, 1, body, 0, 1), {});
      const auto before = contentOf(store);
      {
        const OneRefusal refusal(number);
        if (attempt([&] { store.put(itsTable, itsBytes, {}); })) return false;
      }
      EXPECT_EQ(contentOf(store), before) << "allocation " << number;
      EXPECT_EQ(countSubTables(store), 1U) << "allocation " << number;
      EXPECT_TRUE(store.put(itsTable, itsBytes, {}).isNew) << "allocation " << number;
      return true;
    });
  }
}

using Packets = std::vector<std::uint8_t>;

/// Hands the packets to `take`.
template <class Take>
void play(const Packets& packets, Take&& take) {
  for (std::size_t begin = 0; begin < packets.size(); begin += packetSize) {
    attempt([&] { take(Packet(packets.data() + begin, packetSize)); });
  }
}

/// The packets of a file on some PIDs, or on all.
Packets packetsOf(const char* path, const std::set<std::uint16_t>& pids = {}) {
  StreamFile file(path);
  Packets packets;
  while (const auto packet = file.next()) {
    if (!pids.empty() && !pids.contains(pidOf(*packet))) continue;
    packets.insert(packets.end(), packet->begin(), packet->end());
  }
  return packets;
}

/// The services, programs, events and networks as lines.
std::string textOf(const ServiceInformation& information) {
  std::ostringstream text;
  text << "stream " << information.transportStreamId() << " version " << information.patVersion()
       << " service " << information.currentService() << '\n';
  for (const Service& service : information.services()) {
    text << "service " << service.id << ' ' << service.name << ' ' << service.isInPat << '\n';
  }
  for (const Event& event : information.events()) {
    text << "event " << event.service << ' ' << event.id << ' ' << event.name << '\n';
  }
  for (const auto& networks : {information.networks(), information.bouquets()}) {
    for (const Network& network : networks) {
      text << "network " << network.name << ' ' << network.transportStreams.size() << '\n';
    }
  }
  for (const int system : information.caSystems()) text << "CA system " << system << '\n';
  return text.str();
}

std::string textOf(const std::vector<ProgramMap>& maps) {
  std::ostringstream text;
  for (const ProgramMap& map : maps) {
    text << "program " << map.program << ' ' << map.pcrPid << ' ' << map.components.size() << '\n';
  }
  return text.str();
}

/// Service information, and somebody who reads the programs when they are said to have changed.
class Information {
 public:
  void play(const Packets& packets) {
    receiver::play(packets, [this](Packet packet) {
      information_.take(packet);
      follow();
    });
  }
  [[nodiscard]] std::string text() const { return textOf(information_) + textOf(maps_); }

 private:
  void follow() {
    const std::uint64_t generation = information_.programGeneration();
    if (generation == generation_) return;
    maps_ = information_.programMaps();
    generation_ = generation;
  }

  const std::chrono::steady_clock::time_point now_{};
  ServiceInformation information_{std::nullopt, [this] { return now_; }};
  std::uint64_t generation_ = 0;
  std::vector<ProgramMap> maps_;
};

/// Whether the information recovers from each refusal while `first` is played, by `then`.
void expectInformationRecovers(const Packets& first, const Packets& then, int stride) {
  Information undisturbed;
  undisturbed.play(first);
  undisturbed.play(then);
  const std::string expected = undisturbed.text();
  withEachRefusal(stride, [&](int number) {
    Information information;
    bool hasCome = false;
    {
      const OneRefusal refusal(number);
      information.play(first);
      hasCome = OneRefusal::hasCome();
    }
    information.play(then);
    EXPECT_EQ(information.text(), expected) << "allocation " << number;
    return hasCome;
  });
}

TEST(ShortOfMemory, TheServicesOfTheSampleAreThereAfterwards) {
  const Packets sample = packetsOf(TABLES);
  expectInformationRecovers(sample, sample, TEST_STRIDE);
}

/// Packets with a section each.
class Broadcast {
 public:
  void add(std::uint16_t pid, const Section& section) {
    Packets packet{syncByte, static_cast<std::uint8_t>(0x40U | pid >> 8U),
                   static_cast<std::uint8_t>(pid),
                   static_cast<std::uint8_t>(0x10U | (counters_[pid]++ & 15U)), 0};
    packet.insert(packet.end(), section.begin(), section.end());
    packet.resize(packetSize, 0xff);
    packets_.insert(packets_.end(), packet.begin(), packet.end());
  }
  void addPat(std::uint16_t stream, std::initializer_list<std::uint16_t> programs) {
    Bytes body;
    for (const std::uint16_t program : programs) {
      body.number(program, 2).number(0xe000U | mapPid(program), 2);
    }
    add(0, section(0x00, stream, body));
  }
  /// A map with pictures.
  void addMap(std::uint16_t program) {
    add(mapPid(program),
        section(0x02, program, Bytes().number(0xe101f000, 4).number(0x02e102f000, 5)));
  }
  /// The name has a letter in the character table that addNetwork() tells.
  void addName(std::uint16_t stream, std::uint16_t service) {
    add(0x11, section(0x42, stream,
                      Bytes()
                          .number(0x0001ff, 3)
                          .number(service, 2)
                          .number(0xfc8006, 3)
                          .number(0x4804010001e9, 6)));
  }
  /// With the delivery of ISDB.
  void addNetwork(std::uint16_t stream) {
    add(0x10, section(0x40, 1,
                      Bytes()
                          .number(0xf000f00c, 4)
                          .number(stream, 2)
                          .number(1, 2)
                          .number(0xf006fa04, 4)
                          .number(0, 4)));
  }
  void addStream(std::uint16_t stream, std::uint16_t program) {
    addPat(stream, {program});
    addMap(program);
    addName(stream, program);
    addNetwork(stream);
  }
  /// What has been added since the last call.
  Packets packets() { return std::exchange(packets_, {}); }

 private:
  using Bytes = sample::ByteBuilder;
  static std::uint16_t mapPid(std::uint16_t program) { return program; }

  Packets packets_;
  std::map<std::uint16_t, std::uint8_t> counters_;
};

TEST(ShortOfMemory, TheTextsAreReadInTheNetworksCharacterTable) {
  try {
    CharacterTable::named("ISO-8859-9");
  } catch (const std::invalid_argument&) {
    GTEST_SKIP() << "no character-set modules for this processor";
  }
  Broadcast stream;
  stream.addStream(5, 500);
  const Packets first = stream.packets();
  Information undisturbed;
  undisturbed.play(first);
  EXPECT_NE(undisturbed.text().find("service 500 é"), std::string::npos) << undisturbed.text();
  stream.addStream(5, 500);
  expectInformationRecovers(first, stream.packets(), 1);
}

TEST(ShortOfMemory, AnotherStreamIsFollowed) {
  Broadcast stream;
  stream.addStream(5, 500);
  stream.addStream(5, 500);
  stream.addStream(6, 600);
  const Packets first = stream.packets();
  stream.addStream(6, 600);
  expectInformationRecovers(first, stream.packets(), 1);
}

TEST(ShortOfMemory, AProgramThatHasGoneIsMissed) {
  Broadcast stream;
  stream.addPat(5, {500, 501});
  stream.addMap(500);
  stream.addMap(501);
  stream.addPat(5, {500});
  const Packets first = stream.packets();
  stream.addPat(5, {500});
  stream.addMap(500);
  expectInformationRecovers(first, stream.packets(), 1);
}

/// What the receiver's parts make of a stream.
class Data {
 public:
  Data() {
    data_.onTree([this](const CarouselPlace& place, std::shared_ptr<const CarouselTree> tree) {
      trees[place] = std::move(tree);
    });
    data_.onEvent([this](const std::string& name, const StreamEvent& event) {
      events.push_back(name + " " + std::to_string(event.id) + " " +
                       std::string(event.data.begin(), event.data.end()));
    });
  }

  void select(int service) { information_.selectService(service); }
  void want() {
    for (const CarouselPlace& place : places) data_.want(place);
  }

  void play(const Packets& packets) {
    receiver::play(packets, [this](Packet packet) {
      attempt([&] { information_.take(packet); });
      data_.take(packet);
    });
  }
  /// What comes next is the beginning once more. Needs no memory.
  void beginAgain() {
    events.clear();
    information_.interrupted(false);
    data_.interrupted(false);
  }

  static constexpr CarouselPlace places[] = {{1001, 0x40}, {1001, -1}};
  std::map<CarouselPlace, std::shared_ptr<const CarouselTree>> trees;
  /// Since the beginning.
  std::vector<std::string> events;

 private:
  const std::chrono::steady_clock::time_point now_{};
  ServiceInformation information_{std::nullopt, [this] { return now_; }};
  DataBroadcast data_{information_};
};

/// The PAT, the first program's map, its carousel and its stream events. Only the first half: then
/// the carousel changes, and a tree that was lost would be followed by another one.
Packets sampleOfData() {
  Packets sample = packetsOf(SAMPLE, {0, 0x100, 0x710, 0x711});
  sample.resize(sample.size() / packetSize / 2 * packetSize);
  return sample;
}

TEST(ShortOfMemory, TheCarouselsAndStreamEventsOfTheSampleAreThereAfterwards) {
  const Packets sample = sampleOfData();
  Data undisturbed;
  undisturbed.want();
  undisturbed.play(sample);
  undisturbed.beginAgain();
  undisturbed.play(sample);
  ASSERT_EQ(undisturbed.trees.size(), std::size(Data::places));
  ASSERT_FALSE(undisturbed.events.empty());
  for (const bool isFirst : {true, false}) {
    withEachRefusal(TEST_STRIDE, [&](int number) {
      SCOPED_TRACE("allocation " + std::to_string(number));
      Data data;
      data.want();
      if (!isFirst) data.play(sample);
      bool hasCome = false;
      {
        const OneRefusal refusal(number);
        if (!isFirst) data.beginAgain();
        data.play(sample);
        hasCome = OneRefusal::hasCome();
      }
      data.play(sample);
      EXPECT_EQ(data.trees.size(), undisturbed.trees.size());
      for (const auto& [place, tree] : data.trees) EXPECT_EQ(*tree, *undisturbed.trees.at(place));
      data.beginAgain();
      data.play(sample);
      EXPECT_EQ(data.events, undisturbed.events);
      return hasCome;
    });
  }
}

TEST(ShortOfMemory, WhatIsWantedOfAnotherServiceComesAfterwards) {
  const Packets sample = sampleOfData();
  withEachRefusal(1, [&](int number) {
    Data data;
    data.select(1002);
    data.play(sample);
    bool hasCome = false;
    {
      const OneRefusal refusal(number);
      attempt([&] { data.want(); });
      hasCome = OneRefusal::hasCome();
    }
    data.play(sample);
    // The first allocation is for what is wanted itself.
    EXPECT_EQ(data.trees.empty(), number == 0) << "allocation " << number;
    return hasCome;
  });
}

}  // namespace
}  // namespace receiver
