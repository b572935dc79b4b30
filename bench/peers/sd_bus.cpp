// D-Bus by sd-bus, from process to process and through a daemon.

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "bench/peers/Peer.h"

namespace bench::peers {
namespace {

constexpr const char* busName = "bench.Receiver";
constexpr const char* objectPath = "/receiver";
constexpr const char* interfaceName = "bench.Receiver";

int check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
  return result;
}

struct Unref {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_message* text) const { sd_bus_message_unref(text); }
};
using Bus = std::unique_ptr<sd_bus, Unref>;
using Text = std::unique_ptr<sd_bus_message, Unref>;

// The server.

int replyInteger(sd_bus_message* call, void* answers, sd_bus_error*) {
  return sd_bus_reply_method_return(call, "i", static_cast<const Answers*>(answers)->integer);
}

int replyServices(sd_bus_message* call, void* answers, sd_bus_error*) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_return(call, &made), "reply");
  const Text reply(made);
  check(sd_bus_message_open_container(made, 'a', "(iiiiis)"), "reply");
  for (const Service& service : static_cast<const Answers*>(answers)->services) {
    const auto& values = service.values;
    check(sd_bus_message_append(made, "(iiiiis)", values[0], values[1], values[2], values[3],
                                values[4], service.name.c_str()),
          "reply");
  }
  check(sd_bus_message_close_container(made), "reply");
  return sd_bus_send(nullptr, made, nullptr);
}

int replySection(sd_bus_message* call, void* answers, sd_bus_error*) {
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_return(call, &made), "reply");
  const Text reply(made);
  const Section& section = static_cast<const Answers*>(answers)->section;
  check(sd_bus_message_append_array(made, 'y', section.data(), section.size()), "reply");
  return sd_bus_send(nullptr, made, nullptr);
}

const sd_bus_vtable operations[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Integer", "", "i", replyInteger, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Services", "", "a(iiiiis)", replyServices, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Section", "", "ay", replySection, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("Ended", "i", 0),
    SD_BUS_VTABLE_END};

void serveOn(sd_bus* bus, const Answers& answers, const Orders& orders) {
  check(sd_bus_add_object_vtable(bus, nullptr, objectPath, interfaceName, operations,
                                 const_cast<Answers*>(&answers)),
        "object");
  for (;;) {
    while (check(sd_bus_process(bus, nullptr), "process") > 0) {
    }
    pollfd inputs[] = {{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
                       {orders.file(), POLLIN, 0}};
    poll(inputs, 2, -1);
    if (inputs[1].revents == 0) continue;
    for (std::size_t left = orders.take(); left > 0; --left) {
      check(sd_bus_emit_signal(bus, objectPath, interfaceName, "Ended", "i", stamp()), "signal");
    }
  }
}

// The client.

class BusConnection : public Connection {
 public:
  BusConnection(Bus bus, const char* destination) : bus_(std::move(bus)), to_(destination) {
    check(sd_bus_match_signal(bus_.get(), nullptr, nullptr, objectPath, interfaceName, "Ended",
                              onSignal, this),
          "match");
  }

  std::int32_t integer() override {
    const Text reply = call("Integer");
    std::int32_t value = 0;
    check(sd_bus_message_read(reply.get(), "i", &value), "integer");
    return value;
  }

  std::vector<Service> services() override {
    const Text reply = call("Services");
    std::vector<Service> services;
    check(sd_bus_message_enter_container(reply.get(), 'a', "(iiiiis)"), "services");
    std::array<std::int32_t, 5> v{};
    const char* name = nullptr;
    while (check(sd_bus_message_read(reply.get(), "(iiiiis)", &v[0], &v[1], &v[2], &v[3], &v[4],
                                     &name),
                 "services") > 0) {
      services.push_back({v, name});
    }
    return services;
  }

  Section section() override {
    const Text reply = call("Section");
    const void* bytes = nullptr;
    std::size_t size = 0;
    check(sd_bus_message_read_array(reply.get(), 'y', &bytes, &size), "section");
    const auto* const begin = static_cast<const std::uint8_t*>(bytes);
    return {begin, begin + size};
  }

  std::int32_t notification() override {
    while (!hasSignal_) {
      if (check(sd_bus_process(bus_.get(), nullptr), "process") == 0 && !hasSignal_) {
        check(sd_bus_wait(bus_.get(), UINT64_MAX), "wait");
      }
    }
    hasSignal_ = false;
    return signal_;
  }

 private:
  Text call(const char* member) {
    sd_bus_message* reply = nullptr;
    check(
        sd_bus_call_method(bus_.get(), to_, objectPath, interfaceName, member, nullptr, &reply, ""),
        member);
    return Text(reply);
  }

  static int onSignal(sd_bus_message* received, void* connection, sd_bus_error*) {
    auto& self = *static_cast<BusConnection*>(connection);
    self.hasSignal_ = true;
    return sd_bus_message_read(received, "i", &self.signal_);
  }

  Bus bus_;
  const char* to_;
  std::int32_t signal_ = 0;
  bool hasSignal_ = false;
};

// From process to process.

struct Pair {
  int ends[2];

  Pair() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
      throw std::runtime_error("no socket pair");
    }
  }
};

Bus startBus(int file, bool isServer) {
  sd_bus* made = nullptr;
  check(sd_bus_new(&made), "bus");
  Bus bus(made);
  check(sd_bus_set_fd(made, file, file), "bus");
  check(sd_bus_set_anonymous(made, 1), "bus");
  if (isServer) {
    sd_id128_t id{};
    check(sd_id128_randomize(&id), "bus");
    check(sd_bus_set_server(made, 1, id), "bus");
  }
  check(sd_bus_start(made), "bus");
  return bus;
}

// Through a daemon.

constexpr const char* busAddress = "unix:path=/dev/shm/quillwork-bench-bus.socket";

class Daemon {
 public:
  explicit Daemon(unsigned processor) : process_(fork()) {
    if (process_ != 0) return;
    pinTo(processor);
    // It complains of limits that a test's process may not raise.
    if (std::freopen("/dev/null", "w", stderr) == nullptr) _exit(1);
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
           (std::string("--address=") + busAddress).c_str(), nullptr);
    _exit(1);
  }
  ~Daemon() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

 private:
  pid_t process_;
};

Bus connectToDaemon() {
  sd_bus* made = nullptr;
  check(sd_bus_new(&made), "bus");
  Bus bus(made);
  check(sd_bus_set_address(made, busAddress), "bus");
  check(sd_bus_set_bus_client(made, 1), "bus");
  check(sd_bus_start(made), "bus");
  return bus;
}

}  // namespace

Peer sdBus() {
  auto pair = std::make_shared<Pair>();
  return {
      "sd-bus", [pair](unsigned) { return pair; },
      [pair](const Answers& answers, const Orders& orders) {
        const Bus bus = startBus(pair->ends[1], true);
        serveOn(bus.get(), answers, orders);
      },
      [pair] { return std::make_unique<BusConnection>(startBus(pair->ends[0], false), nullptr); }};
}

Peer busDaemon() {
  return {"D-Bus daemon", [](unsigned processor) { return std::make_shared<Daemon>(processor); },
          [](const Answers& answers, const Orders& orders) {
            for (;;) {
              Bus bus;
              try {
                bus = connectToDaemon();
                check(sd_bus_request_name(bus.get(), busName, 0), "name");
              } catch (const std::runtime_error&) {
                // It is starting.
                poll(nullptr, 0, 10);
                continue;
              }
              serveOn(bus.get(), answers, orders);
            }
          },
          []() -> std::unique_ptr<Connection> {
            auto connection = std::make_unique<BusConnection>(connectToDaemon(), busName);
            connection->integer();
            return connection;
          }};
}

}  // namespace bench::peers
