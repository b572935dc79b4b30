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

/// The control channel: an operation for each request of docs/protocol.md, named by its group and
/// types. An operation with a reply blocks until it is there, or the time limit has passed; one
/// without a reply blocks only while the receiver reads nothing, and whether it was done is not
/// known. A notification that arrives while an operation waits for its reply is handed to the
/// callback.
///
/// Operations throw Error when the receiver is gone, answers with something else, or does not
/// answer in time; afterwards the channel is out of step and has to be made anew. They throw Error
/// for a text that does not fit its field, or a number that the operation does not have, before
/// anything is sent; the channel then stays as it is. Everything that is returned is the caller's.
/// One thread at a time.
///
/// What integers mean is the middleware's own affair, between it and its presentation engine; said
/// is what the reference receiver takes and gives. Texts are bytes without a character set.
class ControlChannel {
 public:
  /// Takes a notification, borrowed during the call.
  using NotificationHandler = std::function<void(const Notification&)>;

  /// Where the library's control channel is.
  static constexpr const char* defaultPath = "/dev/shm/ipc.socket";

  /// For an operation as a whole.
  static constexpr std::chrono::milliseconds defaultTimeLimit{10'000};

  /// Connects to the socket at `path`; throws Error if nobody serves it. `timeLimit` is for each
  /// operation as a whole. The receiver serves one client at a time: a second one is
  /// connected, but its first operation waits until the first client has gone, and further ones are
  /// refused with an Error.
  explicit ControlChannel(const std::string& path = defaultPath,
                          std::chrono::milliseconds timeLimit = defaultTimeLimit)
      : channel_(path, timeLimit) {}

  /// Sets the callback for notifications that arrive inside the operations, on the calling thread;
  /// without one they are dropped. Of the operations it may call answerApplicationState() alone.
  /// What it throws passes through the operation, which leaves the channel out of step.
  void onNotification(NotificationHandler handler) { handler_ = std::move(handler); }

  /// How many bytes of memory a reply may take here, 64 MiB until this is called, without what the
  /// allocator adds. What has more is refused with Error. A guide of tens of thousands of events
  /// needs some 2,000 bytes an event.
  void setReplyLimit(std::size_t bytes) { replyLimit_ = bytes; }

  /// Waits for the next notification; nothing if none comes within the time.
  std::optional<Notification> waitForNotification(std::chrono::milliseconds time);

  /// The next notification that has arrived whole; nothing, at once, if there is none. For an event
  /// loop: call it until it gives nothing whenever fileDescriptor() is readable.
  std::optional<Notification> takeNotification();

  /// Readable when something has arrived. Only to wait for; the channel owns it.
  [[nodiscard]] int fileDescriptor() const { return channel_.fileDescriptor(); }

  /// Answers an ApplicationState: once, and 20 milliseconds after it came. The receiver loses an
  /// answer that comes before it has begun to wait, and takes a second one for the answer to its
  /// next question. Blocks until then. Request: APPLICATION_STATE, of any type. No reply.
  void answerApplicationState(bool answer);

  // Video and audio.

  /// Places the main video. The unit is the middleware's own, pixels in the reference receiver.
  /// Request: VIDEO 0. No reply.
  void setVideoBounds(const Rectangle& bounds);

  /// Asks for an action of the middleware's own. It is also done whenever the client goes. Request:
  /// VIDEO 2. No reply.
  void videoPropertyAction();

  /// Selects a language of the main sound by a text of at most 1948 bytes, an ISO 639 code in the
  /// reference receiver. Request: VIDEO 6. No reply.
  void selectVideoLanguage(const std::string& language);

  /// Freezes the main video's picture, or lets it go on. Request: VIDEO 7. No reply.
  void setVideoFreeze(bool freeze);

  /// Sets an option of the middleware's own, in the reference receiver whether the main video is
  /// shown. Request: VIDEO 8. No reply.
  void setVideoOption(bool option);

  /// Where the main video is. What no listener of the receiver's writes comes back as it stands in
  /// `given`; a receiver whose one listener is its adapter always answers -1 four times. Request:
  /// VIDEO 1.
  Rectangle getMainVideoBounds(const Rectangle& given = {});

  /// A language of the main sound by the number 3 or 5, in the reference receiver the selected one
  /// and the first one as ISO 639 codes; the empty text for none. Throws Error for other numbers.
  /// Request: VIDEO 3, 5.
  std::string getVideoLanguage(std::int32_t command);

  /// All languages of the main sound; none if there are none. Request: VIDEO 4.
  std::vector<std::string> getVideoLanguages();

  /// An integer of the middleware's own by a number from 9 to 16; -1 for none. In the reference
  /// receiver 9 and 10 are the width and height of the graphics plane in pixels, 11 and 12 the PID
  /// and stream type of the pictures, 13 and 14 those of the sound, 15 whether the sound is off, 16
  /// whether the picture is frozen. Throws Error for other numbers. Request: VIDEO 9 to 16.
  std::int32_t getVideoProperty(std::int32_t command);

  /// Says which part of the graphics plane has been drawn on, in its pixels. Request: VIDEO 18. No
  /// reply.
  void updateGraphicsRegion(const Rectangle& region);

  /// Sets what the selector says of the main sound: 0 the sound level, in the reference receiver 0
  /// to 1; 1 balance, 2 bass and 3 treble, there -1 to 1. Other selectors have no effect, but 4 is
  /// that of setVideoMute(). Request: AUDIO 0 to 3. No reply.
  void setVideoAudio(std::int32_t selector, double level);

  /// Turns the main sound off, or on again. Request: AUDIO 4. No reply.
  void setVideoMute(bool mute);

  // System properties.

  /// A property's value; the empty text for one that is not there. The name has 254 bytes at most.
  /// Request: SYSTEM_PROPERTY 0.
  std::string getSystemProperty(const std::string& name);

  /// All properties; none if there are none. Request: SYSTEM_PROPERTY 1.
  std::vector<SystemProperty> getSystemProperties();

  /// Gives a property a value; both have 254 bytes at most. Whether the receiver has refused shows
  /// in getSystemProperty() alone. Request: SYSTEM_PROPERTY 2. No reply.
  void setSystemProperty(const std::string& name, const std::string& value);

  /// Removes a property. The name has 254 bytes at most. Request: SYSTEM_PROPERTY 3. No reply.
  void removeSystemProperty(const std::string& name);

  // Tuner.

  /// The transport stream id that is tuned to; -1 for none. Request: TUNER 0.
  std::int32_t getCurrentTransportStreamID();

  /// Identifiers of a kind; none if there are none. `kind` is any number but 0, which throws Error;
  /// `argument` is the key of the kinds 1, 3 and 4. In the reference receiver: 1 the service ids of
  /// a transport stream id, 2 all transport stream ids, 3 those of a network id, 4 those of a
  /// bouquet id. Request: TUNER, of any type but 0.
  std::vector<std::int32_t> getAllIDs(std::int32_t kind, std::int32_t argument);

  // Carousels.

  /// Mounts the carousel that the locator, of 254 bytes at most, names. The answer is the
  /// middleware's own, in the reference receiver the directory in which the files will be; the
  /// empty text if it cannot be mounted. addCarouselListener() before, or the end of the download
  /// may be missed. Request: CAROUSEL 0.
  std::string mountCarousel(const std::string& locator);

  /// Unmounts what mountCarousel() was given with this locator. Request: CAROUSEL 1. No reply.
  void umountCarousel(const std::string& locator);

  /// Begins the notifications DownloadComplete. Request: CAROUSEL 3. No reply.
  void addCarouselListener();

  /// Ends the notifications DownloadComplete. One that is on its way still comes. Request:
  /// CAROUSEL 4. No reply.
  void removeCarouselListener();

  // Service information.

  /// The character set of the texts of service information, "UTF-8" in the reference receiver; the
  /// empty text if it is not known. Request: SI 0.
  std::string getSICodingFormat();

  /// All broadcast events that are known; none if there are none. Request: SI 1.
  std::vector<ProgramEvent> getProgramEvents();

  /// One event, in the reference receiver the present one of the current service. Its `values[1]`
  /// is -1 for none, and its `values[4]` is always 0. Request: SI 2.
  ProgramEvent getProgramEvent();

  /// An event's descriptors; none if there are none. In the reference receiver `first` is a service
  /// id, or -1 for the current service, and `second` an event id. Request: SI 3.
  std::vector<Descriptor> getProgramEventDescriptors(std::int32_t first, std::int32_t second);

  /// The conditional-access systems that are named; none if there are none. Request: SI 4.
  std::vector<std::int32_t> getCASystemIds();

  /// Whether the current service is scrambled or restricted; false if it is not known. Request:
  /// SI 5.
  bool isProtectedService();

  /// All services that are known; none if there are none. Request: SI 6.
  std::vector<Service> getServices();

  /// The identifier of the current service, as in the `values[0]` of a Service; -1 for none.
  /// Request: SI 7.
  std::int32_t getCurrentService();

  /// The current service in words; the empty text for none. Request: SI 8.
  std::string getServiceDescription();

  /// A service's elementary streams; none if none is known. In the reference receiver `service` is
  /// a service id, or -1 for the current service. Request: SI 10.
  std::vector<ServiceComponent> getServiceComponents(std::int32_t service);

  /// An elementary stream's descriptors; none if there are none. In the reference receiver
  /// `component` is its PID. Request: SI 11.
  std::vector<Descriptor> getServiceComponentDescriptors(std::int32_t component);

  /// The transport stream that is received. Its `values[1]` is -1 if it is not known. Request:
  /// SI 12.
  TransportStream getTransportStream();

  /// A transport stream's descriptors; none if there are none. In the reference receiver
  /// `transportStream` is its id, or -1 for the received one. Request: SI 13.
  std::vector<Descriptor> getTransportStreamDescriptors(std::int32_t transportStream);

  /// The network that is received. Its `value` is -1 if it is not known. Request: SI 14.
  Network getNetwork();

  /// The network's descriptors; none if there are none. Request: SI 15.
  std::vector<Descriptor> getNetworkDescriptors();

  /// Program maps; none if none is known. In the reference receiver `program` is a program number,
  /// or -1 for all. Request: SI 16.
  std::vector<ProgramMap> getPMTs(std::int32_t program);

  // Media players. `player` is a number that open() gave out; the receiver answers a request for
  // another number as one that cannot be done.

  /// Opens a medium by a locator of at most 1944 bytes. In the reference receiver `PATH`,
  /// `file://PATH[#PROGRAM]` or `dvb://[ONID].[TSID].SID`. Request: MEDIA 0.
  OpenedMedia open(const std::string& locator);

  /// How long the medium is, in the reference receiver in milliseconds; -1 if it is not known.
  /// Request: MEDIA 1.
  std::int32_t getDuration(std::int32_t player);

  /// Where the player is in its medium, in the reference receiver in milliseconds; -1 if it is not
  /// known. Request: MEDIA 2.
  std::int32_t getCurrentTime(std::int32_t player);

  /// Goes to another time; -1 if it cannot. In the reference receiver `first` is the time in
  /// milliseconds, `second` 0 for exactly there and 1 for the nearest key picture, and the answer
  /// the time that was reached. Request: MEDIA 3.
  std::int32_t setCurrentTime(std::int32_t player, std::int32_t first, std::int32_t second);

  /// Begins the notification EndOfMedia of the player, for as long as it is open. Request: MEDIA 4.
  /// No reply.
  void addMediaListener(std::int32_t player);

  /// Plays: whether it does. In the reference receiver a player at its end begins again. Request:
  /// MEDIA 5.
  bool play(std::int32_t player);

  /// Ends the player; its number is free. Request: MEDIA 6. No reply.
  void close(std::int32_t player);

  /// Stops the player, which stays open; in the reference receiver it goes back to the beginning.
  /// Request: MEDIA 7. No reply.
  void stop(std::int32_t player);

  /// Places the player's pictures. The answer is the middleware's own, 0 in the reference receiver;
  /// -1 if it cannot. Request: MEDIA 8.
  std::int32_t setMediaBounds(std::int32_t player, const Rectangle& bounds);

  /// Where the player's pictures are. What the receiver does not write comes back as it stands in
  /// `given`. Request: MEDIA 9.
  Rectangle getMediaBounds(std::int32_t player, const Rectangle& given = {});

  /// Freezes the player's picture, or lets it go on. Request: MEDIA 10. No reply.
  void setMediaFreeze(std::int32_t player, bool freeze);

  /// Sets the player's balance, in the reference receiver -1 (left) to 1 (right). Request:
  /// MEDIA 11. No reply.
  void setMediaBalanceLevel(std::int32_t player, double level);

  /// Sets how loud the player is, in the reference receiver 0 to 1. Request: MEDIA 12. No reply.
  void setMediaSoundLevel(std::int32_t player, double level);

  /// Turns the player's sound off, or on again. Request: MEDIA 13. No reply.
  void setMediaMute(std::int32_t player, bool mute);

  /// Sets the player's bass, in the reference receiver -1 to 1. Request: MEDIA 14. No reply.
  void setMediaBassLevel(std::int32_t player, double level);

  /// Sets the player's treble, in the reference receiver -1 to 1. Request: MEDIA 15. No reply.
  void setMediaTrebleLevel(std::int32_t player, double level);

  /// Whether the platform has what the flag stands for. The flags are the middleware's own, 0 to 7
  /// in the reference receiver. Request: VERSION, with the flag as the type.
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
  std::size_t replyLimit_ = 64U << 20U;
};

}  // namespace quillwork::client
