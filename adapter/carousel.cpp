// Object carousels and DSM-CC stream events.

#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "facade/CarouselFacade.h"

using adapter::load;
using adapter::passOn;

std::string MiddlewareIpc::mountCarousel(std::string locator) {
  auto* const facade = load(carouselFacade);
  return facade != nullptr ? facade->mountCarousel(std::move(locator)) : std::string();
}

void MiddlewareIpc::umountCarousel(std::string locator) {
  if (auto* const facade = load(carouselFacade)) facade->umountCarousel(std::move(locator));
}

void MiddlewareIpc::addCarouselListener() {
  if (auto* const facade = load(carouselFacade)) facade->addCarouselListener(this);
}

void MiddlewareIpc::removeCarouselListener() {
  if (auto* const facade = load(carouselFacade)) facade->removeCarouselListener(this);
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
