// Media players, the main video and audio, the graphics region, system properties, the version, and
// the notifications that go with them.

#include <array>
#include <cstdio>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Notify.h"
#include "adapter/Published.h"
#include "adapter/VideoScale.h"
#include "facade/PropertyFacade.h"
#include "facade/VersionFacade.h"
#include "facade/VideoFacade.h"
#include "ipc/Report.h"
#include "protocol/message.h"

using adapter::load;
using adapter::passOn;
using adapter::store;
using middlewarefacade::PropertyFacade;
using middlewarefacade::VersionFacade;
using middlewarefacade::VideoFacade;
using quillwork::fieldText;
using quillwork::setFieldText;

namespace {

/// Calls the facade's operation and returns its answer, or `nothing` without the facade.
template <class Facade, class Answer, class... Parameters, class... Arguments>
Answer ask(Facade* facade, Answer nothing, Answer (Facade::*operation)(Parameters...),
           Arguments&&... arguments) {
  return facade != nullptr ? (facade->*operation)(std::forward<Arguments>(arguments)...) : nothing;
}

/// Calls the facade's operation, if there is a facade.
template <class Facade, class... Parameters, class... Arguments>
void tell(Facade* facade, void (Facade::*operation)(Parameters...), Arguments&&... arguments) {
  if (facade != nullptr) (facade->*operation)(std::forward<Arguments>(arguments)...);
}

}  // namespace

int MiddlewareIpc::getDuration(int player) {
  return ask(load(videoFacade), -1, &VideoFacade::getDuration, player);
}

int MiddlewareIpc::getCurrentTime(int player) {
  return ask(load(videoFacade), -1, &VideoFacade::getCurrentTime, player);
}

int MiddlewareIpc::setCurrentTime(int player, int first, int second) {
  return ask(load(videoFacade), -1, &VideoFacade::setCurrentTime, player, first, second);
}

void MiddlewareIpc::addMediaListener(int player) {
  tell(load(videoFacade), &VideoFacade::addMediaListener, player, this);
}

int MiddlewareIpc::play(int player) {
  return ask(load(videoFacade), 0, &VideoFacade::play, player);
}

void MiddlewareIpc::stop(int player) { tell(load(videoFacade), &VideoFacade::stop, player); }

void MiddlewareIpc::close(int player) { tell(load(videoFacade), &VideoFacade::close, player); }

int MiddlewareIpc::open(std::string locator, int& player) {
  return ask(load(videoFacade), 0, &VideoFacade::open, std::move(locator), player);
}

int MiddlewareIpc::setMediaBounds(int player, int x, int y, int width, int height) {
  return ask(load(videoFacade), -1, &VideoFacade::setMediaBounds, player, x, y, width, height);
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

void MiddlewareIpc::getInitCropValue(ipcutil::Rectangle_t* first, ipcutil::Rectangle_t* second) {
  tell(load(videoFacade), &VideoFacade::getInitCropValue, first, second);
}

std::list<std::string> MiddlewareIpc::getVideoLanguages() {
  return ask(load(videoFacade), std::list<std::string>(), &VideoFacade::getVideoLanguages);
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
  return ask(load(videoFacade), -1, getters[static_cast<std::size_t>(value - firstProperty)]);
}

std::string MiddlewareIpc::getVideoLanguage(quillwork::command language) {
  switch (static_cast<std::int32_t>(language)) {
    case 3:
      return ask(load(videoFacade), std::string(), &VideoFacade::getVideoLanguageA);
    case 5:
      return ask(load(videoFacade), std::string(), &VideoFacade::getVideoLanguageB);
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

std::string MiddlewareIpc::getSystemProperty(std::string name) {
  return ask(load(propertyFacade), std::string(), &PropertyFacade::getProperty, std::move(name));
}

void MiddlewareIpc::removeSystemProperty(std::string name) {
  tell(load(propertyFacade), &PropertyFacade::removeProperty, std::move(name));
}

void MiddlewareIpc::setSystemProperty(quillwork::system_property& property) {
  tell(load(propertyFacade), &PropertyFacade::setProperty, std::string(fieldText(property.name)),
       std::string(fieldText(property.value)));
}

std::list<quillwork::system_property> MiddlewareIpc::getSystemProperties() {
  std::list<quillwork::system_property> properties;
  PropertyFacade* const facade = load(propertyFacade);
  if (facade == nullptr) return properties;
  for (const middlewarefacade::Property_& from : facade->getProperties()) {
    quillwork::system_property& to = properties.emplace_back();
    setFieldText(to.name, from.name);
    setFieldText(to.value, from.value);
  }
  return properties;
}

int MiddlewareIpc::checkVersionFlag(int flag) {
  return ask(load(versionFacade), 0, &VersionFacade::checkVersionFlag, flag);
}

void MiddlewareIpc::setVideoSize(int width, int height) {
  store(videoWidth, width);
  store(videoHeight, height);
  store(videoScaleX, static_cast<float>(width) / static_cast<float>(load(graphicsPlaneWidth)));
  store(videoScaleY, static_cast<float>(height) / static_cast<float>(load(graphicsPlaneHeight)));
}

void MiddlewareIpc::endOfMedia(int player) {
  passOn(manager, [&](auto& target) { return target.endOfMedia(player); });
}

void MiddlewareIpc::graphicsSettingsChanged(ipcutil::Rectangle_t first,
                                            ipcutil::Rectangle_t second) {
  setVideoSize(second.width, second.height);
  passOn(manager, [&](auto& target) { return target.changeGraphicsSettings(first, second); });
}

bool MiddlewareIpc::sendAppState(quillwork::state newState) {
  return passOn(manager, [&](auto& target) { return target.setApplicationState(newState); });
}
