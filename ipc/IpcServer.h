#pragma once

#include <pthread.h>

#include <cstddef>

#include "ipc/Gate.h"
#include "ipc/IpcListener.h"
#include "ipc/Mutex.h"
#include "protocol/message.h"

namespace quillwork {

/// The control channel: a Unix-domain stream socket on which one client at a time exchanges
/// `message` records with the listener.
///
/// The numbers of the listening socket and of the client stand in variables that all objects of the
/// class share, and every object sends to the client that came last: a process has one object.
/// Failures are printed on the standard error stream, as perror() prints them, and are not
/// returned. What the stream does not take at once is dropped.
class IpcServer {
 public:
  /// Borrows the listener, which may be null, and copies the path; `length` is the path's length in
  /// bytes, below 108. Opens nothing.
  IpcServer(IpcListener* listener, const char* path, int length);
  /// Stops the server.
  virtual ~IpcServer();
  IpcServer(const IpcServer&) = delete;
  IpcServer& operator=(const IpcServer&) = delete;

  /// Binds the socket, replacing a file at its path, and returns when the accept thread is in
  /// service. Does nothing while the server is running; prints what failed.
  void start();

  /// Ends the accept thread and closes both sockets; the socket's file stays. A send that is
  /// blocked is broken off, one that waits fails. Returns whatever the client does, when a listener
  /// that is being called has come back. A cancellation of the calling thread waits until then. Not
  /// to be called from a listener.
  void stop();

  /// The first step of a stop: every send fails from here on, the blocked one at once, and no
  /// further request is heard. Nothing but a stop may follow. Any thread; does not block.
  void breakOffSends();

  /// True from the moment at which the client is found gone, before the listener is told, until the
  /// next client is accepted. Any thread; does not block.
  [[nodiscard]] bool hasLostItsClient() const;

  /// Ends the client's connection, because what was sent last is not whole. Any thread; does not
  /// block.
  void cutConnection();

  /// The accept thread: serves one client after another. `server` is an IpcServer.
  static void* run(void* server);

  /// Sends the whole record to the client. Any thread; blocks while the client does not read, or
  /// while another thread is sending. Prints a failure, then returns false.
  bool sendMessage(message& record);
  /// Sends `length` raw bytes in the same way.
  bool sendMessage(const void* data, unsigned int length);

  class SendGuard;

 private:
  struct Endpoint;

  void serve(Endpoint& endpoint);
  bool serveClient(Endpoint& endpoint, message& record);
  void receiveRecords(Endpoint& endpoint, message& record);
  bool closeConnection(Endpoint& endpoint);
  Gate& sendersGate();

  IpcListener* listener;
  pthread_t thread;
  Mutex sendMutex;
  bool running;
  char* socketPath;
  int socketPathLength;
};

/// Holds the sending side for a scope, so that a sequence of sends arrives with nothing between its
/// parts. Blocks while another thread is sending. Must end before the server is destroyed.
class QUILLWORK_SCOPED_CAPABILITY IpcServer::SendGuard {
 public:
  explicit SendGuard(IpcServer& server) QUILLWORK_ACQUIRE(server.sendMutex);
  ~SendGuard() QUILLWORK_RELEASE();
  SendGuard(const SendGuard&) = delete;
  SendGuard& operator=(const SendGuard&) = delete;

  /// Whether the server was running when the guard was made. If it was not, nothing is held and
  /// every send fails.
  [[nodiscard]] bool isAdmitted() const { return static_cast<bool>(pass_); }

  /// As IpcServer::sendMessage(). When the server is being stopped one failure is printed, and what
  /// follows it in the sequence fails without a word.
  bool sendMessage(message& record);
  bool sendMessage(const void* data, unsigned int length);

  /// Sends `count` records that lie one behind the other, at most `maxPiece`, in one piece. What
  /// the stream does not take of it follows record by record, beginning with the rest of the one
  /// that was cut; each that fails prints its own line. Returns whether all bytes were taken.
  bool sendMessages(const message* records, std::size_t count);

  /// Sixteen records stay in one buffer of the kernel, so that a receive of one record never comes
  /// up short.
  static constexpr std::size_t maxPiece = 16;

 private:
  bool sendBytes(const void* data, unsigned int length, const char* complaint);

  Gate& senders_;
  const Gate::Pass pass_;
  Mutex& mutex_;
  // One sequence goes to one client: -1 when there was none at its beginning.
  int client_ = -1;
  bool hasEnded_ = false;
};

}  // namespace quillwork
