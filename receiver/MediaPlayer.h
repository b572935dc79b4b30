#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "receiver/Gst.h"
#include "receiver/StreamPlayer.h"

namespace receiver {

/// What a media player plays.
struct MediaSource {
  std::string uri;   ///< of a file; empty for the stream that the receiver plays
  int program = -1;  ///< of a transport stream, -1 for its first

  /// "PATH[#PROGRAM]" or "file://PATH[#PROGRAM]".
  static MediaSource file(const std::string& locator);
};

/// One playing of pictures and sound. Its operations come on one thread at a time; packets of the
/// stream on the player's.
class MediaPlayer : public PacketSink {
 public:
  /// What happens on GStreamer's threads: the medium has ended, or cannot go on.
  using EndHandler = std::function<void()>;

  /// `channel`: where the pictures go, of the display's; empty for nowhere. `hasSound`: whether the
  /// sound is to be heard.
  MediaPlayer(const MediaSource& source, const std::string& channel, bool hasSound,
              EndHandler handler);
  ~MediaPlayer() override;

  /// Whether there is something to play. Waits until a file's first picture is there.
  bool open();
  bool play();
  /// Goes back to the beginning and waits there.
  void stop();
  /// In milliseconds, -1 where it is not known.
  [[nodiscard]] int duration() const;
  /// In milliseconds from the medium's beginning, -1 where it is not known.
  [[nodiscard]] int time() const;
  /// Waits until it is there and returns the new time; -1 where that cannot be. `nearest`: the key
  /// picture that is nearest, which is sooner there.
  int seek(int milliseconds, bool nearest);

  void setFrozen(bool isFrozen);
  void setSound(double level);
  void setMute(bool isMute);
  /// -1 left to 1 right.
  void setBalance(double level);
  /// -1 to 1 for 12 dB less to 12 dB more.
  void setBass(double level);
  void setTreble(double level);
  /// Of the audio components, in the order of the stream; also before they are known.
  void selectAudio(int index);

  void take(Packet packet) override;
  void interrupted(bool isOther) override;
  void ended() override;

 private:
  static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, void* self);
  static void onElement(GstBin* bin, GstBin* inner, GstElement* element, void* self);
  static GstPadProbeReturn onPicture(GstPad* pad, GstPadProbeInfo* info, void* self);
  static void onAudio(GstElement* playbin, void* self);
  static void onSource(GstElement* playbin, GstElement* source, void* self);

  void watchPictures(const gst::Element& sink);
  [[nodiscard]] bool isLive() const { return source_.uri.empty(); }
  bool setState(GstState state);
  [[nodiscard]] std::int64_t position() const;
  void send();
  void setTone(const char* band, double level);

  const MediaSource source_;
  const EndHandler handler_;
  gst::Element playbin_;
  gst::Element filter_;
  std::int64_t begin_ = 0;  ///< the position of the medium's beginning, in nanoseconds
  std::atomic<bool> hasEnded_{false};
  std::atomic<bool> hasFailed_{false};
  std::atomic<int> audio_{0};

  std::mutex pictureMutex_;
  bool isFrozen_ = false;
  GstBuffer* picture_ = nullptr;  ///< the last one; owned

  std::mutex mutex_;
  GstElement* input_ = nullptr;  ///< of the live stream
  std::vector<std::uint8_t> packets_;
};

}  // namespace receiver
