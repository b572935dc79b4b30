#include "protocol/IpcServerManager.h"

#include <atomic>
#include <memory>

#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/ManagerState.h"

namespace quillwork {

namespace manager_state {
constinit CancellableMutex managerMutex;
constinit Gate notifiers;
}  // namespace manager_state

using manager_state::ManagerLock;
using manager_state::managerMutex;
using manager_state::notifiers;

namespace {

constexpr const char* controlPath = "/dev/shm/ipc.socket";
constexpr int controlPathLength = 19;

IpcServerManager* instance = nullptr;

}  // namespace

IpcServerManager* IpcServerManager::getInstance() {
  const std::atomic_ref<IpcServerManager*> current(instance);
  if (IpcServerManager* const existing = current.load()) return existing;
  // No second look at the pointer: the first call comes once, from the adapter.
  const ManagerLock lock(managerMutex);
  auto* const created = new IpcServerManager;
  current.store(created);
  return created;
}

void IpcServerManager::destroy() {
  const std::atomic_ref<IpcServerManager*> current(instance);
  if (current.load() != nullptr) {
    // A listener that notifies the client from inside a request holds the mutex while the client
    // does not read.
    notifiers.close();
    IpcServer::breakOffSends();
  }
  const ManagerLock lock(managerMutex);
  delete current.load();
  current.store(nullptr);
}

IpcServerManager::IpcServerManager() : server(nullptr), demuxServer(nullptr) {
  notifiers.open();
  auto control = std::make_unique<IpcServer>(this, controlPath, controlPathLength);
  server = control.get();
  server->start();
  demuxServer = new IpcDemuxServer;
  demuxServer->start();
  static_cast<void>(control.release());
}

// The section-filter server is left alone: its thread and socket outlive the manager.
IpcServerManager::~IpcServerManager() {
  notifiers.close();
  manager_state::endAllApplicationStateCalls();
  if (server != nullptr) {
    // Breaks off the notification that a client holds up by not reading.
    server->stop();
    notifiers.awaitEmpty();
    delete server;
    server = nullptr;
  }
  serverListeners.clear();
  connectionListeners.clear();
}

void IpcServerManager::addIpcServerListener(IpcServerListener* listener) {
  const ManagerLock lock(managerMutex);
  serverListeners.insert(listener);
}

void IpcServerManager::removeIpcServerListener(IpcServerListener* listener) {
  const ManagerLock lock(managerMutex);
  serverListeners.erase(listener);
}

void IpcServerManager::addConnectionListener(ConnectionListener* listener) {
  const ManagerLock lock(managerMutex);
  connectionListeners.insert(listener);
}

void IpcServerManager::removeConnectionListener(ConnectionListener* listener) {
  const ManagerLock lock(managerMutex);
  connectionListeners.erase(listener);
}

// No lock: the one-listener slot belongs to the section-filter server.
void IpcServerManager::addIpcDemuxServerListener(IpcDemuxServerListener* listener) {
  demuxServer->setListener(listener);
}

void IpcServerManager::clientConnected() {
  const ManagerLock lock(managerMutex);
  for (ConnectionListener* const listener : connectionListeners) listener->clientConnected();
}

void IpcServerManager::clientDisconnected() {
  const ManagerLock lock(managerMutex);
  manager_state::endApplicationStateCall();
  for (ConnectionListener* const listener : connectionListeners) listener->clientDisconnected();
}

}  // namespace quillwork
