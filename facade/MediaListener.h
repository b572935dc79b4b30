#pragma once

#include "protocol/language.h"

namespace middlewarefacade {

/// Hears of media players that have reached the end. The adapter implements it, and the host's
/// VideoFacade calls it, on any thread but the library's, or on the control channel's inside a
/// facade operation.
class MediaListener {
 public:
  /// The player, as VideoFacade::open() numbered it, has reached its end; in the reference receiver
  /// also when its medium cannot go on. Blocks while the client does not read. Notification:
  /// MEDIA 16.
  virtual void endOfMedia(int player) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~MediaListener() = default;
};

}  // namespace middlewarefacade
