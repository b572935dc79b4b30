#pragma once

#include <list>
#include <string>
#include <vector>

#include "facade/TunerFacade.h"
#include "receiver/ServiceInformation.h"

namespace receiver {

/// The tuner facade: the transport streams and services that the stream tells of.
class Tuner : public middlewarefacade::TunerFacade {
 public:
  explicit Tuner(const ServiceInformation& information) : information_(information) {}

  int getCurrentTransportStreamID() override;
  std::list<int> getIdList() override;
  std::list<int> getIdListFor(int transportStream) override;
  std::string getChannelName(int transportStream, int serviceId) override;
  int getVirtualChannelNumber(int transportStream, int serviceId) override;
  std::list<int> getSecondIdListFor(int network) override;
  std::list<int> getThirdIdListFor(int bouquet) override;

 private:
  static std::list<int> streamsOf(const std::vector<Network>& networks, int id);

  const ServiceInformation& information_;
};

}  // namespace receiver
