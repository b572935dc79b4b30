// What the library does for a number of requests or notifications, to be counted by an outside
// tool: the library in this process, and a bare client on the main thread. What is counted begins
// with a call of countingBegins() and ends with one of countingEnds(), both on the thread whose
// instructions they are, so that nothing of the others' timing is counted. Usage:
// quillwork-instructions integer|services|notification COUNT

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <utility>

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

constexpr int warmUp = 20;

}  // namespace

// The outside tool knows them by their names.
extern "C" {
[[gnu::noinline]] void countingBegins() { asm volatile(""); }
[[gnu::noinline]] void countingEnds() { asm volatile(""); }
}

namespace {

/// Called on the control channel's thread in the middle of a query of an integer: begins and ends
/// with the first and the second mark.
void mark() {
  static bool hasBegun = false;
  std::exchange(hasBegun, true) ? countingEnds() : countingBegins();
}

void query(int connection, const bench::Shape& shape, std::string_view what, int times) {
  for (int index = 0; index < times; ++index) {
    bench::Host::prepare();
    what == "integer" ? ask(connection, 7, 1) : ask(connection, 6, 1 + shape.services);
  }
}

/// The client's side of a mark. Costs one query of an integer more than what is between two.
void markOn(int connection) {
  bench::Host::onCall = mark;
  ask(connection, 7, 1);
  bench::Host::onCall = nullptr;
}

void notify(const bench::Host& host, int connection, int times) {
  std::thread notifier([&] {
    for (int index = 0; index < warmUp; ++index) host.notify(index);
    countingBegins();
    for (int index = 0; index < times; ++index) host.notify(index);
    countingEnds();
  });
  message record;
  for (int index = 0; index < warmUp + times; ++index) receive(connection, record);
  notifier.join();
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
  // All threads on one processor: what runs beside what is counted is the same each time.
  bench::pinTo(bench::clientProcessor);
  bench::Shape shape;
  shape.services = 200;
  const bench::Host host(shape);
  const int connection = bench::connectTo("/dev/shm/ipc.socket");
  // From here on the client is served.
  ask(connection, 7, 1);
  if (what == "notification") {
    notify(host, connection, times);
  } else {
    query(connection, shape, what, warmUp);
    markOn(connection);
    query(connection, shape, what, times);
    markOn(connection);
  }
  close(connection);
}
