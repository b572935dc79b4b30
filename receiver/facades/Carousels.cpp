#include "receiver/facades/Carousels.h"

namespace receiver {

using namespace middlewarefacade;

Carousels::~Carousels() { listener_.set(nullptr); }

std::string Carousels::mountCarousel(std::string locator) { return mounts_.mount(locator); }

void Carousels::umountCarousel(std::string locator) { mounts_.umount(locator); }

void Carousels::addCarouselListener(CarouselListener* listener) { listener_.set(listener); }

void Carousels::removeCarouselListener(CarouselListener*) { listener_.set(nullptr); }

}  // namespace receiver
