#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "protocol/records.h"
#include "receiver/StreamEvents.h"

namespace receiver {

/// Puts editing commands together from the stream events that carry them (ABNT NBR 15606-2, stream
/// event descriptor). The private data are their length, a command's tag, seven bits of sequence
/// number and a bit that is set in a command's last part, the part's text, and a check byte, which
/// is not looked at: the section's CRC covers it all.
///
/// The parts of an event and a tag belong together and are put in the order of their numbers. Parts
/// that contradict those before, and whatever comes after the last part in another list of events,
/// belong to another command: the one before has lost a part and is dropped.
class EditingCommands {
 public:
  /// Of more at a time the incomplete one that has waited longest is dropped. A part's number has
  /// seven bits and its text 241 bytes at most, so that each holds 31 KB.
  static constexpr std::size_t maxUnfinished = 64;

  /// The command that the event completes: its tag as the code, the event's time in seconds, 0 for
  /// one that is to be done at once, whose flag is 1, and the parts' texts.
  std::optional<ipcutil::DsmCCCommand_t> take(const StreamEvent& event);

 private:
  struct Part {
    std::uint8_t tag = 0;
    unsigned number = 0;
    bool isLast = false;
    std::string text;
    std::uint64_t list = 0;
  };
  /// What the parts of a command have in common.
  struct Key {
    int service;
    int componentTag;
    std::uint16_t event;
    std::uint8_t tag;
    auto operator<=>(const Key&) const = default;
  };
  struct Command {
    std::map<unsigned, std::string> parts;  ///< by number
    std::optional<unsigned> last;           ///< the last part's number
    unsigned newest = 0;                    ///< the number of the part that came last
    std::uint64_t list = 0;                 ///< that this part was in
    bool isComplete = false;
    std::uint64_t touched = 0;  ///< when, in parts

    [[nodiscard]] bool isRepeated(const Part& part) const;
    [[nodiscard]] bool canHave(const Part& part) const;
  };

  static std::optional<Part> read(const StreamEvent& event);
  Command& find(const Key& key);

  std::map<Key, Command> commands_;
  std::uint64_t touched_ = 0;
  std::uint64_t beginning_ = 0;
};

}  // namespace receiver
