#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "protocol/records.h"

namespace quillwork {

/// Answers the client's requests. The adapter is one; a host may register more with the
/// IpcServerManager, which borrows them and asks them in the order of their addresses, on the
/// control channel's thread, or on that of the host's code that asks the manager, with the manager
/// mutex held. An implementation must not call a locking operation of the manager. The client waits
/// until a call returns, and its next request is read afterwards: a call may block, but what it
/// waits for must not need the client.
///
/// A request of the client's is named by its group and its types; docs/protocol.md has their bytes.
/// What integers mean is the middleware's own affair, between it and its presentation engine; said
/// is what the reference receiver takes and gives. A name or locator that is an argument is a text
/// without a character set; a client that keeps to the protocol sends 254 bytes at most, another
/// one up to 1948. `player` is a number that open() gave out, or any other that the client sent.
///
/// "No answer" is -1 for identifiers, counts, times and positions, 0 or false for truth values, the
/// empty string, the empty list, or a record whose key field is -1. Lists inside returned records
/// pass to the caller. The order of the operations is an ABI.
class IpcServerListener {
 public:
  /// A request to the main video. `data` is borrowed during the call; `data.type` says what it
  /// asks: 0 bounds, 2 an action of the middleware's own, 6 a language, 7 freeze, 8 an option; 17
  /// has no effect. A record with the type 2 comes whenever the client has gone, too; its other
  /// fields have what came last. Request: VIDEO 0, 2, 6, 7, 8, 17.
  virtual void setVideoProperty(video_data& data) = 0;

  /// One of the integers 9 to 16 of the main video, whose meaning is the middleware's own; in the
  /// reference receiver 9 and 10 are the width and height of the graphics plane in pixels, 11 and
  /// 12 the PID and stream type of the pictures, 13 and 14 those of the sound, 15 whether the sound
  /// is off, 16 whether the picture is frozen. No answer: -1. Request: VIDEO 9 to 16.
  virtual int getVideoProperty(command property) = 0;

  /// Writes where the main video is, in the middleware's own unit, pixels in the reference
  /// receiver. Before the first listener is asked, the arguments have what the client sent. No
  /// answer: -1 in any of the four. Request: VIDEO 1.
  virtual void getMainVideoBounds(int& x, int& y, int& width, int& height) = 0;

  /// The client has drawn on a part of the graphics plane, in pixels. Request: VIDEO 18.
  virtual void updateGraphicsRegion(video_region region) = 0;

  /// A language of the main sound, 3 or 5, as a text of the middleware's own of which 254 bytes
  /// reach the client; in the reference receiver 3 is the selected one and 5 the first one, as ISO
  /// 639 codes. No answer: the empty text. Request: VIDEO 3, 5.
  virtual std::string getVideoLanguage(command language) = 0;

  /// All languages of the main sound, of which 254 bytes each reach the client; in the reference
  /// receiver ISO 639 codes. No answer: the empty list. Request: VIDEO 4.
  virtual std::list<std::string> getVideoLanguages() = 0;

  /// The value of the property `name`, a text of which 254 bytes reach the client. No answer: the
  /// empty text. Request: SYSTEM_PROPERTY 0.
  virtual std::string getSystemProperty(std::string name) = 0;

  /// All properties. No answer: the empty list. Request: SYSTEM_PROPERTY 1.
  virtual std::list<system_property> getSystemProperties() = 0;

  /// Gives the property `property.name` the value `property.value`. `property` is borrowed during
  /// the call; a text ends at its first zero byte or after 255 bytes. Request: SYSTEM_PROPERTY 2.
  virtual void setSystemProperty(system_property& property) = 0;

  /// Removes the property `name`. Request: SYSTEM_PROPERTY 3.
  virtual void removeSystemProperty(std::string name) = 0;

  /// A request to the main sound. `data.type` says what it asks: 0 sound level, 1 balance, 2 bass,
  /// 3 treble, with the level in `data.level`; 4 mute, a truth value in that field's first byte.
  /// Any other type has no effect. In the reference receiver the sound level is 0 to 1, the others
  /// -1 to 1. Request: AUDIO, of any type.
  virtual void setVideoAudio(audio_data data) = 0;

  /// The transport stream id that is tuned to, 0 to 65535. No answer: -1. Request: TUNER 0.
  virtual int getCurrentTransportStreamID() = 0;

  /// Identifiers. `request` is borrowed during the call: `kind` is any number but 0, of which 1 to
  /// 4 are in use, and `argument` the key of the kinds 1, 3 and 4. In the reference receiver: 1 the
  /// service ids of a transport stream id, 2 all transport stream ids, 3 those of a network id, 4
  /// those of a bouquet id. No answer: the empty list. Request: TUNER, of any type but 0.
  virtual std::list<int> getAllIDs(tuner_data& request) = 0;

  /// A channel's name; in the reference receiver `first` is a transport stream id and `second` a
  /// service id. No answer: the empty text. No request of the client leads to it.
  virtual std::string getChannelName(int first, int second) = 0;

  /// A channel's number for the viewer; in the reference receiver `first` is a transport stream id
  /// and `second` a service id. No answer: -1. No request of the client leads to it.
  virtual int getVirtualChannelNumber(int first, int second) = 0;

  /// Mounts the object carousel that `locator` names. The answer is the middleware's own text, of
  /// which 254 bytes reach the client, in the reference receiver the directory in which the files
  /// will be. No answer: the empty text. Request: CAROUSEL 0.
  virtual std::string mountCarousel(std::string locator) = 0;

  /// Unmounts what mountCarousel() was given with this locator. Request: CAROUSEL 1.
  virtual void umountCarousel(std::string locator) = 0;

  /// The client wants to hear of complete downloads. Request: CAROUSEL 3.
  virtual void addCarouselListener() = 0;

  /// The client wants to hear of no more downloads. Request: CAROUSEL 4.
  virtual void removeCarouselListener() = 0;

  /// The character set of the texts of service information, "UTF-8" in the reference receiver. No
  /// answer: the empty text. Request: SI 0.
  virtual std::string getSICodingFormat() = 0;

  /// All broadcast events that are known. The lists inside the records pass to the caller. No
  /// answer: the empty list. Request: SI 1.
  virtual std::list<program_event> getProgramEvents() = 0;

  /// One broadcast event, in the reference receiver the present one of the current service. The
  /// lists inside the record pass to the caller. No answer: `value_2` is -1. Request: SI 2.
  virtual program_event getProgramEvent() = 0;

  /// All services that are known. No answer: the empty list. Request: SI 6.
  virtual std::list<service> getServices() = 0;

  /// The identifier of the selected service. No answer: -1. Request: SI 7.
  virtual int getCurrentService() = 0;

  /// The conditional-access systems that are named, 0 to 65535. No answer: the empty list. Request:
  /// SI 4.
  virtual std::list<int> getCASystemIds() = 0;

  /// Whether the current service is scrambled or restricted. No answer: false. Request: SI 5.
  virtual bool isProtectedService() = 0;

  /// The current service in words, of which 254 bytes reach the client; in the reference receiver
  /// its name and its provider. No answer: the empty text. Request: SI 8.
  virtual std::string getServiceDescription() = 0;

  /// The elementary streams of a service; in the reference receiver `serviceId` is a service id, or
  /// -1 for the current service. No answer: the empty list. Request: SI 10.
  virtual std::list<service_component> getServiceComponents(int serviceId) = 0;

  /// The transport stream that is being received. No answer: `value_2` is -1. Request: SI 12.
  virtual transport_stream getTransportStream() = 0;

  /// The network that is being received. No answer: `network_value` is -1. Request: SI 14.
  virtual network getNetwork() = 0;

  /// The network's descriptors. The lists inside the records pass to the caller. No answer: the
  /// empty list. Request: SI 15.
  virtual std::list<descriptor> getNetworkDescriptors() = 0;

  /// A transport stream's descriptors; in the reference receiver `transportStream` is a transport
  /// stream id, or -1 for the received one. The lists inside the records pass to the caller. No
  /// answer: the empty list. Request: SI 13.
  virtual std::list<descriptor> getTransportStreamDescriptors(int transportStream) = 0;

  /// A service's descriptors by its identifier. The lists inside the records pass to the caller. No
  /// answer: the empty list. No request of the client leads to it.
  virtual std::list<descriptor> getServiceDescriptors(int serviceId) = 0;

  /// A broadcast event's descriptors; in the reference receiver `first` is a service id, or -1 for
  /// the current service, and `second` an event id. The lists inside the records pass to the
  /// caller. No answer: the empty list. Request: SI 3, 9.
  virtual std::list<descriptor> getProgramEventDescriptors(int first, int second) = 0;

  /// An elementary stream's descriptors; in the reference receiver `component` is its PID. The
  /// lists inside the records pass to the caller. No answer: the empty list. Request: SI 11.
  virtual std::list<descriptor> getServiceComponentDescriptors(int component) = 0;

  /// Program maps; in the reference receiver `program` is a program number, or -1 for all. No
  /// answer: the empty list. Request: SI 16.
  virtual std::list<pmt> getPMTs(int program) = 0;

  /// Opens what the locator, a text of at most 1944 bytes, names, stores the new player's number
  /// and answers with a number other than 0. Before the first listener is asked, `player` has what
  /// the client sent. No answer: 0. Request: MEDIA 0.
  virtual int open(std::string locator, int& player) = 0;

  /// How long a player's medium is, in the middleware's own unit, milliseconds in the reference
  /// receiver. No answer: -1. Request: MEDIA 1.
  virtual int getDuration(int player) = 0;

  /// Where a player is in its medium, in the unit of getDuration(). No answer: -1. Request:
  /// MEDIA 2.
  virtual int getCurrentTime(int player) = 0;

  /// Moves a player to another time and answers with an integer of the middleware's own; in the
  /// reference receiver `first` is the time in milliseconds, `second` 0 for exactly there and 1 for
  /// the nearest key picture, and the answer the time that was reached. No answer: -1. Request:
  /// MEDIA 3.
  virtual int setCurrentTime(int player, int first, int second) = 0;

  /// The client wants to hear of the player's end. Request: MEDIA 4.
  virtual void addMediaListener(int player) = 0;

  /// Plays, and answers with a number other than 0 if it does. No answer: 0. Request: MEDIA 5.
  virtual int play(int player) = 0;

  /// Stops the player, which stays open. Request: MEDIA 7.
  virtual void stop(int player) = 0;

  /// Ends the player. Request: MEDIA 6.
  virtual void close(int player) = 0;

  /// Places the player's pictures, in the middleware's own unit, pixels in the reference receiver,
  /// and answers with an integer of the middleware's own, 0 in the reference receiver. No answer:
  /// -1. Request: MEDIA 8.
  virtual int setMediaBounds(int player, int x, int y, int width, int height) = 0;

  /// Writes where the player's pictures are, in the unit of setMediaBounds(). Before the first
  /// listener is asked, the arguments have what the client sent. No answer: leave the arguments
  /// alone. Request: MEDIA 9.
  virtual void getMediaBounds(int player, int& x, int& y, int& width, int& height) = 0;

  /// Freezes the player's picture, or lets it go on. Request: MEDIA 10.
  virtual void setMediaFreeze(int player, bool freeze) = 0;

  /// Sets the player's balance to any real number that the client sent, in the reference receiver
  /// -1 (left) to 1 (right). Request: MEDIA 11.
  virtual void setMediaBalanceLevel(int player, double level) = 0;

  /// Sets the player's sound level to any real number that the client sent, in the reference
  /// receiver 0 to 1. Request: MEDIA 12.
  virtual void setMediaSoundLevel(int player, double level) = 0;

  /// Turns the player's sound off, or on again. Request: MEDIA 13.
  virtual void setMediaMute(int player, bool mute) = 0;

  /// Sets the player's bass to any real number that the client sent, in the reference receiver -1
  /// (12 dB less) to 1 (12 dB more). Request: MEDIA 14.
  virtual void setMediaBassLevel(int player, double level) = 0;

  /// Sets the player's treble to any real number that the client sent, in the reference receiver -1
  /// (12 dB less) to 1 (12 dB more). Request: MEDIA 15.
  virtual void setMediaTrebleLevel(int player, double level) = 0;

  /// Whether the platform has what the flag stands for: any number other than 0 for yes. `flag` is
  /// any number that the client sent; the reference receiver's are 0 to 7. No answer: 0. Request:
  /// VERSION, with the flag as the type.
  virtual int checkVersionFlag(int flag) = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~IpcServerListener() = default;
};

}  // namespace quillwork
