#include "receiver/MediaPlayer.h"

#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

using namespace std::chrono_literals;

/// How long a file may take to its first picture, a seek to its end: on a processor that others
/// keep busy, many times the usual half a second. What cannot be played fails at once.
constexpr GstClockTime patience = 30 * GST_SECOND;
/// Packets are handed on in portions of about so many bytes.
constexpr std::size_t portion = 20 * packetSize;

/// GST_PLAY_FLAG_VIDEO and _AUDIO, which no header publishes. Without _SOFT_VOLUME, whose element
/// playbin never gives back: the filter has one of its own.
constexpr int playFlags = 0x01 | 0x02;

int milliseconds(std::int64_t time) {
  constexpr std::int64_t unit = GST_MSECOND;
  return static_cast<int>(std::clamp<std::int64_t>(time / unit, 0, INT32_MAX));
}

}  // namespace

MediaSource MediaSource::file(const std::string& locator) {
  constexpr std::string_view scheme = "file://";
  MediaSource source;
  std::string path = locator.starts_with(scheme) ? locator.substr(scheme.size()) : locator;
  if (const std::size_t hash = path.rfind('#'); hash != std::string::npos) {
    const char* const end = path.data() + path.size();
    int program = 0;
    if (std::from_chars(path.data() + hash + 1, end, program).ptr == end && program > 0) {
      source.program = program;
      path.erase(hash);
    }
  }
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return source;
  gchar* const uri = gst_filename_to_uri(std::filesystem::absolute(path, error).c_str(), nullptr);
  if (uri != nullptr) source.uri = uri;
  g_free(uri);
  return source;
}

MediaPlayer::MediaPlayer(const MediaSource& source, const std::string& channel, bool hasSound,
                         EndHandler handler)
    : source_(source), handler_(std::move(handler)) {
  gst::Element pictures =
      gst::parseBin(channel.empty() ? "identity name=pictures ! fakesink sync=true"
                                    : "videoconvert ! identity name=pictures ! "
                                      "intervideosink sync=true channel=" +
                                          channel);
  gst::Element sound = gst::parseBin(hasSound ? "autoaudiosink" : "fakesink sync=true");
  filter_ = gst::parseBin(
      "audioconvert ! volume name=volume ! audiopanorama name=balance ! equalizer-3bands name=tone "
      "! audioconvert");
  playbin_.reset(gst_element_factory_make("playbin", nullptr));
  if (!playbin_ || !pictures || !sound) {
    playbin_.reset();
    return;
  }
  gst_object_ref_sink(playbin_.get());
  watchPictures(pictures);
  g_object_set(playbin_.get(), "video-sink", pictures.get(), "audio-sink", sound.get(), "flags",
               playFlags, "uri", isLive() ? "appsrc://" : source_.uri.c_str(), nullptr);
  if (filter_) g_object_set(playbin_.get(), "audio-filter", filter_.get(), nullptr);
  g_signal_connect(playbin_.get(), "deep-element-added", G_CALLBACK(onElement), this);
  g_signal_connect(playbin_.get(), "source-setup", G_CALLBACK(onSource), this);
  g_signal_connect(playbin_.get(), "audio-changed", G_CALLBACK(onAudio), this);
  GstBus* const bus = gst_element_get_bus(playbin_.get());
  gst_bus_set_sync_handler(bus, onMessage, this, nullptr);
  gst_object_unref(bus);
}

MediaPlayer::~MediaPlayer() {
  if (!playbin_) return;
  {
    const std::lock_guard lock(mutex_);
    input_ = nullptr;
  }
  gst_element_set_state(playbin_.get(), GST_STATE_NULL);
  gst_buffer_replace(&picture_, nullptr);
}

/// A transport stream's demultiplexer plays the program that it is told to.
void MediaPlayer::onElement(GstBin*, GstBin*, GstElement* element, void* self) {
  GstElementFactory* const factory = gst_element_get_factory(element);
  const bool isDemultiplexer =
      factory != nullptr && std::string_view(GST_OBJECT_NAME(factory)) == "tsdemux";
  const int program = static_cast<MediaPlayer*>(self)->source_.program;
  if (isDemultiplexer && program != -1) {
    g_object_set(element, "program-number", program, nullptr);
  }
}

void MediaPlayer::onSource(GstElement*, GstElement* source, void* self) {
  auto* const player = static_cast<MediaPlayer*>(self);
  if (!player->isLive()) return;
  GstCaps* const caps = gst_caps_new_simple("video/mpegts", "systemstream", G_TYPE_BOOLEAN, TRUE,
                                            "packetsize", G_TYPE_INT, int{packetSize}, nullptr);
  // What the pipeline does not take in time is lost, as if it had not been received.
  g_object_set(source, "caps", caps, "format", GST_FORMAT_TIME, "is-live", TRUE, "do-timestamp",
               TRUE, "max-bytes", guint64{4} << 20U, "leaky-type", 2, nullptr);
  gst_caps_unref(caps);
  const std::lock_guard lock(player->mutex_);
  player->input_ = source;
}

GstBusSyncReply MediaPlayer::onMessage(GstBus*, GstMessage* message, void* self) {
  auto* const player = static_cast<MediaPlayer*>(self);
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    complain("{}: {}", player->isLive() ? "the stream" : player->source_.uri, error->message);
    g_error_free(error);
    player->hasFailed_ = true;
  }
  const bool isEnd = GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS ||
                     GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
  if (isEnd && !player->hasEnded_.exchange(true)) player->handler_();
  gst_message_unref(message);
  return GST_BUS_DROP;
}

bool MediaPlayer::setState(GstState state) {
  if (gst_element_set_state(playbin_.get(), state) == GST_STATE_CHANGE_FAILURE) return false;
  // A live stream has no first picture to wait for.
  if (isLive()) return true;
  const auto result = gst_element_get_state(playbin_.get(), nullptr, nullptr, patience);
  return result == GST_STATE_CHANGE_SUCCESS || result == GST_STATE_CHANGE_NO_PREROLL;
}

bool MediaPlayer::open() {
  if (!playbin_) return false;
  if (isLive()) return true;
  if (!setState(GST_STATE_PAUSED) || hasFailed_) return false;
  begin_ = std::max<std::int64_t>(position(), 0);
  return true;
}

bool MediaPlayer::play() {
  if (hasFailed_) return false;
  // Once more from the beginning.
  if (hasEnded_ && !isLive() && seek(0, false) == -1) return false;
  return setState(GST_STATE_PLAYING);
}

void MediaPlayer::stop() {
  if (isLive()) {
    gst_element_set_state(playbin_.get(), GST_STATE_READY);
    return;
  }
  setState(GST_STATE_PAUSED);
  seek(0, false);
}

int MediaPlayer::duration() const {
  gint64 time = 0;
  const bool isKnown =
      !isLive() && gst_element_query_duration(playbin_.get(), GST_FORMAT_TIME, &time) != 0;
  return isKnown && time >= 0 ? milliseconds(time) : -1;
}

std::int64_t MediaPlayer::position() const {
  gint64 time = -1;
  const bool isKnown = gst_element_query_position(playbin_.get(), GST_FORMAT_TIME, &time) != 0;
  return isKnown ? time : -1;
}

int MediaPlayer::time() const {
  const std::int64_t now = position();
  return now == -1 ? -1 : milliseconds(now - begin_);
}

int MediaPlayer::seek(int time, bool nearest) {
  if (isLive() || time < 0) return -1;
  const int end = duration();
  if (end != -1) time = std::min(time, end);
  const int flags =
      GST_SEEK_FLAG_FLUSH |
      (nearest ? GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_NEAREST : GST_SEEK_FLAG_ACCURATE);
  hasEnded_ = false;
  if (gst_element_seek_simple(playbin_.get(), GST_FORMAT_TIME, static_cast<GstSeekFlags>(flags),
                              begin_ + std::int64_t{time} * GST_MSECOND) == 0) {
    return -1;
  }
  // Another seek before this one's end could hang the pipeline for good.
  gst_element_get_state(playbin_.get(), nullptr, nullptr, patience);
  return this->time();
}

void MediaPlayer::watchPictures(const gst::Element& sink) {
  const gst::Element pictures = gst::find(sink, "pictures");
  GstPad* const pad = gst_element_get_static_pad(pictures.get(), "src");
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onPicture, this, nullptr);
  gst_object_unref(pad);
}

/// While the picture is frozen, the one from before comes again at the time of each new one, so
/// that nothing else notices.
GstPadProbeReturn MediaPlayer::onPicture(GstPad*, GstPadProbeInfo* info, void* self) {
  auto* const player = static_cast<MediaPlayer*>(self);
  GstBuffer* const next = GST_PAD_PROBE_INFO_BUFFER(info);
  const std::lock_guard lock(player->pictureMutex_);
  if (!player->isFrozen_ || player->picture_ == nullptr) {
    gst_buffer_replace(&player->picture_, next);
    return GST_PAD_PROBE_OK;
  }
  GstBuffer* const again = gst_buffer_copy(player->picture_);
  gst_buffer_copy_into(again, next, GST_BUFFER_COPY_TIMESTAMPS, 0, static_cast<gsize>(-1));
  gst_buffer_unref(next);
  GST_PAD_PROBE_INFO_DATA(info) = again;
  return GST_PAD_PROBE_OK;
}

void MediaPlayer::setFrozen(bool isFrozen) {
  const std::lock_guard lock(pictureMutex_);
  isFrozen_ = isFrozen;
}

void MediaPlayer::setSound(double level) {
  if (!filter_) return;
  const gst::Element volume = gst::find(filter_, "volume");
  g_object_set(volume.get(), "volume", std::clamp(level, 0.0, 1.0), nullptr);
}

void MediaPlayer::setMute(bool isMute) {
  if (!filter_) return;
  const gst::Element volume = gst::find(filter_, "volume");
  g_object_set(volume.get(), "mute", isMute ? TRUE : FALSE, nullptr);
}

void MediaPlayer::setBalance(double level) {
  if (!filter_) return;
  const gst::Element balance = gst::find(filter_, "balance");
  g_object_set(balance.get(), "panorama", static_cast<float>(std::clamp(level, -1.0, 1.0)),
               nullptr);
}

void MediaPlayer::setBass(double level) { setTone("band0", level); }

void MediaPlayer::setTreble(double level) { setTone("band2", level); }

void MediaPlayer::setTone(const char* band, double level) {
  if (!filter_) return;
  const gst::Element tone = gst::find(filter_, "tone");
  g_object_set(tone.get(), band, std::clamp(level, -1.0, 1.0) * 12, nullptr);
}

void MediaPlayer::selectAudio(int index) {
  audio_ = index;
  g_object_set(playbin_.get(), "current-audio", index, nullptr);
}

/// What was selected before the sound came is selected now.
void MediaPlayer::onAudio(GstElement* playbin, void* self) {
  const int index = static_cast<MediaPlayer*>(self)->audio_;
  gint count = 0;
  g_object_get(playbin, "n-audio", &count, nullptr);
  if (index < count) g_object_set(playbin, "current-audio", index, nullptr);
}

void MediaPlayer::take(Packet packet) {
  const std::lock_guard lock(mutex_);
  packets_.insert(packets_.end(), packet.begin(), packet.end());
  if (packets_.size() >= portion) send();
}

void MediaPlayer::send() {
  if (input_ != nullptr && !packets_.empty()) {
    GstBuffer* const buffer = gst_buffer_new_memdup(packets_.data(), packets_.size());
    gst_app_src_push_buffer(GST_APP_SRC(input_), buffer);
  }
  packets_.clear();
}

void MediaPlayer::interrupted(bool) {}

void MediaPlayer::ended() {
  const std::lock_guard lock(mutex_);
  send();
  if (input_ != nullptr) gst_app_src_end_of_stream(GST_APP_SRC(input_));
}

}  // namespace receiver
