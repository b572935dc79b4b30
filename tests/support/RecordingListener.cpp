#include "support/RecordingListener.h"

#include <cstdint>
#include <cstring>

#include "protocol/message.h"

using quillwork::fieldText;

std::list<quillwork::descriptor> RecordingListener::descriptors(
    const std::string& operation) const {
  std::list<quillwork::descriptor> list;
  const auto found = descriptorLists.find(operation);
  if (found == descriptorLists.end()) return list;
  for (const auto& [tag, bytes] : found->second) {
    list.push_back({static_cast<std::int16_t>(tag), static_cast<std::int32_t>(bytes.size()),
                    new std::list<char>(bytes.begin(), bytes.end())});
  }
  return list;
}

void RecordingListener::writeBounds(int& x, int& y, int& width, int& height) const {
  if (bounds[0] != untouched) x = bounds[0];
  if (bounds[1] != untouched) y = bounds[1];
  if (bounds[2] != untouched) width = bounds[2];
  if (bounds[3] != untouched) height = bounds[3];
}

void RecordingListener::setVideoProperty(quillwork::video_data& data) {
  if (data.type == 6) {
    called("setVideoProperty", data.type, data.text().size(), data.text().substr(0, 10));
  } else if (data.type == 7 || data.type == 8) {
    called("setVideoProperty", data.type, data.flag());
  } else {
    called("setVideoProperty", data.type, data.x, data.y, data.width, data.height);
  }
}

int RecordingListener::getVideoProperty(quillwork::command property) {
  called("getVideoProperty", static_cast<int>(property));
  return number("getVideoProperty", -1);
}

void RecordingListener::getMainVideoBounds(int& x, int& y, int& width, int& height) {
  called("getMainVideoBounds", x, y, width, height);
  writeBounds(x, y, width, height);
}

void RecordingListener::updateGraphicsRegion(quillwork::video_region region) {
  called("updateGraphicsRegion", region.x, region.y, region.width, region.height);
}

std::string RecordingListener::getVideoLanguage(quillwork::command language) {
  called("getVideoLanguage", static_cast<int>(language));
  return text("getVideoLanguage");
}

std::list<std::string> RecordingListener::getVideoLanguages() {
  called("getVideoLanguages");
  return languages;
}

std::string RecordingListener::getSystemProperty(std::string property) {
  called("getSystemProperty", property);
  return text("getSystemProperty");
}

std::list<quillwork::system_property> RecordingListener::getSystemProperties() {
  called("getSystemProperties");
  return properties;
}

void RecordingListener::setSystemProperty(quillwork::system_property& property) {
  called("setSystemProperty", property.reserved, fieldText(property.name),
         fieldText(property.value));
}

void RecordingListener::removeSystemProperty(std::string property) {
  called("removeSystemProperty", property);
}

void RecordingListener::setVideoAudio(quillwork::audio_data data) {
  if (data.type == 4) {
    std::uint8_t mute = 0;
    std::memcpy(&mute, &data.level, sizeof mute);
    called("setVideoAudio", data.type, mute != 0);
  } else {
    called("setVideoAudio", data.type, data.level);
  }
}

int RecordingListener::getCurrentTransportStreamID() {
  called("getCurrentTransportStreamID");
  return number("getCurrentTransportStreamID", -1);
}

std::list<int> RecordingListener::getAllIDs(quillwork::tuner_data& tuner) {
  called("getAllIDs", tuner.kind, tuner.argument);
  return identifiers["getAllIDs"];
}

std::string RecordingListener::getChannelName(int first, int second) {
  called("getChannelName", first, second);
  return text("getChannelName");
}

int RecordingListener::getVirtualChannelNumber(int first, int second) {
  called("getVirtualChannelNumber", first, second);
  return number("getVirtualChannelNumber", -1);
}

std::string RecordingListener::mountCarousel(std::string locator) {
  called("mountCarousel", locator);
  return text("mountCarousel");
}

void RecordingListener::umountCarousel(std::string locator) { called("umountCarousel", locator); }

void RecordingListener::addCarouselListener() { called("addCarouselListener"); }

void RecordingListener::removeCarouselListener() { called("removeCarouselListener"); }

std::string RecordingListener::getSICodingFormat() {
  called("getSICodingFormat");
  return text("getSICodingFormat");
}

std::list<quillwork::program_event> RecordingListener::getProgramEvents() {
  called("getProgramEvents");
  return makeEvents ? makeEvents() : std::list<quillwork::program_event>();
}

quillwork::program_event RecordingListener::getProgramEvent() {
  called("getProgramEvent");
  if (makeEvent) return makeEvent();
  quillwork::program_event none{};
  none.value_2 = -1;
  return none;
}

std::list<quillwork::service> RecordingListener::getServices() {
  called("getServices");
  return services;
}

int RecordingListener::getCurrentService() {
  called("getCurrentService");
  return number("getCurrentService", -1);
}

std::list<int> RecordingListener::getCASystemIds() {
  called("getCASystemIds");
  return identifiers["getCASystemIds"];
}

bool RecordingListener::isProtectedService() {
  called("isProtectedService");
  return number("isProtectedService", 0) != 0;
}

std::string RecordingListener::getServiceDescription() {
  called("getServiceDescription");
  return text("getServiceDescription");
}

std::list<quillwork::service_component> RecordingListener::getServiceComponents(int serviceId) {
  called("getServiceComponents", serviceId);
  return components;
}

quillwork::transport_stream RecordingListener::getTransportStream() {
  called("getTransportStream");
  return transportStream;
}

quillwork::network RecordingListener::getNetwork() {
  called("getNetwork");
  return networkAnswer;
}

std::list<quillwork::descriptor> RecordingListener::getNetworkDescriptors() {
  called("getNetworkDescriptors");
  return descriptors("getNetworkDescriptors");
}

std::list<quillwork::descriptor> RecordingListener::getTransportStreamDescriptors(int stream) {
  called("getTransportStreamDescriptors", stream);
  return descriptors("getTransportStreamDescriptors");
}

std::list<quillwork::descriptor> RecordingListener::getServiceDescriptors(int serviceId) {
  called("getServiceDescriptors", serviceId);
  return descriptors("getServiceDescriptors");
}

std::list<quillwork::descriptor> RecordingListener::getProgramEventDescriptors(int first,
                                                                               int second) {
  called("getProgramEventDescriptors", first, second);
  return descriptors("getProgramEventDescriptors");
}

std::list<quillwork::descriptor> RecordingListener::getServiceComponentDescriptors(int component) {
  called("getServiceComponentDescriptors", component);
  return descriptors("getServiceComponentDescriptors");
}

std::list<quillwork::pmt> RecordingListener::getPMTs(int program) {
  called("getPMTs", program);
  return pmts;
}

int RecordingListener::open(std::string locator, int& player) {
  called("open", locator, player);
  const int opened = number("open", 0);
  if (numbers.count("open.player") != 0) player = numbers["open.player"];
  return opened;
}

int RecordingListener::getDuration(int player) {
  called("getDuration", player);
  return number("getDuration", -1);
}

int RecordingListener::getCurrentTime(int player) {
  called("getCurrentTime", player);
  return number("getCurrentTime", -1);
}

int RecordingListener::setCurrentTime(int player, int first, int second) {
  called("setCurrentTime", player, first, second);
  return number("setCurrentTime", -1);
}

void RecordingListener::addMediaListener(int player) { called("addMediaListener", player); }

int RecordingListener::play(int player) {
  called("play", player);
  return number("play", 0);
}

void RecordingListener::stop(int player) { called("stop", player); }

void RecordingListener::close(int player) { called("close", player); }

int RecordingListener::setMediaBounds(int player, int x, int y, int width, int height) {
  called("setMediaBounds", player, x, y, width, height);
  return number("setMediaBounds", -1);
}

void RecordingListener::getMediaBounds(int player, int& x, int& y, int& width, int& height) {
  called("getMediaBounds", player, x, y, width, height);
  writeBounds(x, y, width, height);
}

void RecordingListener::setMediaFreeze(int player, bool freeze) {
  called("setMediaFreeze", player, freeze);
}

void RecordingListener::setMediaBalanceLevel(int player, double level) {
  called("setMediaBalanceLevel", player, level);
}

void RecordingListener::setMediaSoundLevel(int player, double level) {
  called("setMediaSoundLevel", player, level);
}

void RecordingListener::setMediaMute(int player, bool mute) {
  called("setMediaMute", player, mute);
}

void RecordingListener::setMediaBassLevel(int player, double level) {
  called("setMediaBassLevel", player, level);
}

void RecordingListener::setMediaTrebleLevel(int player, double level) {
  called("setMediaTrebleLevel", player, level);
}

int RecordingListener::checkVersionFlag(int flag) {
  called("checkVersionFlag", flag);
  return number("checkVersionFlag", 0);
}
