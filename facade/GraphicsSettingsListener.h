#pragma once

#include "protocol/language.h"

#include "protocol/records.h"

namespace middlewarefacade {

/// Hears of changed graphics settings. The adapter implements it, and the host's VideoFacade calls
/// it, on any thread but the library's, or on the control channel's inside a facade operation.
class GraphicsSettingsListener {
 public:
  /// The graphics plane or the video has another size: two rectangles in pixels, whose meaning is
  /// the middleware's own; the size of the second becomes the adapter's video size. The reference
  /// receiver gives the size of the plane in both. Blocks while the client does not read.
  /// Notification: VIDEO 17.
  virtual void graphicsSettingsChanged(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~GraphicsSettingsListener() = default;
};

}  // namespace middlewarefacade
