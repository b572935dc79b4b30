// Stream events: sections with descriptors, a clock that goes on or jumps, and the editing commands
// that come of it.

#include <algorithm>
#include <array>
#include <initializer_list>
#include <set>
#include <tuple>
#include <vector>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "receiver/EditingCommands.h"
#include "receiver/StreamEvents.h"

namespace {

using namespace receiver;

constexpr std::size_t maxText = 128 * 251;

constexpr std::uint8_t minute = 0x60;  // in a time's third byte: about 70 s

void append(Section& section, std::initializer_list<std::size_t> bytes) {
  for (const std::size_t byte : bytes) section.push_back(static_cast<std::uint8_t>(byte));
}

/// A part of a command at one of few times, so that events come again.
void appendEvent(Section& section, Input& input) {
  const std::string_view text = input.takeBytes(input.takeBelow(4));
  append(section, {0x1a, 14 + text.size(), 0, input.takeBelow(2)});
  append(section, {0, 0, 0, 0, 0, input.takeBelow(3) * minute, 0, 0});
  append(section, {text.size() + 2, input.takeBelow(2), input.takeBelow(8)});
  section.insert(section.end(), text.begin(), text.end());
  section.push_back(0xa5);
}

/// Times go as the clock goes, or twice as fast.
void appendReference(Section& section, Input& input) {
  append(section, {0x17, 18, input.takeBoolean() ? 0x80U : 0U, 0, 0, input.takeBelow(3) * minute});
  append(section, {0, 0, 0, 0, 0, 0, 0, input.takeBelow(3) * minute, 0, 0});
  append(section, {0, 1 + input.takeBelow(2), 0, 1});
}

void appendAnything(Section& section, Input& input) {
  section.push_back(input.takeBoolean() ? 0x1a : 0x17);
  const std::string_view data = input.takeBytes(input.takeBelow(40));
  section.push_back(static_cast<std::uint8_t>(data.size()));
  section.insert(section.end(), data.begin(), data.end());
}

Section takeSection(Input& input) {
  constexpr std::array<std::uint8_t, 4> kinds = {0x00, 0x40, 0x80, 0xc0};
  Section section = {0x3d, 0xb0, 0x00, kinds[input.takeBelow(kinds.size())]};
  section.push_back(static_cast<std::uint8_t>(input.takeBelow(3)));
  section.push_back(static_cast<std::uint8_t>(0xc0U | input.takeBelow(8)));
  section.push_back(static_cast<std::uint8_t>(input.takeBelow(3)));
  section.push_back(2);
  for (std::size_t left = input.takeBelow(5); left > 0; --left) {
    switch (input.takeBelow(4)) {
      case 0:
        appendAnything(section, input);
        break;
      case 1:
        appendReference(section, input);
        break;
      default:
        appendEvent(section, input);
    }
  }
  // What ends too early, too.
  section.resize(section.size() + 4 - (input.takeBelow(8) == 0 ? 1 : 0));
  return section;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  StreamEvents events;
  EditingCommands commands;
  std::uint64_t clock = 0;
  std::set<std::tuple<std::uint16_t, std::uint64_t, std::vector<std::uint8_t>>> done;
  const auto takeCommands = [&](const std::vector<StreamEvent>& due) {
    for (const StreamEvent& event : due) {
      const auto command = commands.take(event);
      if (command && command->text.size() > maxText) fail("a command is too long");
    }
  };
  while (!input.isAtEnd()) {
    if (input.takeBoolean()) {
      const std::vector<StreamEvent> due = events.take(takeSection(input));
      if (std::ranges::any_of(due,
                              [](const StreamEvent& event) { return event.time.has_value(); })) {
        fail("an event that has a time comes at once");
      }
      takeCommands(due);
      continue;
    }
    const bool jumps = input.takeBelow(8) == 0;
    clock = jumps ? input.take<std::uint64_t>() % (std::uint64_t{1} << 33U)
                  : clock + std::uint64_t{input.take<std::uint8_t>()} * 0x8000;
    const std::vector<StreamEvent> due = events.advance(clock, input.takeBelow(8) == 0);
    if (!std::ranges::is_sorted(due, {}, &StreamEvent::time)) fail("events are out of order");
    for (const StreamEvent& event : due) {
      const bool isNew = done.emplace(event.id, event.time.value(), event.data).second;
      if (!isNew && done.size() < StreamEvents::maxDone) fail("a timed event comes twice");
    }
    takeCommands(due);
  }
  return 0;
}
