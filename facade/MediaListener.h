#pragma once

#include "protocol/language.h"

namespace middlewarefacade {

/// Hears of media players that have reached the end. Called on a thread of the middleware.
class MediaListener {
 public:
  virtual void endOfMedia(int player) = 0;
};

}  // namespace middlewarefacade
