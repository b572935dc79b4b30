#pragma once

#include "protocol/language.h"

#include "protocol/records.h"

namespace middlewarefacade {

/// Hears of changed graphics settings. Called on a thread of the middleware.
class GraphicsSettingsListener {
 public:
  /// Two rectangles of the new settings, in pixels; the size of the second becomes the video size.
  virtual void graphicsSettingsChanged(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~GraphicsSettingsListener() = default;
};

}  // namespace middlewarefacade
