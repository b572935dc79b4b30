#pragma once

#include <pthread.h>

#include "ipc/IpcDemuxServerListener.h"

namespace quillwork {

/// The section-filter channel: a Unix-domain stream socket on which one client at a time sends
/// request codes with their arguments, and reads sections. docs/protocol.md describes the bytes.
///
/// The descriptors of the listening socket and of the client are shared by all objects of the
/// class, but each accept thread receives from, sends to and closes its own connection only.
/// Failures are printed on the standard error stream, as perror() prints them, and are not
/// returned. What the stream does not take at once is dropped.
class IpcDemuxServer {
 public:
  /// A server for "/dev/shm/ipcdemux.socket" without a listener. Opens nothing.
  IpcDemuxServer();
  /// Does not stop the server: its thread lives on without a listener, and its sockets stay open.
  virtual ~IpcDemuxServer();
  IpcDemuxServer(const IpcDemuxServer&) = delete;
  IpcDemuxServer& operator=(const IpcDemuxServer&) = delete;

  /// Borrows the one listener in place of the one before it; null for none, whereupon requests are
  /// not understood any more. Takes no lock; a call into the listener before it may still run.
  void setListener(IpcDemuxServerListener* listener);

  /// Puts a listener that accepts and ignores everything into the place of this one in every
  /// server. When it returns, no call into the listener is in progress or will begin: one that does
  /// not come back by itself is cancelled, and its client is answered with the count 0. Any thread
  /// but an accept thread; takes half a second at most, unless the call cannot be cancelled.
  static void releaseListener(IpcDemuxServerListener* listener);

  /// Binds the socket, replacing a file at its path, and starts the accept thread. Does nothing
  /// while the server is running, which it is after a failed start, too; prints what failed.
  void start();

  /// Ends the accept thread, which is cancelled where it blocks inside the listener, and closes
  /// both sockets; the socket's file stays. A cancellation of the calling thread waits until then.
  /// Not to be called from a listener.
  void stop();

  /// Whether it has a thread, which may outlive the server; a failed start leaves none.
  [[nodiscard]] bool hasThread() const;

  /// The accept thread: serves one client after another. `server` is an IpcDemuxServer.
  static void* run(void* server);

 private:
  friend class DemuxSession;

  IpcDemuxServerListener* listener;
  const char* socketPath;
  int socketPathLength;
  bool running;
  pthread_t thread;
};

}  // namespace quillwork
