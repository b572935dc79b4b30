#include "client/Session.h"

namespace quillwork::client {

ControlChannel& Session::control() {
  if (!control_) {
    control_.emplace(ControlChannel::defaultPath, std::chrono::milliseconds(settings_.timeLimit));
    control_->onNotification(handler_);
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

void Session::disconnect() {
  control_.reset();
  sections_.reset();
}

}  // namespace quillwork::client
