#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "facade/GraphicsSettingsListener.h"
#include "facade/MediaListener.h"
#include "facade/VideoFacade.h"
#include "receiver/Display.h"
#include "receiver/ListenerSlot.h"
#include "receiver/MediaPlayer.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamPlayer.h"
#include "receiver/Worker.h"

namespace receiver {

/// The video facade: the current service's pictures and sound, media players on files and on
/// programmes of the stream. Called on the control channel's thread. docs/profile.md says what
/// each number means.
class Video : public middlewarefacade::VideoFacade {
 public:
  /// `display`: null for none, and then the main video is not decoded.
  using GraphicsListener = ListenerSlot<middlewarefacade::GraphicsSettingsListener>;

  Video(StreamPlayer& streamPlayer, const ServiceInformation& information, Worker& worker,
        GraphicsListener& graphicsListener, Display* display);
  ~Video() override;

  void setVideoBounds(int x, int y, int width, int height) override;
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override;
  int open(std::string locator, int& player) override;
  int getDuration(int player) override;
  int getCurrentTime(int player) override;
  int setCurrentTime(int player, int first, int second) override;
  void addMediaListener(int player, middlewarefacade::MediaListener* listener) override;
  int play(int player) override;
  void stop(int player) override;
  void close(int player) override;
  int setMediaBounds(int player, int x, int y, int width, int height) override;
  void getMediaBounds(int player, int& x, int& y, int& width, int& height) override;
  std::string getVideoLanguageA() override;
  std::list<std::string> getVideoLanguages() override;
  std::string getVideoLanguageB() override;
  void selectVideoLanguage(std::string language) override;
  void setVideoFreeze(bool freeze) override;
  void setMediaFreeze(int player, bool freeze) override;
  void setVideoOption(bool option) override;
  int getVideoProperty9() override;
  int getVideoProperty10() override;
  int getVideoProperty11() override;
  int getVideoProperty12() override;
  int getVideoProperty13() override;
  int getVideoProperty14() override;
  int getVideoProperty15() override;
  int getVideoProperty16() override;
  void videoPropertyAction() override;
  void setVideoBalanceLevel(double level) override;
  void setMediaBalanceLevel(int player, double level) override;
  void setVideoSoundLevel(double level) override;
  void setMediaSoundLevel(int player, double level) override;
  void setVideoMute(bool mute) override;
  void setMediaMute(int player, bool mute) override;
  void setVideoBassLevel(double level) override;
  void setMediaBassLevel(int player, double level) override;
  void setVideoTrebleLevel(double level) override;
  void setMediaTrebleLevel(int player, double level) override;
  void addGraphicsSettingsListener(middlewarefacade::GraphicsSettingsListener* listener) override;
  void removeGraphicsSettingsListener(
      middlewarefacade::GraphicsSettingsListener* listener) override;
  void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) override;
  void updateGraphicsRegion(int x, int y, int width, int height) override;

 private:
  using Listener = ListenerSlot<middlewarefacade::MediaListener>;

  struct Opened {
    /// Outlives the player, for a notification that is under way.
    std::shared_ptr<Listener> listener;
    std::string channel;
    ipcutil::Rectangle_t bounds{};
    bool isLive = false;
    std::unique_ptr<MediaPlayer> player;
  };
  /// What the main video is set to, whether or not it is decoded.
  struct Main {
    ipcutil::Rectangle_t bounds{0, 0, Display::width, Display::height};
    bool isShown = true;
    bool isFrozen = false;
    bool isMute = false;
    double sound = 1;
    double balance = 0;
    double bass = 0;
    double treble = 0;
    std::string language;
  };

  /// The components of a service whose stream types are among those.
  [[nodiscard]] std::vector<Component> components(bool isAudio, int service) const;
  [[nodiscard]] std::vector<Component> components(bool isAudio) const;
  [[nodiscard]] const Component* selectedAudio(const std::vector<Component>& audio);
  Opened* find(int player);
  /// Changes what the main video is set to, and its player, where there is one.
  void changeMain(const std::function<void(Main&)>& change);
  void follow();
  void playMain(int service);
  void applyMain();
  void closeOpened(Opened& opened);

  StreamPlayer& streamPlayer_;
  const ServiceInformation& information_;
  Worker& worker_;
  GraphicsListener& graphicsListener_;
  Display* const display_;

  /// Guards the main video, whose player is changed by the thread that follows the current service.
  std::mutex mutex_;
  std::condition_variable stopped_;
  bool isStopped_ = false;
  Main main_;
  std::unique_ptr<MediaPlayer> mainPlayer_;
  int mainService_ = -1;  ///< that the player plays
  std::thread follower_;

  std::map<int, Opened> players_;
  int next_ = 1;
};

}  // namespace receiver
