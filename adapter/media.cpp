// Media players.

#include <string>
#include <utility>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/VideoFacade.h"

using adapter::ask;
using adapter::askOr;
using adapter::load;
using adapter::passOn;
using adapter::tell;
using middlewarefacade::VideoFacade;

int MiddlewareIpc::getDuration(int player) {
  return askOr(-1, load(videoFacade), &VideoFacade::getDuration, player);
}

int MiddlewareIpc::getCurrentTime(int player) {
  return askOr(-1, load(videoFacade), &VideoFacade::getCurrentTime, player);
}

int MiddlewareIpc::setCurrentTime(int player, int first, int second) {
  return askOr(-1, load(videoFacade), &VideoFacade::setCurrentTime, player, first, second);
}

void MiddlewareIpc::addMediaListener(int player) {
  tell(load(videoFacade), &VideoFacade::addMediaListener, player, this);
}

int MiddlewareIpc::play(int player) { return ask(load(videoFacade), &VideoFacade::play, player); }

void MiddlewareIpc::stop(int player) { tell(load(videoFacade), &VideoFacade::stop, player); }

void MiddlewareIpc::close(int player) { tell(load(videoFacade), &VideoFacade::close, player); }

int MiddlewareIpc::open(std::string locator, int& player) {
  return ask(load(videoFacade), &VideoFacade::open, std::move(locator), player);
}

int MiddlewareIpc::setMediaBounds(int player, int x, int y, int width, int height) {
  return askOr(-1, load(videoFacade), &VideoFacade::setMediaBounds, player, x, y, width, height);
}

void MiddlewareIpc::getMediaBounds(int player, int& x, int& y, int& width, int& height) {
  tell(load(videoFacade), &VideoFacade::getMediaBounds, player, x, y, width, height);
}

void MiddlewareIpc::setMediaFreeze(int player, bool freeze) {
  tell(load(videoFacade), &VideoFacade::setMediaFreeze, player, freeze);
}

void MiddlewareIpc::setMediaBalanceLevel(int player, double level) {
  tell(load(videoFacade), &VideoFacade::setMediaBalanceLevel, player, level);
}

void MiddlewareIpc::setMediaSoundLevel(int player, double level) {
  tell(load(videoFacade), &VideoFacade::setMediaSoundLevel, player, level);
}

void MiddlewareIpc::setMediaMute(int player, bool mute) {
  tell(load(videoFacade), &VideoFacade::setMediaMute, player, mute);
}

void MiddlewareIpc::setMediaBassLevel(int player, double level) {
  tell(load(videoFacade), &VideoFacade::setMediaBassLevel, player, level);
}

void MiddlewareIpc::setMediaTrebleLevel(int player, double level) {
  tell(load(videoFacade), &VideoFacade::setMediaTrebleLevel, player, level);
}

void MiddlewareIpc::endOfMedia(int player) {
  passOn(manager, [&](auto& target) { return target.endOfMedia(player); });
}
