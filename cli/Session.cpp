#include "cli/Session.h"

namespace quillwork::client {
namespace {

/// Between two commands; the oldest go.
constexpr std::size_t mostEarly = 1000;

}  // namespace

ControlChannel& Session::control() {
  if (!control_) {
    control_.emplace(ControlChannel::defaultPath, std::chrono::milliseconds(settings_.timeLimit));
    control_->onNotification([this](const Notification& notification) {
      if (early_.size() == mostEarly) early_.pop_front();
      early_.push_back(notification);
    });
  }
  return *control_;
}

SectionFilterChannel& Session::sections() {
  if (!sections_) {
    sections_.emplace(SectionFilterChannel::defaultPath,
                      std::chrono::milliseconds(settings_.timeLimit));
  }
  return *sections_;
}

std::optional<Notification> Session::takeEarly() {
  if (early_.empty()) return std::nullopt;
  Notification notification = std::move(early_.front());
  early_.pop_front();
  return notification;
}

void Session::disconnect() {
  control_.reset();
  sections_.reset();
}

}  // namespace quillwork::client
