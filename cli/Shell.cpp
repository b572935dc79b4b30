#include "cli/Shell.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#ifdef QUILLWORK_EDITLINE
#include <editline/readline.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "cli/Command.h"
#include "cli/Output.h"

namespace quillwork::cli {
namespace {

constexpr const char* prompt = "quillwork> ";

/// Words that the shell has besides the commands.
constexpr const char* ownWords[] = {"answer", "help", "quit"};

void report(const std::exception& error) {
  std::fprintf(stderr, "quillwork-client: %s\n", error.what());
}

void print(const client::Notification& notification) {
  printNotification(notification);
  if (std::holds_alternative<client::ApplicationState>(notification)) {
    fmt::print("The receiver waits for 'answer yes' or 'answer no'.\n");
  }
  std::fflush(stdout);
}

class Shell {
 public:
  Shell(Session& session, const RunWords& run) : session_(session), run_(run) {}

  [[nodiscard]] bool hasEnded() const { return hasEnded_; }
  void end() { hasEnded_ = true; }

  void take(const std::string& line) {
    try {
      const std::vector<std::string> words = splitWords(line);
      if (words.empty() || words.front().starts_with('#')) return;
      if (words.front() == "quit") {
        end();
      } else if (words.front() == "answer") {
        answer(words);
      } else {
        run_(words);
      }
    } catch (const std::exception& error) {
      report(error);
    }
    // What came while the command waited for its reply, and was not what it waited for.
    while (const auto notification = session_.takeEarly()) print(*notification);
    std::fflush(stdout);
  }

  /// Where something comes from besides the lines; -1 before the first command.
  [[nodiscard]] int fileDescriptor() {
    return session_.isConnected() ? session_.control().fileDescriptor() : -1;
  }

  void takeNotifications() {
    try {
      while (const auto notification = session_.control().takeNotification()) print(*notification);
    } catch (const client::Error& error) {
      report(error);
      session_.disconnect();
    }
  }

 private:
  void answer(const std::vector<std::string>& words) {
    if (words.size() != 2 || (words[1] != "yes" && words[1] != "no")) {
      throw std::invalid_argument("answer: yes or no is needed");
    }
    session_.control().answerApplicationState(words[1] == "yes");
  }

  Session& session_;
  const RunWords& run_;
  bool hasEnded_ = false;
};

struct Arrived {
  bool input;          ///< of a line, or its end
  bool notifications;  ///< the shell is to take them
};

/// Waits for either.
Arrived await(Shell& shell) {
  pollfd inputs[] = {{STDIN_FILENO, POLLIN, 0}, {shell.fileDescriptor(), POLLIN, 0}};
  if (poll(inputs, std::size(inputs), -1) == -1) return {};
  return {inputs[0].revents != 0, inputs[1].revents != 0};
}

/// Lines as they are, from a file or another program.
void runPlain(Shell& shell) {
  std::string unread;
  while (!shell.hasEnded()) {
    if (const std::size_t end = unread.find('\n'); end != std::string::npos) {
      shell.take(unread.substr(0, end));
      unread.erase(0, end + 1);
      continue;
    }
    const Arrived arrived = await(shell);
    if (arrived.notifications) shell.takeNotifications();
    if (!arrived.input) continue;
    char buffer[4096];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
    if (size <= 0) break;
    unread.append(buffer, static_cast<std::size_t>(size));
  }
  if (!unread.empty() && !shell.hasEnded()) shell.take(unread);
}

#ifdef QUILLWORK_EDITLINE

std::string historyFile() {
  const char* const home = std::getenv("HOME");
  return home == nullptr ? std::string() : std::string(home) + "/.quillwork_history";
}

/// The library wants functions, and has one line to edit.
Shell* edited = nullptr;

void takeEditedLine(char* line) {
  if (line == nullptr) {
    edited->end();
    std::puts("");
  } else {
    const std::string text = line;
    std::free(line);
    if (!text.empty()) add_history(text.c_str());
    edited->take(text);
  }
  // The library gives the terminal back for the time in which a line is carried out, and would take
  // it again with the next key only.
  if (!edited->hasEnded()) rl_callback_handler_install(prompt, takeEditedLine);
}

/// Takes the line off the screen that is being typed, and shows it again below.
void takeNotificationsBetween(Shell& shell) {
  std::fputs("\r\033[K", stdout);
  shell.takeNotifications();
  std::fflush(stdout);
  rl_forced_update_display();
}

char** complete(const char* word, int begin, int) {
  const std::string before(rl_line_buffer, static_cast<std::size_t>(begin));
  const std::vector<std::string> found = completions(before + word);
  rl_attempted_completion_over = 1;
  if (found.empty()) return nullptr;
  std::string common = found.front();
  for (const std::string& candidate : found) {
    const auto end = std::ranges::mismatch(common, candidate).in1;
    common.erase(end, common.end());
  }
  // The first is what all have in common; the library frees all of them.
  auto** const list = static_cast<char**>(std::calloc(found.size() + 2, sizeof(char*)));
  if (list == nullptr) return nullptr;
  list[0] = strdup(common.c_str());
  std::ranges::transform(found, list + 1,
                         [](const std::string& text) { return strdup(text.c_str()); });
  return list;
}

void runEdited(Shell& shell) {
  const std::string history = historyFile();
  edited = &shell;
  using_history();
  stifle_history(1000);
  read_history(history.c_str());
  rl_attempted_completion_function = complete;
  rl_callback_handler_install(prompt, takeEditedLine);
  while (!shell.hasEnded()) {
    const Arrived arrived = await(shell);
    if (arrived.notifications) takeNotificationsBetween(shell);
    if (arrived.input) rl_callback_read_char();
  }
  rl_callback_handler_remove();
  write_history(history.c_str());
}

#endif

}  // namespace

std::vector<std::string> splitWords(const std::string& line) {
  std::vector<std::string> words;
  std::optional<std::string> word;
  char quote = '\0';
  for (std::size_t index = 0; index < line.size(); ++index) {
    const char character = line[index];
    if (quote == '\0' && (character == ' ' || character == '\t')) {
      if (word) words.push_back(*std::exchange(word, std::nullopt));
      continue;
    }
    if (!word) word.emplace();
    if (quote == '\0' && (character == '"' || character == '\'')) {
      quote = character;
    } else if (character == quote) {
      quote = '\0';
    } else if (character == '\\' && quote != '\'' && index + 1 < line.size()) {
      *word += line[++index];
    } else {
      *word += character;
    }
  }
  if (quote != '\0') throw std::invalid_argument(fmt::format("{} is not closed", quote));
  if (word) words.push_back(*word);
  return words;
}

std::vector<std::string> completions(const std::string& line) {
  const std::size_t begin = line.find_last_of(' ');
  const std::string word = begin == std::string::npos ? line : line.substr(begin + 1);
  std::string before = begin == std::string::npos ? "" : line.substr(0, begin);
  before.erase(0, before.find_first_not_of(' '));
  std::set<std::string> candidates;
  if (before.empty()) candidates.insert(std::begin(ownWords), std::end(ownWords));
  for (const Command& command : commands()) {
    const std::string group(command.group);
    const std::string name(command.name);
    const std::string whole = group.empty() ? name : fmt::format("{} {}", group, name);
    if (before.empty()) {
      candidates.insert(group.empty() ? name : group);
    } else if (before == group) {
      candidates.insert(name);
    } else if (before == whole || before.starts_with(whole + " ")) {
      for (const Argument& argument : command.arguments) {
        if (argument.name.starts_with("--")) candidates.emplace(argument.name);
        if (argument.kind == Argument::Kind::onOff) candidates.insert({"on", "off"});
      }
      candidates.insert("--json");
    }
  }
  std::erase_if(candidates,
                [&](const std::string& candidate) { return !candidate.starts_with(word); });
  return {candidates.begin(), candidates.end()};
}

void runShell(Session& session, const RunWords& run) {
  Shell shell(session, run);
#ifdef QUILLWORK_EDITLINE
  if (isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {
    runEdited(shell);
    return;
  }
#endif
  runPlain(shell);
}

}  // namespace quillwork::cli
