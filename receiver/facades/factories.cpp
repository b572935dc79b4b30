// How the library gets its facades: each is given those parts of the host that it works on.

#include <map>
#include <string>

#include "facade/PropertyFacade.h"
#include "facade/VideoFacade.h"
#include "receiver/Host.h"
#include "receiver/Time.h"
#include "receiver/facades/Carousels.h"
#include "receiver/facades/Information.h"
#ifdef QUILLWORK_SQLITE
#include "receiver/facades/Properties.h"
#endif
#include "receiver/facades/DsmCCCommands.h"
#include "receiver/facades/SectionFilter.h"
#include "receiver/facades/Tuner.h"
#ifdef QUILLWORK_GSTREAMER
#include "receiver/facades/Video.h"
#endif

namespace receiver {
namespace {

#ifdef QUILLWORK_SQLITE
/// What the receiver itself answers for.
std::map<std::string, Properties::Getter> readOnlyProperties(const Host& host) {
  return {
      {"receiver.model", [] { return std::string("quillwork-receiver"); }},
      {"receiver.version", [] { return std::string(QUILLWORK_VERSION); }},
      {"library.revision", [&host] { return host.version.libraryRevision(); }},
      {"broadcast.time", [&host] { return timeText(host.information.broadcastTime()); }},
  };
}
#endif

}  // namespace
}  // namespace receiver

namespace middlewarefacade {
namespace {

receiver::Host& host() { return *receiver::Host::current(); }

}  // namespace

SIFacade* SIFacade::createSIFacade() { return new receiver::Information(host().information); }

TunerFacade* TunerFacade::createTunerFacade() { return new receiver::Tuner(host().information); }

DemuxFacade* DemuxFacade::createDemuxFacade() {
  return new receiver::SectionFilter(host().streamPlayer, host().isFast);
}

VersionFacade* VersionFacade::createVersionFacade() {
  // The library never deletes it.
  return &host().version;
}

DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() {
  return new receiver::DsmCCCommands(host().commandListener);
}

CarouselFacade* CarouselFacade::createCarouselFacade() {
  return new receiver::Carousels(host().mounts, host().carouselListener);
}

PropertyFacade* PropertyFacade::createPropertyFacade() {
#ifdef QUILLWORK_SQLITE
  return new receiver::Properties(host().properties, receiver::readOnlyProperties(host()));
#else
  return nullptr;
#endif
}

VideoFacade* VideoFacade::createVideoFacade() {
#ifdef QUILLWORK_GSTREAMER
  return new receiver::Video(host().streamPlayer, host().information, host().worker,
                             host().graphicsListener, host().display);
#else
  return nullptr;
#endif
}

}  // namespace middlewarefacade
