#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "cli/Session.h"
#include "protocol/operations.h"

namespace quillwork::cli {

/// An argument of a command: one that stands in its place, an option when its name begins with
/// "--".
struct Argument {
  /// The `absent` of an argument that is not there at all without being given.
  static constexpr std::string_view unset = "(unset)";

  enum class Kind { integer, real, text, onOff, flag };

  std::string_view name;
  Kind kind = Kind::integer;
  std::string_view description;
  /// What it is without being given; nothing where it has to be.
  std::optional<std::string_view> absent;
  double least = INT32_MIN;
  double most = INT32_MAX;

  /// What is wrong with the text, empty for nothing.
  [[nodiscard]] std::string complaint(const std::string& text) const;
  /// The numbers that it takes, in words; empty where it takes any.
  [[nodiscard]] std::string range() const;
};

/// What was given for the arguments of a command.
class Values {
 public:
  void set(std::string_view name, std::string text) { texts_[name] = std::move(text); }
  /// For an argument that was not given.
  void setAbsent(const Argument& argument);
  [[nodiscard]] bool has(std::string_view name) const { return texts_.contains(name); }

  [[nodiscard]] std::int32_t integer(std::string_view name) const;
  [[nodiscard]] double real(std::string_view name) const;
  [[nodiscard]] const std::string& text(std::string_view name) const { return texts_.at(name); }
  [[nodiscard]] bool isOn(std::string_view name) const { return text(name) == "on"; }

 private:
  /// The names are the commands' own, which last.
  std::map<std::string_view, std::string> texts_;
};

/// What the receiver does not do; the connections are as before.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What was asked for is not there.
struct NothingFound : Refusal {
  using Refusal::Refusal;
};

/// Of the program.
enum ExitStatus { answered = 0, failed = 1, nothingFound = 2 };

/// What the commands of a group do.
std::string_view descriptionOf(std::string_view group);

struct Command {
  /// The first of two words, where several commands belong together; else empty.
  std::string_view group;
  std::string_view name;
  std::string_view description;
  operations::Values<Argument, 8> arguments;
  /// Throws client::Error, Refusal, or std::invalid_argument for what is wrong with the arguments.
  void (*run)(Session& session, const Values& values);
};

/// Every command that there is, in the order of the help.
std::span<const Command> commands();

}  // namespace quillwork::cli
