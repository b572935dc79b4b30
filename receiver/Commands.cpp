#include "receiver/Commands.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string_view>

#include "adapter/MiddlewareIpc.h"
#include "receiver/Host.h"

namespace receiver {
namespace {

constexpr std::string_view help =
    "state NUMBER       ask the client for an application state, and wait for its answer\n"
    "event CODE [TEXT]  give the client a stream-event command, its text to the line's end\n"
    "help               show this\n"
    "quit               end the receiver\n";

/// Takes the next word off the line.
std::string_view takeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(word.size() + 1, line.size()));
  return word;
}

std::optional<std::int32_t> takeNumber(std::string_view& line) {
  const std::string_view word = takeWord(line);
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return number;
}

void answer(const std::string& text) {
  fmt::print("{}\n", text);
  std::fflush(stdout);
}

}  // namespace

Commands::Commands(MiddlewareIpc& adapter)
    : adapter_(adapter), stopped_(eventfd(0, EFD_CLOEXEC)), thread_([this] { run(); }) {}

Commands::~Commands() {
  stop();
  thread_.join();
  close(stopped_);
}

void Commands::stop() { eventfd_write(stopped_, 1); }

void Commands::run() {
  for (std::string line; readLine(line);) perform(line);
}

/// Waits for the next line; false at the input's end or after stop().
bool Commands::readLine(std::string& line) {
  for (;;) {
    pollfd inputs[] = {{stopped_, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    const std::size_t end = unread_.find('\n');
    // Without a wait where a line is there already.
    poll(inputs, std::size(inputs), end == std::string::npos ? -1 : 0);
    if (inputs[0].revents != 0) return false;
    if (end != std::string::npos) {
      line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return true;
    }
    char buffer[4096];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
    // A receiver in the background may not read from its terminal.
    if (size <= 0) return false;
    unread_.append(buffer, static_cast<std::size_t>(size));
  }
}

void Commands::perform(const std::string& line) {
  std::string_view rest = line;
  const std::string_view command = takeWord(rest);
  if (command.empty()) return;
  if (command == "help") {
    answer(std::string(help.substr(0, help.size() - 1)));
  } else if (command == "quit") {
    kill(getpid(), SIGTERM);
  } else if (command == "state" || command == "event") {
    const auto number = takeNumber(rest);
    if (!number) {
      fmt::print(stderr, "quillwork-receiver: '{}': a number is missing\n", line);
    } else if (command == "state") {
      const bool granted = adapter_.sendAppState(quillwork::state{*number});
      answer(fmt::format("state {}: {}", *number, granted ? "yes" : "no"));
    } else {
      Host::current()->commandListener.notify([&](auto& listener) {
        listener.commandReceived({*number, 0, 0, std::string(rest)});
      });
      answer(fmt::format("event {}", *number));
    }
  } else {
    fmt::print(stderr, "quillwork-receiver: there is no command '{}'; 'help' shows them\n",
               command);
  }
}

}  // namespace receiver
