#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "protocol/records.h"

namespace quillwork {

/// Answers the client's requests. Registered with the IpcServerManager, which borrows it and asks
/// its listeners in the order of their addresses, on the control channel's thread with the manager
/// mutex held: an implementation must not call a locking operation of the manager.
///
/// "No answer" is -1 for identifiers, counts, times and positions, 0 or false for truth values, the
/// empty string, the empty list, or a record whose key field is -1. Lists inside returned records
/// pass to the caller. The order of the operations is an ABI.
class IpcServerListener {
 public:
  virtual void setVideoProperty(video_data& data) = 0;
  virtual int getVideoProperty(command property) = 0;
  virtual void getMainVideoBounds(int& x, int& y, int& width, int& height) = 0;
  virtual void updateGraphicsRegion(video_region region) = 0;
  virtual std::string getVideoLanguage(command language) = 0;
  virtual std::list<std::string> getVideoLanguages() = 0;
  virtual std::string getSystemProperty(std::string name) = 0;
  virtual std::list<system_property> getSystemProperties() = 0;
  virtual void setSystemProperty(system_property& property) = 0;
  virtual void removeSystemProperty(std::string name) = 0;
  virtual void setVideoAudio(audio_data data) = 0;
  virtual int getCurrentTransportStreamID() = 0;
  virtual std::list<int> getAllIDs(tuner_data& request) = 0;
  virtual std::string getChannelName(int first, int second) = 0;
  virtual int getVirtualChannelNumber(int first, int second) = 0;
  virtual std::string mountCarousel(std::string locator) = 0;
  virtual void umountCarousel(std::string locator) = 0;
  virtual void addCarouselListener() = 0;
  virtual void removeCarouselListener() = 0;
  virtual std::string getSICodingFormat() = 0;
  virtual std::list<program_event> getProgramEvents() = 0;
  virtual program_event getProgramEvent() = 0;
  virtual std::list<service> getServices() = 0;
  virtual int getCurrentService() = 0;
  virtual std::list<int> getCASystemIds() = 0;
  virtual bool isProtectedService() = 0;
  virtual std::string getServiceDescription() = 0;
  virtual std::list<service_component> getServiceComponents(int serviceId) = 0;
  virtual transport_stream getTransportStream() = 0;
  virtual network getNetwork() = 0;
  virtual std::list<descriptor> getNetworkDescriptors() = 0;
  virtual std::list<descriptor> getTransportStreamDescriptors(int transportStream) = 0;
  virtual std::list<descriptor> getServiceDescriptors(int serviceId) = 0;
  virtual std::list<descriptor> getProgramEventDescriptors(int first, int second) = 0;
  virtual std::list<descriptor> getServiceComponentDescriptors(int component) = 0;
  virtual std::list<pmt> getPMTs(int program) = 0;
  virtual int open(std::string locator, int& player) = 0;
  virtual int getDuration(int player) = 0;
  virtual int getCurrentTime(int player) = 0;
  virtual int setCurrentTime(int player, int first, int second) = 0;
  virtual void addMediaListener(int player) = 0;
  virtual int play(int player) = 0;
  virtual void stop(int player) = 0;
  virtual void close(int player) = 0;
  virtual int setMediaBounds(int player, int x, int y, int width, int height) = 0;
  virtual void getMediaBounds(int player, int& x, int& y, int& width, int& height) = 0;
  virtual void setMediaFreeze(int player, bool freeze) = 0;
  virtual void setMediaBalanceLevel(int player, double level) = 0;
  virtual void setMediaSoundLevel(int player, double level) = 0;
  virtual void setMediaMute(int player, bool mute) = 0;
  virtual void setMediaBassLevel(int player, double level) = 0;
  virtual void setMediaTrebleLevel(int player, double level) = 0;
  virtual int checkVersionFlag(int flag) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~IpcServerListener() = default;
};

}  // namespace quillwork
