// What the library does for a number of requests or notifications, to be counted by an outside
// tool: the library in this process, and a bare client on the main thread. Usage:
// quillwork-instructions integer|services|notification COUNT

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "bench/Host.h"
#include "bench/Server.h"
#include "protocol/message.h"
#include "support/OwnSharedMemory.h"

using quillwork::message;

namespace {

void receive(int connection, message& record) {
  if (recv(connection, &record, sizeof record, MSG_WAITALL) != sizeof record) std::exit(1);
}

void ask(int connection, std::int32_t type, std::size_t replies) {
  message record{};
  record.group = quillwork::SI;
  record.type = type;
  if (send(connection, &record, sizeof record, 0) != sizeof record) std::exit(1);
  while (replies-- > 0) receive(connection, record);
}

}  // namespace

int main(int count, char** values) {
  const std::string_view what = count == 3 ? values[1] : "";
  const int times = count == 3 ? std::atoi(values[2]) : 0;
  if (times <= 0 || (what != "integer" && what != "services" && what != "notification")) {
    std::fputs("usage: quillwork-instructions integer|services|notification COUNT\n", stderr);
    return 1;
  }
  takeOwnSharedMemory();
  bench::Shape shape;
  shape.services = 200;
  const bench::Host host(shape);
  const int connection = bench::connectTo("/dev/shm/ipc.socket");
  // From here on the client is served.
  ask(connection, 7, 1);
  if (what == "notification") {
    std::thread notifier([&] {
      for (int index = 0; index < times; ++index) host.notify(index);
    });
    message record;
    for (int index = 0; index < times; ++index) receive(connection, record);
    notifier.join();
  } else {
    for (int index = 0; index < times; ++index) {
      bench::Host::prepare();
      what == "integer" ? ask(connection, 7, 1) : ask(connection, 6, 1 + shape.services);
    }
  }
  close(connection);
}
