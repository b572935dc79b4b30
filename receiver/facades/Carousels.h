#pragma once

#include <string>

#include "facade/CarouselFacade.h"
#include "facade/CarouselListener.h"
#include "receiver/CarouselMounts.h"
#include "receiver/ListenerSlot.h"

namespace receiver {

/// The carousel facade: mounts the object carousels of the stream.
class Carousels : public middlewarefacade::CarouselFacade {
 public:
  using Listener = ListenerSlot<middlewarefacade::CarouselListener>;

  Carousels(CarouselMounts& mounts, Listener& listener) : mounts_(mounts), listener_(listener) {}
  ~Carousels() override;

  std::string mountCarousel(std::string locator) override;
  void umountCarousel(std::string locator) override;
  void addCarouselListener(middlewarefacade::CarouselListener* listener) override;
  void removeCarouselListener(middlewarefacade::CarouselListener*) override;

 private:
  CarouselMounts& mounts_;
  Listener& listener_;
};

}  // namespace receiver
