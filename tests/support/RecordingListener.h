#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>

#include "protocol/IpcServerListener.h"
#include "support/CallLog.h"

/// An IpcServerListener that writes down its calls and answers from the tables below; what is not
/// in them is answered with "nothing". Its name stands before each call, if it has one.
class RecordingListener : public quillwork::IpcServerListener {
 public:
  explicit RecordingListener(CallLog& callLog, std::string listenerName = {})
      : log(callLog), name(std::move(listenerName)) {}

  CallLog& log;
  std::string name;

  /// By the operation's name.
  std::map<std::string, int> numbers;
  std::map<std::string, std::string> texts;
  std::map<std::string, std::list<int>> identifiers;
  std::map<std::string, std::list<std::pair<int, std::string>>> descriptorLists;
  std::list<std::string> languages;
  std::list<quillwork::system_property> properties;
  std::list<quillwork::service> services;
  std::list<quillwork::service_component> components;
  std::list<quillwork::pmt> pmts;
  quillwork::network networkAnswer{-1, {}, 0};
  quillwork::transport_stream transportStream{0, -1, 0, 0, 0, 0, {}};
  /// Made anew for each call, as the caller owns their lists.
  std::function<std::list<quillwork::program_event>()> makeEvents;
  std::function<quillwork::program_event()> makeEvent;
  /// Called inside each operation, with its name; what it throws escapes from the operation.
  std::function<void(const std::string& operation)> onCall;
  /// What the bounds operations write; the value `untouched` writes nothing.
  static constexpr int untouched = -99;
  int bounds[4] = {untouched, untouched, untouched, untouched};

  void setVideoProperty(quillwork::video_data& data) override;
  int getVideoProperty(quillwork::command property) override;
  void getMainVideoBounds(int& x, int& y, int& width, int& height) override;
  void updateGraphicsRegion(quillwork::video_region region) override;
  std::string getVideoLanguage(quillwork::command language) override;
  std::list<std::string> getVideoLanguages() override;
  std::string getSystemProperty(std::string property) override;
  std::list<quillwork::system_property> getSystemProperties() override;
  void setSystemProperty(quillwork::system_property& property) override;
  void removeSystemProperty(std::string property) override;
  void setVideoAudio(quillwork::audio_data data) override;
  int getCurrentTransportStreamID() override;
  std::list<int> getAllIDs(quillwork::tuner_data& tuner) override;
  std::string getChannelName(int first, int second) override;
  int getVirtualChannelNumber(int first, int second) override;
  std::string mountCarousel(std::string locator) override;
  void umountCarousel(std::string locator) override;
  void addCarouselListener() override;
  void removeCarouselListener() override;
  std::string getSICodingFormat() override;
  std::list<quillwork::program_event> getProgramEvents() override;
  quillwork::program_event getProgramEvent() override;
  std::list<quillwork::service> getServices() override;
  int getCurrentService() override;
  std::list<int> getCASystemIds() override;
  bool isProtectedService() override;
  std::string getServiceDescription() override;
  std::list<quillwork::service_component> getServiceComponents(int serviceId) override;
  quillwork::transport_stream getTransportStream() override;
  quillwork::network getNetwork() override;
  std::list<quillwork::descriptor> getNetworkDescriptors() override;
  std::list<quillwork::descriptor> getTransportStreamDescriptors(int stream) override;
  std::list<quillwork::descriptor> getServiceDescriptors(int serviceId) override;
  std::list<quillwork::descriptor> getProgramEventDescriptors(int first, int second) override;
  std::list<quillwork::descriptor> getServiceComponentDescriptors(int component) override;
  std::list<quillwork::pmt> getPMTs(int program) override;
  int open(std::string locator, int& player) override;
  int getDuration(int player) override;
  int getCurrentTime(int player) override;
  int setCurrentTime(int player, int first, int second) override;
  void addMediaListener(int player) override;
  int play(int player) override;
  void stop(int player) override;
  void close(int player) override;
  int setMediaBounds(int player, int x, int y, int width, int height) override;
  void getMediaBounds(int player, int& x, int& y, int& width, int& height) override;
  void setMediaFreeze(int player, bool freeze) override;
  void setMediaBalanceLevel(int player, double level) override;
  void setMediaSoundLevel(int player, double level) override;
  void setMediaMute(int player, bool mute) override;
  void setMediaBassLevel(int player, double level) override;
  void setMediaTrebleLevel(int player, double level) override;
  int checkVersionFlag(int flag) override;

 private:
  template <class... Arguments>
  void called(const std::string& operation, const Arguments&... arguments) {
    // The test that waits for this entry may then delete the listener, if it has no hook.
    const bool isHooked = static_cast<bool>(onCall);
    log.add(name.empty() ? operation : name + "." + operation, arguments...);
    if (isHooked) onCall(operation);
  }
  int number(const std::string& operation, int nothing) const {
    const auto found = numbers.find(operation);
    return found != numbers.end() ? found->second : nothing;
  }
  std::string text(const std::string& operation) const {
    const auto found = texts.find(operation);
    return found != texts.end() ? found->second : std::string();
  }
  std::list<quillwork::descriptor> descriptors(const std::string& operation) const;
  void writeBounds(int& x, int& y, int& width, int& height) const;
};
