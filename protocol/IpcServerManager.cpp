#include "protocol/IpcServerManager.h"

#include <atomic>
#include <memory>

#include "ipc/Cancellation.h"
#include "ipc/HostCall.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "ipc/Mutex.h"
#include "protocol/ApplicationState.h"
#include "protocol/ManagerState.h"

namespace quillwork {

namespace manager_state {
constinit FairMutex managerMutex;
constinit Gate notifiers;
}  // namespace manager_state

using manager_state::managerMutex;
using manager_state::notifiers;

namespace {

constexpr const char* controlPath = "/dev/shm/ipc.socket";
constexpr int controlPathLength = 19;

IpcServerManager* instance = nullptr;

std::atomic_ref<IpcServerManager*> current() { return std::atomic_ref(instance); }

// Held by the one thread that destroys the manager. Taken before the manager mutex.
constinit Mutex destruction;

}  // namespace

IpcServerManager* IpcServerManager::getInstance() {
  if (IpcServerManager* const existing = current().load()) return existing;
  // No second look at the pointer: the first call comes once, from the adapter.
  const Lock lock(managerMutex);
  auto* const created = new IpcServerManager;
  current().store(created);
  return created;
}

void IpcServerManager::destroy() {
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  const Lock alone(destruction);
  IpcServerManager* const ending = current().load();
  if (ending == nullptr) return;
  // Before the mutex: a listener on the accept thread, or one that a host's query has called, holds
  // it while it waits for what only this releases.
  ending->shutDown();
  const Lock lock(managerMutex);
  delete ending;
}

// Nothing fails once the control channel serves: its thread may want the mutex that is held here.
IpcServerManager::IpcServerManager() : server(nullptr), demuxServer(nullptr) {
  notifiers.open();
  auto control = std::make_unique<IpcServer>(this, controlPath, controlPathLength);
  auto demux = std::make_unique<IpcDemuxServer>();
  server = control.release();
  server->start();
  demuxServer = demux.release();
  demuxServer->start();
}

// The section-filter server is left alone: its thread and socket outlive the manager. One whose
// start has failed has neither.
IpcServerManager::~IpcServerManager() {
  const CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  shutDown();
  delete server;
  server = nullptr;
  if (!demuxServer->hasThread()) delete demuxServer;
  serverListeners.clear();
  connectionListeners.clear();
  IpcServerManager* self = this;
  current().compare_exchange_strong(self, nullptr);
}

// Each step wakes the threads that the next step would wait for. First the notifications fail: the
// blocked one, those that wait for it, and all new ones. Then the calls that wait for an answer
// return. Now a listener that waited for one of these threads comes back, and with it the accept
// thread, which stop() joins.
void IpcServerManager::shutDown() {
  notifiers.close();
  server->breakOffSends();
  application_state::endConnection();
  server->stop();
  notifiers.awaitEmpty();
}

void IpcServerManager::addIpcServerListener(IpcServerListener* listener) {
  const Lock lock(managerMutex);
  serverListeners.insert(listener);
}

void IpcServerManager::removeIpcServerListener(IpcServerListener* listener) {
  const Lock lock(managerMutex);
  serverListeners.erase(listener);
}

void IpcServerManager::addConnectionListener(ConnectionListener* listener) {
  const Lock lock(managerMutex);
  connectionListeners.insert(listener);
}

void IpcServerManager::removeConnectionListener(ConnectionListener* listener) {
  const Lock lock(managerMutex);
  connectionListeners.erase(listener);
}

// No lock: the one-listener slot belongs to the section-filter server.
void IpcServerManager::addIpcDemuxServerListener(IpcDemuxServerListener* listener) {
  demuxServer->setListener(listener);
}

void IpcServerManager::clientConnected() {
  bool succeeded = true;
  {
    const Lock lock(managerMutex);
    for (ConnectionListener* const listener : connectionListeners) {
      succeeded = callHost([&] { listener->clientConnected(); }) && succeeded;
    }
  }
  if (!succeeded) throw ReportedException();
}

void IpcServerManager::clientDisconnected() {
  // Once more, for a call that began since. Before the mutex, which a query of the host's may hold.
  application_state::endConnection();
  const Lock lock(managerMutex);
  for (ConnectionListener* const listener : connectionListeners) {
    callHost([&] { listener->clientDisconnected(); });
  }
}

}  // namespace quillwork
