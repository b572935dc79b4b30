// The virtual-table slots of every interface that a platform's binary is compiled against.

#include <gtest/gtest.h>

#include <cstring>
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
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcServer.h"
#include "protocol/IpcServerManager.h"

namespace {

using namespace middlewarefacade;
using namespace quillwork;

/// The slot of a virtual function, out of its pointer's representation (Itanium C++ ABI, 2.3; on
/// Arm the mark of a virtual function is in the second word).
template <class Function>
std::size_t slot(Function function) {
  std::uintptr_t words[2] = {};
  static_assert(sizeof function == sizeof words);
  std::memcpy(words, &function, sizeof words);
#ifdef __arm__
  EXPECT_EQ(words[1] & 1U, 1U);
  return words[0] / sizeof(void*);
#else
  EXPECT_EQ(words[0] & 1U, 1U);
  return (words[0] - 1) / sizeof(void*);
#endif
}

template <class... Functions>
void expectInOrder(Functions... functions) {
  const std::vector<std::size_t> slots = {slot(functions)...};
  for (std::size_t index = 0; index < slots.size(); ++index) EXPECT_EQ(slots[index], index);
}

/// The destructors come behind the last operation: the complete one, then the deleting one.
template <class Implementation>
bool destructorStandsAt(std::size_t position) {
  static bool& destroyed = Implementation::destroyed();
  destroyed = false;
  alignas(Implementation) unsigned char storage[sizeof(Implementation)];
  auto* const object = new (storage) Implementation;
  void** table = nullptr;
  std::memcpy(&table, static_cast<void*>(object), sizeof table);
  reinterpret_cast<void (*)(void*)>(table[position])(object);
  return destroyed;
}

#define DESTRUCTION_SEEN(name) \
  static bool& destroyed() {   \
    static bool seen = false;  \
    return seen;               \
  }                            \
  ~name() override { destroyed() = true; }

struct Version : VersionFacade {
  DESTRUCTION_SEEN(Version)
  int checkVersionFlag(int) override { return 0; }
  void setVersion(std::string) override {}
};

struct Property : PropertyFacade {
  DESTRUCTION_SEEN(Property)
  void setProperty(std::string, std::string) override {}
  std::string getProperty(std::string) override { return {}; }
  std::list<Property_> getProperties() override { return {}; }
  void removeProperty(std::string) override {}
};

struct Carousel : CarouselFacade {
  DESTRUCTION_SEEN(Carousel)
  std::string mountCarousel(std::string) override { return {}; }
  void umountCarousel(std::string) override {}
  void addCarouselListener(CarouselListener*) override {}
  void removeCarouselListener(CarouselListener*) override {}
};

struct Command : DsmCCCommandFacade {
  DESTRUCTION_SEEN(Command)
  void addCommandListener(std::string, DsmCCCommandListener*) override {}
  void removeCommandListener(std::string, DsmCCCommandListener*) override {}
};

struct Tuner : TunerFacade {
  DESTRUCTION_SEEN(Tuner)
  int getCurrentTransportStreamID() override { return 0; }
  std::list<int> getIdList() override { return {}; }
  std::list<int> getIdListFor(int) override { return {}; }
  std::string getChannelName(int, int) override { return {}; }
  int getVirtualChannelNumber(int, int) override { return 0; }
  std::list<int> getSecondIdListFor(int) override { return {}; }
  std::list<int> getThirdIdListFor(int) override { return {}; }
};

struct Information : SIFacade {
  DESTRUCTION_SEEN(Information)
  Network_ getNetwork() override { return {}; }
  std::list<Descriptors_> getNetworkDescriptors() override { return {}; }
  TransportStream_ getTransportStream() override { return {}; }
  std::list<Descriptors_> getTransportStreamDescriptors(int) override { return {}; }
  std::list<Service_> getServices() override { return {}; }
  int getCurrentService() override { return 0; }
  std::list<Descriptors_> getServiceDescriptors(int) override { return {}; }
  std::list<ProgramEvent_> getProgramEvents() override { return {}; }
  ProgramEvent_ getProgramEvent() override { return {}; }
  std::list<Descriptors_> getProgramEventDescriptors(int, int) override { return {}; }
  std::list<ServiceComponent_> getServiceComponents(int) override { return {}; }
  std::list<Descriptors_> getServiceComponentDescriptors(int) override { return {}; }
  std::list<ProgramMap_> getPMTs(int) override { return {}; }
  std::string getSICodingFormat() override { return {}; }
  std::list<int> getCASystemIds() override { return {}; }
  bool isProtectedService() override { return false; }
  std::string getServiceDescription() override { return {}; }
};

struct Demux : DemuxFacade {
  DESTRUCTION_SEEN(Demux)
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
  Bytes readSection() override { return {}; }
};

struct Video : VideoFacade {
  DESTRUCTION_SEEN(Video)
  void setVideoBounds(int, int, int, int) override {}
  void getMainVideoBounds(int&, int&, int&, int&) override {}
  int open(std::string, int&) override { return 0; }
  int getDuration(int) override { return 0; }
  int getCurrentTime(int) override { return 0; }
  int setCurrentTime(int, int, int) override { return 0; }
  void addMediaListener(int, MediaListener*) override {}
  int play(int) override { return 0; }
  void stop(int) override {}
  void close(int) override {}
  int setMediaBounds(int, int, int, int, int) override { return 0; }
  void getMediaBounds(int, int&, int&, int&, int&) override {}
  std::string getVideoLanguageA() override { return {}; }
  std::list<std::string> getVideoLanguages() override { return {}; }
  std::string getVideoLanguageB() override { return {}; }
  void selectVideoLanguage(std::string) override {}
  void setVideoFreeze(bool) override {}
  void setMediaFreeze(int, bool) override {}
  void setVideoOption(bool) override {}
  int getVideoProperty9() override { return 0; }
  int getVideoProperty10() override { return 0; }
  int getVideoProperty11() override { return 0; }
  int getVideoProperty12() override { return 0; }
  int getVideoProperty13() override { return 0; }
  int getVideoProperty14() override { return 0; }
  int getVideoProperty15() override { return 0; }
  int getVideoProperty16() override { return 0; }
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

TEST(Slots, VideoFacade) {
  using F = VideoFacade;
  expectInOrder(&F::setVideoBounds, &F::getMainVideoBounds, &F::open, &F::getDuration,
                &F::getCurrentTime, &F::setCurrentTime, &F::addMediaListener, &F::play, &F::stop,
                &F::close, &F::setMediaBounds, &F::getMediaBounds, &F::getVideoLanguageA,
                &F::getVideoLanguages, &F::getVideoLanguageB, &F::selectVideoLanguage,
                &F::setVideoFreeze, &F::setMediaFreeze, &F::setVideoOption, &F::getVideoProperty9,
                &F::getVideoProperty10, &F::getVideoProperty11, &F::getVideoProperty12,
                &F::getVideoProperty13, &F::getVideoProperty14, &F::getVideoProperty15,
                &F::getVideoProperty16, &F::videoPropertyAction, &F::setVideoBalanceLevel,
                &F::setMediaBalanceLevel, &F::setVideoSoundLevel, &F::setMediaSoundLevel,
                &F::setVideoMute, &F::setMediaMute, &F::setVideoBassLevel, &F::setMediaBassLevel,
                &F::setVideoTrebleLevel, &F::setMediaTrebleLevel, &F::addGraphicsSettingsListener,
                &F::removeGraphicsSettingsListener, &F::getInitCropValue, &F::updateGraphicsRegion);
  EXPECT_TRUE(destructorStandsAt<Video>(42));
}

TEST(Slots, SIFacade) {
  using F = SIFacade;
  expectInOrder(&F::getNetwork, &F::getNetworkDescriptors, &F::getTransportStream,
                &F::getTransportStreamDescriptors, &F::getServices, &F::getCurrentService,
                &F::getServiceDescriptors, &F::getProgramEvents, &F::getProgramEvent,
                &F::getProgramEventDescriptors, &F::getServiceComponents,
                &F::getServiceComponentDescriptors, &F::getPMTs, &F::getSICodingFormat,
                &F::getCASystemIds, &F::isProtectedService, &F::getServiceDescription);
  EXPECT_TRUE(destructorStandsAt<Information>(17));
}

TEST(Slots, TunerFacade) {
  using F = TunerFacade;
  expectInOrder(&F::getCurrentTransportStreamID, &F::getIdList, &F::getIdListFor,
                &F::getChannelName, &F::getVirtualChannelNumber, &F::getSecondIdListFor,
                &F::getThirdIdListFor);
  EXPECT_TRUE(destructorStandsAt<Tuner>(7));
}

TEST(Slots, DemuxFacade) {
  using F = DemuxFacade;
  expectInOrder(&F::start, &F::stop, &F::setPid, &F::setTableId, &F::setPositiveFilter,
                &F::setGreaterThanFilter, &F::setLessThanFilter, &F::setXorFilter, &F::setTimeOut,
                &F::clearTableId, &F::clearPositiveFilter, &F::clearLessThanFilter,
                &F::clearXorFilter, &F::readSection);
  EXPECT_TRUE(destructorStandsAt<Demux>(14));
}

TEST(Slots, PropertyFacade) {
  using F = PropertyFacade;
  expectInOrder(&F::setProperty, &F::getProperty, &F::getProperties, &F::removeProperty);
  EXPECT_TRUE(destructorStandsAt<Property>(4));
}

TEST(Slots, CarouselFacade) {
  using F = CarouselFacade;
  expectInOrder(&F::mountCarousel, &F::umountCarousel, &F::addCarouselListener,
                &F::removeCarouselListener);
  EXPECT_TRUE(destructorStandsAt<Carousel>(4));
}

TEST(Slots, DsmCCCommandFacade) {
  using F = DsmCCCommandFacade;
  expectInOrder(&F::addCommandListener, &F::removeCommandListener);
  EXPECT_TRUE(destructorStandsAt<Command>(2));
}

TEST(Slots, VersionFacade) {
  expectInOrder(&VersionFacade::checkVersionFlag, &VersionFacade::setVersion);
  EXPECT_TRUE(destructorStandsAt<Version>(2));
}

TEST(Slots, TheMiddlewaresListeners) {
  using One = void (CarouselListener::*)(std::string);
  using Two = void (CarouselListener::*)(std::string, std::string);
  expectInOrder(static_cast<One>(&CarouselListener::downloadComplete),
                static_cast<Two>(&CarouselListener::downloadComplete));
  expectInOrder(&GraphicsSettingsListener::graphicsSettingsChanged);
  expectInOrder(&MediaListener::endOfMedia);
  expectInOrder(&DsmCCCommandListener::commandReceived);
}

TEST(Slots, IpcServerListener) {
  using L = IpcServerListener;
  expectInOrder(
      &L::setVideoProperty, &L::getVideoProperty, &L::getMainVideoBounds, &L::updateGraphicsRegion,
      &L::getVideoLanguage, &L::getVideoLanguages, &L::getSystemProperty, &L::getSystemProperties,
      &L::setSystemProperty, &L::removeSystemProperty, &L::setVideoAudio,
      &L::getCurrentTransportStreamID, &L::getAllIDs, &L::getChannelName,
      &L::getVirtualChannelNumber, &L::mountCarousel, &L::umountCarousel, &L::addCarouselListener,
      &L::removeCarouselListener, &L::getSICodingFormat, &L::getProgramEvents, &L::getProgramEvent,
      &L::getServices, &L::getCurrentService, &L::getCASystemIds, &L::isProtectedService,
      &L::getServiceDescription, &L::getServiceComponents, &L::getTransportStream, &L::getNetwork,
      &L::getNetworkDescriptors, &L::getTransportStreamDescriptors, &L::getServiceDescriptors,
      &L::getProgramEventDescriptors, &L::getServiceComponentDescriptors, &L::getPMTs, &L::open,
      &L::getDuration, &L::getCurrentTime, &L::setCurrentTime, &L::addMediaListener, &L::play,
      &L::stop, &L::close, &L::setMediaBounds, &L::getMediaBounds, &L::setMediaFreeze,
      &L::setMediaBalanceLevel, &L::setMediaSoundLevel, &L::setMediaMute, &L::setMediaBassLevel,
      &L::setMediaTrebleLevel, &L::checkVersionFlag);
}

TEST(Slots, TheTransportsListeners) {
  using Record = void (IpcListener::*)(message&);
  using Records = void (IpcListener::*)(std::list<message>);
  expectInOrder(static_cast<Record>(&IpcListener::update),
                static_cast<Records>(&IpcListener::update), &IpcListener::clientConnected,
                &IpcListener::clientDisconnected);
  expectInOrder(&ConnectionListener::clientConnected, &ConnectionListener::clientDisconnected);
  using L = IpcDemuxServerListener;
  expectInOrder(&L::start, &L::stop, &L::set_pid, &L::set_table_id, &L::set_positive_filter,
                &L::set_greater_than_filter, &L::set_less_than_filter, &L::set_xor_filter,
                &L::set_time_out, &L::clear_table_id, &L::clear_positive_filter,
                &L::clear_less_than_filter, &L::clear_xor_filter, &L::read_section);
}

TEST(Slots, TheAdaptersOwnOverridersFollowItsPrimaryBase) {
  using A = MiddlewareIpc;
  using One = void (A::*)(std::string);
  using Two = void (A::*)(std::string, std::string);
  using Stop = void (A::*)();
  const std::size_t slots[] = {
      slot(&A::endOfMedia),
      slot(static_cast<One>(&A::downloadComplete)),
      slot(static_cast<Two>(&A::downloadComplete)),
      slot(&A::start),
      slot(static_cast<Stop>(&A::stop)),
      slot(&A::set_pid),
      slot(&A::set_table_id),
      slot(&A::set_positive_filter),
      slot(&A::set_greater_than_filter),
      slot(&A::set_less_than_filter),
      slot(&A::set_xor_filter),
      slot(&A::set_time_out),
      slot(&A::clear_table_id),
      slot(&A::clear_positive_filter),
      slot(&A::clear_less_than_filter),
      slot(&A::clear_xor_filter),
      slot(&A::read_section),
      slot(&A::graphicsSettingsChanged),
      slot(&A::commandReceived),
  };
  for (std::size_t index = 0; index < std::size(slots); ++index) {
    EXPECT_EQ(slots[index], 53 + index);
  }
  EXPECT_FALSE(std::has_virtual_destructor_v<A>);
}

TEST(Slots, TheServersHaveNoVirtualOperationButTheDestructor) {
  EXPECT_TRUE(std::has_virtual_destructor_v<IpcServer>);
  EXPECT_TRUE(std::has_virtual_destructor_v<IpcDemuxServer>);
  EXPECT_TRUE(std::has_virtual_destructor_v<IpcServerManager>);
  // The fields in their published order, behind the pointer to the virtual table.
  struct ControlServer {
    void* table;
    void* listener;
    pthread_t thread;
    pthread_mutex_t sendMutex;
    bool running;
    char* socketPath;
    int socketPathLength;
  };
  struct DemuxServer {
    void* table;
    void* listener;
    const char* socketPath;
    int socketPathLength;
    bool running;
    pthread_t thread;
  };
  EXPECT_EQ(sizeof(IpcServer), sizeof(ControlServer));
  EXPECT_EQ(sizeof(IpcDemuxServer), sizeof(DemuxServer));
}

TEST(Slots, TheAdaptersBasesStandInTheirOrder) {
  struct Bases {
    void* bases[6];
    int sizes[2];
    void* pointers[9];
  };
  EXPECT_EQ(sizeof(MiddlewareIpc), sizeof(Bases));
  // Never constructed: the conversions of a pointer only add the bases' offsets.
  alignas(MiddlewareIpc) unsigned char storage[sizeof(MiddlewareIpc)] = {};
  auto* const adapter = reinterpret_cast<MiddlewareIpc*>(storage);
  const auto offset = [&](const void* base) {
    return static_cast<std::size_t>(static_cast<const unsigned char*>(base) - storage) /
           sizeof(void*);
  };
  EXPECT_EQ(offset(static_cast<IpcServerListener*>(adapter)), 0U);
  EXPECT_EQ(offset(static_cast<CarouselListener*>(adapter)), 1U);
  EXPECT_EQ(offset(static_cast<IpcDemuxServerListener*>(adapter)), 2U);
  EXPECT_EQ(offset(static_cast<GraphicsSettingsListener*>(adapter)), 3U);
  EXPECT_EQ(offset(static_cast<MediaListener*>(adapter)), 4U);
  EXPECT_EQ(offset(static_cast<DsmCCCommandListener*>(adapter)), 5U);
}

}  // namespace
