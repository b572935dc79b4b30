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
/// The host obtains the one object with getInstance() and deletes it to shut the library down;
/// quillwork::AdapterOwner, in adapter/AdapterOwner.h, does that at the end of a scope.
///
/// The library calls the request operations: those of quillwork::IpcServerListener on the control
/// channel's thread, or on that of the host's code that asks the IpcServerManager, with the manager
/// mutex held, those of quillwork::IpcDemuxServerListener on the section-filter channel's thread.
/// Each calls one operation of a facade with the arguments as they came, and blocks as long as that
/// does. The host has no reason to call them. What the client asks, and what the arguments mean,
/// stands at the facade's operation.
///
/// The facades call the listener operations, on any thread of the host's, or inside a facade
/// operation on the control channel's thread. They block while the client does not read, and do
/// nothing once the deletion of the adapter has begun.
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
  /// call creates the adapter. For a socket that cannot be opened it prints a line on the standard
  /// error stream and returns all the same. The caller owns the object; every further call gives
  /// the same one until it is deleted.
  static MiddlewareIpc* getInstance();

  /// Use getInstance(), which gives 1920 and 1080: the size of the video in pixels.
  MiddlewareIpc(int width, int height);

  /// Stops the control channel, unsubscribes and deletes the facades (not the version facade), and
  /// prints "deleting middleware ipc" on the standard output. Returns within two seconds whatever
  /// the client does. Not virtual: delete the object as what it is, and never from inside a facade
  /// operation or a listener.
  ~MiddlewareIpc();

  /// There is one adapter; it is not copied.
  MiddlewareIpc(const MiddlewareIpc&) = delete;

  /// There is one adapter; it is not assigned.
  MiddlewareIpc& operator=(const MiddlewareIpc&) = delete;

  // The client's requests.

  /// Calls VideoFacade::setVideoBounds() for the type 0, videoPropertyAction() for 2,
  /// selectVideoLanguage() for 6, setVideoFreeze() for 7, setVideoOption() for 8; any other type,
  /// or no facade: nothing. Request: VIDEO 0, 2, 6, 7, 8, 17.
  void setVideoProperty(quillwork::video_data& data) override;

  /// Calls VideoFacade::getVideoProperty9() to getVideoProperty16(); -1 for any other number or
  /// without the facade. Request: VIDEO 9 to 16.
  int getVideoProperty(quillwork::command property) override;

  /// Calls VideoFacade::getMainVideoBounds(), whose answer is then replaced by -1 in all four, so
  /// that another listener's bounds count. Request: VIDEO 1.
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override;

  /// Calls VideoFacade::updateGraphicsRegion(), unscaled, after the lines
  /// ` >>> graphics region update <<< ` and `region = {x,y,width,height}` on the standard output.
  /// Request: VIDEO 18.
  void updateGraphicsRegion(quillwork::video_region region) override;

  /// Calls VideoFacade::getVideoLanguageA() for 3, getVideoLanguageB() for 5; the empty text for
  /// any other number or without the facade. Request: VIDEO 3, 5.
  std::string getVideoLanguage(quillwork::command language) override;

  /// Calls VideoFacade::getVideoLanguages(); the empty list without the facade. Request: VIDEO 4.
  std::list<std::string> getVideoLanguages() override;

  /// Calls PropertyFacade::getProperty(); the empty text without the facade. Request:
  /// SYSTEM_PROPERTY 0.
  std::string getSystemProperty(std::string name) override;

  /// Calls PropertyFacade::getProperties(), names and values cut at 254 bytes; the empty list
  /// without the facade. Request: SYSTEM_PROPERTY 1.
  std::list<quillwork::system_property> getSystemProperties() override;

  /// Calls PropertyFacade::setProperty(); nothing without the facade. Request: SYSTEM_PROPERTY 2.
  void setSystemProperty(quillwork::system_property& property) override;

  /// Calls PropertyFacade::removeProperty(); nothing without the facade. Request:
  /// SYSTEM_PROPERTY 3.
  void removeSystemProperty(std::string name) override;

  /// Calls VideoFacade::setVideoSoundLevel(), setVideoBalanceLevel(), setVideoBassLevel(),
  /// setVideoTrebleLevel() or setVideoMute(); any other type, or no facade: nothing. Request:
  /// AUDIO, of any type.
  void setVideoAudio(quillwork::audio_data data) override;

  /// Calls TunerFacade::getCurrentTransportStreamID(); -1 without the facade. Request: TUNER 0.
  int getCurrentTransportStreamID() override;

  /// Calls TunerFacade::getIdListFor() for the kind 1, getIdList() for 2, getSecondIdListFor() for
  /// 3, getThirdIdListFor() for 4; the empty list for any other kind or without the facade.
  /// Request: TUNER, of any type but 0.
  std::list<int> getAllIDs(quillwork::tuner_data& request) override;

  /// Calls TunerFacade::getChannelName(); the empty text without the facade. No request of the
  /// client leads to it.
  std::string getChannelName(int first, int second) override;

  /// Calls TunerFacade::getVirtualChannelNumber(); -1 without the facade. No request of the client
  /// leads to it.
  int getVirtualChannelNumber(int first, int second) override;

  /// Calls CarouselFacade::mountCarousel(); the empty text without the facade. Request: CAROUSEL 0.
  std::string mountCarousel(std::string locator) override;

  /// Calls CarouselFacade::umountCarousel(); nothing without the facade. Request: CAROUSEL 1.
  void umountCarousel(std::string locator) override;

  /// Calls CarouselFacade::addCarouselListener() with the adapter itself, each time the client
  /// asks; nothing without the facade. Request: CAROUSEL 3.
  void addCarouselListener() override;

  /// Calls CarouselFacade::removeCarouselListener() with the adapter itself; nothing without the
  /// facade. Request: CAROUSEL 4.
  void removeCarouselListener() override;

  /// Calls SIFacade::getSICodingFormat(); the empty text without the facade. Request: SI 0.
  std::string getSICodingFormat() override;

  /// Calls SIFacade::getProgramEvents(), converted with six new lists each; the empty list without
  /// the facade. Request: SI 1.
  std::list<quillwork::program_event> getProgramEvents() override;

  /// Calls SIFacade::getProgramEvent(), converted with six new lists, but with `value_5` 0 whatever
  /// the facade gave; a zero record without the facade. Request: SI 2.
  quillwork::program_event getProgramEvent() override;

  /// Calls SIFacade::getServices(), names cut at 254 bytes; the empty list without the facade.
  /// Request: SI 6.
  std::list<quillwork::service> getServices() override;

  /// Calls SIFacade::getCurrentService(); -1 without the facade. Request: SI 7.
  int getCurrentService() override;

  /// Calls SIFacade::getCASystemIds(); the empty list without the facade. Request: SI 4.
  std::list<int> getCASystemIds() override;

  /// Calls SIFacade::isProtectedService(); false without the facade. Request: SI 5.
  bool isProtectedService() override;

  /// Calls SIFacade::getServiceDescription(); the empty text without the facade. Request: SI 8.
  std::string getServiceDescription() override;

  /// Calls SIFacade::getServiceComponents(); the empty list without the facade. Request: SI 10.
  std::list<quillwork::service_component> getServiceComponents(int serviceId) override;

  /// Calls SIFacade::getTransportStream(), without its text and `value_after_text`, and with `mode`
  /// 0 for a mode that is not 0 to 3; a zero record without the facade. Request: SI 12.
  quillwork::transport_stream getTransportStream() override;

  /// Calls SIFacade::getNetwork(), its name cut at 254 bytes; a zero record without the facade.
  /// Request: SI 14.
  quillwork::network getNetwork() override;

  /// Calls SIFacade::getNetworkDescriptors(), converted with a new list each; the empty list
  /// without the facade. Request: SI 15.
  std::list<quillwork::descriptor> getNetworkDescriptors() override;

  /// Calls SIFacade::getTransportStreamDescriptors(), converted with a new list each; the empty
  /// list without the facade. Request: SI 13.
  std::list<quillwork::descriptor> getTransportStreamDescriptors(int transportStream) override;

  /// Calls SIFacade::getServiceDescriptors(), converted with a new list each; the empty list
  /// without the facade. No request of the client leads to it.
  std::list<quillwork::descriptor> getServiceDescriptors(int serviceId) override;

  /// Calls SIFacade::getProgramEventDescriptors(), converted with a new list each; the empty list
  /// without the facade. Request: SI 3, 9.
  std::list<quillwork::descriptor> getProgramEventDescriptors(int first, int second) override;

  /// Calls SIFacade::getServiceComponentDescriptors(), converted with a new list each; the empty
  /// list without the facade. Request: SI 11.
  std::list<quillwork::descriptor> getServiceComponentDescriptors(int component) override;

  /// Calls SIFacade::getPMTs(); the empty list without the facade. Request: SI 16.
  std::list<quillwork::pmt> getPMTs(int program) override;

  /// Calls VideoFacade::open(); 0 without the facade, and `player` is untouched. Request: MEDIA 0.
  int open(std::string locator, int& player) override;

  /// Calls VideoFacade::getDuration(); -1 without the facade. Request: MEDIA 1.
  int getDuration(int player) override;

  /// Calls VideoFacade::getCurrentTime(); -1 without the facade. Request: MEDIA 2.
  int getCurrentTime(int player) override;

  /// Calls VideoFacade::setCurrentTime(); -1 without the facade. Request: MEDIA 3.
  int setCurrentTime(int player, int first, int second) override;

  /// Calls VideoFacade::addMediaListener() with the adapter itself; nothing without the facade.
  /// Request: MEDIA 4.
  void addMediaListener(int player) override;

  /// Calls VideoFacade::play(); 0 without the facade. Request: MEDIA 5.
  int play(int player) override;

  /// Calls VideoFacade::stop(); nothing without the facade. Request: MEDIA 7.
  void stop(int player) override;

  /// Calls VideoFacade::close(); nothing without the facade. Request: MEDIA 6.
  void close(int player) override;

  /// Calls VideoFacade::setMediaBounds(); -1 without the facade. Request: MEDIA 8.
  int setMediaBounds(int player, int x, int y, int width, int height) override;

  /// Calls VideoFacade::getMediaBounds(); the arguments are untouched without the facade. Request:
  /// MEDIA 9.
  void getMediaBounds(int player, int& x, int& y, int& width, int& height) override;

  /// Calls VideoFacade::setMediaFreeze(); nothing without the facade. Request: MEDIA 10.
  void setMediaFreeze(int player, bool freeze) override;

  /// Calls VideoFacade::setMediaBalanceLevel(); nothing without the facade. Request: MEDIA 11.
  void setMediaBalanceLevel(int player, double level) override;

  /// Calls VideoFacade::setMediaSoundLevel(); nothing without the facade. Request: MEDIA 12.
  void setMediaSoundLevel(int player, double level) override;

  /// Calls VideoFacade::setMediaMute(); nothing without the facade. Request: MEDIA 13.
  void setMediaMute(int player, bool mute) override;

  /// Calls VideoFacade::setMediaBassLevel(); nothing without the facade. Request: MEDIA 14.
  void setMediaBassLevel(int player, double level) override;

  /// Calls VideoFacade::setMediaTrebleLevel(); nothing without the facade. Request: MEDIA 15.
  void setMediaTrebleLevel(int player, double level) override;

  /// Calls VersionFacade::checkVersionFlag(); 0 until getInstance() has made the facade. Request:
  /// VERSION, with the flag as the type.
  int checkVersionFlag(int flag) override;

  // What the facades report.

  /// Tells the client that the player, which VideoFacade::open() numbered, has reached its end.
  /// Notification: MEDIA 16.
  void endOfMedia(int player) override;

  /// As the form with two texts, the second one empty. Notification: CAROUSEL 2.
  void downloadComplete(std::string first) override;

  /// Tells the client that a carousel's download is complete, with the first 254 bytes of each
  /// text. Notification: CAROUSEL 2.
  void downloadComplete(std::string first, std::string second) override;

  // The section-filter channel's requests, passed on to the demultiplexer facade as they are.

  /// Calls DemuxFacade::start(); nothing without the facade. Request: section filter 0.
  void start() override;

  /// Calls DemuxFacade::stop(); nothing without the facade. Request: section filter 1.
  void stop() override;

  /// Calls DemuxFacade::setPid(); nothing without the facade. Request: section filter 2.
  void set_pid(int pid) override;

  /// Calls DemuxFacade::setTableId(); nothing without the facade. Request: section filter 3.
  void set_table_id(int tableId) override;

  /// Calls DemuxFacade::setPositiveFilter(); nothing without the facade. Request: section filter 4.
  void set_positive_filter(int filterArg, const std::vector<unsigned char>& first,
                           const std::vector<unsigned char>& second) override;

  /// Calls DemuxFacade::setGreaterThanFilter(); nothing without the facade. Request: section
  /// filter 5.
  void set_greater_than_filter(int filterArg, const std::vector<unsigned char>& first,
                               const std::vector<unsigned char>& second) override;

  /// Calls DemuxFacade::setLessThanFilter(); nothing without the facade. Request: section filter 6.
  void set_less_than_filter(int filterArg, const std::vector<unsigned char>& first,
                            const std::vector<unsigned char>& second) override;

  /// Calls DemuxFacade::setXorFilter(); nothing without the facade. Request: section filter 7.
  void set_xor_filter(int filterArg, const std::vector<unsigned char>& first,
                      const std::vector<unsigned char>& second,
                      const std::vector<unsigned char>& third) override;

  /// Calls DemuxFacade::setTimeOut(); nothing without the facade. Request: section filter 8.
  void set_time_out(long timeOut) override;

  /// Calls DemuxFacade::clearTableId(); nothing without the facade. Request: section filter 9.
  void clear_table_id() override;

  /// Calls DemuxFacade::clearPositiveFilter(); nothing without the facade. Request: section
  /// filter 10.
  void clear_positive_filter() override;

  /// Calls DemuxFacade::clearLessThanFilter(); nothing without the facade. Request: section
  /// filter 11.
  void clear_less_than_filter() override;

  /// Calls DemuxFacade::clearXorFilter(); nothing without the facade. Request: section filter 12.
  void clear_xor_filter() override;

  /// Calls DemuxFacade::readSection(); no bytes without the facade. Blocks as long as the facade
  /// does. Request: section filter 13.
  std::vector<unsigned char> read_section() override;

  /// Takes the size of the second rectangle, in pixels, as the video's, then tells the client.
  /// Notification: VIDEO 17.
  void graphicsSettingsChanged(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second) override;

  /// Gives the client a copy of the command, its text of any length. Notification: DSMCC_COMMAND,
  /// with the command's code as the type.
  void commandReceived(const ipcutil::DsmCCCommand_t& command) override;

  // For the host.

  /// Calls VideoFacade::getInitCropValue() on the calling thread; both rectangles are untouched
  /// without the facade. Not once the deletion has begun. No request of the client leads to it.
  void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second);

  /// Keeps the size of the video, in pixels. The client hears nothing of it. Any thread; does not
  /// block.
  void setVideoSize(int width, int height);

  /// Asks the client to change its application's state and waits for its answer without a time
  /// limit, as quillwork::IpcServerManager::setApplicationState() does. Any thread but the
  /// library's. False once the deletion of the adapter has begun. Notification: APPLICATION_STATE,
  /// with the state as the type.
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
