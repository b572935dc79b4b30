#pragma once

#include "protocol/language.h"

#include <string>

#include "facade/CarouselListener.h"
#include "facade/visibility.h"

namespace middlewarefacade {

/// Object carousels (ISO/IEC 13818-6, ETSI TR 101 202): files that the broadcast repeats.
///
/// The operations are called on the control channel's thread, or on that of the host's code that
/// asks the IpcServerManager, one at a time, with the manager mutex held. The client waits until
/// one returns: do not wait for a download in them. Texts are bytes without a character set; a
/// client that keeps to the protocol sends 254 at most, another one up to 1948, and the client gets
/// the first 254 of an answer.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class CarouselFacade {
 public:
  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no carousels. Called once for each adapter, inside
  /// MiddlewareIpc::getInstance(), on the thread that calls it.
  QUILLWORK_HOST_DEFINED static CarouselFacade* createCarouselFacade();

  /// Mounts the carousel that the locator names, and returns at once. The answer is the
  /// middleware's own text and goes to the client as it is; the empty text for a locator that
  /// cannot be mounted. The reference receiver takes `dvb://[ONID].[TSID].SID[.TAG]` in hexadecimal
  /// and answers with the directory in which the files will be. Request: CAROUSEL 0.
  virtual std::string mountCarousel(std::string locator) = 0;

  /// Unmounts what mountCarousel() was given with the same locator. A locator that is not mounted
  /// changes nothing. Request: CAROUSEL 1.
  virtual void umountCarousel(std::string locator) = 0;

  /// Begins to report finished downloads to `listener`, which is the adapter: borrowed until it is
  /// removed or this facade is deleted. A client may ask twice; the same listener then comes again.
  /// Request: CAROUSEL 3.
  virtual void addCarouselListener(CarouselListener* listener) = 0;

  /// Ends the reports to `listener`. It may not have been added. No call to it may follow once this
  /// has returned. Not called when the adapter is deleted; this facade's destructor is. Request:
  /// CAROUSEL 4.
  virtual void removeCarouselListener(CarouselListener* listener) = 0;

  /// Called once, by the thread that deletes the adapter, after the control channel has ended. No
  /// call to a listener may follow.
  virtual ~CarouselFacade() = default;
};

}  // namespace middlewarefacade
