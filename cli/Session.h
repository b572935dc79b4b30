#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"

namespace quillwork::cli {

/// The connections that commands use, each made when one first needs it and then kept, and how what
/// they bring is shown.
class Session {
 public:
  struct Settings {
    bool json = false;
    int timeLimit = 10'000;  ///< milliseconds
  };

  explicit Session(Settings settings) : settings_(settings) {}

  [[nodiscard]] const Settings& settings() const { return settings_; }
  /// For the next command only, where a shell gives it one.
  void setJson(bool json) { settings_.json = json; }

  client::ControlChannel& control();
  client::SectionFilterChannel& sections();
  /// Whether there is a control channel already.
  [[nodiscard]] bool isConnected() const { return control_.has_value(); }
  /// Gives up what is out of step.
  void disconnect();

  /// The next notification that came while a command waited for its reply.
  std::optional<client::Notification> takeEarly();

 private:
  Settings settings_;
  std::deque<client::Notification> early_;
  std::size_t earlyBytes_ = 0;
  std::optional<client::ControlChannel> control_;
  std::optional<client::SectionFilterChannel> sections_;
};

}  // namespace quillwork::cli
