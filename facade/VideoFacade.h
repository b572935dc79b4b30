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
/// The operations are called on the control channel's thread, or on that of the host's code that
/// asks the IpcServerManager, one at a time, with the manager mutex held, unless one says
/// otherwise. The client waits until one returns, also for one without an answer: its next request
/// is read afterwards.
///
/// A player is the number that open() gave out; the client may send any 32-bit number. Bounds are
/// x, y, width and height as the client sent them, in the reference receiver pixels of a plane of
/// 1280 by 720. Levels are real numbers as the client sent them, NaN and infinity included; said is
/// the range that the reference receiver takes. Times are the middleware's own, in the reference
/// receiver milliseconds.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class VideoFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no video. Called once for each adapter, inside MiddlewareIpc::getInstance(),
  /// on the thread that calls it.
  QUILLWORK_HOST_DEFINED static VideoFacade* createVideoFacade();

  /// Places the main video. Request: VIDEO 0.
  virtual void setVideoBounds(int x, int y, int width, int height) = 0;

  /// Writes where the main video is. Before the call the arguments have what the client sent. What
  /// is written does not reach the client: the adapter answers -1 four times, so that another
  /// listener's bounds count. Request: VIDEO 1.
  virtual void getMainVideoBounds(int& x, int& y, int& width, int& height) = 0;

  /// Opens what the locator names, stores the new player's number and returns a number other than
  /// 0; returns 0 if it cannot be opened. The locator is bytes of the middleware's own form, 1944
  /// at most; the reference receiver takes `PATH`, `file://PATH[#PROGRAM]` and
  /// `dvb://[ONID].[TSID].SID`. The player lives until close(), and the reference receiver closes
  /// it when the client goes. Before the call `player` has what the client sent. Request: MEDIA 0.
  virtual int open(std::string locator, int& player) = 0;

  /// How long the player's medium is; -1 if it is not known or the player is not open. Request:
  /// MEDIA 1.
  virtual int getDuration(int player) = 0;

  /// Where the player is in its medium; -1 if it is not known or the player is not open. Request:
  /// MEDIA 2.
  virtual int getCurrentTime(int player) = 0;

  /// Goes to another time and answers with an integer of the middleware's own; -1 if it cannot. In
  /// the reference receiver `first` is the time, `second` 0 for exactly there and 1 for the nearest
  /// key picture, and the answer the time that was reached; it blocks until it is there. Request:
  /// MEDIA 3.
  virtual int setCurrentTime(int player, int first, int second) = 0;

  /// Begins to report the player's end to `listener`, which is the adapter: borrowed for as long as
  /// the player or this facade lives, and never removed. Request: MEDIA 4.
  virtual void addMediaListener(int player, MediaListener* listener) = 0;

  /// Plays, and returns at once: a number other than 0 if it does, 0 if it cannot. In the reference
  /// receiver a player at its end begins again. Request: MEDIA 5.
  virtual int play(int player) = 0;

  /// Stops the player, which stays open; in the reference receiver it goes back to the beginning.
  /// Request: MEDIA 7.
  virtual void stop(int player) = 0;

  /// Ends the player: its number is free, and no call to its listener may follow. Request: MEDIA 6.
  virtual void close(int player) = 0;

  /// Places the player's pictures and answers with an integer of the middleware's own, in the
  /// reference receiver 0, or -1 for a player that is not open. Request: MEDIA 8.
  virtual int setMediaBounds(int player, int x, int y, int width, int height) = 0;

  /// Writes where the player's pictures are. Before the call the arguments have what the client
  /// sent, and the client gets that back for what is not written. Request: MEDIA 9.
  virtual void getMediaBounds(int player, int& x, int& y, int& width, int& height) = 0;

  /// One of two languages of the main sound, in the reference receiver the selected one as an ISO
  /// 639 code; the empty text for none. Request: VIDEO 3.
  virtual std::string getVideoLanguageA() = 0;

  /// All languages of the main sound, in the reference receiver ISO 639 codes; the empty list for
  /// none. The client gets the first 254 bytes of each. Request: VIDEO 4.
  virtual std::list<std::string> getVideoLanguages() = 0;

  /// The other of the two languages, in the reference receiver the first one; the empty text for
  /// none. Request: VIDEO 5.
  virtual std::string getVideoLanguageB() = 0;

  /// Selects a language of the main sound by a text of the middleware's own, 1948 bytes at most.
  /// Request: VIDEO 6.
  virtual void selectVideoLanguage(std::string language) = 0;

  /// Freezes the main video's picture, or lets it go on. Request: VIDEO 7.
  virtual void setVideoFreeze(bool freeze) = 0;

  /// Freezes the player's picture, or lets it go on. Request: MEDIA 10.
  virtual void setMediaFreeze(int player, bool freeze) = 0;

  /// Sets an option of the main video whose meaning is the middleware's own, in the reference
  /// receiver whether it is shown. Request: VIDEO 8.
  virtual void setVideoOption(bool option) = 0;

  /// An integer of the middleware's own, in the reference receiver the width of the graphics plane
  /// in pixels; -1 for none. Request: VIDEO 9.
  virtual int getVideoProperty9() = 0;

  /// An integer of the middleware's own, in the reference receiver the height of the graphics plane
  /// in pixels; -1 for none. Request: VIDEO 10.
  virtual int getVideoProperty10() = 0;

  /// An integer of the middleware's own, in the reference receiver the PID of the current service's
  /// pictures; -1 for none. Request: VIDEO 11.
  virtual int getVideoProperty11() = 0;

  /// An integer of the middleware's own, in the reference receiver the stream type of the current
  /// service's pictures; -1 for none. Request: VIDEO 12.
  virtual int getVideoProperty12() = 0;

  /// An integer of the middleware's own, in the reference receiver the PID of the selected sound;
  /// -1 for none. Request: VIDEO 13.
  virtual int getVideoProperty13() = 0;

  /// An integer of the middleware's own, in the reference receiver the stream type of the selected
  /// sound; -1 for none. Request: VIDEO 14.
  virtual int getVideoProperty14() = 0;

  /// An integer of the middleware's own, in the reference receiver 1 if the main video's sound is
  /// off and else 0; -1 for none. Request: VIDEO 15.
  virtual int getVideoProperty15() = 0;

  /// An integer of the middleware's own, in the reference receiver 1 if the main video's picture is
  /// frozen and else 0; -1 for none. Request: VIDEO 16.
  virtual int getVideoProperty16() = 0;

  /// An action of the middleware's own. Called whenever the client goes away, too, after its last
  /// request: the reference receiver then closes the client's players and puts the main video back
  /// as it was. Request: VIDEO 2.
  virtual void videoPropertyAction() = 0;

  /// Sets the main sound's balance, -1 (left) to 1 (right). Request: AUDIO 1.
  virtual void setVideoBalanceLevel(double level) = 0;

  /// Sets the player's balance, -1 (left) to 1 (right). Request: MEDIA 11.
  virtual void setMediaBalanceLevel(int player, double level) = 0;

  /// Sets how loud the main sound is, 0 to 1. Request: AUDIO 0.
  virtual void setVideoSoundLevel(double level) = 0;

  /// Sets how loud the player is, 0 to 1. Request: MEDIA 12.
  virtual void setMediaSoundLevel(int player, double level) = 0;

  /// Turns the main sound off, or on again at its level. Request: AUDIO 4.
  virtual void setVideoMute(bool mute) = 0;

  /// Turns the player's sound off, or on again at its level. Request: MEDIA 13.
  virtual void setMediaMute(int player, bool mute) = 0;

  /// Sets the main sound's bass, -1 (12 dB less) to 1 (12 dB more). Request: AUDIO 2.
  virtual void setVideoBassLevel(double level) = 0;

  /// Sets the player's bass, -1 (12 dB less) to 1 (12 dB more). Request: MEDIA 14.
  virtual void setMediaBassLevel(int player, double level) = 0;

  /// Sets the main sound's treble, -1 (12 dB less) to 1 (12 dB more). Request: AUDIO 3.
  virtual void setVideoTrebleLevel(double level) = 0;

  /// Sets the player's treble, -1 (12 dB less) to 1 (12 dB more). Request: MEDIA 15.
  virtual void setMediaTrebleLevel(int player, double level) = 0;

  /// Begins to report changed graphics settings to `listener`, which is the adapter: borrowed until
  /// it is removed. Called once, inside MiddlewareIpc::getInstance(), on the thread that calls it.
  /// No request leads to it.
  virtual void addGraphicsSettingsListener(GraphicsSettingsListener* listener) = 0;

  /// Ends the reports: no call to `listener` may follow once this has returned. Called once, by the
  /// thread that deletes the adapter, right before this facade's destructor. No request leads to
  /// it.
  virtual void removeGraphicsSettingsListener(GraphicsSettingsListener* listener) = 0;

  /// Writes two rectangles of the middleware's own, the parts of the picture that are shown at the
  /// start; in the reference receiver the whole plane, twice. The caller owns both. Called on the
  /// thread that calls MiddlewareIpc::getInitCropValue(). No request leads to it.
  virtual void getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) = 0;

  /// Takes the part of the graphics plane that the client has drawn on, in pixels of that plane,
  /// unscaled. Request: VIDEO 18.
  virtual void updateGraphicsRegion(int x, int y, int width, int height) = 0;

  /// Called once, by the thread that deletes the adapter, after the control channel has ended. No
  /// call to a listener may follow.
  virtual ~VideoFacade() = default;
};

}  // namespace middlewarefacade
