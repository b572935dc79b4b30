// The adapter's life: the one instance, its construction and its end; the version and the
// application's state.

#include <pthread.h>

#include <cstdio>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "adapter/VideoScale.h"
#include "adapter/ask.h"
#include "facade/CarouselFacade.h"
#include "facade/DemuxFacade.h"
#include "facade/DsmCCCommandFacade.h"
#include "facade/PropertyFacade.h"
#include "facade/SIFacade.h"
#include "facade/TunerFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "ipc/Cancellation.h"
#include "ipc/HostCall.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/Mutex.h"
#include "ipc/Report.h"
#include "protocol/IpcServerManager.h"

using adapter::ask;
using adapter::load;
using adapter::passOn;
using adapter::store;

int graphicsPlaneWidth = 0;
int graphicsPlaneHeight = 0;
float videoScaleX = 0;
float videoScaleY = 0;

namespace {

constexpr const char* revision = "r2483";
constexpr const char* streamEventName = "nclEditingCommand";

MiddlewareIpc* instance = nullptr;

pthread_mutex_t instanceMutex = PTHREAD_MUTEX_INITIALIZER;

// The constructor initialises instanceMutex while getInstance() holds it, which lets a second
// caller in and loses the threads that sleep on it. This mutex is held around the whole call and
// gives the exclusion.
constinit quillwork::Mutex creationMutex;

/// Calls the facade's code on the way to the adapter's end, which no exception holds up.
template <class Call>
void callAtTheEnd(Call&& call) {
  quillwork::callHost(call, "Exception while the adapter is taken down");
}

template <class Facade>
void deleteFacade(Facade*& facade) {
  callAtTheEnd([&] { delete load(facade); });
  store<Facade*>(facade, nullptr);
}

}  // namespace

MiddlewareIpc* MiddlewareIpc::getInstance() {
  const quillwork::Lock creation(creationMutex);
  pthread_mutex_lock(&instanceMutex);
  if (load(instance) == nullptr) {
    // An exception leaves instanceMutex locked: without a version facade, say, there is no second
    // attempt.
    store(instance, new MiddlewareIpc(1920, 1080));
  }
  MiddlewareIpc* const existing = load(instance);
  pthread_mutex_unlock(&instanceMutex);
  return existing;
}

MiddlewareIpc::MiddlewareIpc(int width, int height)
    : videoWidth(0),
      videoHeight(0),
      manager(nullptr),
      videoFacade(nullptr),
      propertyFacade(nullptr),
      siFacade(nullptr),
      carouselFacade(nullptr),
      demuxFacade(nullptr),
      tunerFacade(nullptr),
      dsmccCommandFacade(nullptr),
      versionFacade(nullptr) {
  // Both channels can reach this object from the first step on: if a later step throws, neither
  // may keep a pointer to it.
  struct Rollback {
    explicit Rollback(MiddlewareIpc& owner) : adapter(&owner) {}
    ~Rollback() {
      const quillwork::CancellationScope whole(PTHREAD_CANCEL_DISABLE);
      if (adapter != nullptr) adapter->unregister();
    }
    MiddlewareIpc* adapter;
  } rollback(*this);
  registerAndCreateFacades();
  store(graphicsPlaneWidth, 1280);
  store(graphicsPlaneHeight, 720);
  setVideoSize(width, height);
  rollback.adapter = nullptr;
  pthread_mutex_init(&instanceMutex, nullptr);
}

void MiddlewareIpc::registerAndCreateFacades() {
  using namespace middlewarefacade;
  store(manager, quillwork::IpcServerManager::getInstance());
  manager->addIpcServerListener(this);
  manager->addIpcDemuxServerListener(this);
  store(videoFacade, VideoFacade::createVideoFacade());
  if (videoFacade != nullptr) videoFacade->addGraphicsSettingsListener(this);
  store(propertyFacade, PropertyFacade::createPropertyFacade());
  store(siFacade, SIFacade::createSIFacade());
  store(carouselFacade, CarouselFacade::createCarouselFacade());
  store(demuxFacade, DemuxFacade::createDemuxFacade());
  store(tunerFacade, TunerFacade::createTunerFacade());
  store(dsmccCommandFacade, DsmCCCommandFacade::createDsmCCCommandFacade());
  if (dsmccCommandFacade != nullptr) {
    dsmccCommandFacade->addCommandListener(streamEventName, this);
  }
  store(versionFacade, VersionFacade::createVersionFacade());
  // No null test: the version facade is required.
  versionFacade->setVersion(revision);
}

void MiddlewareIpc::unregister() {
  quillwork::IpcDemuxServer::releaseListener(this);
  if (manager != nullptr) manager->removeIpcServerListener(this);
  deleteFacades();
}

void MiddlewareIpc::deleteFacades() {
  if (videoFacade != nullptr) {
    callAtTheEnd([&] { videoFacade->removeGraphicsSettingsListener(this); });
  }
  deleteFacade(videoFacade);
  if (dsmccCommandFacade != nullptr) {
    callAtTheEnd([&] { dsmccCommandFacade->removeCommandListener(streamEventName, this); });
  }
  deleteFacade(dsmccCommandFacade);
  deleteFacade(propertyFacade);
  deleteFacade(siFacade);
  deleteFacade(carouselFacade);
  deleteFacade(demuxFacade);
  deleteFacade(tunerFacade);
}

MiddlewareIpc::~MiddlewareIpc() {
  const quillwork::CancellationScope whole(PTHREAD_CANCEL_DISABLE);
  quillwork::print(stdout, "deleting middleware ipc\n");
  if (load(manager) != nullptr) {
    // Before the end of what it points to: another manager may follow at once, and lets calls in.
    store<quillwork::IpcServerManager*>(manager, nullptr);
    quillwork::IpcServerManager::destroy();
    store<MiddlewareIpc*>(instance, nullptr);
  }
  // The section-filter channel goes on without this object. Behind the manager's end: a call into
  // the demultiplexer facade may wait for a thread of the host's that waits for the client's
  // answer.
  quillwork::IpcDemuxServer::releaseListener(this);
  deleteFacades();
  pthread_mutex_destroy(&instanceMutex);
}

int MiddlewareIpc::checkVersionFlag(int flag) {
  return ask(load(versionFacade), &middlewarefacade::VersionFacade::checkVersionFlag, flag);
}

bool MiddlewareIpc::sendAppState(quillwork::state newState) {
  return passOn(manager, [&](auto& target) { return target.setApplicationState(newState); });
}
