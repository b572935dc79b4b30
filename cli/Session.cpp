#include "cli/Session.h"

namespace quillwork::cli {
namespace {

/// Between two commands; the oldest go.
constexpr std::size_t mostEarly = 1000;
constexpr std::size_t replyLimit = 512U << 20U;

}  // namespace

client::ControlChannel& Session::control() {
  if (!control_) {
    control_.emplace(client::ControlChannel::defaultPath,
                     std::chrono::milliseconds(settings_.timeLimit));
    // A person sees when it gets long, and can end it.
    control_->setReplyLimit(replyLimit);
    control_->onNotification([this](const client::Notification& notification) {
      if (early_.size() == mostEarly) early_.pop_front();
      early_.push_back(notification);
    });
  }
  return *control_;
}

client::SectionFilterChannel& Session::sections() {
  if (!sections_) {
    sections_.emplace(client::SectionFilterChannel::defaultPath,
                      std::chrono::milliseconds(settings_.timeLimit));
  }
  return *sections_;
}

std::optional<client::Notification> Session::takeEarly() {
  if (early_.empty()) return std::nullopt;
  client::Notification notification = std::move(early_.front());
  early_.pop_front();
  return notification;
}

void Session::disconnect() {
  control_.reset();
  sections_.reset();
}

}  // namespace quillwork::cli
