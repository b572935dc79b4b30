#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/Server.h"
#include "client/Records.h"

/// The same work through other ways for two processes to talk.
namespace bench::peers {

using quillwork::client::Service;
using Section = std::vector<std::uint8_t>;

/// What every server answers.
struct Answers {
  std::int32_t integer = currentService;
  std::vector<Service> services;
  Section section;

  explicit Answers(const Shape& shape);
};

/// A client of one server. Operations throw std::runtime_error when they fail.
class Connection {
 public:
  Connection() = default;
  virtual ~Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  virtual std::int32_t integer() = 0;
  virtual std::vector<Service> services() = 0;
  virtual Section section() = 0;
  /// Waits for the next notification and returns its number.
  virtual std::int32_t notification() = 0;
};

/// The end of a pipe through which a server's process is told how many notifications to send, each
/// with the number stamp() at its beginning.
class Orders {
 public:
  explicit Orders(int file) : file_(file) {}

  [[nodiscard]] int file() const { return file_; }
  /// Waits for the next order; ends the process when nobody will give one any more.
  [[nodiscard]] std::size_t take() const;

 private:
  int file_;
};

/// A way to talk.
struct Peer {
  const char* name;
  /// Called first, in the parent, with the servers' processor. What it returns lives until both
  /// have ended. May be null.
  std::function<std::shared_ptr<void>(unsigned processor)> prepare;
  /// The server, in a process of its own; never returns.
  std::function<void(const Answers& answers, const Orders& orders)> serve;
  /// The client. Called until it does not throw, while the server starts.
  std::function<std::unique_ptr<Connection>()> connect;
};

/// Those for which this program was built.
std::vector<Peer> all();

#ifdef HAVE_SD_BUS
Peer sdBus();
Peer busDaemon();
#endif
#ifdef HAVE_ZEROMQ
Peer zeroMq();
#endif
#ifdef HAVE_GRPC
Peer grpc();
#endif

}  // namespace bench::peers
