#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "protocol/records.h"
#include "receiver/StreamEvents.h"

namespace receiver {

/// Puts editing commands together from the stream events that carry them (ABNT NBR 15606-2, 9.2.2):
/// the private data begin with a command's tag, and a byte with seven bits of sequence number and a
/// bit that is set in a command's last part.
class EditingCommands {
 public:
  /// Longer commands are dropped.
  static constexpr std::size_t longestText = 65'536;
  /// Of so many at once, all are.
  static constexpr std::size_t mostUnfinished = 16;

  /// The command that the event completes: its tag as the code, the event's time in seconds, 0 for
  /// one that is to be done at once, whose flag is 1, and the parts' texts.
  std::optional<ipcutil::DsmCCCommand_t> take(const StreamEvent& event);

 private:
  struct Parts {
    unsigned next = 0;
    std::string text;
  };
  /// By event id and tag.
  std::map<std::pair<std::uint16_t, std::uint8_t>, Parts> unfinished_;
};

}  // namespace receiver
