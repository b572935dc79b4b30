#pragma once

#include "protocol/language.h"

namespace middlewarefacade {

/// Hears of media players that have reached the end. Called on a thread of the middleware.
class MediaListener {
 public:
  virtual void endOfMedia(int player) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~MediaListener() = default;
};

}  // namespace middlewarefacade
