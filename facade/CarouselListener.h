#pragma once

#include "protocol/language.h"

#include <string>

namespace middlewarefacade {

/// Hears of finished object-carousel downloads. The adapter implements it, and the host's
/// CarouselFacade calls it, on any thread but the library's, or on the control channel's inside a
/// facade operation. A call blocks while the client does not read.
///
/// The order of the operations is an ABI: the middleware is compiled against it.
class CarouselListener {
 public:
  /// A download is complete: the form with two texts, the second one empty. Notification:
  /// CAROUSEL 2.
  virtual void downloadComplete(std::string first) = 0;

  /// A download is complete. The texts are the middleware's own, and the client gets the first 254
  /// bytes of each; the reference receiver gives the locator as it was mounted and the directory
  /// with the files. Notification: CAROUSEL 2.
  virtual void downloadComplete(std::string first, std::string second) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~CarouselListener() = default;
};

}  // namespace middlewarefacade
