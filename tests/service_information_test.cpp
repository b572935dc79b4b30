// The service information of streams that are written by hand, byte by byte, and of streams that
// were made by nothing of ours.

#include "receiver/ServiceInformation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "receiver/Source.h"
#include "receiver/Text.h"

namespace receiver {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

/// Bytes as pairs of hexadecimal digits; blanks part them.
Bytes bytes(std::string_view digits) {
  Bytes list;
  std::string pair;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    pair += digit;
    if (pair.size() < 2) continue;
    list.push_back(static_cast<std::uint8_t>(std::stoi(pair, nullptr, 16)));
    pair.clear();
  }
  return list;
}

/// ISO/IEC 13818-1, annex A.
std::uint32_t checksum(const Bytes& data) {
  std::uint32_t crc = 0xffffffff;
  for (const std::uint8_t byte : data) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      const bool isSet = (crc >> 31U & 1U) != (byte >> (7U - bit) & 1U);
      crc = crc << 1U ^ (isSet ? 0x04c11db7U : 0U);
    }
  }
  return crc;
}

/// A section of the long form: what stands behind its length, which is put in front, with the CRC
/// behind.
Bytes section(std::uint8_t tableId, const Bytes& content) {
  const std::size_t length = content.size() + 4;
  Bytes all{tableId, static_cast<std::uint8_t>(0xb0U | length >> 8U),
            static_cast<std::uint8_t>(length)};
  all.insert(all.end(), content.begin(), content.end());
  const std::uint32_t crc = checksum(all);
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    all.push_back(static_cast<std::uint8_t>(crc >> shift));
  }
  return all;
}

Bytes section(std::uint8_t tableId, std::string_view digits) {
  return section(tableId, bytes(digits));
}

/// One stream, on air for as long as the test says.
class Broadcast : public testing::Test {
 protected:
  void send(std::uint16_t pid, const Bytes& section) {
    for (std::size_t begin = 0; begin < section.size();) {
      std::array<std::uint8_t, packetSize> packet;
      packet.fill(0xff);
      const bool isFirst = begin == 0;
      const std::size_t header = isFirst ? 5 : 4;
      packet[0] = syncByte;
      packet[1] = static_cast<std::uint8_t>((isFirst ? 0x40U : 0U) | pid >> 8U);
      packet[2] = static_cast<std::uint8_t>(pid);
      packet[3] = static_cast<std::uint8_t>(0x10U | (counters_[pid]++ & 15U));
      if (isFirst) packet[4] = 0;
      const std::size_t size = std::min(section.size() - begin, packetSize - header);
      std::copy_n(section.begin() + static_cast<std::ptrdiff_t>(begin), size,
                  packet.begin() + static_cast<std::ptrdiff_t>(header));
      begin += size;
      information.take(Packet(packet));
    }
  }

  /// Transport stream 5 with program 100, whose map is on PID 256.
  void sendPat() { send(0, section(0x00, "0005 c1 00 00 0064 e100")); }
  /// An EIT of the actual stream with one event.
  void sendEvent(std::uint16_t service, std::uint8_t number, std::size_t size = 0,
                 std::uint8_t table = 0x50) {
    Bytes content{static_cast<std::uint8_t>(service >> 8U),
                  static_cast<std::uint8_t>(service),
                  0xc1,
                  number,
                  number,
                  0,
                  5,
                  0,
                  1,
                  number,
                  table};
    const std::size_t loop = size;
    const Bytes event = bytes("0001 ea60 120000 010000");
    content.insert(content.end(), event.begin(), event.end());
    content.push_back(static_cast<std::uint8_t>(0x80U | loop >> 8U));
    content.push_back(static_cast<std::uint8_t>(loop));
    for (std::size_t left = loop; left > 0;) {
      const std::size_t data = std::min<std::size_t>(left - 2, 250);
      content.push_back(0x42);
      content.push_back(static_cast<std::uint8_t>(data));
      content.resize(content.size() + data, static_cast<std::uint8_t>(service));
      left -= 2 + data;
    }
    send(0x12, section(table, content));
  }

  [[nodiscard]] std::vector<int> services() const {
    std::vector<int> list;
    for (const Service& service : information.services()) list.push_back(service.id);
    return list;
  }

  std::chrono::steady_clock::time_point now{};
  ServiceInformation information{std::nullopt, [this] { return now; }};

 private:
  std::map<std::uint16_t, std::uint8_t> counters_;
};

using Numbers = std::vector<int>;

/// A NIT of network 1 whose stream 5 has the descriptors.
Bytes networkWith(std::string_view descriptors) {
  Bytes content = bytes("0001 c1 00 00 f000 f000 0005 0001 f000");
  const Bytes loop = bytes(descriptors);
  content[8] = static_cast<std::uint8_t>(6 + loop.size());
  content[14] = static_cast<std::uint8_t>(loop.size());
  content.insert(content.end(), loop.begin(), loop.end());
  return section(0x40, content);
}

TEST_F(Broadcast, AListOfChannelNumbersIsOneByThePrivateDataSpecifierBeforeIt) {
  const struct {
    std::string_view descriptors;
    int number;
  } rows[] = {
      {"8304 0064 fc07", 7},                     // none, as in Italy
      {"5f04 00000028 8304 0064 fc07", 7},       // EICTA
      {"5f04 0000233a 8304 0064 fc07", 7},       // the United Kingdom's regulator
      {"5f04 00003201 8304 0064 fc07", 7},       // Australia's
      {"5f04 00000029 8304 0064 d007", 0x1007},  // NorDig, with 14 bits
      {"5f04 00000002 8304 0064 fc07", -1},      // a broadcaster's own meaning
      {"5f04 000000c0 8304 0064 fc07", -1},
      {"5f04 00000002 8304 0064 fc08 5f04 00000028 8304 0064 fc07", 7},
  };
  for (const auto& row : rows) {
    send(0x10, networkWith(row.descriptors));
    const auto networks = information.networks();
    ASSERT_EQ(networks.size(), 1U);
    ASSERT_EQ(networks[0].transportStreams.size(), 1U) << row.descriptors;
    const auto& numbers = networks[0].transportStreams[0].channelNumbers;
    const auto found = numbers.find(100);
    EXPECT_EQ(found == numbers.end() ? -1 : found->second, row.number) << row.descriptors;
  }
}

TEST_F(Broadcast, SoundInPrivatePacketsIsKnownByItsDescriptor) {
  sendPat();
  // MPEG-2 pictures; MPEG-1 sound; then private packets: AC-3, enhanced AC-3, DTS, AAC, subtitles,
  // teletext, and AC-3 behind a language; a carousel.
  send(256, section(0x02,
                    "0064 c1 00 00 e101 f000"
                    " 02 e101 f000  03 e102 f000"
                    " 06 e103 f003 6a 01 00  06 e104 f003 7a 01 00"
                    " 06 e105 f007 7b 05 0000000000  06 e106 f003 7c 01 58"
                    " 06 e107 f00a 59 08 656e67 10 0001 0001  06 e108 f007 56 05 656e67 09 00"
                    " 06 e109 f009 0a 04 667261 00 6a 01 00  0b e10a f000"));
  const auto maps = information.programMaps();
  ASSERT_EQ(maps.size(), 1U);
  Numbers sound;
  Numbers pictures;
  for (const Component& component : maps[0].components) {
    if (component.isAudio()) sound.push_back(component.pid);
    if (component.isVideo()) pictures.push_back(component.pid);
  }
  EXPECT_EQ(sound, (Numbers{0x102, 0x103, 0x104, 0x105, 0x106, 0x109}));
  EXPECT_EQ(pictures, Numbers{0x101});
  EXPECT_EQ(maps[0].components.at(8).language, "fra");
}

TEST_F(Broadcast, WhatLooksLikeATableOnAnotherPidIsNone) {
  sendPat();
  const Bytes map = section(0x02, "0064 c1 00 00 e101 f000");
  send(257, map);
  EXPECT_TRUE(information.programMaps().empty());
  // A PAT and an SDT on the program map's PID.
  send(256, section(0x00, "0006 c1 00 00 00c8 e101"));
  send(256, section(0x42, "0005 c1 00 00 0001 ff 00c8 fc 8000"));
  send(256, bytes("70 70 05 ea60 120000"));
  EXPECT_EQ(information.transportStreamId(), 5);
  EXPECT_EQ(services(), Numbers{100});
  EXPECT_FALSE(information.broadcastTime());
  send(256, map);
  EXPECT_EQ(information.programMaps().size(), 1U);
}

TEST_F(Broadcast, ATimeThatIsNoneChangesNothing) {
  send(0x14, bytes("70 70 05 ea60 120000"));
  const auto time = information.broadcastTime();
  ASSERT_TRUE(time);
  for (const char* const none : {"ea60 1a0000", "ea60 126f00", "ea60 250000", "ffff ffffff"}) {
    send(0x14, bytes(std::string("70 70 05 ") + none));
    EXPECT_EQ(information.broadcastTime(), time) << none;
  }
}

TEST_F(Broadcast, AnotherStreamTakesThePlaceOfTheOneBefore) {
  sendPat();
  send(1, section(0x01, "ffff c1 00 00 09 04 0b00 e1f0"));
  send(0x10, networkWith(""));
  send(0x11, section(0x42, "0005 c1 00 00 0001 ff 0064 fc 8000"));
  send(0x11, section(0x46, "0009 c1 00 00 0001 ff 012c fc 8000"));
  send(256, section(0x02, "0064 c1 00 00 e101 f000"));
  sendEvent(100, 0);
  sendPat();
  EXPECT_EQ(services(), (Numbers{100, 300}));
  // What says itself that it belongs to the next stream may come before its PAT.
  send(0x11, section(0x42, "0006 c1 00 00 0001 ff 00c8 fc 8000"));
  send(0, section(0x00, "0006 c1 00 00 00c8 e100"));
  EXPECT_EQ(information.transportStreamId(), 6);
  EXPECT_EQ(services(), (Numbers{200, 300}));
  EXPECT_TRUE(information.programMaps().empty());
  EXPECT_TRUE(information.networks().empty());
  EXPECT_TRUE(information.caSystems().empty());
  EXPECT_EQ(information.eventCount(), 0U);
  // And back to the lower number.
  sendPat();
  EXPECT_EQ(information.transportStreamId(), 5);
  EXPECT_EQ(services(), (Numbers{100, 300}));
}

TEST_F(Broadcast, WhatDoesNotComeAnyMoreExpires) {
  sendPat();
  send(256, section(0x02, "0064 c1 00 00 e101 f000"));
  send(0x11, section(0x42, "0005 c1 00 00 0001 ff 0064 fc 8000"));
  sendEvent(100, 0);
  sendEvent(101, 0);
  const auto pass = [&](std::chrono::seconds time) {
    for (; time > 0s; time -= 1s) {
      now += 1s;
      sendEvent(101, 0);
    }
  };
  pass(ServiceInformation::maxAge);
  EXPECT_EQ(information.eventCount(), 2U);
  EXPECT_GE(information.services().at(0).originalNetwork, 0);
  pass(1s);
  EXPECT_EQ(information.eventCount(), 1U);
  EXPECT_EQ(information.services().at(0).originalNetwork, -1) << "the SDT has gone, the PAT stays";
  EXPECT_EQ(information.programMaps().size(), 1U);
}

TEST_F(Broadcast, AnInterruptionMakesNothingOld) {
  sendEvent(100, 0);
  now += 24h;
  sendEvent(101, 0);
  EXPECT_EQ(information.eventCount(), 2U);
}

// 339 events of 12 bytes fill a section: a reply about them takes a hundred times their bytes.
TEST_F(Broadcast, AFloodOfEventsWithoutDescriptorsIsBounded) {
  constexpr std::size_t eachSection = 339;
  const Bytes event = bytes("0001 ea60 120000 010000 8000");
  Bytes content(11 + eachSection * event.size());
  for (std::size_t index = 0; index < eachSection; ++index) {
    std::ranges::copy(event,
                      content.begin() + static_cast<std::ptrdiff_t>(11 + index * event.size()));
  }
  constexpr std::size_t mostEvents = std::size_t{100} << 10U;
  for (unsigned index = 0; index < 2 * mostEvents / eachSection; ++index) {
    const auto number = static_cast<std::uint8_t>(index);
    const Bytes head{static_cast<std::uint8_t>(index >> 8U),
                     100,
                     0xc1,
                     number,
                     number,
                     0,
                     5,
                     0,
                     1,
                     number,
                     0x50};
    std::ranges::copy(head, content.begin());
    send(0x12, section(0x50, content));
  }
  EXPECT_GT(information.eventCount(), mostEvents / 2);
  EXPECT_LT(information.eventCount(), mostEvents);
}

TEST_F(Broadcast, AFloodOfEventsIsBoundedAndLeavesTheRest) {
  sendPat();
  send(0x11, section(0x42, "0005 c1 00 00 0001 ff 0064 fc 8000"));
  sendEvent(100, 0, 0, 0x4e);
  constexpr std::size_t size = 4000;
  constexpr std::size_t sections = ServiceInformation::maxEventBytes / size + 500;
  for (std::size_t index = 0; index < sections; ++index) {
    sendEvent(static_cast<std::uint16_t>(1000 + index / 256), static_cast<std::uint8_t>(index),
              size);
    // What is repeated stays.
    if (index % 100 == 0) sendEvent(100, 0, 0, 0x4e);
  }
  std::size_t bytesThere = 0;
  bool hasPresent = false;
  bool hasFirst = false;
  bool hasLast = false;
  for (const Event& event : information.events()) {
    for (const Descriptor& descriptor : event.descriptors) bytesThere += descriptor.data.size();
    hasPresent = hasPresent || event.tableId == 0x4e;
    hasFirst = hasFirst || (event.service == 1000 && event.section == 0);
    hasLast = hasLast || event.service == 1000 + (sections - 1) / 256;
  }
  EXPECT_LT(bytesThere, ServiceInformation::maxEventBytes);
  EXPECT_GT(bytesThere, ServiceInformation::maxEventBytes / 10 * 8);
  EXPECT_TRUE(hasPresent);
  EXPECT_FALSE(hasFirst) << "the oldest go";
  EXPECT_TRUE(hasLast);
  EXPECT_EQ(services(), Numbers{100});
}

TEST_F(Broadcast, ReceptionGoesOnWhileEventsAreRead) {
  sendPat();
  for (std::uint16_t service = 100; service < 110; ++service) sendEvent(service, 0);
  std::size_t read = 0;
  // Whoever held the lock would wait for himself.
  information.forEachEvent(
      [&](const Event& event) {
        sendEvent(static_cast<std::uint16_t>(event.service + 100), 0);
        return true;
      },
      [&](Event&&) {
        sendPat();
        ++read;
      });
  EXPECT_EQ(read, 10U);
  EXPECT_EQ(information.eventCount(), 20U);
}

// Sections by themselves.

Section ofTable(std::uint8_t tableId, std::uint8_t number, std::uint8_t last) {
  return section(tableId, {0, 1, 0xc1, number, last, 0, 0, 0});
}

SubTable table(std::uint16_t pid, std::uint8_t tableId = 0x50) { return {pid, tableId, 1, 0}; }

std::vector<int> pidsIn(const SectionStore& store) {
  std::vector<int> pids;
  store.forEach([&](const SubTable& table, const Section&) { pids.push_back(table.pid); });
  return pids;
}

TEST(SectionStore, DropsWhatHasNotComeForTheLongestTime) {
  const std::size_t each = SectionStore::overhead + ofTable(0x50, 0, 0).size();
  SectionStore store(3 * each);
  for (std::uint16_t pid = 1; pid <= 3; ++pid) {
    store.put(table(pid), ofTable(0x50, 0, 0), {});
  }
  EXPECT_EQ(store.bytes(), 3 * each);
  EXPECT_FALSE(store.put(table(1), ofTable(0x50, 0, 0), {}).isNew);
  EXPECT_FALSE(store.put(table(4), ofTable(0x50, 0, 0), {}).mapHasGone);
  EXPECT_EQ(pidsIn(store), (Numbers{1, 3, 4}));
  EXPECT_EQ(store.bytes(), 3 * each);
}

// Only a map that goes changes the programs: with full tables each section drops another one.
TEST(SectionStore, SaysWhenAProgramMapHasToGo) {
  SectionStore store(2 * (SectionStore::overhead + ofTable(0x02, 0, 0).size()));
  store.put(table(1, 0x02), ofTable(0x02, 0, 0), {});
  store.put(table(2), ofTable(0x50, 0, 0), {});
  EXPECT_TRUE(store.put(table(3), ofTable(0x50, 0, 0), {}).mapHasGone);
  EXPECT_FALSE(store.put(table(4), ofTable(0x50, 0, 0), {}).mapHasGone);
}

TEST(SectionStore, KeepsThePatWhateverComes) {
  SectionStore store(1);
  store.put(table(0, 0x00), ofTable(0x00, 0, 0), {});
  store.put(table(16), ofTable(0x40, 0, 0), {});
  EXPECT_EQ(pidsIn(store), Numbers{0});
  store.expire(SectionStore::Time::max());
  EXPECT_EQ(pidsIn(store), Numbers{0});
}

TEST(SectionStore, DropsTheNumbersBeyondTheLastOne) {
  SectionStore store(10'000);
  for (std::uint8_t number = 0; number <= 2; ++number)
    store.put(table(1), ofTable(0x50, number, 2), {});
  EXPECT_EQ(pidsIn(store).size(), 3U);
  store.put(table(1), ofTable(0x50, 0, 1), {});
  EXPECT_EQ(pidsIn(store).size(), 2U);
  EXPECT_EQ(store.bytes(), 2 * (SectionStore::overhead + ofTable(0x50, 0, 0).size()));
}

TEST(SectionStore, IsCopiedInPieces) {
  SectionStore store(100'000);
  for (std::uint16_t pid = 1; pid <= 5; ++pid) store.put(table(pid), ofTable(0x50, 0, 0), {});
  std::vector<HeldSection> copied;
  std::optional<SubTable> last;
  std::size_t pieces = 0;
  do {
    std::vector<HeldSection> piece;
    last = store.copy(last, 2, piece);
    EXPECT_LE(piece.size(), 2U);
    copied.insert(copied.end(), piece.begin(), piece.end());
    ++pieces;
  } while (last);
  EXPECT_EQ(pieces, 3U);
  Numbers pids;
  for (const HeldSection& held : copied) pids.push_back(held.table.pid);
  EXPECT_EQ(pids, (Numbers{1, 2, 3, 4, 5}));
}

// Texts in several descriptors.

std::string joined(const std::vector<std::string>& parts) {
  ContinuedText text;
  for (const std::string& part : parts) text.emplace_back(part.begin(), part.end());
  return toUtf8(text, {});
}

TEST(ContinuedText, IsJoinedBeforeItIsDecoded) {
  EXPECT_EQ(joined({}), "");
  EXPECT_EQ(joined({"plain ", "text"}), "plain text");
  // UTF-8 and UCS-2, in the middle of a character; the second half of U+0105 is like a selector.
  EXPECT_EQ(joined({"\x15 Prag\xc3", "\xa9 x"}), " Pragé x");
  EXPECT_EQ(joined({std::string("\x11\x01", 2), std::string("\x05\x01\x07", 3)}), "ąć");
}

TEST(ContinuedText, NamesItsTableOnceOrInEachPart) {
  try {
    CharacterTable::named("ISO-8859-9");
  } catch (const std::invalid_argument&) {
    GTEST_SKIP() << "no character-set modules for this processor";
  }
  EXPECT_EQ(joined({"nebezpe\xcf", "cn\xc2ym"}), "nebezpečným");
  EXPECT_EQ(joined({"\x05\xf0", "\xfe"}), "ğş");
  EXPECT_EQ(joined({"\x05\xf0", "\x05\xfe"}), "ğş");
  EXPECT_EQ(joined({std::string("\x10\x00\x02\xb3", 4), std::string("\x10\x00\x02\xb1", 4)}), "łą");
  EXPECT_EQ(joined({"\x05\xf0", "\x01\xbf"}), "ğП");
}

TEST(Controls, DoNotLeaveATextWhateverItsTable) {
  const std::pair<std::string, std::string> rows[] = {
      {"a\x1b[31mb\x7f", "a[31mb"},
      {"\x15"
       "a\xc2\x9b"
       "31m\x1b]0;x\x07\xc2\x8a"
       "b\x7f",
       "a31m]0;xb"},
      {std::string("\x11\x00\x1b\x00\x9b\x00\x7f\x00"
                   "A\xe0\x8a\x00"
                   "B",
                   13),
       "A\nB"},
  };
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(toUtf8(Bytes(text.begin(), text.end()), {}), expected);
  }
}

TEST(Iso6937, HasWhatTheStandardsTableHas) {
  const auto decoded = [](const std::string& text) {
    return toUtf8(Bytes(text.begin(), text.end()), {});
  };
  if (decoded("\xc2"
              "e") != "é") {
    GTEST_SKIP() << "no character-set modules for this processor";
  }
  EXPECT_EQ(decoded("\xe2or\xf2"
                    "evi\xc2"
                    "c"),
            "Đorđević");
  EXPECT_EQ(decoded("\xa4 5"), "€ 5");
  // A mark on a letter for which iconv has no character.
  EXPECT_EQ(decoded("a\xcfgb"), "ag\u030cb");
  EXPECT_EQ(decoded("\xc5j"), "j\u0304");
}

// Streams that nothing of ours has made.

class MadeTables : public testing::Test {
 protected:
  void play(const std::string& name) {
    const char* const directory = std::getenv("QUILLWORK_STREAMS");
    if (directory == nullptr) GTEST_SKIP() << "QUILLWORK_STREAMS does not name the captures";
    FileSource file(std::string(directory) + "/hard/" + name + ".ts");
    while (const auto packet = file.next()) information.take(*packet);
  }

  void expectOnly(int stream, int service) const {
    EXPECT_EQ(information.transportStreamId(), stream);
    const auto services = information.services();
    ASSERT_EQ(services.size(), 1U);
    EXPECT_EQ(services[0].id, service);
    EXPECT_EQ(services[0].transportStream, stream);
    EXPECT_TRUE(services[0].isActual);
    EXPECT_EQ(information.currentService(), service);
    const auto maps = information.programMaps();
    ASSERT_EQ(maps.size(), 1U);
    EXPECT_EQ(maps[0].program, service);
  }

  ServiceInformation information{std::nullopt};
};

TEST_F(MadeTables, ARetuneToAHigherNumber) {
  play("two-muxes-up");
  if (!IsSkipped()) expectOnly(0x4800, 3401);
}

TEST_F(MadeTables, ARetuneToALowerNumber) {
  play("two-muxes-down");
  if (!IsSkipped()) expectOnly(0x0438, 8801);
}

TEST(Texts, AreOneLineWhereAScriptReadsThem) {
  EXPECT_EQ(inOneLine("a\nb\xC2\x8A"
                      "c\x1B[2J\rd"),
            "a bc[2Jd");
}

TEST_F(MadeTables, TimesThatAreNone) {
  play("odd-times");
  if (IsSkipped()) return;
  const auto events = information.events();
  ASSERT_EQ(events.size(), 5U);
  for (const std::size_t undefined : {0U, 1U}) {
    EXPECT_EQ(events[undefined].start, -1);
    EXPECT_EQ(events[undefined].duration, -1);
  }
  EXPECT_EQ(events[3].start, 1677326400);
  for (const Event& event : events) {
    for (const std::string& text : {event.name, event.text, event.extendedText}) {
      EXPECT_EQ(withoutControls(text), text);
    }
  }
}

TEST_F(MadeTables, ALetterThatIsSplitOverTwoDescriptors) {
  try {
    CharacterTable::named("ISO-8859-9");
  } catch (const std::invalid_argument&) {
    GTEST_SKIP() << "no character-set modules for this processor";
  }
  play("split-letter");
  if (IsSkipped()) return;
  const auto events = information.events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].extendedText, "nebezpečným");
}

}  // namespace
}  // namespace receiver
