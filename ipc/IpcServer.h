#pragma once

#include <pthread.h>

#include "ipc/Gate.h"
#include "ipc/IpcListener.h"
#include "protocol/message.h"

namespace quillwork {

/// The control channel: a Unix-domain stream socket on which one client at a time exchanges
/// `message` records with the listener.
///
/// The descriptors of the listening socket and of the client are shared by all objects of the
/// class; exactly one object exists. Failures are printed on the standard error stream with
/// perror() and are not returned.
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
  /// blocked is broken off, one that waits fails. Returns whatever the client does. Not to be
  /// called from a listener.
  void stop();

  /// The first step of a stop, for whoever has to wait for a lock before it can call stop(): every
  /// send of every server fails from here on, the blocked one at once, and no further request is
  /// heard. Nothing but a stop may follow. Any thread; does not block.
  static void breakOffSends();

  /// The accept thread: serves one client after another. `server` is an IpcServer.
  static void* run(void* server);

  /// Sends the whole record to the client. Any thread; blocks while the client does not read, or
  /// while another thread is sending. Prints a failure, then returns false.
  bool sendMessage(message& record);
  /// Sends raw bytes, likewise.
  bool sendMessage(const void* data, unsigned int length);

  /// Holds the sending side, so that a sequence of sends arrives with nothing between its parts.
  /// Blocks while another thread is sending.
  class Turn {
   public:
    explicit Turn(IpcServer& server);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// As IpcServer::sendMessage().
    bool sendMessage(message& record);
    bool sendMessage(const void* data, unsigned int length);

   private:
    friend class IpcServer;
    bool sendBytes(const void* data, unsigned int length, const char* complaint);

    IpcServer& server_;
    Gate::Stay stay_;
  };

 private:
  void serve();
  static bool admit(int connection);
  bool serveClient(int connection);
  void receiveRecords(int connection, message& record);
  bool closeConnection(int connection);

  IpcListener* listener;
  pthread_t thread;
  pthread_mutex_t sendMutex;
  bool running;
  char* socketPath;
  int socketPathLength;
};

}  // namespace quillwork
