#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/Session.h"

namespace quillwork::cli {

/// An argument of a command: one that stands in its place, an option when its name begins with
/// "--".
struct Argument {
  enum class Kind { integer, real, text, onOff, flag };

  std::string name;
  Kind kind = Kind::integer;
  std::string description;
  /// What it is without being given; nothing where it has to be.
  std::optional<std::string> absent;
  double least = INT32_MIN;
  double most = INT32_MAX;
};

/// What was given for the arguments of a command.
class Values {
 public:
  void set(const std::string& name, std::string text) { texts_[name] = std::move(text); }
  [[nodiscard]] bool has(const std::string& name) const { return texts_.contains(name); }

  [[nodiscard]] std::int32_t integer(const std::string& name) const;
  [[nodiscard]] double real(const std::string& name) const;
  [[nodiscard]] const std::string& text(const std::string& name) const { return texts_.at(name); }
  [[nodiscard]] bool isOn(const std::string& name) const { return text(name) == "on"; }

 private:
  std::map<std::string, std::string> texts_;
};

/// What the receiver does not do; the connections are as before.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Command {
  /// One word, or two where several commands belong together.
  std::string name;
  std::string description;
  std::vector<Argument> arguments;
  /// Throws client::Error, Refusal, or std::invalid_argument for what is wrong with the arguments.
  std::function<void(Session& session, const Values& values)> run;
};

/// Every command that there is, in the order of the help.
const std::vector<Command>& commands();

}  // namespace quillwork::cli
