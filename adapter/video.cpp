// The main video and its sound, and the graphics plane.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <string>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "adapter/VideoScale.h"
#include "adapter/ask.h"
#include "facade/VideoFacade.h"
#include "ipc/Report.h"
#include "protocol/message.h"

using adapter::ask;
using adapter::askOr;
using adapter::load;
using adapter::passOn;
using adapter::store;
using adapter::tell;
using middlewarefacade::VideoFacade;

void MiddlewareIpc::getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) {
  tell(load(videoFacade), &VideoFacade::getInitCropValue, first, second);
}

std::list<std::string> MiddlewareIpc::getVideoLanguages() {
  return ask(load(videoFacade), &VideoFacade::getVideoLanguages);
}

int MiddlewareIpc::getVideoProperty(quillwork::command property) {
  static constexpr int firstProperty = 9;
  static constexpr std::array getters = {
      &VideoFacade::getVideoProperty9,  &VideoFacade::getVideoProperty10,
      &VideoFacade::getVideoProperty11, &VideoFacade::getVideoProperty12,
      &VideoFacade::getVideoProperty13, &VideoFacade::getVideoProperty14,
      &VideoFacade::getVideoProperty15, &VideoFacade::getVideoProperty16,
  };
  const auto value = static_cast<std::int32_t>(property);
  if (value < firstProperty || value > 16) return -1;
  return askOr(-1, load(videoFacade), getters[static_cast<std::size_t>(value - firstProperty)]);
}

std::string MiddlewareIpc::getVideoLanguage(quillwork::command language) {
  switch (static_cast<std::int32_t>(language)) {
    case 3:
      return ask(load(videoFacade), &VideoFacade::getVideoLanguageA);
    case 5:
      return ask(load(videoFacade), &VideoFacade::getVideoLanguageB);
    default:
      return {};
  }
}

void MiddlewareIpc::setVideoProperty(quillwork::video_data& data) {
  VideoFacade* const facade = load(videoFacade);
  switch (data.type) {
    case 0:
      tell(facade, &VideoFacade::setVideoBounds, data.x, data.y, data.width, data.height);
      break;
    case 2:
      // Also what a disconnection delivers.
      tell(facade, &VideoFacade::videoPropertyAction);
      break;
    case 6:
      tell(facade, &VideoFacade::selectVideoLanguage, std::string(data.text()));
      break;
    case 7:
      tell(facade, &VideoFacade::setVideoFreeze, data.flag());
      break;
    case 8:
      tell(facade, &VideoFacade::setVideoOption, data.flag());
      break;
    default:
      break;
  }
}

void MiddlewareIpc::setVideoAudio(quillwork::audio_data data) {
  VideoFacade* const facade = load(videoFacade);
  switch (data.type) {
    case 0:
      tell(facade, &VideoFacade::setVideoSoundLevel, data.level);
      break;
    case 1:
      tell(facade, &VideoFacade::setVideoBalanceLevel, data.level);
      break;
    case 2:
      tell(facade, &VideoFacade::setVideoBassLevel, data.level);
      break;
    case 3:
      tell(facade, &VideoFacade::setVideoTrebleLevel, data.level);
      break;
    case 4:
      tell(facade, &VideoFacade::setVideoMute,
           *reinterpret_cast<const std::uint8_t*>(&data.level) != 0);
      break;
    default:
      break;
  }
}

// The facade is asked, yet the answer is always -1: another listener's bounds shall count.
void MiddlewareIpc::getMainVideoBounds(int& x, int& y, int& width, int& height) {
  tell(load(videoFacade), &VideoFacade::getMainVideoBounds, x, y, width, height);
  x = y = width = height = -1;
}

void MiddlewareIpc::updateGraphicsRegion(quillwork::video_region region) {
  char trace[128];
  std::snprintf(trace, sizeof trace, " >>> graphics region update <<< \nregion = {%d,%d,%d,%d}\n",
                region.x, region.y, region.width, region.height);
  quillwork::print(stdout, trace);
  tell(load(videoFacade), &VideoFacade::updateGraphicsRegion, region.x, region.y, region.width,
       region.height);
}

void MiddlewareIpc::setVideoSize(int width, int height) {
  store(videoWidth, width);
  store(videoHeight, height);
  store(videoScaleX, static_cast<float>(width) / static_cast<float>(load(graphicsPlaneWidth)));
  store(videoScaleY, static_cast<float>(height) / static_cast<float>(load(graphicsPlaneHeight)));
}

void MiddlewareIpc::graphicsSettingsChanged(ipcutil::Rectangle_t first,
                                            ipcutil::Rectangle_t second) {
  setVideoSize(second.width, second.height);
  passOn(manager, [&](auto& target) { return target.changeGraphicsSettings(first, second); });
}
