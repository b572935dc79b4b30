#pragma once

#include <map>
#include <mutex>
#include <string>

#include "protocol/records.h"
#include "receiver/Gst.h"

namespace receiver {

/// The one window: the main video, the media players above it, and the graphics region above all,
/// as a veil. Any thread.
class Display {
 public:
  static constexpr int width = 1280;
  static constexpr int height = 720;

  /// Throws std::runtime_error where there is no display.
  Display();
  ~Display();
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  /// Shows what arrives on the channel, above everything that was shown before.
  void show(const std::string& channel, const ipcutil::Rectangle_t& bounds);
  void move(const std::string& channel, const ipcutil::Rectangle_t& bounds);
  void hide(const std::string& channel);
  void setRegion(const ipcutil::Rectangle_t& region);

 private:
  struct Layer {
    GstElement* source = nullptr;  ///< the pipeline's
    GstPad* pad = nullptr;         ///< of the mixer; owned
  };

  void place(GstPad* pad, const ipcutil::Rectangle_t& bounds) const;

  std::mutex mutex_;
  gst::Element pipeline_;
  gst::Element mixer_;
  std::map<std::string, Layer> layers_;
  unsigned next_ = 1;
};

}  // namespace receiver
