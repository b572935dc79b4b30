#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/CarouselListener.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// Object carousels (ISO/IEC 13818-6, ETSI TR 101 202).
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class CarouselFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static CarouselFacade* createCarouselFacade();

  /// Mounts the carousel that the locator names; the answer is the middleware's own text.
  virtual std::string mountCarousel(std::string locator) = 0;
  virtual void umountCarousel(std::string locator) = 0;
  /// The listener is borrowed until it is removed or the facade is deleted.
  virtual void addCarouselListener(CarouselListener* listener) = 0;
  virtual void removeCarouselListener(CarouselListener* listener) = 0;
  virtual ~CarouselFacade() = default;
};

}  // namespace middlewarefacade
