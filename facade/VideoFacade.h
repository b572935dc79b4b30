#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/GraphicsSettingsListener.h"
#include "facade/MediaListener.h"
#include "facade/visibility.h"
#include "protocol/records.h"

namespace middlewarefacade {

/// The main video and audio, the media players, and the graphics region.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it. Bounds are
/// x, y, width and height; a player is the identifier that open() gave out.
class VideoFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static VideoFacade* createVideoFacade();

  virtual void setVideoBounds(int x, int y, int width, int height) = 0;
  virtual void getMainVideoBounds(int& x, int& y, int& width, int& height) = 0;
  /// Opens what the locator names and stores its player; zero for failure.
  virtual int open(std::string locator, int& player) = 0;
  virtual int getDuration(int player) = 0;
  virtual int getCurrentTime(int player) = 0;
  virtual int setCurrentTime(int player, int first, int second) = 0;
  /// The listener is borrowed for as long as the player or the facade lives.
  virtual void addMediaListener(int player, MediaListener* listener) = 0;
  virtual int play(int player) = 0;
  virtual void stop(int player) = 0;
  virtual void close(int player) = 0;
  virtual int setMediaBounds(int player, int x, int y, int width, int height) = 0;
  virtual void getMediaBounds(int player, int& x, int& y, int& width, int& height) = 0;
  virtual std::string getVideoLanguageA() = 0;
  virtual std::list<std::string> getVideoLanguages() = 0;
  virtual std::string getVideoLanguageB() = 0;
  virtual void selectVideoLanguage(std::string language) = 0;
  virtual void setVideoFreeze(bool freeze) = 0;
  virtual void setMediaFreeze(int player, bool freeze) = 0;
  virtual void setVideoOption(bool option) = 0;
  virtual int getVideoProperty9() = 0;
  virtual int getVideoProperty10() = 0;
  virtual int getVideoProperty11() = 0;
  virtual int getVideoProperty12() = 0;
  virtual int getVideoProperty13() = 0;
  virtual int getVideoProperty14() = 0;
  virtual int getVideoProperty15() = 0;
  virtual int getVideoProperty16() = 0;
  /// Called whenever the client goes away, too.
  virtual void videoPropertyAction() = 0;
  virtual void setVideoBalanceLevel(double level) = 0;
  virtual void setMediaBalanceLevel(int player, double level) = 0;
  virtual void setVideoSoundLevel(double level) = 0;
  virtual void setMediaSoundLevel(int player, double level) = 0;
  virtual void setVideoMute(bool mute) = 0;
  virtual void setMediaMute(int player, bool mute) = 0;
  virtual void setVideoBassLevel(double level) = 0;
  virtual void setMediaBassLevel(int player, double level) = 0;
  virtual void setVideoTrebleLevel(double level) = 0;
  virtual void setMediaTrebleLevel(int player, double level) = 0;
  /// The listener is borrowed until it is removed.
  virtual void addGraphicsSettingsListener(GraphicsSettingsListener* listener) = 0;
  virtual void removeGraphicsSettingsListener(GraphicsSettingsListener* listener) = 0;
  virtual void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) = 0;
  virtual void updateGraphicsRegion(int x, int y, int width, int height) = 0;
  virtual ~VideoFacade() = default;
};

}  // namespace middlewarefacade
