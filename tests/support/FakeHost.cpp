#include "support/FakeHost.h"

#include <memory>
#include <stdexcept>

#include "facade/CarouselFacade.h"
#include "facade/DemuxFacade.h"
#include "facade/DsmCCCommandFacade.h"
#include "facade/PropertyFacade.h"
#include "facade/SIFacade.h"
#include "facade/TunerFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "support/Leftovers.h"

using namespace middlewarefacade;

namespace {

FakeHost* theHost = nullptr;

FakeHost& host() { return *theHost; }

template <class... Arguments>
void called(const std::string& operation, const Arguments&... arguments) {
  host().log.add(operation, arguments...);
  if (host().onCall) host().onCall(operation);
}

template <class... Arguments>
int askNumber(const std::string& operation, const Arguments&... arguments) {
  called(operation, arguments...);
  return host().number(operation);
}

template <class... Arguments>
std::string askText(const std::string& operation, const Arguments&... arguments) {
  called(operation, arguments...);
  return host().text(operation);
}

class FakeVideo : public VideoFacade {
 public:
  ~FakeVideo() override {
    called("~Video");
    if (host().onVideoDeletion) host().onVideoDeletion();
  }
  void setVideoBounds(int x, int y, int width, int height) override {
    called("setVideoBounds", x, y, width, height);
  }
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override {
    called("getMainVideoBounds", x, y, width, height);
    x = 10;
    y = 20;
    width = 640;
    height = 480;
  }
  int open(std::string locator, int& player) override {
    called("open", locator, player);
    player = host().number("open.player");
    return host().number("open");
  }
  int getDuration(int player) override { return askNumber("getDuration", player); }
  int getCurrentTime(int player) override { return askNumber("getCurrentTime", player); }
  int setCurrentTime(int player, int first, int second) override {
    return askNumber("setCurrentTime", player, first, second);
  }
  void addMediaListener(int player, MediaListener* listener) override {
    called("addMediaListener", player);
    host().mediaListener = listener;
  }
  int play(int player) override { return askNumber("play", player); }
  void stop(int player) override { called("stop", player); }
  void close(int player) override { called("close", player); }
  int setMediaBounds(int player, int x, int y, int width, int height) override {
    return askNumber("setMediaBounds", player, x, y, width, height);
  }
  void getMediaBounds(int player, int& x, int& y, int& width, int& height) override {
    called("getMediaBounds", player, x, y, width, height);
    x = 1;
    y = 2;
    width = 3;
    height = 4;
  }
  std::string getVideoLanguageA() override { return askText("getVideoLanguageA"); }
  std::list<std::string> getVideoLanguages() override {
    called("getVideoLanguages");
    return host().languages;
  }
  std::string getVideoLanguageB() override { return askText("getVideoLanguageB"); }
  void selectVideoLanguage(std::string language) override {
    called("selectVideoLanguage", language);
  }
  void setVideoFreeze(bool freeze) override { called("setVideoFreeze", freeze); }
  void setMediaFreeze(int player, bool freeze) override {
    called("setMediaFreeze", player, freeze);
  }
  void setVideoOption(bool option) override { called("setVideoOption", option); }
  int getVideoProperty9() override { return askNumber("getVideoProperty9"); }
  int getVideoProperty10() override { return askNumber("getVideoProperty10"); }
  int getVideoProperty11() override { return askNumber("getVideoProperty11"); }
  int getVideoProperty12() override { return askNumber("getVideoProperty12"); }
  int getVideoProperty13() override { return askNumber("getVideoProperty13"); }
  int getVideoProperty14() override { return askNumber("getVideoProperty14"); }
  int getVideoProperty15() override { return askNumber("getVideoProperty15"); }
  int getVideoProperty16() override { return askNumber("getVideoProperty16"); }
  void videoPropertyAction() override { called("videoPropertyAction"); }
  void setVideoBalanceLevel(double level) override { called("setVideoBalanceLevel", level); }
  void setMediaBalanceLevel(int player, double level) override {
    called("setMediaBalanceLevel", player, level);
  }
  void setVideoSoundLevel(double level) override { called("setVideoSoundLevel", level); }
  void setMediaSoundLevel(int player, double level) override {
    called("setMediaSoundLevel", player, level);
  }
  void setVideoMute(bool mute) override { called("setVideoMute", mute); }
  void setMediaMute(int player, bool mute) override { called("setMediaMute", player, mute); }
  void setVideoBassLevel(double level) override { called("setVideoBassLevel", level); }
  void setMediaBassLevel(int player, double level) override {
    called("setMediaBassLevel", player, level);
  }
  void setVideoTrebleLevel(double level) override { called("setVideoTrebleLevel", level); }
  void setMediaTrebleLevel(int player, double level) override {
    called("setMediaTrebleLevel", player, level);
  }
  void addGraphicsSettingsListener(GraphicsSettingsListener* listener) override {
    called("addGraphicsSettingsListener");
    host().graphicsListener = listener;
  }
  void removeGraphicsSettingsListener(GraphicsSettingsListener* listener) override {
    called("removeGraphicsSettingsListener", listener == host().graphicsListener);
    host().graphicsListener = nullptr;
  }
  void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) override {
    called("getInitCropValue");
    *first = {1, 2, 3, 4};
    *second = {5, 6, 7, 8};
  }
  void updateGraphicsRegion(int x, int y, int width, int height) override {
    called("updateGraphicsRegion", x, y, width, height);
  }
};

class FakeProperty : public PropertyFacade {
 public:
  ~FakeProperty() override { called("~Property"); }
  void setProperty(std::string name, std::string value) override {
    called("setProperty", name, value);
  }
  std::string getProperty(std::string name) override { return askText("getProperty", name); }
  std::list<Property_> getProperties() override {
    called("getProperties");
    return host().properties;
  }
  void removeProperty(std::string name) override { called("removeProperty", name); }
};

class FakeInformation : public SIFacade {
 public:
  ~FakeInformation() override { called("~SI"); }
  Network_ getNetwork() override {
    called("getNetwork");
    return host().network;
  }
  std::list<Descriptors_> getNetworkDescriptors() override {
    called("getNetworkDescriptors");
    return host().descriptors;
  }
  TransportStream_ getTransportStream() override {
    called("getTransportStream");
    return host().transportStream;
  }
  std::list<Descriptors_> getTransportStreamDescriptors(int stream) override {
    called("getTransportStreamDescriptors", stream);
    return host().descriptors;
  }
  std::list<Service_> getServices() override {
    called("getServices");
    return host().services;
  }
  int getCurrentService() override { return askNumber("getCurrentService"); }
  std::list<Descriptors_> getServiceDescriptors(int service) override {
    called("getServiceDescriptors", service);
    return host().descriptors;
  }
  std::list<ProgramEvent_> getProgramEvents() override {
    called("getProgramEvents");
    return host().events;
  }
  ProgramEvent_ getProgramEvent() override {
    called("getProgramEvent");
    return host().events.front();
  }
  std::list<Descriptors_> getProgramEventDescriptors(int first, int second) override {
    called("getProgramEventDescriptors", first, second);
    return host().descriptors;
  }
  std::list<ServiceComponent_> getServiceComponents(int service) override {
    called("getServiceComponents", service);
    return host().components;
  }
  std::list<Descriptors_> getServiceComponentDescriptors(int component) override {
    called("getServiceComponentDescriptors", component);
    return host().descriptors;
  }
  std::list<ProgramMap_> getPMTs(int program) override {
    called("getPMTs", program);
    return host().programMaps;
  }
  std::string getSICodingFormat() override { return askText("getSICodingFormat"); }
  std::list<int> getCASystemIds() override {
    called("getCASystemIds");
    return host().identifiers;
  }
  bool isProtectedService() override { return askNumber("isProtectedService") != 0; }
  std::string getServiceDescription() override { return askText("getServiceDescription"); }
};

class FakeCarousel : public CarouselFacade {
 public:
  ~FakeCarousel() override { called("~Carousel"); }
  std::string mountCarousel(std::string locator) override {
    return askText("mountCarousel", locator);
  }
  void umountCarousel(std::string locator) override { called("umountCarousel", locator); }
  void addCarouselListener(CarouselListener* listener) override {
    called("addCarouselListener");
    host().carouselListener = listener;
  }
  void removeCarouselListener(CarouselListener* listener) override {
    called("removeCarouselListener",
           host().carouselListener == nullptr || listener == host().carouselListener);
  }
};

class FakeDemux : public DemuxFacade {
 public:
  ~FakeDemux() override { called("~Demux"); }
  void start() override { called("start"); }
  void stop() override { called("stop"); }
  void setPid(int pid) override { called("setPid", pid); }
  void setTableId(int tableId) override { called("setTableId", tableId); }
  void setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) override {
    called("setPositiveFilter", filterArg, hex(first), hex(second));
  }
  void setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) override {
    called("setGreaterThanFilter", filterArg, hex(first), hex(second));
  }
  void setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) override {
    called("setLessThanFilter", filterArg, hex(first), hex(second));
  }
  void setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                    const Bytes& third) override {
    called("setXorFilter", filterArg, hex(first), hex(second), hex(third));
  }
  void setTimeOut(long timeOut) override { called("setTimeOut", timeOut); }
  void clearTableId() override { called("clearTableId"); }
  void clearPositiveFilter() override { called("clearPositiveFilter"); }
  void clearLessThanFilter() override { called("clearLessThanFilter"); }
  void clearXorFilter() override { called("clearXorFilter"); }
  Bytes readSection() override {
    called("readSection");
    if (host().onReadSection) host().onReadSection();
    return host().section;
  }
};

class FakeTuner : public TunerFacade {
 public:
  ~FakeTuner() override { called("~Tuner"); }
  int getCurrentTransportStreamID() override { return askNumber("getCurrentTransportStreamID"); }
  std::list<int> getIdList() override {
    called("getIdList");
    return host().identifiers;
  }
  std::list<int> getIdListFor(int key) override {
    called("getIdListFor", key);
    return host().identifiers;
  }
  std::string getChannelName(int first, int second) override {
    return askText("getChannelName", first, second);
  }
  int getVirtualChannelNumber(int first, int second) override {
    return askNumber("getVirtualChannelNumber", first, second);
  }
  std::list<int> getSecondIdListFor(int key) override {
    called("getSecondIdListFor", key);
    return host().identifiers;
  }
  std::list<int> getThirdIdListFor(int key) override {
    called("getThirdIdListFor", key);
    return host().identifiers;
  }
};

class FakeCommand : public DsmCCCommandFacade {
 public:
  ~FakeCommand() override { called("~DsmCCCommand"); }
  void addCommandListener(std::string eventName, DsmCCCommandListener* listener) override {
    called("addCommandListener", eventName);
    host().commandListener = listener;
  }
  void removeCommandListener(std::string eventName, DsmCCCommandListener* listener) override {
    called("removeCommandListener", eventName, listener == host().commandListener);
    host().commandListener = nullptr;
  }
};

class FakeVersion : public VersionFacade {
 public:
  ~FakeVersion() override { called("~Version"); }
  int checkVersionFlag(int flag) override { return askNumber("checkVersionFlag", flag); }
  void setVersion(std::string version) override { called("setVersion", version); }
};

template <class Facade>
Facade* create(const std::string& name) {
  called("create" + name);
  if (host().throwing == name) throw std::runtime_error("no memory for " + name);
  return host().missing.count(name) != 0 ? nullptr : new Facade;
}

// The library never deletes a version facade.
std::list<std::unique_ptr<VersionFacade>>& versionFacades() {
  static std::list<std::unique_ptr<VersionFacade>> facades;
  return facades;
}

}  // namespace

FakeHost::FakeHost() { theHost = this; }

FakeHost::~FakeHost() { versionFacades().clear(); }

FakeHost& FakeHost::current() { return *theHost; }

int FakeHost::number(const std::string& operation) {
  const auto found = numbers.find(operation);
  return found != numbers.end() ? found->second : 0;
}

std::string FakeHost::text(const std::string& operation) {
  const auto found = texts.find(operation);
  return found != texts.end() ? found->second : std::string();
}

// The first that an adapter asks for, when it has made its manager.
VideoFacade* VideoFacade::createVideoFacade() {
  leavesBehind(ofAManager);
  return create<FakeVideo>("Video");
}
PropertyFacade* PropertyFacade::createPropertyFacade() { return create<FakeProperty>("Property"); }
SIFacade* SIFacade::createSIFacade() { return create<FakeInformation>("SI"); }
CarouselFacade* CarouselFacade::createCarouselFacade() { return create<FakeCarousel>("Carousel"); }
DemuxFacade* DemuxFacade::createDemuxFacade() { return create<FakeDemux>("Demux"); }
TunerFacade* TunerFacade::createTunerFacade() { return create<FakeTuner>("Tuner"); }
DsmCCCommandFacade* DsmCCCommandFacade::createDsmCCCommandFacade() {
  return create<FakeCommand>("DsmCCCommand");
}
VersionFacade* VersionFacade::createVersionFacade() {
  return versionFacades().emplace_back(create<FakeVersion>("Version")).get();
}
