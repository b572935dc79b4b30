// From packets to sections, and what lies in the way.

#include "receiver/SectionAssembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <memory>

#include "receiver/StreamPlayer.h"
#include "receiver/Text.h"
#include "receiver/bitstream.h"
#include "receiver/facades/SectionFilter.h"

namespace receiver {
namespace {

using PacketBytes = std::array<std::uint8_t, packetSize>;
using Sections = std::vector<Section>;

/// A section of the long form with a good CRC.
Section section(std::uint8_t tableId, std::size_t size, std::uint8_t fill = 0x33) {
  Section bytes(size, fill);
  psi_init(bytes.data(), true);
  psi_set_tableid(bytes.data(), tableId);
  psi_set_length(bytes.data(), static_cast<std::uint16_t>(size - PSI_HEADER_SIZE));
  psi_set_crc(bytes.data());
  return bytes;
}

Section concatenated(std::initializer_list<Section> parts) {
  Section all;
  for (const Section& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// A packet of PID 100 with a payload of at most 184 bytes, filled up with 0xff.
PacketBytes packet(int counter, bool unitStart, const Section& payload) {
  PacketBytes bytes;
  bytes.fill(0xff);
  ts_init(bytes.data());
  ts_set_pid(bytes.data(), 100);
  ts_set_cc(bytes.data(), static_cast<std::uint8_t>(counter & 15));
  ts_set_payload(bytes.data());
  if (unitStart) ts_set_unitstart(bytes.data());
  std::copy(payload.begin(), payload.end(), bytes.begin() + 4);
  return bytes;
}

/// The payload behind a pointer field.
Section pointed(std::uint8_t pointer, const Section& payload) {
  return concatenated({{pointer}, payload});
}

class Assembler : public testing::Test {
 protected:
  void feed(const PacketBytes& bytes) {
    assembler.feed(Packet(bytes), errors,
                   [this](const Section& complete) { complete_.push_back(complete); });
  }

  /// One section over as many packets as it takes, from a pointer field of 0 on.
  void feedWhole(const Section& bytes) {
    std::size_t offset = 0;
    while (offset < bytes.size()) {
      const std::size_t room = offset == 0 ? 183 : 184;
      const std::size_t size = std::min(room, bytes.size() - offset);
      const Section part(bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                         bytes.begin() + static_cast<std::ptrdiff_t>(offset + size));
      feed(packet(counter++, offset == 0, offset == 0 ? pointed(0, part) : part));
      offset += size;
    }
  }

  std::vector<Section> take() { return std::exchange(complete_, {}); }

  SectionAssembler assembler;
  StreamErrors errors;
  int counter = 0;

 private:
  std::vector<Section> complete_;
};

TEST_F(Assembler, EverySizeFromTheLeastToTheGreatest) {
  for (const std::size_t size :
       {12U, 20U, 182U, 183U, 184U, 367U, 368U, 1024U, 4093U, 4094U, 4095U, 4096U}) {
    feedWhole(section(0x81, size));
    EXPECT_EQ(take(), Sections{section(0x81, size)}) << size;
  }
  EXPECT_EQ(errors.badSections, 0U);
}

TEST_F(Assembler, SeveralSectionsInAPacketAndOneThatGoesOn) {
  const Section a = section(1, 40);
  const Section b = section(2, 50);
  const Section c = section(3, 150);
  const Section all = concatenated({a, b, c});
  const Section head(all.begin(), all.begin() + 183);
  const Section tail(all.begin() + 183, all.end());
  feed(packet(0, true, pointed(0, head)));
  EXPECT_EQ(take(), (Sections{a, b}));
  const Section d = section(4, 30);
  feed(packet(1, true, pointed(static_cast<std::uint8_t>(tail.size()), concatenated({tail, d}))));
  EXPECT_EQ(take(), (Sections{c, d}));
}

TEST_F(Assembler, AHeaderThatIsCutByThePacketsEnd) {
  const Section a = section(1, 181);
  const Section b = section(2, 60);
  const Section all = concatenated({a, b});
  feed(packet(0, true, pointed(0, Section(all.begin(), all.begin() + 183))));
  feed(packet(1, false, Section(all.begin() + 183, all.end())));
  EXPECT_EQ(take(), (Sections{a, b}));
}

TEST_F(Assembler, StuffingEndsAPacketsSections) {
  feed(packet(0, true, pointed(0, section(1, 30))));
  // What comes without a unit start begins nothing.
  feed(packet(1, false, section(2, 30)));
  EXPECT_EQ(take(), Sections{section(1, 30)});
  EXPECT_EQ(errors.badSections, 0U);
}

TEST_F(Assembler, NothingIsTakenBeforeTheFirstUnitStart) {
  feed(packet(5, false, section(2, 30)));
  EXPECT_TRUE(take().empty());
  feed(packet(6, true, pointed(20, concatenated({Section(20, 0xaa), section(1, 30)}))));
  EXPECT_EQ(take(), Sections{section(1, 30)});
}

TEST_F(Assembler, AWrongCrcIsCountedAndDropped) {
  Section bad = section(1, 40);
  bad[20] ^= 1;
  feed(packet(0, true, pointed(0, concatenated({bad, section(2, 40)}))));
  EXPECT_EQ(take(), Sections{section(2, 40)});
  EXPECT_EQ(errors.badSections, 1U);
}

TEST_F(Assembler, AShortSectionHasNoCrcButTheTimeOffsetTable) {
  const Section tdt = {0x70, 0x70, 5, 0xe6, 0x0c, 1, 2, 3};
  feed(packet(0, true, pointed(0, tdt)));
  EXPECT_EQ(take(), Sections{tdt});
  Section tot = {0x73, 0x70, 11, 0xe6, 0x0c, 1, 2, 3, 0xf0, 0, 0, 0, 0, 0};
  feed(packet(1, true, pointed(0, tot)));
  EXPECT_TRUE(take().empty());
  psi_set_crc(tot.data());
  feed(packet(2, true, pointed(0, tot)));
  EXPECT_EQ(take(), Sections{tot});
}

TEST_F(Assembler, ALengthThatCannotBeIsCountedAndDropped) {
  feed(packet(0, true, pointed(0, {0x81, 0xff, 0xff, 0, 0})));
  EXPECT_EQ(errors.badSections, 1U);
  // Too short for the header and CRC that it announces.
  feed(packet(1, true, pointed(0, {0x81, 0xb0, 2, 0, 0})));
  EXPECT_EQ(errors.badSections, 2U);
  // A section without any bytes behind its header.
  feed(packet(2, true, pointed(0, {0x81, 0x30, 0})));
  EXPECT_EQ(take(), Sections(1, {0x81, 0x30, 0}));
}

TEST_F(Assembler, APointerBeyondThePacketIsCountedAndDropped) {
  feed(packet(0, true, pointed(184, section(1, 30))));
  EXPECT_TRUE(take().empty());
  EXPECT_EQ(errors.badSections, 1U);
}

TEST_F(Assembler, AGapDropsTheSectionThatWasBeingCollected) {
  const Section whole = section(1, 400);
  feed(packet(0, true, pointed(0, Section(whole.begin(), whole.begin() + 183))));
  feed(packet(2, false, Section(whole.begin() + 183, whole.begin() + 367)));
  feed(packet(3, false, Section(whole.begin() + 367, whole.end())));
  EXPECT_TRUE(take().empty());
  EXPECT_EQ(errors.lostPackets, 1U);
  counter = 4;
  feedWhole(whole);
  EXPECT_EQ(take().size(), 1U);
}

TEST_F(Assembler, ARepeatedPacketIsTakenOnce) {
  const Section whole = section(1, 300);
  const PacketBytes first =
      packet(7, true, pointed(0, Section(whole.begin(), whole.begin() + 183)));
  const PacketBytes second = packet(8, false, Section(whole.begin() + 183, whole.end()));
  for (const PacketBytes& bytes : {first, first, second, second}) feed(bytes);
  EXPECT_EQ(take(), Sections{whole});
  EXPECT_EQ(errors.lostPackets, 0U);
}

TEST_F(Assembler, AnAnnouncedDiscontinuityIsNoGap) {
  PacketBytes bytes = packet(9, true, {});
  bytes[3] |= 0x20;
  bytes[4] = 1;     // an adaptation field of one byte
  bytes[5] = 0x80;  // discontinuity_indicator
  const Section payload = pointed(0, section(1, 30));
  std::copy(payload.begin(), payload.end(), bytes.begin() + 6);
  feed(packet(3, true, pointed(0, section(2, 30))));
  feed(bytes);
  EXPECT_EQ(take(), (Sections{section(2, 30), section(1, 30)}));
  EXPECT_EQ(errors.lostPackets, 0U);
}

TEST_F(Assembler, PacketsWithoutPayloadOrScrambledAreSkipped) {
  PacketBytes empty = packet(1, true, pointed(0, section(1, 30)));
  empty[3] = static_cast<std::uint8_t>((empty[3] & 0x0f) | 0x20);
  feed(empty);
  PacketBytes scrambled = packet(1, true, pointed(0, section(1, 30)));
  scrambled[3] |= 0x80;
  feed(scrambled);
  PacketBytes overlong = packet(1, true, {});
  overlong[3] |= 0x20;
  overlong[4] = 183;
  feed(overlong);
  EXPECT_TRUE(take().empty());
}

TEST_F(Assembler, AUnitStartCutsOffWhatHasNotEnded) {
  const Section whole = section(1, 400);
  feed(packet(0, true, pointed(0, Section(whole.begin(), whole.begin() + 183))));
  feed(packet(1, true, pointed(0, section(2, 30))));
  EXPECT_EQ(take(), Sections{section(2, 30)});
}

// Texts.

std::string decoded(const std::string& bytes, const CharacterTable& table = {}) {
  return toUtf8({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}, table);
}

bool canConvert() {
  // An emulated processor's character-set modules need not be installed.
  try {
    CharacterTable::named("ISO-8859-9");
    return true;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

TEST(Text, EveryTableOfDvb) {
  if (!canConvert()) GTEST_SKIP() << "no character-set modules for this processor";
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"plain", "plain"},
      {"Caf\xc2"
       "e \xa4 \xc8u",
       "Café € ü"},
      {"\x01\xbf\xd5\xe0\xde", "Перо"},
      {"\x02\xc7", "ا"},
      {"\x03\xc1\xe2", "Αβ"},
      {"\x04\xe0", "א"},
      {"\x05\xf0\xfe", "ğş"},
      {"\x06\xf0", "ð"},
      {"\x07\xa1", "ก"},
      {"\x09\xf0", "š"},
      {"\x0a\xf0", "ŵ"},
      {"\x0b\xa4", "€"},
      {std::string("\x10\x00\x01\xe9", 4), "é"},
      {std::string("\x10\x00\x02\xb3", 4), "ł"},
      {std::string("\x10\x00\x0f\xa4", 4), "€"},
      {std::string("\x11\x65\xe5\x67\x2c", 5), "日本"},
      {std::string("\x14\x65\xe5", 3), "日"},
      {"\x12\xb0\xa1", "가"},
      {"\x13\xb0\xa1", "啊"},
      {"\x15日本", "日本"},
      {"one\x8atwo\x86!\x87", "one\ntwo!"},
      {"\x15one\xee\x82\x8atwo\xee\x82\x86", "one\ntwo"},
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(decoded(bytes), text);
}

TEST(Text, WhatCannotBeConvertedIsReplacedAndEndsNothing) {
  EXPECT_EQ(decoded("\x15"
                    "a\xff"
                    "b"),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(decoded(std::string("\x11\x00", 2)), "\xef\xbf\xbd");
  if (canConvert()) {
    EXPECT_EQ(decoded("a\xc2"), "a\xef\xbf\xbd");
  }
}

TEST(Text, AnotherDefaultTableCanBeGiven) {
  EXPECT_THROW(CharacterTable::named("no such table"), std::invalid_argument);
  if (!canConvert()) GTEST_SKIP() << "no character-set modules for this processor";
  EXPECT_EQ(decoded("Jornal da Manh\xe3", CharacterTable::named("ISO-8859-15")), "Jornal da Manhã");
  // A text that chooses its own table keeps it.
  EXPECT_EQ(decoded("\x05\xf0", CharacterTable::named("ISO-8859-15")), "ğ");
}

TEST(Text, AribTexts) {
  if (!canConvertArib()) {
    EXPECT_THROW(CharacterTable::named("ARIB"), std::invalid_argument);
    GTEST_SKIP() << "libaribb24 is not there for this processor";
  }
  EXPECT_EQ(decoded("\x46\x7c\x4b\x5c", CharacterTable::named("ARIB")), "日本");
}

// The section filter on a file.

class Filter : public testing::Test {
 protected:
  static constexpr const char* path = "/dev/shm/filter.ts";

  void SetUp() override {
    std::ofstream file(path, std::ios::binary);
    for (int index = 0; index < 6; ++index) {
      // The fourth byte counts.
      Section bytes = section(static_cast<std::uint8_t>(0x80 + index % 2), 60);
      bytes[3] = static_cast<std::uint8_t>(index);
      psi_set_crc(bytes.data());
      const PacketBytes whole = packet(index, true, pointed(0, bytes));
      file.write(reinterpret_cast<const char*>(whole.data()), whole.size());
    }
  }

  /// The counting bytes of the next sections that pass.
  static std::vector<int> read(SectionFilter& filter, int count) {
    std::vector<int> numbers;
    for (int index = 0; index < count; ++index) {
      const auto bytes = filter.readSection();
      numbers.push_back(bytes.empty() ? -1 : bytes[3]);
    }
    return numbers;
  }
};

using Numbers = std::vector<int>;

StreamPlayer::Settings fast(bool isLooped) {
  StreamPlayer::Settings settings;
  settings.isFast = true;
  settings.isLooped = isLooped;
  return settings;
}

TEST_F(Filter, ReadsWhatPassesAndBeginsAgainWithTheStream) {
  StreamPlayer player(std::make_unique<FileSource>(path), fast(true));
  SectionFilter filter(player, true);
  filter.setTimeOut(0);
  EXPECT_EQ(read(filter, 1), Numbers{-1}) << "it has not been started";
  filter.setPid(100);
  filter.setTimeOut(10'000);
  filter.start();
  player.start();
  EXPECT_EQ(read(filter, 8), (Numbers{0, 1, 2, 3, 4, 5, 0, 1}));
  filter.setTableId(0x81);
  EXPECT_EQ(read(filter, 3), (Numbers{3, 5, 1})) << "also of what had come before";
  filter.clearTableId();
  filter.stop();
  EXPECT_EQ(read(filter, 1), Numbers{-1});
}

TEST_F(Filter, NothingComesAfterTheStreamsEnd) {
  StreamPlayer player(std::make_unique<FileSource>(path), fast(false));
  SectionFilter filter(player, true);
  filter.setPid(100);
  filter.setTimeOut(10'000);
  filter.start();
  player.start();
  EXPECT_EQ(read(filter, 6), (Numbers{0, 1, 2, 3, 4, 5}));
  filter.setTimeOut(0);
  EXPECT_EQ(read(filter, 1), Numbers{-1});
  player.retune();
  filter.setTimeOut(10'000);
  EXPECT_EQ(read(filter, 2), (Numbers{0, 1})) << "tuned anew it begins again";
}

TEST_F(Filter, NothingPassesOnAnotherPidAndTheTimeOutIsKept) {
  StreamPlayer player(std::make_unique<FileSource>(path), fast(false));
  SectionFilter filter(player, true);
  filter.setPid(101);
  filter.setTimeOut(30);
  filter.start();
  player.start();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(read(filter, 1), Numbers{-1});
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

/// A filter that is given packets by hand.
class FilterByHand : public Filter {
 protected:
  FilterByHand() {
    filter.setPid(100);
    filter.setTimeOut(0);
    filter.start();
  }
  void take(const Section& bytes) {
    filter.take(Packet(packet(counter_++, true, pointed(0, bytes))));
  }
  Section counted(int number) {
    Section bytes = section(0x80, 60);
    bytes[3] = static_cast<std::uint8_t>(number);
    psi_set_crc(bytes.data());
    return bytes;
  }

  StreamPlayer player{nullptr, {}};
  SectionFilter filter{player, false};

 private:
  int counter_ = 0;
};

TEST_F(FilterByHand, KeepsTheNewestSectionsForAReaderThatIsLate) {
  constexpr int all = static_cast<int>(SectionFilter::mostSections) + 10;
  for (int index = 0; index < all; ++index) take(counted(index));
  EXPECT_EQ(read(filter, 1), Numbers{10});
  for (int index = 1; index < all - 10; ++index) EXPECT_FALSE(filter.readSection().empty());
  EXPECT_EQ(read(filter, 1), Numbers{-1});
}

TEST_F(FilterByHand, AnotherPidOrAStartForgetsWhatHasCome) {
  take(counted(1));
  filter.setPid(100);
  EXPECT_EQ(read(filter, 1), Numbers{-1});
  take(counted(2));
  filter.start();
  EXPECT_EQ(read(filter, 1), Numbers{-1});
  take(counted(3));
  EXPECT_EQ(read(filter, 1), Numbers{3});
}

TEST_F(FilterByHand, AStreamThatBeginsAnewCutsOffASection) {
  const Section bytes = section(0x80, 300);
  filter.take(Packet(packet(0, true, pointed(0, Section(bytes.begin(), bytes.begin() + 183)))));
  filter.interrupted(false);
  filter.take(Packet(packet(1, false, Section(bytes.begin() + 183, bytes.end()))));
  EXPECT_EQ(read(filter, 1), Numbers{-1});
}

TEST_F(FilterByHand, EveryPatternHasItsMeaning) {
  const auto passing = [&] {
    for (int index = 0; index < 6; ++index) take(counted(index));
    Numbers numbers = read(filter, 7);
    std::erase(numbers, -1);
    return numbers;
  };
  EXPECT_EQ(passing(), (Numbers{0, 1, 2, 3, 4, 5}));
  filter.setPositiveFilter(3, {4}, {0xff});
  EXPECT_EQ(passing(), Numbers{4});
  filter.setPositiveFilter(3, {5}, {});
  EXPECT_EQ(passing(), Numbers{5});
  filter.setPositiveFilter(0, {0x80, 0, 0, 1}, {0xff, 0, 0, 1});
  EXPECT_EQ(passing(), (Numbers{1, 3, 5}));
  filter.setPositiveFilter(58, {0, 0, 0}, {0, 0, 0});
  EXPECT_EQ(passing(), Numbers{}) << "the section ends before the pattern";
  filter.clearPositiveFilter();
  filter.setLessThanFilter(3, {2}, {0xff});
  EXPECT_EQ(passing(), (Numbers{0, 1}));
  filter.clearLessThanFilter();
  filter.setXorFilter(3, {2}, {0xff}, {0xff});
  EXPECT_EQ(passing(), (Numbers{0, 1, 3, 4, 5})) << "all but the pattern";
  filter.setXorFilter(3, {5}, {0x07}, {0x04});
  EXPECT_EQ(passing(), Numbers{1}) << "equal in the low bits, different in the third";
  filter.setXorFilter(3, {2}, {0xff}, {});
  EXPECT_EQ(passing(), Numbers{2}) << "nothing has to differ";
  filter.clearXorFilter();
  // Last, for it has no clearing operation.
  filter.setGreaterThanFilter(3, {3}, {0xff});
  EXPECT_EQ(passing(), (Numbers{4, 5}));
}

// Stream files.

std::string complaint(const std::string& path) {
  try {
    const StreamFile file(path);
  } catch (const StreamError& error) {
    return error.what();
  }
  return "";
}

TEST(StreamFile, EachKindOfBadFileIsNamedInOneLine) {
  const std::string path = "/dev/shm/bad.ts";
  const std::string none =
      path + ": is no MPEG transport stream of 188, 192 or 204-byte packets: it begins with ";
  EXPECT_EQ(complaint("/nowhere/x.ts"), "/nowhere/x.ts: No such file or directory");
  EXPECT_EQ(complaint("/dev/shm"), "/dev/shm: is a directory");
  EXPECT_EQ(complaint("/dev/null"), "/dev/null: is not a regular file");
  std::ofstream(path).close();
  EXPECT_EQ(complaint(path), path + ": is empty");
  std::ofstream(path) << std::string(1000, 'x');
  EXPECT_EQ(complaint(path), none + "78 78 78 78 78 78 78 78");
  std::ofstream(path) << "G" << std::string(187, 'x');
  EXPECT_EQ(complaint(path), "");
}

}  // namespace
}  // namespace receiver
