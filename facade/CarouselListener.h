#pragma once

#include "protocol/language.h"

#include <string>

namespace middlewarefacade {

/// Hears of finished object-carousel downloads. Called on a thread of the middleware.
///
/// The order of the operations is an ABI: the middleware is compiled against it.
class CarouselListener {
 public:
  virtual void downloadComplete(std::string first) = 0;
  virtual void downloadComplete(std::string first, std::string second) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~CarouselListener() = default;
};

}  // namespace middlewarefacade
