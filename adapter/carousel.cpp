// Object carousels and DSM-CC stream events.

#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/CarouselFacade.h"

using adapter::ask;
using adapter::load;
using adapter::passOn;
using adapter::tell;
using middlewarefacade::CarouselFacade;

std::string MiddlewareIpc::mountCarousel(std::string locator) {
  return ask(load(carouselFacade), &CarouselFacade::mountCarousel, std::move(locator));
}

void MiddlewareIpc::umountCarousel(std::string locator) {
  tell(load(carouselFacade), &CarouselFacade::umountCarousel, std::move(locator));
}

void MiddlewareIpc::addCarouselListener() {
  tell(load(carouselFacade), &CarouselFacade::addCarouselListener, this);
}

void MiddlewareIpc::removeCarouselListener() {
  tell(load(carouselFacade), &CarouselFacade::removeCarouselListener, this);
}

void MiddlewareIpc::downloadComplete(std::string first) {
  downloadComplete(std::move(first), std::string());
}

void MiddlewareIpc::downloadComplete(std::string first, std::string second) {
  passOn(manager, [&](auto& target) {
    return target.downloadComplete(std::move(first), std::move(second));
  });
}

void MiddlewareIpc::commandReceived(const ipcutil::DsmCCCommand_t& command) {
  passOn(manager, [&](auto& target) { return target.sendDsmCCCommand(command); });
}
