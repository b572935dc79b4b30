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
/// Listeners are borrowed and must be removed before they are deleted.
class QUILLWORK_EXPORT IpcServerManager : public IpcListener {
 public:
  /// The instance; the first call creates it and starts both servers.
  static IpcServerManager* getInstance();
  /// Deletes the instance, if there is one, and stops the control channel; the section-filter
  /// channel goes on. Returns whatever the client does. Not to be called from a listener.
  static void destroy();

  IpcServerManager(const IpcServerManager&) = delete;
  IpcServerManager& operator=(const IpcServerManager&) = delete;

  // What the control channel's server calls, on its thread.

  /// Answers one request of the client. `record` is the receive buffer and becomes the reply.
  /// Prints "Unknown message: " or "Unknown si message type:  " and the number for what nobody
  /// knows.
  void update(message& record) override;
  void update(std::list<message> records) override;
  void clientConnected() override;
  void clientDisconnected() override;
  virtual ~IpcServerManager();

  // The registries. Adding twice is adding once; removing what is not there changes nothing.

  void addIpcServerListener(IpcServerListener* listener);
  void removeIpcServerListener(IpcServerListener* listener);
  void addConnectionListener(ConnectionListener* listener);
  void removeConnectionListener(ConnectionListener* listener);
  /// Replaces the section-filter channel's one listener.
  void addIpcDemuxServerListener(IpcDemuxServerListener* listener);

  // Notifications to the client. They block while the client does not read. False when the record
  // was not sent; then "Can't send message" has been printed.

  bool endOfMedia(int player);
  bool changeGraphicsSettings(ipcutil::Rectangle_t first, ipcutil::Rectangle_t second);
  /// Both texts are cut to 254 characters.
  bool downloadComplete(std::string first, std::string second);
  /// A text of more than 1920 characters travels in several records, which nothing interrupts.
  bool sendDsmCCCommand(ipcutil::DsmCCCommand_t command);
  /// Asks the client to change its application's state and waits for its answer, without a time
  /// limit; a client that goes away, or the end of the manager, answers true. False when the record
  /// was not sent. One call at a time; not to be called on the control channel's thread.
  bool setApplicationState(state newState);

  // Queries: each asks the listeners in the order of their addresses and combines their answers.
  // Lists inside the records that are returned belong to the caller.

  // The first answer that is not zero; 0 for none.
  int checkVersionFlag(int flag);
  bool isProtectedService();
  int play(int player);
  int open(std::string locator, int& player);

  // The first answer that is not -1; -1 for none.
  int getCurrentTime(int player);
  int getDuration(int player);
  int getCurrentService();
  int getVirtualChannelNumber(int first, int second);
  int getCurrentTransportStreamID();
  /// Asks the listeners' getVideoProperty().
  int getVideoRate(command property);
  int setCurrentTime(int player, int first, int second);
  int setMediaBounds(int player, int x, int y, int width, int height);

  // The first record whose key field is not -1; a zero record with the key -1 for no listener.
  network getNetwork();
  transport_stream getTransportStream();
  program_event getProgramEvent();

  // The first list that is not empty.
  std::list<service> getServices();
  std::list<service_component> getServiceComponents(int serviceId);
  std::list<program_event> getProgramEvents();
  std::list<system_property> getSystemProperties();
  std::list<pmt> getPMTs(int program);
  std::list<int> getCASystemIds();
  std::list<int> getAllIDs(tuner_data& request);
  std::list<descriptor> getServiceComponentDescriptors(int component);
  std::list<descriptor> getProgramEventDescriptors(int first, int second);
  std::list<descriptor> getServiceDescriptors(int serviceId);
  std::list<descriptor> getTransportStreamDescriptors(int transportStream);
  std::list<descriptor> getNetworkDescriptors();
  std::list<std::string> getVideoLanguages();

  // The first text that is not empty.
  std::string getServiceDescription();
  std::string getSICodingFormat();
  std::string getChannelName(int first, int second);
  std::string getVideoLanguage(command language);
  std::string getSystemProperty(std::string name);
  std::string mountCarousel(std::string locator);

  /// Asks until no output is -1. The outputs keep the caller's values where nobody writes.
  void getMainVideoBounds(int& x, int& y, int& width, int& height);

  // Every listener is called.
  void getMediaBounds(int player, int& x, int& y, int& width, int& height);
  void setMediaFreeze(int player, bool freeze);
  void setMediaMute(int player, bool mute);
  void setMediaSoundLevel(int player, double level);
  void setMediaBalanceLevel(int player, double level);
  void setMediaBassLevel(int player, double level);
  void setMediaTrebleLevel(int player, double level);
  void addMediaListener(int player);
  void stop(int player);
  void close(int player);
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
