#include "bench/Host.h"

#include <cstdio>
#include <list>
#include <string>
#include <vector>

#include "adapter/MiddlewareIpc.h"
#include "facade/CarouselFacade.h"
#include "facade/DemuxFacade.h"
#include "facade/DsmCCCommandFacade.h"
#include "facade/PropertyFacade.h"
#include "facade/SIFacade.h"
#include "facade/TunerFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "protocol/IpcServerManager.h"
#include "support/Adapter.h"

using namespace middlewarefacade;

namespace {

/// What the facades answer.
struct Answers {
  std::list<Service_> services;
  std::list<ProgramEvent_> events;
  std::list<Descriptors_> descriptors;
  std::vector<unsigned char> section;
};

Answers answers;

/// Copies of the lists, for the next answers to give away.
std::list<Answers> spare;

/// A spare list, or without one a copy of the answer.
template <class Element>
std::list<Element> give(std::list<Element> Answers::*list) {
  if (spare.empty()) return answers.*list;
  std::list<Element> given = std::move(spare.front().*list);
  spare.pop_front();
  return given;
}

void fill(const bench::Shape& shape) {
  answers = {};
  spare = {};
  for (std::size_t index = 0; index < shape.services; ++index) {
    answers.services.emplace_back().value_1 = static_cast<int>(index);
    answers.services.back().name =
        shape.nameLength == 0 ? bench::serviceName : std::string(shape.nameLength, 'n');
  }
  for (std::size_t index = 0; index < shape.events; ++index) {
    ProgramEvent_& event = answers.events.emplace_back();
    event.value_1 = static_cast<int>(index);
    event.text_1 = bench::serviceName;
    for (auto* list : {&event.byte_list_1, &event.byte_list_2, &event.byte_list_3}) {
      list->assign(shape.eventBytes, bench::filler);
    }
    for (auto* list : {&event.text_list_1, &event.text_list_2, &event.text_list_3}) {
      list->assign(shape.eventTexts, bench::eventText);
    }
  }
  for (std::size_t index = 0; index < shape.descriptors; ++index) {
    answers.descriptors.emplace_back().tag = static_cast<std::int16_t>(index);
    answers.descriptors.back().data.assign(shape.descriptorBytes, bench::filler);
  }
  answers.section.assign(shape.section, bench::filler);
}

void called() {
  if (bench::Host::onCall) bench::Host::onCall();
}

class Video : public VideoFacade {
 public:
  void setVideoBounds(int, int, int, int) override {}
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override {
    getMediaBounds(0, x, y, width, height);
  }
  int open(std::string, int& player) override {
    player = 1;
    return 1;
  }
  int getDuration(int) override { return 60'000; }
  int getCurrentTime(int) override { return 1000; }
  int setCurrentTime(int, int, int) override { return 0; }
  void addMediaListener(int, MediaListener*) override {}
  int play(int) override { return 1; }
  void stop(int) override {}
  void close(int) override {}
  int setMediaBounds(int, int, int, int, int) override { return 0; }
  void getMediaBounds(int, int& x, int& y, int& width, int& height) override {
    x = bench::mediaBounds[0];
    y = bench::mediaBounds[1];
    width = bench::mediaBounds[2];
    height = bench::mediaBounds[3];
  }
  std::string getVideoLanguageA() override { return "eng"; }
  std::list<std::string> getVideoLanguages() override { return {"eng", "deu"}; }
  std::string getVideoLanguageB() override { return "deu"; }
  void selectVideoLanguage(std::string) override {}
  void setVideoFreeze(bool) override {}
  void setMediaFreeze(int, bool) override {}
  void setVideoOption(bool) override {}
  int getVideoProperty9() override { return 9; }
  int getVideoProperty10() override { return 10; }
  int getVideoProperty11() override { return 11; }
  int getVideoProperty12() override { return 12; }
  int getVideoProperty13() override { return 13; }
  int getVideoProperty14() override { return 14; }
  int getVideoProperty15() override { return 15; }
  int getVideoProperty16() override { return 16; }
  void videoPropertyAction() override {}
  void setVideoBalanceLevel(double) override {}
  void setMediaBalanceLevel(int, double) override {}
  void setVideoSoundLevel(double) override {}
  void setMediaSoundLevel(int, double) override {}
  void setVideoMute(bool) override {}
  void setMediaMute(int, bool) override {}
  void setVideoBassLevel(double) override {}
  void setMediaBassLevel(int, double) override {}
  void setVideoTrebleLevel(double) override {}
  void setMediaTrebleLevel(int, double) override {}
  void addGraphicsSettingsListener(GraphicsSettingsListener*) override {}
  void removeGraphicsSettingsListener(GraphicsSettingsListener*) override {}
  void getInitCropValue(ipcutil::Rectangle_t*, ipcutil::Rectangle_t*) override {}
  void updateGraphicsRegion(int, int, int, int) override {}
};

class ServiceInformation : public SIFacade {
 public:
  Network_ getNetwork() override { return {"Network", 1}; }
  std::list<Descriptors_> getNetworkDescriptors() override { return give(&Answers::descriptors); }
  TransportStream_ getTransportStream() override { return {}; }
  std::list<Descriptors_> getTransportStreamDescriptors(int) override { return {}; }
  std::list<Service_> getServices() override { return give(&Answers::services); }
  int getCurrentService() override {
    called();
    return bench::currentService;
  }
  std::list<Descriptors_> getServiceDescriptors(int) override { return {}; }
  std::list<ProgramEvent_> getProgramEvents() override { return give(&Answers::events); }
  ProgramEvent_ getProgramEvent() override { return {}; }
  std::list<Descriptors_> getProgramEventDescriptors(int, int) override { return {}; }
  std::list<ServiceComponent_> getServiceComponents(int) override { return {}; }
  std::list<Descriptors_> getServiceComponentDescriptors(int) override { return {}; }
  std::list<ProgramMap_> getPMTs(int) override { return {}; }
  std::string getSICodingFormat() override { return bench::codingFormat; }
  std::list<int> getCASystemIds() override { return {}; }
  bool isProtectedService() override { return true; }
  std::string getServiceDescription() override { return {}; }
};

class Tuner : public TunerFacade {
 public:
  int getCurrentTransportStreamID() override { return 1; }
  std::list<int> getIdList() override { return {}; }
  std::list<int> getIdListFor(int) override { return {}; }
  std::string getChannelName(int, int) override { return {}; }
  int getVirtualChannelNumber(int, int) override { return -1; }
  std::list<int> getSecondIdListFor(int) override { return {}; }
  std::list<int> getThirdIdListFor(int) override { return {}; }
};

class Demultiplexer : public DemuxFacade {
 public:
  void start() override {}
  void stop() override {}
  void setPid(int) override {}
  void setTableId(int) override {}
  void setPositiveFilter(int, const Bytes&, const Bytes&) override {}
  void setGreaterThanFilter(int, const Bytes&, const Bytes&) override {}
  void setLessThanFilter(int, const Bytes&, const Bytes&) override {}
  void setXorFilter(int, const Bytes&, const Bytes&, const Bytes&) override {}
  void setTimeOut(long) override {}
  void clearTableId() override {}
  void clearPositiveFilter() override {}
  void clearLessThanFilter() override {}
  void clearXorFilter() override {}
  Bytes readSection() override {
    called();
    return answers.section;
  }
};

class Version : public VersionFacade {
 public:
  int checkVersionFlag(int flag) override { return flag; }
  void setVersion(std::string) override {}
};

/// Has no answer to anything; the last of several knows the current service.
class Listener final : public quillwork::IpcServerListener {
 public:
  int service = -1;

  void setVideoProperty(quillwork::video_data&) override {}
  int getVideoProperty(quillwork::command) override { return -1; }
  void getMainVideoBounds(int&, int&, int&, int&) override {}
  void updateGraphicsRegion(quillwork::video_region) override {}
  std::string getVideoLanguage(quillwork::command) override { return {}; }
  std::list<std::string> getVideoLanguages() override { return {}; }
  std::string getSystemProperty(std::string) override { return {}; }
  std::list<quillwork::system_property> getSystemProperties() override { return {}; }
  void setSystemProperty(quillwork::system_property&) override {}
  void removeSystemProperty(std::string) override {}
  void setVideoAudio(quillwork::audio_data) override {}
  int getCurrentTransportStreamID() override { return -1; }
  std::list<int> getAllIDs(quillwork::tuner_data&) override { return {}; }
  std::string getChannelName(int, int) override { return {}; }
  int getVirtualChannelNumber(int, int) override { return -1; }
  std::string mountCarousel(std::string) override { return {}; }
  void umountCarousel(std::string) override {}
  void addCarouselListener() override {}
  void removeCarouselListener() override {}
  std::string getSICodingFormat() override { return {}; }
  std::list<quillwork::program_event> getProgramEvents() override { return {}; }
  quillwork::program_event getProgramEvent() override { return {}; }
  std::list<quillwork::service> getServices() override { return {}; }
  int getCurrentService() override { return service; }
  std::list<int> getCASystemIds() override { return {}; }
  bool isProtectedService() override { return false; }
  std::string getServiceDescription() override { return {}; }
  std::list<quillwork::service_component> getServiceComponents(int) override { return {}; }
  quillwork::transport_stream getTransportStream() override { return {}; }
  quillwork::network getNetwork() override { return {}; }
  std::list<quillwork::descriptor> getNetworkDescriptors() override { return {}; }
  std::list<quillwork::descriptor> getTransportStreamDescriptors(int) override { return {}; }
  std::list<quillwork::descriptor> getServiceDescriptors(int) override { return {}; }
  std::list<quillwork::descriptor> getProgramEventDescriptors(int, int) override { return {}; }
  std::list<quillwork::descriptor> getServiceComponentDescriptors(int) override { return {}; }
  std::list<quillwork::pmt> getPMTs(int) override { return {}; }
  int open(std::string, int&) override { return 0; }
  int getDuration(int) override { return -1; }
  int getCurrentTime(int) override { return -1; }
  int setCurrentTime(int, int, int) override { return -1; }
  void addMediaListener(int) override {}
  int play(int) override { return 0; }
  void stop(int) override {}
  void close(int) override {}
  int setMediaBounds(int, int, int, int, int) override { return -1; }
  void getMediaBounds(int, int&, int&, int&, int&) override {}
  void setMediaFreeze(int, bool) override {}
  void setMediaBalanceLevel(int, double) override {}
  void setMediaSoundLevel(int, double) override {}
  void setMediaMute(int, bool) override {}
  void setMediaBassLevel(int, double) override {}
  void setMediaTrebleLevel(int, double) override {}
  int checkVersionFlag(int) override { return 0; }
};

}  // namespace

VideoFacade* VideoFacade::createVideoFacade() { return new Video; }
PropertyFacade* PropertyFacade::createPropertyFacade() { return nullptr; }
SIFacade* SIFacade::createSIFacade() { return new ServiceInformation; }
CarouselFacade* CarouselFacade::createCarouselFacade() { return nullptr; }
DemuxFacade* DemuxFacade::createDemuxFacade() { return new Demultiplexer; }
TunerFacade* TunerFacade::createTunerFacade() { return new Tuner; }
DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() { return nullptr; }
VersionFacade* VersionFacade::createVersionFacade() {
  // The adapter never deletes it.
  static Version version;
  return &version;
}

namespace bench {

std::function<void()> Host::onCall;

struct Host::Listeners {
  std::vector<Listener> all;
};

Host::Host(const Shape& shape) {
  fill(shape);
  if (shape.listeners == 0) {
    adapter_ = MiddlewareIpc::getInstance();
    return;
  }
  listeners_ = std::make_unique<Listeners>();
  listeners_->all.resize(shape.listeners);
  // They are asked in the order of their addresses.
  listeners_->all.back().service = currentService;
  auto& manager = *quillwork::IpcServerManager::getInstance();
  for (Listener& listener : listeners_->all) manager.addIpcServerListener(&listener);
}

Host::~Host() {
  if (listeners_) {
    quillwork::IpcServerManager::destroy();
  } else {
    deleteAdapter(adapter_);
  }
}

void Host::prepare(std::size_t count) { spare.assign(count, answers); }

void Host::notify(int player) const { adapter_->endOfMedia(player); }

}  // namespace bench
