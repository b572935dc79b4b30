#pragma once

#include "protocol/language.h"

#include <chrono>
#include <functional>
#include <initializer_list>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "client/Channel.h"
#include "client/Records.h"
#include "protocol/message.h"

namespace quillwork::operations {
struct Request;
struct Trailing;
}  // namespace quillwork::operations

namespace quillwork::client {

class Value;

/// The control channel: an operation for each request of docs/protocol.md. A notification that
/// arrives while an operation waits for its reply is handed to the callback. Operations throw Error
/// when the receiver is gone, answers with something else, or does not answer in time; afterwards
/// the channel is out of step and has to be made anew. One thread at a time.
class ControlChannel {
 public:
  using NotificationHandler = std::function<void(const Notification&)>;
  static constexpr const char* defaultPath = "/dev/shm/ipc.socket";
  static constexpr std::chrono::milliseconds defaultTimeLimit{10'000};

  explicit ControlChannel(const std::string& path = defaultPath,
                          std::chrono::milliseconds timeLimit = defaultTimeLimit)
      : channel_(path, timeLimit) {}

  /// Called from inside the operations. Of those it may call answerApplicationState() alone.
  void onNotification(NotificationHandler handler) { handler_ = std::move(handler); }
  /// Waits for the next notification; nothing if none comes within the time.
  std::optional<Notification> waitForNotification(std::chrono::milliseconds time);
  /// The next notification that has arrived whole; nothing, at once, if there is none. For an event
  /// loop: call it until it gives nothing whenever fileDescriptor() is readable.
  std::optional<Notification> takeNotification();
  /// Readable when something has arrived. Only to wait for.
  [[nodiscard]] int fileDescriptor() const { return channel_.fileDescriptor(); }
  /// Answers an ApplicationState: once, and 20 milliseconds after it came. The receiver loses an
  /// answer that comes before it has begun to wait, and takes a second one for the answer to its
  /// next question. Blocks until then.
  void answerApplicationState(bool answer);

  // Video and audio.
  void setVideoBounds(const Rectangle& bounds);
  void videoPropertyAction();
  void selectVideoLanguage(const std::string& language);
  void setVideoFreeze(bool freeze);
  void setVideoOption(bool option);
  /// Where no listener writes, `given` comes back.
  Rectangle getMainVideoBounds(const Rectangle& given = {});
  /// 3 or 5.
  std::string getVideoLanguage(std::int32_t command);
  std::vector<std::string> getVideoLanguages();
  /// 9 to 16.
  std::int32_t getVideoProperty(std::int32_t command);
  void updateGraphicsRegion(const Rectangle& region);
  /// 0 to 3: sound, balance, bass and treble level.
  void setVideoAudio(std::int32_t selector, double level);
  void setVideoMute(bool mute);

  // System properties.
  std::string getSystemProperty(const std::string& name);
  std::vector<SystemProperty> getSystemProperties();
  void setSystemProperty(const std::string& name, const std::string& value);
  void removeSystemProperty(const std::string& name);

  // Tuner.
  std::int32_t getCurrentTransportStreamID();
  /// `kind` other than 0.
  std::vector<std::int32_t> getAllIDs(std::int32_t kind, std::int32_t argument);

  // Carousels.
  std::string mountCarousel(const std::string& locator);
  void umountCarousel(const std::string& locator);
  void addCarouselListener();
  void removeCarouselListener();

  // Service information.
  std::string getSICodingFormat();
  std::vector<ProgramEvent> getProgramEvents();
  ProgramEvent getProgramEvent();
  std::vector<Descriptor> getProgramEventDescriptors(std::int32_t first, std::int32_t second);
  std::vector<std::int32_t> getCASystemIds();
  bool isProtectedService();
  std::vector<Service> getServices();
  std::int32_t getCurrentService();
  std::string getServiceDescription();
  std::vector<ServiceComponent> getServiceComponents(std::int32_t service);
  std::vector<Descriptor> getServiceComponentDescriptors(std::int32_t component);
  TransportStream getTransportStream();
  std::vector<Descriptor> getTransportStreamDescriptors(std::int32_t transportStream);
  Network getNetwork();
  std::vector<Descriptor> getNetworkDescriptors();
  std::vector<ProgramMap> getPMTs(std::int32_t program);

  // Media players.
  OpenedMedia open(const std::string& locator);
  std::int32_t getDuration(std::int32_t player);
  std::int32_t getCurrentTime(std::int32_t player);
  std::int32_t setCurrentTime(std::int32_t player, std::int32_t first, std::int32_t second);
  void addMediaListener(std::int32_t player);
  bool play(std::int32_t player);
  void close(std::int32_t player);
  void stop(std::int32_t player);
  std::int32_t setMediaBounds(std::int32_t player, const Rectangle& bounds);
  Rectangle getMediaBounds(std::int32_t player, const Rectangle& given = {});
  void setMediaFreeze(std::int32_t player, bool freeze);
  void setMediaBalanceLevel(std::int32_t player, double level);
  void setMediaSoundLevel(std::int32_t player, double level);
  void setMediaMute(std::int32_t player, bool mute);
  void setMediaBassLevel(std::int32_t player, double level);
  void setMediaTrebleLevel(std::int32_t player, double level);

  bool checkVersionFlag(std::int32_t flag);

 private:
  /// The first record of a reply and, where it had to be read to tell a list's header from a
  /// command's, the second.
  struct Reply {
    message record;
    std::optional<message> element;
  };

  using Request = operations::Request;
  using Values = std::initializer_list<Value>;

  void tell(const Request& row, Values values = {});
  void send(const message& request);
  message ask(const Request& row, Values values = {});
  // The one value of an answer, or of each element of a list.
  std::int32_t askInteger(const Request& row, Values values = {});
  bool askBoolean(const Request& row, Values values = {});
  std::string askText(const Request& row, Values values = {});
  std::vector<std::int32_t> askIntegers(const Request& row, Values values = {});
  template <class Element, class Read>
  std::vector<Element> askList(const Request& row, Values values, Read&& read);
  std::vector<Descriptor> askDescriptors(const Request& row, Values values = {});

  const message& receiveRecord();
  void keep(std::size_t bytes);
  Reply receiveReply();
  std::optional<Notification> takeNotification(const message& record,
                                               std::optional<message>& element);
  void handle(const Notification& notification);
  Notification receiveDsmCCCommand(std::size_t parts, message part);
  [[nodiscard]] std::size_t trailingCount(const message& record,
                                          const operations::Trailing& list) const;
  std::vector<std::uint8_t> receiveBytes(std::size_t size);
  std::string receiveText();
  void receiveTrailing(const message& record, ProgramEvent& event);

  Channel channel_;
  NotificationHandler handler_;
  bool isHandling_ = false;
  /// When the last ApplicationState came.
  std::chrono::steady_clock::time_point asked_;
  /// What the reply under way has made the client keep, in bytes.
  std::size_t kept_ = 0;
};

}  // namespace quillwork::client
