// ZeroMQ over Unix-domain sockets, with bytes that this file lays out: it brings no form of its
// own.

#include <poll.h>
#include <unistd.h>
#include <zmq.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "bench/peers/Peer.h"

namespace bench::peers {
namespace {

constexpr const char* requestPath = "ipc:///dev/shm/quillwork-bench-zeromq";
constexpr const char* notificationPath = "ipc:///dev/shm/quillwork-bench-zeromq-notifications";

int check(int result) {
  if (result < 0) throw std::runtime_error(std::string("zeromq: ") + zmq_strerror(errno));
  return result;
}

class Socket {
 public:
  Socket(void* context, int type) : socket_(zmq_socket(context, type)) {
    const int atOnce = 0;
    zmq_setsockopt(socket_, ZMQ_LINGER, &atOnce, sizeof atOnce);
  }
  ~Socket() { zmq_close(socket_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  void bind(const char* path) const { check(zmq_bind(socket_, path)); }
  void connect(const char* path) const { check(zmq_connect(socket_, path)); }
  void send(const void* data, std::size_t size) const { check(zmq_send(socket_, data, size, 0)); }
  /// The bytes of the next text.
  [[nodiscard]] Section receive() const {
    zmq_msg_t text;
    zmq_msg_init(&text);
    check(zmq_msg_recv(&text, socket_, 0));
    const auto* const begin = static_cast<const std::uint8_t*>(zmq_msg_data(&text));
    Section bytes(begin, begin + zmq_msg_size(&text));
    zmq_msg_close(&text);
    return bytes;
  }
  [[nodiscard]] void* get() const { return socket_; }

 private:
  void* socket_;
};

template <class Value>
void append(Section& bytes, const Value& value) {
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(&value);
  bytes.insert(bytes.end(), begin, begin + sizeof value);
}

Section packed(const std::vector<Service>& services) {
  Section bytes;
  for (const Service& service : services) {
    append(bytes, service.values);
    append(bytes, static_cast<std::uint32_t>(service.name.size()));
    bytes.insert(bytes.end(), service.name.begin(), service.name.end());
  }
  return bytes;
}

std::vector<Service> unpacked(const Section& bytes) {
  std::vector<Service> services;
  for (std::size_t at = 0; at < bytes.size();) {
    Service& service = services.emplace_back();
    std::uint32_t length = 0;
    std::memcpy(&service.values, &bytes.at(at), sizeof service.values);
    at += sizeof service.values;
    std::memcpy(&length, &bytes.at(at), sizeof length);
    at += sizeof length;
    service.name.assign(reinterpret_cast<const char*>(bytes.data()) + at, length);
    at += length;
  }
  return services;
}

void serve(const Answers& answers, const Orders& orders) {
  void* const context = zmq_ctx_new();
  const Socket requests(context, ZMQ_REP);
  const Socket notifications(context, ZMQ_PUSH);
  requests.bind(requestPath);
  notifications.bind(notificationPath);
  for (;;) {
    zmq_pollitem_t inputs[] = {{requests.get(), 0, ZMQ_POLLIN, 0},
                               {nullptr, orders.file(), ZMQ_POLLIN, 0}};
    check(zmq_poll(inputs, 2, -1));
    if (inputs[1].revents != 0) {
      for (std::size_t left = orders.take(); left > 0; --left) {
        const std::int32_t number = stamp();
        notifications.send(&number, sizeof number);
      }
    }
    if (inputs[0].revents == 0) continue;
    const Section asked = requests.receive();
    switch (asked.at(0)) {
      case 'i':
        requests.send(&answers.integer, sizeof answers.integer);
        break;
      case 's': {
        const Section bytes = packed(answers.services);
        requests.send(bytes.data(), bytes.size());
        break;
      }
      default:
        requests.send(answers.section.data(), answers.section.size());
    }
  }
}

class ZeroMqConnection : public Connection {
 public:
  ZeroMqConnection() {
    requests_.connect(requestPath);
    notifications_.connect(notificationPath);
  }
  ~ZeroMqConnection() override = default;

  std::int32_t integer() override { return number(ask('i')); }
  std::vector<Service> services() override { return unpacked(ask('s')); }
  Section section() override { return ask('b'); }
  std::int32_t notification() override { return number(notifications_.receive()); }

 private:
  Section ask(char what) {
    requests_.send(&what, 1);
    return requests_.receive();
  }
  static std::int32_t number(const Section& bytes) {
    std::int32_t value = 0;
    std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
    return value;
  }

  // Ends with the process.
  void* context_ = zmq_ctx_new();
  Socket requests_{context_, ZMQ_REQ};
  Socket notifications_{context_, ZMQ_PULL};
};

}  // namespace

Peer zeroMq() {
  return {"ZeroMQ", {}, serve, [] { return std::make_unique<ZeroMqConnection>(); }};
}

}  // namespace bench::peers
