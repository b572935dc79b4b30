#pragma once

#include "protocol/language.h"

#include <list>
#include <set>
#include <string>

#include "ipc/IpcDemuxServerListener.h"
#include "ipc/IpcListener.h"
#include "ipc/ThreadSafety.h"
#include "protocol/ConnectionListener.h"
#include "protocol/IpcServerListener.h"
#include "protocol/export.h"
#include "protocol/records.h"

namespace quillwork {

class FairMutex;
class IpcDemuxServer;
class IpcServer;

namespace manager_state {
extern FairMutex managerMutex;
}

/// Owns the client's connection: both socket servers, the registries of those who answer requests
/// or want to hear of the client, and the notifications to it. One instance in a process.
///
/// All operations may be called from any thread, except that no operation that takes the manager
/// mutex (everything but the notifications and addIpcDemuxServerListener()) may be called
/// from inside a listener: the mutex is held across the listener's call and is not recursive.
/// Listeners are borrowed and must be removed before they are deleted. An operation that takes the
/// mutex waits for the listeners' calls under way.
///
/// The instance lives until destroy() or the adapter's deletion: keep the pointer no longer.
class QUILLWORK_EXPORT IpcServerManager : public IpcListener {
 public:
  /// The instance. The first call, which MiddlewareIpc::getInstance() makes, creates it and starts
  /// both servers; for a socket that cannot be opened it prints a line on the standard error stream
  /// and returns all the same. Any thread.
  static IpcServerManager* getInstance();

  /// Deletes the instance, if there is one, and stops the control channel; the section-filter
  /// channel goes on. Returns whatever the client does. Not to be called from a listener.
  static void destroy();

  /// There is one manager; it is not copied.
  IpcServerManager(const IpcServerManager&) = delete;

  /// There is one manager; it is not assigned.
  IpcServerManager& operator=(const IpcServerManager&) = delete;

  // What the control channel's server calls, on its thread.

  /// Answers one request of the client. `record` is the receive buffer and becomes the reply.
  /// Prints "Unknown message: " or "Unknown si message type:  " and the number for what nobody
  /// knows.
  void update(message& record) override;

  /// Does nothing: the server never delivers a list.
  void update(std::list<message> records) override;

  /// Tells every ConnectionListener, in the order of their addresses.
  void clientConnected() override;

  /// Makes every setApplicationState() that waits return true, then tells every ConnectionListener
  /// in the order of their addresses.
  void clientDisconnected() override;

  /// Stops the control channel. Use destroy(), which takes the mutex.
  virtual ~IpcServerManager();

  // The registries. Adding twice is adding once; removing what is not there changes nothing.

  /// Begins to ask `listener` for answers to the client's requests, beside those that are there.
  void addIpcServerListener(IpcServerListener* listener);

  /// Ends it: once this has returned, `listener` is not called any more and may be deleted.
  void removeIpcServerListener(IpcServerListener* listener);

  /// Begins to tell `listener` of the client's coming and going. It does not hear of a client that
  /// is there already.
  void addConnectionListener(ConnectionListener* listener);

  /// Ends it: once this has returned, `listener` is not called any more and may be deleted.
  void removeConnectionListener(ConnectionListener* listener);

  /// Replaces the section-filter channel's one listener, which is the adapter; null drops what the
  /// client asks. Does not take the manager mutex.
  void addIpcDemuxServerListener(IpcDemuxServerListener* listener);

  // Notifications to the client: from any thread, inside a listener's call, too. They block while
  // the client does not read.

  /// The media player with this number has reached its end. False if the record was not sent,
  /// because there is no client, it has gone or the manager ends; then "Can't send message" has
  /// been printed. Notification: MEDIA 16.
  bool endOfMedia(int player);

  /// The graphics settings have changed: two rectangles of the middleware's own, in pixels. False
  /// as for endOfMedia(). Notification: VIDEO 17.
  bool changeGraphicsSettings(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second);

  /// A carousel's download is complete. Both texts are cut to 254 bytes. False as for endOfMedia().
  /// Notification: CAROUSEL 2.
  bool downloadComplete(std::string first, std::string second);

  /// A DSM-CC command. A text of more than 1920 bytes travels in several records, which nothing
  /// interrupts. False as for endOfMedia(). Notification: DSMCC_COMMAND, with the command's code as
  /// the type.
  bool sendDsmCCCommand(ipcutil::DsmCCCommand_t command);

  /// Asks the client to change its application's state and waits without a time limit for its
  /// answer; what the states mean is the middleware's own affair. A client that goes away, or the
  /// end of the manager, answers true. False at once if the question was not sent, as for
  /// endOfMedia(). One call at a time; not on the control channel's thread, and not while holding a
  /// lock that a listener takes. An answer names no question: leave a moment between two calls.
  /// Notification: APPLICATION_STATE, with the state as the type; the client answers with a request
  /// of the same group.
  bool setApplicationState(state newState);

  // Queries: each asks the listeners in the order of their addresses and combines their answers.
  // Lists inside the records that are returned belong to the caller.

  /// Asks the listeners' checkVersionFlag(): the first answer that is not 0; 0 for none. Request:
  /// VERSION, with the flag as the type.
  int checkVersionFlag(int flag);

  /// Asks the listeners' isProtectedService(): true if one of them says so; false for none.
  /// Request: SI 5.
  bool isProtectedService();

  /// Asks the listeners' play(): the first answer that is not 0; 0 for none. Request: MEDIA 5.
  int play(int player);

  /// Asks the listeners' open(): the first answer that is not 0; 0 for none. `player` is given to
  /// every listener that is asked. Request: MEDIA 0.
  int open(std::string locator, int& player);

  /// Asks the listeners' getCurrentTime(): the first answer that is not -1; -1 for none. Request:
  /// MEDIA 2.
  int getCurrentTime(int player);

  /// Asks the listeners' getDuration(): the first answer that is not -1; -1 for none. Request:
  /// MEDIA 1.
  int getDuration(int player);

  /// Asks the listeners' getCurrentService(): the first answer that is not -1; -1 for none.
  /// Request: SI 7.
  int getCurrentService();

  /// Asks the listeners' getVirtualChannelNumber(): the first answer that is not -1; -1 for none.
  /// No request of the client leads to it.
  int getVirtualChannelNumber(int first, int second);

  /// Asks the listeners' getCurrentTransportStreamID(): the first answer that is not -1; -1 for
  /// none. Request: TUNER 0.
  int getCurrentTransportStreamID();

  /// Asks the listeners' getVideoProperty(): the first answer that is not -1; -1 for none. Request:
  /// VIDEO 9 to 16.
  int getVideoRate(command property);

  /// Asks the listeners' setCurrentTime(): the first answer that is not -1; -1 for none. Request:
  /// MEDIA 3.
  int setCurrentTime(int player, int first, int second);

  /// Asks the listeners' setMediaBounds(): the first answer that is not -1; -1 for none. Request:
  /// MEDIA 8.
  int setMediaBounds(int player, int x, int y, int width, int height);

  /// Asks the listeners' getNetwork(): the first record whose `network_value` is not -1; else the
  /// last one; without a listener a zero record with -1 there. Request: SI 14.
  network getNetwork();

  /// Asks the listeners' getTransportStream(): the first record whose `value_2` is not -1; else the
  /// last one; without a listener a zero record with -1 there. Request: SI 12.
  transport_stream getTransportStream();

  /// Asks the listeners' getProgramEvent(): the first record whose `value_2` is not -1; else the
  /// last one; without a listener a zero record with -1 there. The lists inside the record are the
  /// caller's. Request: SI 2.
  program_event getProgramEvent();

  /// Asks the listeners' getServices(): the first list that is not empty; the empty list for none.
  /// Request: SI 6.
  std::list<service> getServices();

  /// Asks the listeners' getServiceComponents(): the first list that is not empty; the empty list
  /// for none. Request: SI 10.
  std::list<service_component> getServiceComponents(int serviceId);

  /// Asks the listeners' getProgramEvents(): the first list that is not empty; the empty list for
  /// none. The lists inside the records are the caller's. Request: SI 1.
  std::list<program_event> getProgramEvents();

  /// Asks the listeners' getSystemProperties(): the first list that is not empty; the empty list
  /// for none. Request: SYSTEM_PROPERTY 1.
  std::list<system_property> getSystemProperties();

  /// Asks the listeners' getPMTs(): the first list that is not empty; the empty list for none.
  /// Request: SI 16.
  std::list<pmt> getPMTs(int program);

  /// Asks the listeners' getCASystemIds(): the first list that is not empty; the empty list for
  /// none. Request: SI 4.
  std::list<int> getCASystemIds();

  /// Asks the listeners' getAllIDs(): the first list that is not empty; the empty list for none.
  /// Request: TUNER, of any type but 0.
  std::list<int> getAllIDs(tuner_data& request);

  /// Asks the listeners' getServiceComponentDescriptors(): the first list that is not empty; the
  /// empty list for none. The lists inside the records are the caller's. Request: SI 11.
  std::list<descriptor> getServiceComponentDescriptors(int component);

  /// Asks the listeners' getProgramEventDescriptors(): the first list that is not empty; the empty
  /// list for none. The lists inside the records are the caller's. Request: SI 3, 9.
  std::list<descriptor> getProgramEventDescriptors(int first, int second);

  /// Asks the listeners' getServiceDescriptors(): the first list that is not empty; the empty list
  /// for none. The lists inside the records are the caller's. No request of the client leads to it.
  std::list<descriptor> getServiceDescriptors(int serviceId);

  /// Asks the listeners' getTransportStreamDescriptors(): the first list that is not empty; the
  /// empty list for none. The lists inside the records are the caller's. Request: SI 13.
  std::list<descriptor> getTransportStreamDescriptors(int transportStream);

  /// Asks the listeners' getNetworkDescriptors(): the first list that is not empty; the empty list
  /// for none. The lists inside the records are the caller's. Request: SI 15.
  std::list<descriptor> getNetworkDescriptors();

  /// Asks the listeners' getVideoLanguages(): the first list that is not empty; the empty list for
  /// none. Request: VIDEO 4.
  std::list<std::string> getVideoLanguages();

  /// Asks the listeners' getServiceDescription(): the first text that is not empty; the empty text
  /// for none. Request: SI 8.
  std::string getServiceDescription();

  /// Asks the listeners' getSICodingFormat(): the first text that is not empty; the empty text for
  /// none. Request: SI 0.
  std::string getSICodingFormat();

  /// Asks the listeners' getChannelName(): the first text that is not empty; the empty text for
  /// none. No request of the client leads to it.
  std::string getChannelName(int first, int second);

  /// Asks the listeners' getVideoLanguage(): the first text that is not empty; the empty text for
  /// none. Request: VIDEO 3, 5.
  std::string getVideoLanguage(command language);

  /// Asks the listeners' getSystemProperty(): the first text that is not empty; the empty text for
  /// none. Request: SYSTEM_PROPERTY 0.
  std::string getSystemProperty(std::string name);

  /// Asks the listeners' mountCarousel(): the first text that is not empty; the empty text for
  /// none. Request: CAROUSEL 0.
  std::string mountCarousel(std::string locator);

  /// Asks the listeners' getMainVideoBounds() until none of the four is -1. The arguments keep the
  /// caller's values if nobody writes. Request: VIDEO 1.
  void getMainVideoBounds(int& x, int& y, int& width, int& height);

  /// Calls getMediaBounds() of every listener with the same arguments, and the last one that writes
  /// counts. Request: MEDIA 9.
  void getMediaBounds(int player, int& x, int& y, int& width, int& height);

  /// Calls setMediaFreeze() of every listener. Request: MEDIA 10.
  void setMediaFreeze(int player, bool freeze);

  /// Calls setMediaMute() of every listener. Request: MEDIA 13.
  void setMediaMute(int player, bool mute);

  /// Calls setMediaSoundLevel() of every listener. Request: MEDIA 12.
  void setMediaSoundLevel(int player, double level);

  /// Calls setMediaBalanceLevel() of every listener. Request: MEDIA 11.
  void setMediaBalanceLevel(int player, double level);

  /// Calls setMediaBassLevel() of every listener. Request: MEDIA 14.
  void setMediaBassLevel(int player, double level);

  /// Calls setMediaTrebleLevel() of every listener. Request: MEDIA 15.
  void setMediaTrebleLevel(int player, double level);

  /// Calls addMediaListener() of every listener. Request: MEDIA 4.
  void addMediaListener(int player);

  /// Calls stop() of every listener. Request: MEDIA 7.
  void stop(int player);

  /// Calls close() of every listener. Request: MEDIA 6.
  void close(int player);

  /// Calls umountCarousel() of every listener. Request: CAROUSEL 1.
  void umountCarousel(std::string locator);

 private:
  struct QUILLWORK_HIDDEN Queries;
  struct QUILLWORK_HIDDEN Requests;

  QUILLWORK_HIDDEN IpcServerManager();
  QUILLWORK_HIDDEN void shutDown();

  IpcServer* server;
  IpcDemuxServer* demuxServer;
  std::set<IpcServerListener*> serverListeners QUILLWORK_GUARDED_BY(manager_state::managerMutex);
  std::set<ConnectionListener*> connectionListeners
      QUILLWORK_GUARDED_BY(manager_state::managerMutex);
};

}  // namespace quillwork
