#include "receiver/Display.h"

#include <fmt/format.h>

#include <stdexcept>

namespace receiver {
namespace {

/// Above every player.
constexpr unsigned top = 1'000'000;

}  // namespace

Display::Display() {
  if (!gst::prepare()) throw std::runtime_error("GStreamer cannot be used");
  GError* error = nullptr;
  // Of eight bits: the mixer's scaling of deeper formats draws some sizes too narrow.
  const std::string description = fmt::format(
      "compositor name=mixer background=black sink_0::width={0} sink_0::height={1}"
      " sink_0::zorder=0 sink_1::alpha=0 sink_1::zorder={2}"
      " ! video/x-raw,format=BGRx,width={0},height={1},framerate=25/1,pixel-aspect-ratio=1/1 ! "
      "videoconvert ! "
      "ximagesink sync=false"
      " videotestsrc is-live=true pattern=black ! video/x-raw,width={0},height={1},framerate=25/1"
      " ! mixer.sink_0"
      " videotestsrc is-live=true pattern=solid-color foreground-color=0xff4060a0"
      " ! video/x-raw,width=64,height=64,framerate=25/1 ! mixer.sink_1",
      width, height, top);
  pipeline_.reset(gst_parse_launch(description.c_str(), &error));
  if (error != nullptr) {
    const std::string text = error->message;
    g_error_free(error);
    throw std::runtime_error("the display: " + text);
  }
  gst_object_ref_sink(pipeline_.get());
  mixer_ = gst::find(pipeline_, "mixer");
  gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  if (gst_element_get_state(pipeline_.get(), nullptr, nullptr, 5 * GST_SECOND) ==
      GST_STATE_CHANGE_FAILURE) {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    throw std::runtime_error("the display cannot be opened; is DISPLAY set?");
  }
}

Display::~Display() {
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  for (const auto& [channel, layer] : layers_) gst_object_unref(layer.pad);
}

void Display::place(GstPad* pad, const ipcutil::Rectangle_t& bounds) const {
  // A picture without size would be one of its own size.
  const bool isVisible = bounds.width > 0 && bounds.height > 0;
  g_object_set(pad, "xpos", bounds.x, "ypos", bounds.y, "width", isVisible ? bounds.width : 1,
               "height", isVisible ? bounds.height : 1, "alpha", isVisible ? 1.0 : 0.0, nullptr);
}

void Display::show(const std::string& channel, const ipcutil::Rectangle_t& bounds) {
  const std::lock_guard lock(mutex_);
  if (layers_.contains(channel)) return;
  // The last picture stays for as long as no other comes.
  gst::Element source = gst::parseBin(
      "intervideosrc timeout=18446744073709551615 channel=" + channel + " ! videoconvert");
  if (!source) return;
  GstPad* const pad = gst_element_request_pad_simple(mixer_.get(), "sink_%u");
  g_object_set(pad, "zorder", next_++, nullptr);
  place(pad, bounds);
  GstElement* const added = source.get();
  gst_bin_add(GST_BIN(pipeline_.get()), added);
  GstPad* const output = gst_element_get_static_pad(added, "src");
  gst_pad_link(output, pad);
  gst_object_unref(output);
  gst_element_sync_state_with_parent(added);
  layers_[channel] = {added, pad};
}

void Display::move(const std::string& channel, const ipcutil::Rectangle_t& bounds) {
  const std::lock_guard lock(mutex_);
  if (const auto layer = layers_.find(channel); layer != layers_.end()) {
    place(layer->second.pad, bounds);
  }
}

void Display::hide(const std::string& channel) {
  const std::lock_guard lock(mutex_);
  const auto found = layers_.find(channel);
  if (found == layers_.end()) return;
  const Layer layer = found->second;
  layers_.erase(found);
  gst_element_set_state(layer.source, GST_STATE_NULL);
  gst_bin_remove(GST_BIN(pipeline_.get()), layer.source);
  gst_element_release_request_pad(mixer_.get(), layer.pad);
  gst_object_unref(layer.pad);
}

void Display::setRegion(const ipcutil::Rectangle_t& region) {
  const std::lock_guard lock(mutex_);
  GstPad* const pad = gst_element_get_static_pad(mixer_.get(), "sink_1");
  place(pad, region);
  if (region.width > 0 && region.height > 0) g_object_set(pad, "alpha", 0.3, nullptr);
  gst_object_unref(pad);
}

}  // namespace receiver
