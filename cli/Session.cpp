#include "cli/Session.h"

#include <utility>
#include <variant>

namespace quillwork::cli {
namespace {

/// Between two commands; the oldest go.
constexpr std::size_t mostEarly = 1000;
constexpr std::size_t mostEarlyBytes = 32U << 20U;
constexpr std::size_t replyLimit = 512U << 20U;

/// The bytes of the one text that can be long.
std::size_t textOf(const client::Notification& notification) {
  const auto* const command = std::get_if<client::DsmCCCommand>(&notification);
  return command == nullptr ? 0 : command->text.size();
}

}  // namespace

client::ControlChannel& Session::control() {
  if (!control_) {
    control_.emplace(client::ControlChannel::defaultPath,
                     std::chrono::milliseconds(settings_.timeLimit));
    // A person sees when it gets long, and can end it.
    control_->setReplyLimit(replyLimit);
    control_->onNotification([this](const client::Notification& notification) {
      early_.push_back(notification);
      earlyBytes_ += textOf(notification);
      while (early_.size() > mostEarly || earlyBytes_ > mostEarlyBytes) {
        earlyBytes_ -= textOf(early_.front());
        early_.pop_front();
      }
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
  earlyBytes_ -= textOf(notification);
  return notification;
}

void Session::disconnect() {
  control_.reset();
  sections_.reset();
}

}  // namespace quillwork::cli
