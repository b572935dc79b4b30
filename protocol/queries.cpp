// The queries of IpcServerManager: each asks the registered listeners, and one of a few rules
// combines their answers.

#include <functional>
#include <utility>

#include "ipc/Mutex.h"
#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/ReplyLists.h"

namespace quillwork {

using manager_state::managerMutex;

namespace {

bool isAnswer(const std::string& answer) { return !answer.empty(); }
template <class Element>
bool isAnswer(const std::list<Element>& answer) {
  return !answer.empty();
}

}  // namespace

/// The rules by which the answers are combined; each holds the manager mutex for its whole run.
struct IpcServerManager::Queries {
  /// The first answer other than `none`, which is returned if there is no such answer.
  template <class Answer, class Operation, class... Arguments>
  static Answer firstOtherThan(const IpcServerManager& manager, Answer none, Operation operation,
                               Arguments&... arguments) {
    const Lock lock(managerMutex);
    for (IpcServerListener* const listener : manager.serverListeners) {
      const Answer answer = std::invoke(operation, listener, arguments...);
      if (answer != none) return answer;
    }
    return none;
  }

  /// The first text or list that is not empty.
  template <class Answer, class... Parameters, class... Arguments>
  static Answer firstNotEmpty(const IpcServerManager& manager,
                              Answer (IpcServerListener::*operation)(Parameters...),
                              Arguments&... arguments) {
    const Lock lock(managerMutex);
    for (IpcServerListener* const listener : manager.serverListeners) {
      Answer answer = (listener->*operation)(arguments...);
      if (isAnswer(answer)) return answer;
    }
    return {};
  }

  /// The first record whose key field is not -1; each answer replaces the one before it.
  template <class Record>
  static Record firstWithKey(const IpcServerManager& manager,
                             Record (IpcServerListener::*operation)(), std::int32_t Record::*key) {
    const Lock lock(managerMutex);
    OwnedRecord<Record> answer;
    (*answer).*key = -1;
    for (IpcServerListener* const listener : manager.serverListeners) {
      answer.replace((listener->*operation)());
      if ((*answer).*key != -1) break;
    }
    return answer.release();
  }

  /// Calls every listener.
  template <class Operation, class... Arguments>
  static void askAll(const IpcServerManager& manager, Operation operation,
                     Arguments&... arguments) {
    const Lock lock(managerMutex);
    for (IpcServerListener* const listener : manager.serverListeners) {
      std::invoke(operation, listener, arguments...);
    }
  }
};

int IpcServerManager::checkVersionFlag(int flag) {
  return Queries::firstOtherThan(*this, 0, &IpcServerListener::checkVersionFlag, flag);
}

bool IpcServerManager::isProtectedService() {
  return Queries::firstOtherThan(*this, false, &IpcServerListener::isProtectedService);
}

int IpcServerManager::play(int player) {
  return Queries::firstOtherThan(*this, 0, &IpcServerListener::play, player);
}

int IpcServerManager::open(std::string locator, int& player) {
  return Queries::firstOtherThan(*this, 0, &IpcServerListener::open, locator, player);
}

int IpcServerManager::getCurrentTime(int player) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getCurrentTime, player);
}

int IpcServerManager::getDuration(int player) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getDuration, player);
}

int IpcServerManager::getCurrentService() {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getCurrentService);
}

int IpcServerManager::getVirtualChannelNumber(int first, int second) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getVirtualChannelNumber, first,
                                 second);
}

int IpcServerManager::getCurrentTransportStreamID() {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getCurrentTransportStreamID);
}

int IpcServerManager::getVideoRate(command property) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::getVideoProperty, property);
}

int IpcServerManager::setCurrentTime(int player, int first, int second) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::setCurrentTime, player, first,
                                 second);
}

int IpcServerManager::setMediaBounds(int player, int x, int y, int width, int height) {
  return Queries::firstOtherThan(*this, -1, &IpcServerListener::setMediaBounds, player, x, y, width,
                                 height);
}

network IpcServerManager::getNetwork() {
  return Queries::firstWithKey(*this, &IpcServerListener::getNetwork, &network::network_value);
}

transport_stream IpcServerManager::getTransportStream() {
  return Queries::firstWithKey(*this, &IpcServerListener::getTransportStream,
                               &transport_stream::value_2);
}

program_event IpcServerManager::getProgramEvent() {
  return Queries::firstWithKey(*this, &IpcServerListener::getProgramEvent, &program_event::value_2);
}

std::list<service> IpcServerManager::getServices() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getServices);
}

std::list<service_component> IpcServerManager::getServiceComponents(int serviceId) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getServiceComponents, serviceId);
}

std::list<program_event> IpcServerManager::getProgramEvents() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getProgramEvents);
}

std::list<system_property> IpcServerManager::getSystemProperties() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getSystemProperties);
}

std::list<pmt> IpcServerManager::getPMTs(int program) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getPMTs, program);
}

std::list<int> IpcServerManager::getCASystemIds() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getCASystemIds);
}

std::list<int> IpcServerManager::getAllIDs(tuner_data& request) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getAllIDs, request);
}

std::list<descriptor> IpcServerManager::getServiceComponentDescriptors(int component) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getServiceComponentDescriptors,
                                component);
}

std::list<descriptor> IpcServerManager::getProgramEventDescriptors(int first, int second) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getProgramEventDescriptors, first,
                                second);
}

std::list<descriptor> IpcServerManager::getServiceDescriptors(int serviceId) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getServiceDescriptors, serviceId);
}

std::list<descriptor> IpcServerManager::getTransportStreamDescriptors(int transportStream) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getTransportStreamDescriptors,
                                transportStream);
}

std::list<descriptor> IpcServerManager::getNetworkDescriptors() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getNetworkDescriptors);
}

std::list<std::string> IpcServerManager::getVideoLanguages() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getVideoLanguages);
}

std::string IpcServerManager::getServiceDescription() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getServiceDescription);
}

std::string IpcServerManager::getSICodingFormat() {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getSICodingFormat);
}

std::string IpcServerManager::getChannelName(int first, int second) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getChannelName, first, second);
}

std::string IpcServerManager::getVideoLanguage(command language) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getVideoLanguage, language);
}

std::string IpcServerManager::getSystemProperty(std::string name) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::getSystemProperty, name);
}

std::string IpcServerManager::mountCarousel(std::string locator) {
  return Queries::firstNotEmpty(*this, &IpcServerListener::mountCarousel, locator);
}

void IpcServerManager::getMainVideoBounds(int& x, int& y, int& width, int& height) {
  const Lock lock(managerMutex);
  for (IpcServerListener* const listener : serverListeners) {
    listener->getMainVideoBounds(x, y, width, height);
    if (x != -1 && y != -1 && width != -1 && height != -1) break;
  }
}

void IpcServerManager::getMediaBounds(int player, int& x, int& y, int& width, int& height) {
  Queries::askAll(*this, &IpcServerListener::getMediaBounds, player, x, y, width, height);
}

void IpcServerManager::setMediaFreeze(int player, bool freeze) {
  Queries::askAll(*this, &IpcServerListener::setMediaFreeze, player, freeze);
}

void IpcServerManager::setMediaMute(int player, bool mute) {
  Queries::askAll(*this, &IpcServerListener::setMediaMute, player, mute);
}

void IpcServerManager::setMediaSoundLevel(int player, double level) {
  Queries::askAll(*this, &IpcServerListener::setMediaSoundLevel, player, level);
}

void IpcServerManager::setMediaBalanceLevel(int player, double level) {
  Queries::askAll(*this, &IpcServerListener::setMediaBalanceLevel, player, level);
}

void IpcServerManager::setMediaBassLevel(int player, double level) {
  Queries::askAll(*this, &IpcServerListener::setMediaBassLevel, player, level);
}

void IpcServerManager::setMediaTrebleLevel(int player, double level) {
  Queries::askAll(*this, &IpcServerListener::setMediaTrebleLevel, player, level);
}

void IpcServerManager::addMediaListener(int player) {
  Queries::askAll(*this, &IpcServerListener::addMediaListener, player);
}

void IpcServerManager::stop(int player) {
  Queries::askAll(*this, &IpcServerListener::stop, player);
}

void IpcServerManager::close(int player) {
  Queries::askAll(*this, &IpcServerListener::close, player);
}

void IpcServerManager::umountCarousel(std::string locator) {
  Queries::askAll(*this, &IpcServerListener::umountCarousel, locator);
}

}  // namespace quillwork
