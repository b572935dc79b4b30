// Stream events out of sections that are written by hand.

#include "receiver/StreamEvents.h"

#include <gtest/gtest.h>

#include <string>

namespace receiver {
namespace {

using Words = std::vector<std::string>;

constexpr std::uint16_t atOnce = 0x0001;
constexpr std::uint16_t references = 0x4000;
constexpr std::uint16_t timed = 0x8000;
constexpr std::uint8_t current = 1;

std::vector<std::uint8_t> fromHex(const std::string& text) {
  std::vector<std::uint8_t> bytes;
  std::string digits;
  for (const char digit : text) {
    if (digit == ' ') continue;
    digits += digit;
    if (digits.size() < 2) continue;
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
    digits.clear();
  }
  return bytes;
}

/// `descriptors`: in hexadecimal. The CRC has been looked at before a section comes here.
Section section(std::uint16_t extension, unsigned version, unsigned number,
                const std::string& descriptors, std::uint8_t indicator = current) {
  Section bytes = fromHex("3d b0 00");
  bytes.push_back(static_cast<std::uint8_t>(extension >> 8U));
  bytes.push_back(static_cast<std::uint8_t>(extension));
  bytes.push_back(static_cast<std::uint8_t>(0xc0U | version << 1U | indicator));
  bytes.push_back(static_cast<std::uint8_t>(number));
  bytes.push_back(0xff);
  const auto loop = fromHex(descriptors + "00 00 00 00");
  bytes.insert(bytes.end(), loop.begin(), loop.end());
  bytes[2] = static_cast<std::uint8_t>(bytes.size() - 3);
  return bytes;
}

// Event 1 with the data 'a', event 2 with 'b', at once; the same at 10 s of normal play time.
const std::string first = "1a 0b 0001 ffff fffe 0000 0000 61";
const std::string second = "1a 0b 0002 ffff fffe 0000 0000 62";
const std::string firstTimed = "1a 0b 0001 ffff fffe 000d bba0 61";
const std::string secondTimed = "1a 0b 0002 ffff fffe 000d bba0 62";
// At the clock's 0 the normal play time is 0, and they go at the same pace; and at the clock's 100
// s.
const std::string reference = "17 12 7f fe 0000 0000 ffff fffe 0000 0000 0001 0001";
const std::string laterReference = "17 12 ff fe 0089 5440 ffff fffe 0000 0000 0001 0001";

class Events : public testing::Test {
 protected:
  Words take(const Section& section) { return words(events.take(section)); }
  Words at(double seconds, bool isDiscontinuous = false) {
    return words(events.advance(static_cast<std::uint64_t>(seconds * 90'000), isDiscontinuous));
  }
  static Words words(const std::vector<StreamEvent>& list) {
    Words all;
    for (const StreamEvent& event : list) {
      all.push_back(std::to_string(event.id) + std::string(event.data.begin(), event.data.end()));
    }
    return all;
  }
  StreamEvents events;
};

TEST_F(Events, AllSectionsOfAVersionCountOnceEach) {
  EXPECT_EQ(take(section(atOnce, 0, 0, first)), Words{"1a"});
  EXPECT_EQ(take(section(atOnce, 0, 0, first)), Words{});
  EXPECT_EQ(take(section(atOnce, 0, 1, second)), Words{"2b"});
  EXPECT_EQ(take(section(atOnce, 0, 1, second)), Words{});
  EXPECT_EQ(take(section(atOnce, 0, 0, first)), Words{});
  EXPECT_EQ(take(section(atOnce, 1, 1, second)), Words{"2b"});
  EXPECT_EQ(take(section(atOnce, 1, 0, first + second)), (Words{"1a", "2b"}));
}

TEST_F(Events, WhatIsNotYetCurrentDoesNothing) {
  EXPECT_EQ(take(section(atOnce, 0, 0, first, 0)), Words{});
  EXPECT_EQ(take(section(atOnce, 0, 0, first)), Words{"1a"}) << "its version has not come yet";
  EXPECT_EQ(take(section(atOnce, 1, 0, second, 0)), Words{});
  EXPECT_EQ(take(section(atOnce, 0, 0, first)), Words{});
  take(section(references, 0, 0, reference));
  take(section(timed, 0, 0, firstTimed));
  take(section(timed, 1, 0, "", 0));
  EXPECT_EQ(at(10), Words{"1a"}) << "a list that is not yet current withdraws nothing";
}

TEST_F(Events, ATimedEventComesAtItsTimeAndOnce) {
  take(section(references, 0, 0, reference));
  take(section(timed, 0, 0, firstTimed));
  EXPECT_EQ(at(9.9), Words{});
  take(section(timed, 1, 0, firstTimed));
  EXPECT_EQ(at(10), Words{"1a"});
  EXPECT_EQ(at(10.1), Words{});
  take(section(timed, 2, 0, firstTimed + secondTimed));
  EXPECT_EQ(at(10.2), Words{"2b"});
  take(section(timed, 3, 0, ""));
  take(section(timed, 4, 0, firstTimed));
  EXPECT_EQ(at(10.3), Words{}) << "neither after it was withdrawn in between";
}

TEST_F(Events, AnEventThatANewVersionWithdrawsDoesNotCome) {
  take(section(references, 0, 0, reference));
  take(section(timed, 0, 0, firstTimed));
  take(section(timed, 0, 1, secondTimed));
  take(section(timed + 1, 0, 0, "1a 0b 0003 ffff fffe 000d bba0 63"));
  take(section(timed, 1, 0, secondTimed));
  EXPECT_EQ(at(11), (Words{"3c", "2b"})) << "another sub-table's events stay";
}

TEST_F(Events, ThoseOfOneTimeComeInTheOrderInWhichTheyAreListed) {
  take(section(references, 0, 0, reference));
  const std::string earlier = "1a 0b 0009 ffff fffe 000d bb9f 7a";
  take(section(timed, 0, 0, secondTimed + firstTimed + earlier));
  EXPECT_EQ(at(12), (Words{"9z", "2b", "1a"}));
}

TEST_F(Events, AReferenceForTheNextClockCountsFromTheDiscontinuity) {
  take(section(references, 0, 0, reference));
  take(section(timed, 0, 0, firstTimed));
  EXPECT_EQ(at(5), Words{});
  take(section(references, 1, 0, laterReference));
  EXPECT_EQ(at(6), Words{});
  EXPECT_EQ(at(109), Words{}) << "10 s by the first reference, but the clock has begun anew";
  EXPECT_EQ(at(109.9), Words{});
  EXPECT_EQ(at(110), Words{"1a"});
}

TEST_F(Events, AnAnnouncedDiscontinuityOfTheClockCountsHoweverSmall) {
  take(section(references, 0, 0, reference));
  take(section(references, 1, 0, laterReference));
  take(section(timed, 0, 0, firstTimed));
  EXPECT_EQ(at(9.9), Words{});
  EXPECT_EQ(at(10, true), Words{});
  EXPECT_EQ(at(110), Words{"1a"});
}

TEST_F(Events, AfterADiscontinuityTheTimeIsUnknownUntilAReferenceComes) {
  take(section(references, 0, 0, reference));
  take(section(timed, 0, 0, firstTimed));
  EXPECT_EQ(at(9), Words{});
  EXPECT_EQ(at(20, true), Words{});
  take(section(references, 0, 0, reference));
  EXPECT_EQ(at(20.1), Words{"1a"});
}

TEST_F(Events, AsManySubTablesAsThereAreCanBeHeard) {
  const auto table = [](unsigned extension) {
    return section(static_cast<std::uint16_t>(extension), 0, 0, first);
  };
  for (unsigned extension = 0; extension < 0x4000; ++extension) {
    ASSERT_EQ(take(table(extension)), Words{"1a"}) << extension;
  }
  EXPECT_EQ(take(table(0x3fff)), Words{}) << "those that were heard last are remembered";
  EXPECT_EQ(take(table(0x4000 - StreamEvents::maxSubTables)), Words{});
}

TEST_F(Events, CutSectionsAndDescriptorsAreHarmless) {
  const Section whole = section(timed, 0, 0, reference + firstTimed + secondTimed);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    StreamEvents other;
    other.take({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    EXPECT_LE(other.advance(0, false).size(), 2U);
  }
}

}  // namespace
}  // namespace receiver
