#include "ipc/IpcDemuxServer.h"

#include <atomic>
#include <cerrno>
#include <utility>

#include "ipc/Cancellation.h"
#include "ipc/DemuxSession.h"
#include "ipc/ListeningSocket.h"
#include "ipc/Report.h"

namespace quillwork {

IpcDemuxServer::IpcDemuxServer()
    : listener(nullptr),
      socketPath("/dev/shm/ipcdemux.socket"),
      socketPathLength(24),
      running(false),
      thread() {}

IpcDemuxServer::~IpcDemuxServer() {
  if (DemuxSession* const session = DemuxSession::of(*this)) session->detach();
}

void IpcDemuxServer::setListener(IpcDemuxServerListener* listenerToCall) {
  std::atomic_ref(listener).store(listenerToCall);
}

void IpcDemuxServer::releaseListener(IpcDemuxServerListener* listener) {
  DemuxSession::releaseListener(listener);
}

void IpcDemuxServer::start() {
  const std::atomic_ref<bool> inService(running);
  if (inService.load()) return;
  ListeningSocket opened = openListeningSocket(socketPath, socketPathLength);
  if (opened.listens) {
    DemuxSession* const session = DemuxSession::claim(*this);
    if (session == nullptr) {
      errno = ENOMEM;
      reportFailure("Can't create socket");
    } else if (session->start(*this, std::move(opened.socket))) {
      inService.wait(false);
    }
  }
  inService.store(true);
}

void IpcDemuxServer::stop() {
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  const std::atomic_ref<bool> inService(running);
  if (!inService.load()) return;
  // A failed start leaves no session.
  if (DemuxSession* const session = DemuxSession::of(*this)) session->stop();
  inService.store(false);
}

bool IpcDemuxServer::hasThread() const { return DemuxSession::of(*this) != nullptr; }

void* IpcDemuxServer::run(void* argument) {
  if (argument == nullptr) return nullptr;
  DemuxSession* const session = DemuxSession::of(*static_cast<IpcDemuxServer*>(argument));
  return session != nullptr ? DemuxSession::run(session) : nullptr;
}

}  // namespace quillwork
