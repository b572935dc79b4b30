// quillwork-client: asks the receiver behind the library's two sockets, from the command line.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/Output.h"
#include "cli/Session.h"
#include "cli/Shell.h"
#include "common/Number.h"

namespace {

using namespace quillwork::cli;
using quillwork::parseInteger;

constexpr Argument timeLimit{"--time-limit", Argument::Kind::integer, {}, {}, 1};

/// The heading of the commands in what --help prints.
constexpr const char* commandGroup = "Commands";

/// The command line of one call, or of one line in the shell.
class CommandLine {
 public:
  /// `isInShell`: without what holds for the whole program.
  CommandLine(Session::Settings& settings, bool isInShell);

  /// Parses the words, of which the first is the command; throws CLI::Error. Afterwards there is
  /// something to run, unless the shell was asked for.
  void parse(std::vector<std::string> words);
  [[nodiscard]] bool isShell() const { return isShell_; }
  void run(Session& session) const { chosen_->run(session, values_); }

  /// What is wrong, in one line.
  [[nodiscard]] std::string describe(const CLI::Error& error) const;
  void printHelp(const CLI::Error& error) { application_.exit(error); }

 private:
  /// An argument of the command that is chosen, as it was written.
  struct Written {
    const Argument* argument;
    CLI::Option* option;
    std::unique_ptr<std::string> text = std::make_unique<std::string>();
  };

  CLI::App& parentOf(const Command& command);
  void add(const Command& command);
  static void check(const Argument& argument, CLI::Option& option);
  void choose(const Command& command, const std::vector<Written>& written);

  CLI::App application_{
      "Asks a receiver through the sockets /dev/shm/ipc.socket and /dev/shm/ipcdemux.socket",
      "quillwork-client"};
  const Command* chosen_ = nullptr;
  Values values_;
  bool isShell_ = false;
};

CommandLine::CommandLine(Session::Settings& settings, bool isInShell) {
  application_.require_subcommand(1);
  application_.get_formatter()->label("SUBCOMMAND", "COMMAND");
  application_.add_flag("--json", settings.json, "print JSON with the protocol's field names");
  if (!isInShell) {
    application_.set_version_flag("--version", "quillwork-client " QUILLWORK_VERSION);
    const auto setLimit = [&settings](const std::string& text) {
      settings.timeLimit = static_cast<int>(parseInteger(text).value());
    };
    CLI::Option* const limit = application_.add_option_function<std::string>(
        "--time-limit", setLimit, "milliseconds to wait for an answer");
    check(timeLimit, *limit);
    application_
        .add_subcommand("shell",
                        "read commands from the standard input, a line each, and run them on one "
                        "connection; 'answer yes|no' answers an application state, 'quit' ends it")
        ->group(commandGroup)
        ->fallthrough()
        ->callback([this] { isShell_ = true; });
  }
  for (const Command& command : commands()) add(command);
}

/// The application, or the command that the command's group is.
CLI::App& CommandLine::parentOf(const Command& command) {
  if (command.group.empty()) return application_;
  const auto known = application_.get_subcommands(
      [&](const CLI::App* candidate) { return candidate->get_name() == command.group; });
  if (!known.empty()) return *known.front();
  CLI::App* const parent = application_.add_subcommand(std::string(command.group),
                                                       std::string(descriptionOf(command.group)));
  parent->group(commandGroup);
  parent->require_subcommand(1);
  parent->fallthrough();
  return *parent;
}

void CommandLine::add(const Command& command) {
  CLI::App* const added =
      parentOf(command).add_subcommand(std::string(command.name), std::string(command.description));
  added->group(commandGroup);
  added->fallthrough();
  auto written = std::make_shared<std::vector<Written>>();
  for (const Argument& argument : command.arguments) {
    Written entry{&argument, nullptr};
    const std::string name(argument.name);
    const std::string description(argument.description);
    if (argument.kind == Argument::Kind::flag) {
      entry.option = added->add_flag(name + "{on}", *entry.text, description);
    } else {
      entry.option = added->add_option(name, *entry.text, description);
      check(argument, *entry.option);
      if (!argument.absent) entry.option->required();
    }
    written->push_back(std::move(entry));
  }
  added->callback([this, &command, written] { choose(command, *written); });
}

void CommandLine::check(const Argument& argument, CLI::Option& option) {
  switch (argument.kind) {
    case Argument::Kind::integer:
    case Argument::Kind::real:
      option.check([&argument](const std::string& text) { return argument.complaint(text); });
      option.type_name(argument.range().empty() ? "NUMBER" : argument.range());
      break;
    case Argument::Kind::onOff:
      option.check(CLI::IsMember({"on", "off"}));
      break;
    case Argument::Kind::text:
    case Argument::Kind::flag:
      break;
  }
}

void CommandLine::choose(const Command& command, const std::vector<Written>& written) {
  chosen_ = &command;
  for (const Written& entry : written) {
    const Argument& argument = *entry.argument;
    const bool isGiven = entry.option->count() > 0;
    if (isGiven) {
      values_.set(argument.name, *entry.text);
    } else {
      values_.setAbsent(argument);
    }
  }
}

void CommandLine::parse(std::vector<std::string> words) {
  // CLI11 takes them from the end.
  std::reverse(words.begin(), words.end());
  application_.parse(std::move(words));
}

std::string CommandLine::describe(const CLI::Error& error) const {
  const auto given = application_.get_subcommands();
  const CLI::App* const last = given.empty() ? &application_ : given.front();
  const bool lacksCommand =
      last->get_require_subcommand_min() > 0 && last->get_subcommands().empty();
  if (!lacksCommand) return error.what();
  const std::string before = given.empty() ? "" : last->get_name() + " ";
  const auto unknown = application_.remaining(true);
  if (!unknown.empty()) return fmt::format("unknown command '{}{}'", before, unknown.front());
  if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr) return error.what();
  return fmt::format("a command is required; '{}--help' lists them", before);
}

void complain(const std::string& error) {
  // Not by fmt::print(), which throws where nobody can read it.
  std::fputs(("quillwork-client: " + printable(error) + "\n").c_str(), stderr);
}

/// A line of the shell: what goes wrong with it is said, and the next one is read.
void runLine(Session& session, std::vector<std::string> words) {
  if (words == std::vector<std::string>{"help"}) words = {"--help"};
  Session::Settings settings = session.settings();
  const bool json = settings.json;
  CommandLine line(settings, true);
  try {
    line.parse(std::move(words));
    session.setJson(settings.json);
    line.run(session);
  } catch (const CLI::Success& success) {
    line.printHelp(success);
  } catch (const CLI::Error& error) {
    complain(line.describe(error));
  } catch (const std::invalid_argument& error) {
    complain(error.what());
  } catch (const Refusal& error) {
    complain(error.what());
  } catch (const std::exception& error) {
    complain(error.what());
    // A connection that was cut short, or is out of step, is made anew.
    session.disconnect();
  }
  session.setJson(json);
}

int runOnce(CommandLine& line, Session& session) {
  try {
    line.run(session);
  } catch (const NothingFound& error) {
    complain(error.what());
    return nothingFound;
  } catch (const std::exception& error) {
    complain(error.what());
    return failed;
  }
  return answered;
}

/// The status, unless what was printed cannot be written, on a full disk for instance.
int withOutputWritten(int status) {
  if (status != answered || std::fflush(stdout) == 0) return status;
  complain(fmt::format("the output cannot be written: {}", std::strerror(errno)));
  return failed;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  // The widths of characters; everything else stays as in the C locale.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
  Session::Settings settings;
  CommandLine line(settings, false);
  try {
    line.parse({arguments + 1, arguments + argumentCount});
  } catch (const CLI::Success& success) {
    line.printHelp(success);
    return withOutputWritten(answered);
  } catch (const CLI::Error& error) {
    complain(line.describe(error));
    return failed;
  }
  Session session(settings);
  if (!line.isShell()) return withOutputWritten(runOnce(line, session));
  runShell(session, [&](const std::vector<std::string>& words) { runLine(session, words); });
  return withOutputWritten(answered);
}
