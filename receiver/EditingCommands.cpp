#include "receiver/EditingCommands.h"

#include <algorithm>
#include <utility>

namespace receiver {

/// Some broadcasters' length counts the tag, the number and the text, others' the check byte, too,
/// or the text alone: the descriptor's own end decides, and a length that is none of these shows
/// that the data are something else.
std::optional<EditingCommands::Part> EditingCommands::read(const StreamEvent& event) {
  constexpr std::size_t before = 3;  // length, tag, number
  constexpr std::size_t behind = 1;  // the check byte
  if (event.data.size() < before + behind) return std::nullopt;
  const std::size_t text = event.data.size() - before - behind;
  const std::size_t length = event.data[0];
  if (length != text + 2 && length != text + 3 && length != text) return std::nullopt;
  return Part{event.data[1], static_cast<unsigned>(event.data[2] >> 1U), (event.data[2] & 1U) != 0,
              std::string(event.data.begin() + before, event.data.end() - behind), event.list};
}

/// Broadcasters repeat a part right behind itself.
bool EditingCommands::Command::isRepeated(const Part& part) const {
  const auto known = parts.find(part.number);
  return known != parts.end() && newest == part.number && known->second == part.text &&
         part.isLast == (last == part.number);
}

/// Whether the part can be one of those that are missing.
bool EditingCommands::Command::canHave(const Part& part) const {
  if (isComplete || parts.contains(part.number) || (last && part.list != list)) return false;
  if (part.isLast) return !last && (parts.empty() || parts.rbegin()->first < part.number);
  return !last || part.number < *last;
}

EditingCommands::Command& EditingCommands::find(const Key& key) {
  if (!commands_.contains(key) && commands_.size() == maxUnfinished) {
    commands_.erase(std::ranges::min_element(commands_, {}, [](const auto& entry) {
      return std::pair(!entry.second.isComplete, entry.second.touched);
    }));
  }
  Command& command = commands_[key];
  command.touched = ++touched_;
  return command;
}

std::optional<ipcutil::DsmCCCommand_t> EditingCommands::take(const StreamEvent& event) {
  constexpr double clockRate = 90'000;
  const auto part = read(event);
  if (!part) return std::nullopt;
  // What has begun before is not gone on with.
  if (std::exchange(beginning_, event.beginning) != event.beginning) commands_.clear();
  Command& command = find({event.service, event.componentTag, event.id, part->tag});
  // A command of one part that comes again is another one.
  const bool isOnlyPart = part->isLast && part->number == 0;
  if (!isOnlyPart && command.isRepeated(*part)) return std::nullopt;
  if (!command.canHave(*part)) {
    command = {};
    command.touched = touched_;
  }
  command.parts.emplace(part->number, part->text);
  command.newest = part->number;
  command.list = part->list;
  if (part->isLast) command.last = part->number;
  if (!command.last || command.parts.size() <= *command.last) return std::nullopt;
  command.isComplete = true;
  ipcutil::DsmCCCommand_t done{};
  done.command_code = part->tag;
  done.event_time = event.time ? static_cast<double>(*event.time) / clockRate : 0;
  done.flag = event.time ? 0 : 1;
  for (const auto& [number, text] : command.parts) done.text += text;
  return done;
}

}  // namespace receiver
