// A client in an event loop: prints what the receiver tells it, until one line is typed.

#include <client/ControlChannel.h>
#include <poll.h>

#include <iostream>
#include <string>
#include <variant>

using namespace quillwork::client;

namespace {

void handle(ControlChannel& receiver, const Notification& notification) {
  if (const auto* const command = std::get_if<DsmCCCommand>(&notification)) {
    std::cout << "stream event: " << command->text << '\n';
  } else if (const auto* const request = std::get_if<ApplicationState>(&notification)) {
    std::cout << "application state " << request->state << '\n';
    receiver.answerApplicationState(true);
  }
}

}  // namespace

int main() {
  try {
    ControlChannel receiver;
    // What comes between a request and its reply.
    receiver.onNotification([&](const Notification& early) { handle(receiver, early); });
    pollfd inputs[] = {{receiver.fileDescriptor(), POLLIN, 0}, {0, POLLIN, 0}};
    while (poll(inputs, 2, -1) > 0 && inputs[1].revents == 0) {
      while (const auto notification = receiver.takeNotification()) {
        handle(receiver, *notification);
      }
    }
    std::string line;
    std::getline(std::cin, line);
  } catch (const Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
