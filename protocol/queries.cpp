// The queries of IpcServerManager: each asks the registered listeners, and one of a few rules
// combines their answers.

#include <functional>
#include <utility>

#include "protocol/IpcServerManager.h"
#include "protocol/ManagerState.h"
#include "protocol/ReplyLists.h"

namespace quillwork {

using manager_state::ManagerLock;
using manager_state::managerMutex;

namespace {

using Listeners = std::set<IpcServerListener*>;

bool isAnswer(const std::string& answer) { return !answer.empty(); }
template <class Element>
bool isAnswer(const std::list<Element>& answer) {
  return !answer.empty();
}

/// The first answer other than `none`, which is returned if there is no such answer.
template <class Answer, class Operation, class... Arguments>
Answer firstOtherThan(Answer none, const Listeners& listeners, Operation operation,
                      Arguments&... arguments) {
  const ManagerLock lock(managerMutex);
  for (IpcServerListener* const listener : listeners) {
    const Answer answer = std::invoke(operation, listener, arguments...);
    if (answer != none) return answer;
  }
  return none;
}

/// The first text or list that is not empty.
template <class Answer, class... Parameters, class... Arguments>
Answer firstNotEmpty(const Listeners& listeners,
                     Answer (IpcServerListener::*operation)(Parameters...),
                     Arguments&... arguments) {
  const ManagerLock lock(managerMutex);
  for (IpcServerListener* const listener : listeners) {
    Answer answer = (listener->*operation)(arguments...);
    if (isAnswer(answer)) return answer;
  }
  return {};
}

/// The first record whose key field is not -1; each answer replaces the one before it.
template <class Record>
Record firstWithKey(const Listeners& listeners, Record (IpcServerListener::*operation)(),
                    std::int32_t Record::*key) {
  const ManagerLock lock(managerMutex);
  OwnedRecord<Record> answer;
  (*answer).*key = -1;
  for (IpcServerListener* const listener : listeners) {
    answer.replace((listener->*operation)());
    if ((*answer).*key != -1) break;
  }
  return answer.release();
}

/// Calls every listener.
template <class Operation, class... Arguments>
void askAll(const Listeners& listeners, Operation operation, Arguments&... arguments) {
  const ManagerLock lock(managerMutex);
  for (IpcServerListener* const listener : listeners) {
    std::invoke(operation, listener, arguments...);
  }
}

}  // namespace

int IpcServerManager::checkVersionFlag(int flag) {
  return firstOtherThan(0, serverListeners, &IpcServerListener::checkVersionFlag, flag);
}

bool IpcServerManager::isProtectedService() {
  return firstOtherThan(false, serverListeners, &IpcServerListener::isProtectedService);
}

int IpcServerManager::play(int player) {
  return firstOtherThan(0, serverListeners, &IpcServerListener::play, player);
}

int IpcServerManager::open(std::string locator, int& player) {
  return firstOtherThan(0, serverListeners, &IpcServerListener::open, locator, player);
}

int IpcServerManager::getCurrentTime(int player) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getCurrentTime, player);
}

int IpcServerManager::getDuration(int player) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getDuration, player);
}

int IpcServerManager::getCurrentService() {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getCurrentService);
}

int IpcServerManager::getVirtualChannelNumber(int first, int second) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getVirtualChannelNumber, first,
                        second);
}

int IpcServerManager::getCurrentTransportStreamID() {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getCurrentTransportStreamID);
}

int IpcServerManager::getVideoRate(command property) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::getVideoProperty, property);
}

int IpcServerManager::setCurrentTime(int player, int first, int second) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::setCurrentTime, player, first,
                        second);
}

int IpcServerManager::setMediaBounds(int player, int x, int y, int width, int height) {
  return firstOtherThan(-1, serverListeners, &IpcServerListener::setMediaBounds, player, x, y,
                        width, height);
}

network IpcServerManager::getNetwork() {
  return firstWithKey(serverListeners, &IpcServerListener::getNetwork, &network::network_value);
}

transport_stream IpcServerManager::getTransportStream() {
  return firstWithKey(serverListeners, &IpcServerListener::getTransportStream,
                      &transport_stream::value_2);
}

program_event IpcServerManager::getProgramEvent() {
  return firstWithKey(serverListeners, &IpcServerListener::getProgramEvent,
                      &program_event::value_2);
}

std::list<service> IpcServerManager::getServices() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getServices);
}

std::list<service_component> IpcServerManager::getServiceComponents(int serviceId) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getServiceComponents, serviceId);
}

std::list<program_event> IpcServerManager::getProgramEvents() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getProgramEvents);
}

std::list<system_property> IpcServerManager::getSystemProperties() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getSystemProperties);
}

std::list<pmt> IpcServerManager::getPMTs(int program) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getPMTs, program);
}

std::list<int> IpcServerManager::getCASystemIds() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getCASystemIds);
}

std::list<int> IpcServerManager::getAllIDs(tuner_data& request) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getAllIDs, request);
}

std::list<descriptor> IpcServerManager::getServiceComponentDescriptors(int component) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getServiceComponentDescriptors,
                       component);
}

std::list<descriptor> IpcServerManager::getProgramEventDescriptors(int first, int second) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getProgramEventDescriptors, first,
                       second);
}

std::list<descriptor> IpcServerManager::getServiceDescriptors(int serviceId) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getServiceDescriptors, serviceId);
}

std::list<descriptor> IpcServerManager::getTransportStreamDescriptors(int transportStream) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getTransportStreamDescriptors,
                       transportStream);
}

std::list<descriptor> IpcServerManager::getNetworkDescriptors() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getNetworkDescriptors);
}

std::list<std::string> IpcServerManager::getVideoLanguages() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getVideoLanguages);
}

std::string IpcServerManager::getServiceDescription() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getServiceDescription);
}

std::string IpcServerManager::getSICodingFormat() {
  return firstNotEmpty(serverListeners, &IpcServerListener::getSICodingFormat);
}

std::string IpcServerManager::getChannelName(int first, int second) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getChannelName, first, second);
}

std::string IpcServerManager::getVideoLanguage(command language) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getVideoLanguage, language);
}

std::string IpcServerManager::getSystemProperty(std::string name) {
  return firstNotEmpty(serverListeners, &IpcServerListener::getSystemProperty, name);
}

std::string IpcServerManager::mountCarousel(std::string locator) {
  return firstNotEmpty(serverListeners, &IpcServerListener::mountCarousel, locator);
}

void IpcServerManager::getMainVideoBounds(int& x, int& y, int& width, int& height) {
  const ManagerLock lock(managerMutex);
  for (IpcServerListener* const listener : serverListeners) {
    listener->getMainVideoBounds(x, y, width, height);
    if (x != -1 && y != -1 && width != -1 && height != -1) break;
  }
}

void IpcServerManager::getMediaBounds(int player, int& x, int& y, int& width, int& height) {
  askAll(serverListeners, &IpcServerListener::getMediaBounds, player, x, y, width, height);
}

void IpcServerManager::setMediaFreeze(int player, bool freeze) {
  askAll(serverListeners, &IpcServerListener::setMediaFreeze, player, freeze);
}

void IpcServerManager::setMediaMute(int player, bool mute) {
  askAll(serverListeners, &IpcServerListener::setMediaMute, player, mute);
}

void IpcServerManager::setMediaSoundLevel(int player, double level) {
  askAll(serverListeners, &IpcServerListener::setMediaSoundLevel, player, level);
}

void IpcServerManager::setMediaBalanceLevel(int player, double level) {
  askAll(serverListeners, &IpcServerListener::setMediaBalanceLevel, player, level);
}

void IpcServerManager::setMediaBassLevel(int player, double level) {
  askAll(serverListeners, &IpcServerListener::setMediaBassLevel, player, level);
}

void IpcServerManager::setMediaTrebleLevel(int player, double level) {
  askAll(serverListeners, &IpcServerListener::setMediaTrebleLevel, player, level);
}

void IpcServerManager::addMediaListener(int player) {
  askAll(serverListeners, &IpcServerListener::addMediaListener, player);
}

void IpcServerManager::stop(int player) {
  askAll(serverListeners, &IpcServerListener::stop, player);
}

void IpcServerManager::close(int player) {
  askAll(serverListeners, &IpcServerListener::close, player);
}

void IpcServerManager::umountCarousel(std::string locator) {
  askAll(serverListeners, &IpcServerListener::umountCarousel, locator);
}

}  // namespace quillwork
