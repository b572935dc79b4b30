// Editing commands out of stream events whose private data are written by hand.

#include "receiver/EditingCommands.h"

#include <gtest/gtest.h>

#include <string>

namespace receiver {
namespace {

using Words = std::vector<std::string>;

/// Length, tag, number and flag as `head` says; then a text and the check byte.
StreamEvent event(std::initializer_list<std::uint8_t> head, const std::string& text,
                  std::uint64_t list = 0) {
  StreamEvent made;
  made.id = 7;
  made.list = list;
  made.data = head;
  made.data.insert(made.data.end(), text.begin(), text.end());
  made.data.push_back(0xa5);
  return made;
}

/// The length counts the tag, the number and the text.
StreamEvent part(std::uint8_t tag, unsigned number, bool isLast, const std::string& text,
                 std::uint64_t list = 0) {
  return event({static_cast<std::uint8_t>(text.size() + 2), tag,
                static_cast<std::uint8_t>(number << 1U | (isLast ? 1U : 0U))},
               text, list);
}

class Editing : public testing::Test {
 protected:
  /// The command's code and text, or "" for none yet.
  std::string take(const StreamEvent& event) {
    const auto command = commands.take(event);
    return command ? std::to_string(command->command_code) + " " + command->text : "";
  }
  EditingCommands commands;
};

TEST_F(Editing, ACommandOfOnePart) {
  const auto command = commands.take(event({0x06, 0x05, 0x01}, "base"));
  ASSERT_TRUE(command);
  EXPECT_EQ(command->command_code, 5);
  EXPECT_EQ(command->text, "base");
  EXPECT_EQ(command->event_time, 0);
  EXPECT_EQ(command->flag, 1);
  EXPECT_EQ(take(event({0x02, 0x06, 0x01}, "")), "6 ");
  EXPECT_EQ(take(event({0x06, 0x05, 0x01}, "base")), "5 base") << "once more is another one";
}

TEST_F(Editing, ATimedCommandHasItsTime) {
  StreamEvent timed = part(6, 0, true, "x");
  timed.time = 90'000 * 3 / 2;
  const auto command = commands.take(timed);
  ASSERT_TRUE(command);
  EXPECT_EQ(command->event_time, 1.5);
  EXPECT_EQ(command->flag, 0);
}

TEST_F(Editing, TheLengthCountsWhatTheBroadcasterCounts) {
  EXPECT_EQ(take(event({0x07, 0x05, 0x01}, "base")), "5 base") << "the check byte, too";
  EXPECT_EQ(take(event({0x04, 0x05, 0x01}, "base")), "5 base") << "the text alone";
  for (const unsigned length : {0x00U, 0x03U, 0x05U, 0x08U, 0xffU}) {
    EXPECT_EQ(take(event({static_cast<std::uint8_t>(length), 0x05, 0x01}, "base")), "") << length;
  }
  StreamEvent cut;
  EXPECT_EQ(take(cut), "");
  cut.data = {0x05, 0x01, 0xa5};
  EXPECT_EQ(take(cut), "");
}

TEST_F(Editing, PartsArePutInTheOrderOfTheirNumbers) {
  EXPECT_EQ(take(part(11, 0, false, "one ", 1)), "");
  EXPECT_EQ(take(part(11, 1, false, "two ", 2)), "");
  EXPECT_EQ(take(part(11, 2, true, "three", 3)), "11 one two three");
  EXPECT_EQ(take(part(11, 2, true, "C", 4)), "");
  EXPECT_EQ(take(part(11, 1, false, "B", 4)), "");
  EXPECT_EQ(take(part(11, 0, false, "A", 4)), "11 ABC") << "one list can have any order";
}

TEST_F(Editing, RepeatedPartsCountOnce) {
  std::uint64_t list = 0;
  Words done;
  for (const unsigned number : {0U, 1U, 2U}) {
    for (int turn = 0; turn < 3; ++turn) {
      done.push_back(take(part(11, number, number == 2, std::string(1, "abc"[number]), ++list)));
    }
  }
  EXPECT_EQ(done, (Words{"", "", "", "", "", "", "11 abc", "", ""}));
  EXPECT_EQ(take(part(11, 0, false, "d", ++list)), "");
  EXPECT_EQ(take(part(11, 1, true, "e", ++list)), "11 de") << "the repeated last part is no part";
}

TEST_F(Editing, ACommandThatIsRepeatedWholeFillsNoGap) {
  EXPECT_EQ(take(part(11, 0, false, "a", 1)), "");
  EXPECT_EQ(take(part(11, 2, true, "c", 2)), "");
  EXPECT_EQ(take(part(11, 0, false, "a", 3)), "");
  EXPECT_EQ(take(part(11, 1, false, "B", 4)), "") << "it may be another command's";
  EXPECT_EQ(take(part(11, 2, true, "C", 5)), "11 aBC");
}

TEST_F(Editing, ALostPartLosesItsOwnCommandAlone) {
  for (const unsigned lost : {0U, 1U, 2U}) {
    std::uint64_t list = 0;
    for (const unsigned number : {0U, 1U, 2U}) {
      ++list;
      if (number == lost) continue;
      EXPECT_EQ(take(part(11, number, number == 2, "old", list)), "");
      EXPECT_EQ(take(part(12, 0, true, "other", list)), "12 other");
    }
    EXPECT_EQ(take(part(11, 0, false, "n", ++list)), "") << lost;
    EXPECT_EQ(take(part(11, 1, false, "e", ++list)), "") << lost;
    EXPECT_EQ(take(part(11, 2, true, "w", ++list)), "11 new") << lost;
  }
}

TEST_F(Editing, EventsServicesAndComponentsAreKeptApart) {
  const auto from = [](StreamEvent made, std::uint16_t id, int service, int tag) {
    made.id = id;
    made.service = service;
    made.componentTag = tag;
    return made;
  };
  const StreamEvent begins = part(11, 0, false, "a");
  const StreamEvent ends = part(11, 1, true, "b");
  EXPECT_EQ(take(from(begins, 7, 1, 1)), "");
  EXPECT_EQ(take(from(ends, 8, 1, 1)), "");
  EXPECT_EQ(take(from(ends, 7, 2, 1)), "");
  EXPECT_EQ(take(from(ends, 7, 1, 2)), "");
  EXPECT_EQ(take(from(ends, 7, 1, 1)), "11 ab");
}

TEST_F(Editing, WhatHasBegunBeforeAnotherReceptionIsDropped) {
  EXPECT_EQ(take(part(11, 0, false, "a")), "");
  StreamEvent later = part(11, 1, true, "b");
  later.beginning = 1;
  EXPECT_EQ(take(later), "");
}

TEST_F(Editing, TheLongestCommandHas128PartsOf241Bytes) {
  std::string whole = "11 ";
  for (unsigned number = 0; number < 128; ++number) {
    const std::string text(241, static_cast<char>('!' + number % 90));
    whole += text;
    EXPECT_EQ(take(part(11, number, number == 127, text, number)), number == 127 ? whole : "");
  }
}

TEST_F(Editing, OfTooManyTheOldestIsDropped) {
  EXPECT_EQ(take(part(255, 0, false, "first")), "");
  for (unsigned tag = 0; tag < EditingCommands::maxUnfinished; ++tag) {
    EXPECT_EQ(take(part(static_cast<std::uint8_t>(tag), 0, false, "a")), "");
  }
  EXPECT_EQ(take(part(1, 1, true, "b")), "1 ab");
  EXPECT_EQ(take(part(0, 1, true, "b")), "0 ab");
  EXPECT_EQ(take(part(255, 1, true, "last")), "");
}

}  // namespace
}  // namespace receiver
