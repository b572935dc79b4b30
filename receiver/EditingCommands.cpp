#include "receiver/EditingCommands.h"

namespace receiver {

std::optional<ipcutil::DsmCCCommand_t> EditingCommands::take(const StreamEvent& event) {
  if (event.data.size() < 2) return std::nullopt;
  constexpr double clockRate = 90'000;
  const std::uint8_t tag = event.data[0];
  const unsigned sequence = event.data[1] >> 1U;
  const bool isLast = (event.data[1] & 1U) != 0;
  const std::pair key(event.id, tag);
  if (sequence == 0) {
    if (unfinished_.size() >= mostUnfinished) unfinished_.clear();
    unfinished_[key] = {};
  }
  const auto found = unfinished_.find(key);
  if (found == unfinished_.end()) return std::nullopt;
  Parts& parts = found->second;
  const bool fits = parts.text.size() + event.data.size() <= longestText;
  if (sequence != parts.next || !fits) {
    // A part is missing, and the rest is of no use.
    unfinished_.erase(found);
    return std::nullopt;
  }
  ++parts.next;
  parts.text.append(event.data.begin() + 2, event.data.end());
  if (!isLast) return std::nullopt;
  ipcutil::DsmCCCommand_t command{};
  command.command_code = tag;
  command.event_time = event.time ? static_cast<double>(*event.time) / clockRate : 0;
  command.flag = event.time ? 0 : 1;
  command.text = std::move(parts.text);
  unfinished_.erase(found);
  return command;
}

}  // namespace receiver
