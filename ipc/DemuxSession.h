#pragma once

#include <pthread.h>

#include <cstdint>

#include "ipc/IpcDemuxServerListener.h"
#include "ipc/MonotonicCondition.h"
#include "ipc/Mutex.h"
#include "ipc/SectionRequest.h"
#include "ipc/SharedSocket.h"

namespace quillwork {

class IpcDemuxServer;

/// The accept thread of one section-filter server, and what it serves. The thread outlives the
/// server if the host destroys the server without stopping it. When a listener is released while
/// the thread is inside of it, the thread is cancelled and another one takes its place; the session
/// stays and needs no memory for that.
class DemuxSession {
 public:
  constexpr DemuxSession();
  DemuxSession(const DemuxSession&) = delete;
  DemuxSession& operator=(const DemuxSession&) = delete;

  /// The session of a server that is being started, or null when memory has run out.
  static DemuxSession* claim(IpcDemuxServer& server);
  /// The session of a started server, or null.
  static DemuxSession* of(const IpcDemuxServer& server);

  /// Takes the listening socket over and starts the server's accept thread. False when there is
  /// none.
  bool start(IpcDemuxServer& server, Descriptor listeningSocket);
  /// Wakes the accept thread wherever it waits, cancels it inside of the listener, and joins it;
  /// then closes both sockets and gives the session back.
  void stop();
  /// The server is being destroyed: the thread goes on without a listener.
  void detach();

  /// As IpcDemuxServer::releaseListener().
  static void releaseListener(IpcDemuxServerListener* listener);

  /// The accept thread. `session` is a DemuxSession.
  static void* run(void* session);

 private:
  class Source;

  void announce();
  void serve();
  void serveClient();
  void serveRequest(ByteSource& source);
  SectionRequest::Bytes call(const SectionRequest& request);
  IpcDemuxServerListener* beginCall();
  void endCall();
  void sendSection(const SectionRequest::Bytes& section);
  void replaceThreadInside(const IpcDemuxServerListener* listener) QUILLWORK_REQUIRES(threads);
  void endThread() QUILLWORK_REQUIRES(threads);
  void setThread(pthread_t thread) QUILLWORK_REQUIRES(threads);
  void replaceListener(IpcDemuxServerListener* listener) QUILLWORK_REQUIRES(state);

  /// Whether the thread has been told to end: it does nothing more with its sockets then.
  bool mustLeave();
  bool hasListener();
  IpcDemuxServerListener* listener() QUILLWORK_REQUIRES(state);
  static bool isCalled(const IpcDemuxServerListener* listener) QUILLWORK_REQUIRES(state);

  // Held by the one thread that starts, ends or replaces accept threads. Taken before `state`.
  static Mutex threads QUILLWORK_ACQUIRED_BEFORE(state);
  // Guards what other threads touch of each session. Nothing blocks while it is held.
  static Mutex state;
  // Signalled when a call into a listener has come back, while releaseListener() waits for one.
  static MonotonicCondition* callEnded QUILLWORK_GUARDED_BY(state);

  SharedSocket listening_;
  SharedSocket connection_;
  std::int32_t code_ = 0;
  bool owesSection_ = false;
  pthread_t thread_ QUILLWORK_GUARDED_BY(threads) = {};
  IpcDemuxServer* server_ QUILLWORK_GUARDED_BY(state) = nullptr;
  IpcDemuxServerListener* calling_ QUILLWORK_GUARDED_BY(state) = nullptr;
  bool mustLeave_ QUILLWORK_GUARDED_BY(state) = false;
};

}  // namespace quillwork
