#pragma once

#include "protocol/language.h"

#include <list>
#include <string>
#include <vector>

#include "facade/CarouselListener.h"
#include "facade/DsmCCCommandListener.h"
#include "facade/GraphicsSettingsListener.h"
#include "facade/MediaListener.h"
#include "ipc/IpcDemuxServerListener.h"
#include "protocol/IpcServerListener.h"
#include "protocol/export.h"
#include "protocol/records.h"

namespace middlewarefacade {
class CarouselFacade;
class DemuxFacade;
class DsmCCCommandFacade;
class PropertyFacade;
class SIFacade;
class TunerFacade;
class VersionFacade;
class VideoFacade;
}  // namespace middlewarefacade

namespace quillwork {
class IpcServerManager;
}

#pragma GCC diagnostic push
// The host deletes the adapter as what it is, and a virtual destructor would be a slot more.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// Joins the host middleware to the client: answers the client's requests from the facades, and
/// passes the middleware's notifications on to the client.
///
/// The host obtains the one object with getInstance() and deletes it to shut the library down. The
/// request operations are called by the library, on its own threads; a facade that the host does
/// not have is answered with the operation's "nothing" value (-1, 0, false, the empty text or list,
/// a zero record). The listener operations at the end are called by the facades, on any thread but
/// the library's; they block while the client does not read.
class QUILLWORK_EXPORT MiddlewareIpc : public quillwork::IpcServerListener,
                                       public middlewarefacade::CarouselListener,
                                       public quillwork::IpcDemuxServerListener,
                                       public middlewarefacade::GraphicsSettingsListener,
                                       public middlewarefacade::MediaListener,
                                       public middlewarefacade::DsmCCCommandListener {
 public:
  /// The adapter, for a video of 1920 by 1080. The first call creates the facades and starts both
  /// channels; an exception that escapes a facade's factory then passes through, and the library
  /// cannot be used any more. Any thread but the library's; blocks while another thread's first
  /// call creates the adapter.
  static MiddlewareIpc* getInstance();

  /// Use getInstance(). `width` and `height` in pixels.
  MiddlewareIpc(int width, int height);

  /// Stops the control channel, unsubscribes and deletes the facades (not the version facade), and
  /// prints "deleting middleware ipc" on the standard output. Returns within two seconds whatever
  /// the client does. Not virtual: delete the object as what it is, and never from inside a facade
  /// operation or a listener.
  ~MiddlewareIpc();

  MiddlewareIpc(const MiddlewareIpc&) = delete;
  MiddlewareIpc& operator=(const MiddlewareIpc&) = delete;

  // The client's requests.

  void setVideoProperty(quillwork::video_data& data) override;
  int getVideoProperty(quillwork::command property) override;
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override;
  void updateGraphicsRegion(quillwork::video_region region) override;
  std::string getVideoLanguage(quillwork::command language) override;
  std::list<std::string> getVideoLanguages() override;
  std::string getSystemProperty(std::string name) override;
  std::list<quillwork::system_property> getSystemProperties() override;
  void setSystemProperty(quillwork::system_property& property) override;
  void removeSystemProperty(std::string name) override;
  void setVideoAudio(quillwork::audio_data data) override;
  int getCurrentTransportStreamID() override;
  std::list<int> getAllIDs(quillwork::tuner_data& request) override;
  std::string getChannelName(int first, int second) override;
  int getVirtualChannelNumber(int first, int second) override;
  std::string mountCarousel(std::string locator) override;
  void umountCarousel(std::string locator) override;
  void addCarouselListener() override;
  void removeCarouselListener() override;
  std::string getSICodingFormat() override;
  std::list<quillwork::program_event> getProgramEvents() override;
  quillwork::program_event getProgramEvent() override;
  std::list<quillwork::service> getServices() override;
  int getCurrentService() override;
  std::list<int> getCASystemIds() override;
  bool isProtectedService() override;
  std::string getServiceDescription() override;
  std::list<quillwork::service_component> getServiceComponents(int serviceId) override;
  quillwork::transport_stream getTransportStream() override;
  quillwork::network getNetwork() override;
  std::list<quillwork::descriptor> getNetworkDescriptors() override;
  std::list<quillwork::descriptor> getTransportStreamDescriptors(int transportStream) override;
  std::list<quillwork::descriptor> getServiceDescriptors(int serviceId) override;
  std::list<quillwork::descriptor> getProgramEventDescriptors(int first, int second) override;
  std::list<quillwork::descriptor> getServiceComponentDescriptors(int component) override;
  std::list<quillwork::pmt> getPMTs(int program) override;
  int open(std::string locator, int& player) override;
  int getDuration(int player) override;
  int getCurrentTime(int player) override;
  int setCurrentTime(int player, int first, int second) override;
  void addMediaListener(int player) override;
  int play(int player) override;
  void stop(int player) override;
  void close(int player) override;
  int setMediaBounds(int player, int x, int y, int width, int height) override;
  void getMediaBounds(int player, int& x, int& y, int& width, int& height) override;
  void setMediaFreeze(int player, bool freeze) override;
  void setMediaBalanceLevel(int player, double level) override;
  void setMediaSoundLevel(int player, double level) override;
  void setMediaMute(int player, bool mute) override;
  void setMediaBassLevel(int player, double level) override;
  void setMediaTrebleLevel(int player, double level) override;
  int checkVersionFlag(int flag) override;

  // What the facades report.

  void endOfMedia(int player) override;
  /// As the form with two texts, the second one empty.
  void downloadComplete(std::string first) override;
  void downloadComplete(std::string first, std::string second) override;

  // The section-filter channel's requests, passed on to the demultiplexer facade as they are.

  void start() override;
  void stop() override;
  void set_pid(int pid) override;
  void set_table_id(int tableId) override;
  void set_positive_filter(int filterArg, const std::vector<unsigned char>& first,
                           const std::vector<unsigned char>& second) override;
  void set_greater_than_filter(int filterArg, const std::vector<unsigned char>& first,
                               const std::vector<unsigned char>& second) override;
  void set_less_than_filter(int filterArg, const std::vector<unsigned char>& first,
                            const std::vector<unsigned char>& second) override;
  void set_xor_filter(int filterArg, const std::vector<unsigned char>& first,
                      const std::vector<unsigned char>& second,
                      const std::vector<unsigned char>& third) override;
  void set_time_out(long timeOut) override;
  void clear_table_id() override;
  void clear_positive_filter() override;
  void clear_less_than_filter() override;
  void clear_xor_filter() override;
  std::vector<unsigned char> read_section() override;

  /// Takes the size of the second rectangle as the video's, then tells the client.
  void graphicsSettingsChanged(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second) override;
  void commandReceived(const ipcutil::DsmCCCommand_t& command) override;

  // For the host.

  /// The video facade's crop rectangles; untouched without that facade.
  void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second);
  /// Keeps the size of the video, in pixels.
  void setVideoSize(int width, int height);
  /// Asks the client to change its application's state and waits for its answer, as
  /// quillwork::IpcServerManager::setApplicationState() does.
  bool sendAppState(quillwork::state newState);

 private:
  QUILLWORK_HIDDEN void registerAndCreateFacades();
  QUILLWORK_HIDDEN void unregister();
  QUILLWORK_HIDDEN void deleteFacades();

  int videoWidth;
  int videoHeight;
  quillwork::IpcServerManager* manager;
  middlewarefacade::VideoFacade* videoFacade;
  middlewarefacade::PropertyFacade* propertyFacade;
  middlewarefacade::SIFacade* siFacade;
  middlewarefacade::CarouselFacade* carouselFacade;
  middlewarefacade::DemuxFacade* demuxFacade;
  middlewarefacade::TunerFacade* tunerFacade;
  middlewarefacade::DsmCCCommandFacade* dsmccCommandFacade;
  middlewarefacade::VersionFacade* versionFacade;
};

#pragma GCC diagnostic pop
