#include "ipc/IpcServer.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ipc/AcceptThread.h"
#include "ipc/Cancellation.h"
#include "ipc/HostCall.h"
#include "ipc/ListeningSocket.h"
#include "ipc/PerServer.h"
#include "ipc/Report.h"
#include "ipc/SharedSocket.h"
#include "ipc/receive.h"

namespace quillwork {
namespace {

// Shared by all servers of the process: the sending operations reach the client through
// clientSocket alone.
int listenSocket = -1;
int clientSocket = -1;

}  // namespace

/// What a server's thread serves, and the threads that send.
struct IpcServer::Endpoint {
  constexpr Endpoint() : listening(listenSocket), connection(clientSocket) {}

  SharedSocket listening;
  SharedSocket connection;
  /// The threads that send are inside. The gate is closed while the server is not running: the
  /// accept thread ends when it finds the gate closed.
  Gate senders;
  std::atomic<bool> clientHasGone{false};

  static PerServer<Endpoint> all;
};

constinit PerServer<IpcServer::Endpoint> IpcServer::Endpoint::all;

IpcServer::IpcServer(IpcListener* listenerToCall, const char* path, int length)
    : listener(listenerToCall),
      thread(),
      running(false),
      socketPath(strdup(path)),
      socketPathLength(length) {
  if (length >= static_cast<int>(sizeof(sockaddr_un::sun_path))) {
    std::free(socketPath);
    socketPath = nullptr;
    socketPathLength = 0;
  }
}

IpcServer::~IpcServer() {
  stop();
  if (Endpoint* const endpoint = Endpoint::all.find(this)) {
    // A failed start has left its socket open.
    endpoint->listening.close();
    Endpoint::all.release(this);
  }
  std::free(socketPath);
}

void IpcServer::start() {
  const std::atomic_ref<bool> inService(running);
  if (inService.load()) return;
  Endpoint* const endpoint = Endpoint::all.claim(this);
  if (endpoint == nullptr) {
    errno = ENOMEM;
    reportFailure("Can't create socket");
    return;
  }
  // The number may belong to a file of the host's by now.
  std::atomic_ref(clientSocket).store(-1);
  ListeningSocket opened = openListeningSocket(socketPath, socketPathLength);
  endpoint->listening.own(std::move(opened.socket));
  if (!opened.listens) return;
  endpoint->senders.open();
  // A thread that stops the server right away must find the accept thread.
  if (createAcceptThread(thread, run, this) == 0) {
    inService.wait(false);
  } else {
    endpoint->senders.close();
  }
}

void IpcServer::breakOffSends() {
  if (Endpoint* const endpoint = Endpoint::all.find(this)) {
    endpoint->senders.close();
    endpoint->connection.shutDown();
  }
}

bool IpcServer::hasLostItsClient() const {
  const Endpoint* const endpoint = Endpoint::all.find(this);
  return endpoint != nullptr && endpoint->clientHasGone;
}

void IpcServer::cutConnection() {
  if (Endpoint* const endpoint = Endpoint::all.find(this)) endpoint->connection.shutDown();
}

void IpcServer::stop() {
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  const std::atomic_ref<bool> inService(running);
  if (!inService.load()) return;
  Endpoint& endpoint = *Endpoint::all.find(this);
  // Every send from here on fails, the blocked one first. The thread wakes where it waits for a
  // client or for its next record.
  breakOffSends();
  endpoint.listening.shutDown();
  pthread_join(thread, nullptr);
  endpoint.senders.awaitEmpty();
  endpoint.connection.close();
  endpoint.listening.close();
  inService.store(false);
}

void* IpcServer::run(void* server) {
  if (server == nullptr) return nullptr;
  beginAcceptThread("ipc-control");
  auto& self = *static_cast<IpcServer*>(server);
  self.serve(*Endpoint::all.find(server));
  return nullptr;
}

void IpcServer::serve(Endpoint& endpoint) {
  const std::atomic_ref<bool> inService(running);
  inService.store(true);
  inService.notify_all();
  message record{};
  do {
    Descriptor accepted = acceptClient(endpoint.listening.number());
    if (accepted.number() == -1) {
      if (!endpoint.senders.isClosed()) reportFailure("Can't accept new connections");
      return;
    }
    endpoint.clientHasGone = false;
    endpoint.connection.own(std::move(accepted));
    // stop() has broken off the sends before this client came, and would not break off a send to
    // this one. A send may already use the number: stop() closes it.
    if (endpoint.senders.isClosed()) return endpoint.connection.shutDown();
  } while (serveClient(endpoint, record));
}

// One connection, from its first event to its last. False when the server is being stopped: then
// stop() closes the connection, and the listener is not told of its end.
bool IpcServer::serveClient(Endpoint& endpoint, message& record) {
  if (listener == nullptr || callHost([&] { listener->clientConnected(); })) {
    receiveRecords(endpoint, record);
  }
  if (endpoint.senders.isClosed()) return false;
  endpoint.clientHasGone = true;
  if (listener != nullptr) {
    record.group = VIDEO;
    record.type = 2;
    callHost([&] { listener->update(record); });
  }
  if (!closeConnection(endpoint)) return false;
  if (listener != nullptr) callHost([&] { listener->clientDisconnected(); });
  return true;
}

void IpcServer::receiveRecords(Endpoint& endpoint, message& record) {
  const int from = endpoint.connection.number();
  while (receiveWhole(from, &record, sizeof record) > 0 && !endpoint.senders.isClosed()) {
    if (listener != nullptr && !callHost([&] { listener->update(record); })) return;
  }
}

bool IpcServer::closeConnection(Endpoint& endpoint) {
  // Wakes a sender that is blocked towards a client which has closed only its sending direction.
  endpoint.connection.shutDown();
  const SendGuard guard(*this);
  if (!guard.isAdmitted()) return false;
  endpoint.connection.close();
  return true;
}

bool IpcServer::sendMessage(message& record) { return SendGuard(*this).sendMessage(record); }

bool IpcServer::sendMessage(const void* data, unsigned int length) {
  return SendGuard(*this).sendMessage(data, length);
}

namespace {
/// The gate of a server that was never started.
constinit Gate closedGate;
}  // namespace

Gate& IpcServer::sendersGate() {
  Endpoint* const endpoint = Endpoint::all.find(this);
  return endpoint != nullptr ? endpoint->senders : closedGate;
}

// A thread that was refused must not touch the mutex: the server may be going.
IpcServer::SendGuard::SendGuard(IpcServer& server) QUILLWORK_NO_THREAD_SAFETY_ANALYSIS
    : senders_(server.sendersGate()),
      pass_(senders_),
      mutex_(server.sendMutex) {
  if (!pass_) return;
  mutex_.lock();
  client_ = std::atomic_ref(clientSocket).load();
}

IpcServer::SendGuard::~SendGuard() QUILLWORK_NO_THREAD_SAFETY_ANALYSIS {
  if (pass_) mutex_.unlock();
}

bool IpcServer::SendGuard::sendMessage(message& record) {
  return sendBytes(&record, sizeof record, "Can't send message");
}

bool IpcServer::SendGuard::sendMessage(const void* data, unsigned int length) {
  return sendBytes(data, length, "Can't send raw message");
}

bool IpcServer::SendGuard::sendMessages(const message* records, std::size_t count) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(records);
  const std::size_t size = count * sizeof(message);
  std::size_t sent = 0;
  bool succeeded = true;
  if (!senders_.isClosed()) {
    const ssize_t taken = send(client_, bytes, size, MSG_NOSIGNAL);
    if (taken > 0) {
      sent = static_cast<std::size_t>(taken);
    } else if (errno != ENOBUFS && errno != ENOMEM) {
      // The first record's failure: the kernel says only once that a connection was reset. Where
      // memory is short a record may still pass where a piece does not.
      reportFailure("Can't send message");
      succeeded = false;
      sent = sizeof(message);
    }
  }
  while (sent < size) {
    const auto rest = static_cast<unsigned int>(sizeof(message) - sent % sizeof(message));
    succeeded = sendBytes(bytes + sent, rest, "Can't send message") && succeeded;
    sent += rest;
  }
  return succeeded;
}

bool IpcServer::SendGuard::sendBytes(const void* data, unsigned int length, const char* complaint) {
  if (senders_.isClosed()) {
    // A stop does not wait for the rest of a long reply to fail piece by piece.
    if (std::exchange(hasEnded_, true)) return false;
    errno = EBADF;
  } else {
    const ssize_t sent = send(client_, data, length, MSG_NOSIGNAL);
    if (sent >= 0 && static_cast<unsigned int>(sent) == length) return true;
  }
  reportFailure(complaint);
  return false;
}

}  // namespace quillwork
