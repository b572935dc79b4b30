#include "receiver/facades/Tuner.h"

#include <set>

namespace receiver {

int Tuner::getCurrentTransportStreamID() { return information_.transportStreamId(); }

std::list<int> Tuner::getIdList() {
  std::set<int> streams;
  if (information_.transportStreamId() != -1) streams.insert(information_.transportStreamId());
  for (const Network& network : information_.networks()) {
    for (const TransportStream& stream : network.transportStreams) streams.insert(stream.id);
  }
  for (const Service& service : information_.services()) streams.insert(service.transportStream);
  return {streams.begin(), streams.end()};
}

std::list<int> Tuner::getIdListFor(int transportStream) {
  std::set<int> services;
  for (const Service& service : information_.services()) {
    if (service.transportStream == transportStream) services.insert(service.id);
  }
  for (const Network& network : information_.networks()) {
    for (const TransportStream& stream : network.transportStreams) {
      if (stream.id == transportStream) {
        services.insert(stream.services.begin(), stream.services.end());
      }
    }
  }
  return {services.begin(), services.end()};
}

std::string Tuner::getChannelName(int transportStream, int serviceId) {
  for (const Service& service : information_.services()) {
    if (service.transportStream == transportStream && service.id == serviceId) {
      return service.name;
    }
  }
  return {};
}

int Tuner::getVirtualChannelNumber(int transportStream, int serviceId) {
  for (const Network& network : information_.networks()) {
    for (const TransportStream& stream : network.transportStreams) {
      const auto number = stream.channelNumbers.find(serviceId);
      if (stream.id == transportStream && number != stream.channelNumbers.end()) {
        return number->second;
      }
    }
  }
  return -1;
}

std::list<int> Tuner::getSecondIdListFor(int network) {
  return streamsOf(information_.networks(), network);
}

std::list<int> Tuner::getThirdIdListFor(int bouquet) {
  return streamsOf(information_.bouquets(), bouquet);
}

std::list<int> Tuner::streamsOf(const std::vector<Network>& networks, int id) {
  std::set<int> streams;
  for (const Network& network : networks) {
    if (network.id != id) continue;
    for (const TransportStream& stream : network.transportStreams) streams.insert(stream.id);
  }
  return {streams.begin(), streams.end()};
}

}  // namespace receiver
