// A minimal client: prints the services and the current one, then a notification if one comes.

#include <client/ControlChannel.h>

#include <chrono>
#include <iostream>
#include <variant>

using namespace quillwork::client;

int main() {
  try {
    ControlChannel receiver;
    receiver.onNotification([](const Notification&) { std::cout << "(a notification)\n"; });
    const int current = receiver.getCurrentService();
    for (const Service& service : receiver.getServices()) {
      std::cout << service.values[0] << ' ' << service.name
                << (service.values[0] == current ? ", the current one\n" : "\n");
    }
    if (const auto notification = receiver.waitForNotification(std::chrono::milliseconds(100))) {
      if (std::holds_alternative<ApplicationState>(*notification)) {
        receiver.answerApplicationState(true);
      }
    }
  } catch (const Error& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
