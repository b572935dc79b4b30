#include "receiver/Console.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "common/Number.h"
#include "receiver/Complaint.h"
#include "receiver/Host.h"
#include "receiver/Output.h"

namespace receiver {
namespace {

constexpr std::string_view help =
    "state NUMBER              ask the client for an application state, and wait for its answer\n"
    "event CODE [TEXT]         give the client a DSM-CC command, its text to the line's end\n"
    "graphics WIDTH HEIGHT     change the graphics settings: the plane's size\n"
    "retune [SERVICE]          tune anew: the stream begins from its start\n"
    "service SERVICE           zap: select a service of the stream\n"
    "wait SECONDS              begin the next command later\n"
    "help                      show this\n"
    "quit                      end the receiver\n";

constexpr std::size_t longestLine = 65536;

/// Takes the next word off the line.
std::string_view takeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(word.size() + 1, line.size()));
  return word;
}

std::optional<std::int32_t> takeNumber(std::string_view& line) {
  const auto number = quillwork::parseInteger(takeWord(line));
  return number && std::in_range<std::int32_t>(*number)
             ? std::optional(static_cast<std::int32_t>(*number))
             : std::nullopt;
}

/// How many numbers a command needs and takes, and whether the rest of the line is its text.
struct Needed {
  std::string_view command;
  std::size_t least = 0;
  std::size_t most = 0;
  bool takesText = false;
};
constexpr Needed needed[] = {
    {"help"},           {"quit"},          {"state", 1, 1},  {"event", 1, 1, true},
    {"graphics", 2, 2}, {"service", 1, 1}, {"retune", 0, 1}, {"wait", 0, 0, true}};

void answer(const std::string& text) { print(text + "\n"); }

}  // namespace

Console::Console(Host& host, MiddlewareIpc& adapter, int input)
    : host_(host),
      adapter_(adapter),
      input_(input),
      stopped_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { run(); }) {}

Console::~Console() {
  stop();
  thread_.join();
  close(stopped_);
}

void Console::stop() { eventfd_write(stopped_, 1); }

void Console::run() {
  for (std::string line; readLine(line);) {
    try {
      perform(line);
    } catch (const std::exception& error) {
      complain("'{}': {}", line, error.what());
    }
  }
}

/// Waits for the next line; false at the input's end or after stop().
bool Console::readLine(std::string& line) {
  for (;;) {
    pollfd inputs[] = {{stopped_, POLLIN, 0}, {input_, POLLIN, 0}};
    const std::size_t end = unread_.find('\n');
    if (std::min(end, unread_.size()) > longestLine && !std::exchange(isCut_, true)) {
      complain("a line of more than {} bytes is no command", longestLine);
    }
    // Without a wait where a line is there already.
    poll(inputs, std::size(inputs), end == std::string::npos ? -1 : 0);
    if (inputs[0].revents != 0) return false;
    if (end != std::string::npos) {
      line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      if (std::exchange(isCut_, false)) continue;
      // As some editors end a line.
      if (line.ends_with('\r')) line.pop_back();
      return true;
    }
    if (isCut_) unread_.clear();
    char buffer[4096];
    const ssize_t size = read(input_, buffer, sizeof buffer);
    if (size > 0) {
      unread_.append(buffer, static_cast<std::size_t>(size));
    } else if (size == 0 && !unread_.empty()) {
      // The last line may lack its end.
      unread_ += '\n';
    } else {
      // A receiver in the background may not read from its terminal.
      return false;
    }
  }
}

/// False when stop() has ended it.
bool Console::sleepFor(double seconds) const {
  constexpr double longest = 1e6;
  pollfd stop{stopped_, POLLIN, 0};
  const double time = std::clamp(seconds, 0.0, longest) * 1000;
  return poll(&stop, 1, static_cast<int>(time)) == 0;
}

void Console::perform(const std::string& line) {
  std::string_view rest = line;
  const std::string_view command = takeWord(rest);
  if (command.empty() || command.front() == '#') return;
  const auto known = std::ranges::find(needed, command, &Needed::command);
  if (known == std::end(needed)) {
    complain("there is no command '{}'; 'help' shows them", command);
    return;
  }
  std::vector<std::int32_t> numbers;
  while (numbers.size() < known->most) {
    std::string_view behind = rest;
    const auto number = takeNumber(behind);
    if (!number) break;
    numbers.push_back(*number);
    rest = behind;
  }
  if (numbers.size() < known->least) {
    complain("'{}': a number is missing", line);
    return;
  }
  if (!known->takesText && rest.find_first_not_of(' ') != rest.npos) {
    complain("'{}': there is too much behind '{}'", line, command);
    return;
  }
  if (command == "help") {
    answer(std::string(help.substr(0, help.size() - 1)));
  } else if (command == "quit") {
    requestEnd();
  } else if (command == "state") {
    const bool granted = adapter_.sendAppState(quillwork::state{numbers[0]});
    answer(fmt::format("state {}: {}", numbers[0], granted ? "yes" : "no"));
  } else if (command == "event") {
    host_.commandListener.notify([&](auto& listener) {
      listener.commandReceived({numbers[0], 0, 1, std::string(rest)});
    });
    answer(fmt::format("event {}", numbers[0]));
  } else if (command == "graphics") {
    const ipcutil::Rectangle_t plane{0, 0, numbers[0], numbers[1]};
    host_.graphicsListener.notify(
        [&](auto& listener) { listener.graphicsSettingsChanged(plane, plane); });
    answer(fmt::format("graphics {} {}", numbers[0], numbers[1]));
  } else if (command == "service") {
    host_.information.selectService(numbers[0]);
    const int current = host_.information.currentService();
    answer(fmt::format("service {}", current));
    // -1 selects the first one of the stream again.
    if (numbers[0] != -1 && current != numbers[0]) {
      complain("service {} is not in the stream so far", numbers[0]);
    }
  } else if (command == "retune") {
    if (!numbers.empty()) host_.information.selectService(numbers[0]);
    host_.streamPlayer.retune();
    answer("retuned");
  } else if (command == "wait") {
    const auto seconds = quillwork::parseReal(takeWord(rest));
    if (!seconds || *seconds < 0 || !takeWord(rest).empty()) {
      throw std::invalid_argument("it takes a number of seconds");
    }
    static_cast<void>(sleepFor(*seconds));
  }
}

}  // namespace receiver
