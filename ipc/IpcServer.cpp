#include "ipc/IpcServer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ipc/AcceptThread.h"
#include "ipc/Cancellation.h"
#include "ipc/Lock.h"

namespace quillwork {
namespace {

// Shared by all servers of the process: the sending operations reach the client through
// clientSocket alone.
int listenSocket = -1;
int clientSocket = -1;

// The socket that a failed start() left open, -1 for none; the next start() closes it.
int abandonedSocket = -1;

// Everybody who sends is inside. stop() closes it, so that neither a host thread nor the accept
// thread waits for the send mutex while stop() holds it and joins.
Gate senders;

// Held while the client's descriptor is shut down or closed, never while something blocks: its
// number cannot pass to another file in between. Taken after the send mutex.
pthread_mutex_t descriptorMutex = PTHREAD_MUTEX_INITIALIZER;

std::atomic_ref<int> client() { return std::atomic_ref<int>(clientSocket); }

}  // namespace

IpcServer::IpcServer(IpcListener* listenerToCall, const char* path, int length)
    : listener(listenerToCall),
      thread(),
      sendMutex(PTHREAD_MUTEX_INITIALIZER),
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
  std::free(socketPath);
}

void IpcServer::start() {
  const std::atomic_ref<bool> inService(running);
  if (inService.load()) return;
  if (abandonedSocket != -1) close(std::exchange(abandonedSocket, -1));
  // The number may belong to a file of the host's by now.
  client().store(-1);
  if (!openListeningSocket(listenSocket, socketPath, socketPathLength)) {
    abandonedSocket = listenSocket;
    return;
  }
  pthread_mutex_init(&sendMutex, nullptr);
  senders.open();
  // Whoever stops the server right away must find its thread.
  if (createAcceptThread(thread, run, this) == 0) {
    inService.wait(false);
  } else {
    abandonedSocket = listenSocket;
  }
}

void IpcServer::breakOffSends() {
  senders.close();
  const Lock lock(descriptorMutex);
  // Only the sending direction: the accept thread's receive must not take this for the client's
  // leaving.
  if (client().load() != -1) shutdown(client().load(), SHUT_WR);
}

void IpcServer::stop() {
  const std::atomic_ref<bool> inService(running);
  if (!inService.load()) return;
  // Every send from here on fails, the blocked one first; the send mutex is free for good when the
  // last sender has left. The cancellation comes first, so that an accept thread that is in the
  // middle of a long reply finds it when it finds the gate closed.
  pthread_cancel(thread);
  breakOffSends();
  senders.awaitEmpty();
  pthread_mutex_lock(&sendMutex);
  pthread_join(thread, nullptr);
  if (client().load() != -1) close(client().load());
  close(listenSocket);
  inService.store(false);
  pthread_mutex_unlock(&sendMutex);
  pthread_mutex_destroy(&sendMutex);
}

void* IpcServer::run(void* server) {
  if (server == nullptr) return nullptr;
  pthread_setname_np(pthread_self(), "ipc-control");
  // A cancellation strikes only where this thread waits for its client or for the manager mutex,
  // never inside the host's code.
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  isCancellableHere = true;
  static_cast<IpcServer*>(server)->serve();
  return nullptr;
}

void IpcServer::serve() {
  const std::atomic_ref<bool> inService(running);
  const int listening = listenSocket;
  inService.store(true);
  inService.notify_all();
  do {
    int connection = -1;
    {
      const CancellationScope scope(PTHREAD_CANCEL_ENABLE);
      connection = acceptClient(listening);
    }
    if (connection == -1 || !admit(connection)) return;
    if (!serveClient(connection)) return;
  } while (inService.load());
}

// Makes the connection the one that is sent to. One that comes when the sends have been broken off
// is closed at once: nobody would break off a send to it.
bool IpcServer::admit(int connection) {
  const Lock lock(descriptorMutex);
  if (senders.isClosed()) {
    close(connection);
    return false;
  }
  client().store(connection);
  return true;
}

// One connection, from its first event to its last. False when the server is being stopped: then
// stop() closes the connection and nobody hears of its end.
bool IpcServer::serveClient(int connection) {
  message record{};
  if (listener == nullptr || callHost([&] { listener->clientConnected(); })) {
    receiveRecords(connection, record);
  }
  if (senders.isClosed()) return false;
  if (listener != nullptr) {
    record.group = VIDEO;
    record.type = 2;
    callHost([&] { listener->update(record); });
  }
  if (!closeConnection(connection)) return false;
  if (listener != nullptr) callHost([&] { listener->clientDisconnected(); });
  return true;
}

void IpcServer::receiveRecords(int connection, message& record) {
  for (;;) {
    ssize_t received = 0;
    {
      const CancellationScope scope(PTHREAD_CANCEL_ENABLE);
      received = recv(connection, &record, sizeof record, MSG_WAITALL);
    }
    if (received <= 0 || senders.isClosed()) return;
    if (listener != nullptr && !callHost([&] { listener->update(record); })) return;
  }
}

bool IpcServer::closeConnection(int connection) {
  // Wakes a sender that is blocked towards a client that only half went away.
  shutdown(connection, SHUT_RDWR);
  const Turn turn(*this);
  if (!turn.stay_) return false;
  const Lock lock(descriptorMutex);
  close(connection);
  // Another server may have put its own client there.
  client().compare_exchange_strong(connection, -1);
  return true;
}

bool IpcServer::sendMessage(message& record) { return Turn(*this).sendMessage(record); }

bool IpcServer::sendMessage(const void* data, unsigned int length) {
  return Turn(*this).sendMessage(data, length);
}

IpcServer::Turn::Turn(IpcServer& server) : server_(server), stay_(senders) {
  if (stay_) pthread_mutex_lock(&server_.sendMutex);
}

IpcServer::Turn::~Turn() {
  if (stay_) pthread_mutex_unlock(&server_.sendMutex);
}

bool IpcServer::Turn::sendMessage(message& record) {
  return sendBytes(&record, sizeof record, "Can't send message");
}

bool IpcServer::Turn::sendMessage(const void* data, unsigned int length) {
  return sendBytes(data, length, "Can't send raw message");
}

bool IpcServer::Turn::sendBytes(const void* data, unsigned int length, const char* complaint) {
  if (senders.isClosed()) {
    // A stop must not wait for the rest of a long reply to fail piece by piece.
    if (isCancellableHere) {
      const CancellationScope scope(PTHREAD_CANCEL_ENABLE);
      pthread_testcancel();
    }
    if (!stay_) {
      errno = EBADF;
      std::perror(complaint);
      return false;
    }
  }
  const ssize_t sent = send(client().load(), data, length, MSG_NOSIGNAL);
  if (sent >= 0 && static_cast<unsigned int>(sent) == length) return true;
  std::perror(complaint);
  return false;
}

}  // namespace quillwork
