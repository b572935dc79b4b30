#pragma once

#include "protocol/language.h"

#include <list>
#include <string>

#include "facade/visibility.h"

namespace middlewarefacade {

/// The tuner: identifiers of what it can tune to, channel names and numbers.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class TunerFacade {
 public:
  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static TunerFacade* createTunerFacade();

  /// The transport stream id that is tuned to, -1 for none.
  virtual int getCurrentTransportStreamID() = 0;
  virtual std::list<int> getIdList() = 0;
  virtual std::list<int> getIdListFor(int key) = 0;
  virtual std::string getChannelName(int first, int second) = 0;
  virtual int getVirtualChannelNumber(int first, int second) = 0;
  virtual std::list<int> getSecondIdListFor(int key) = 0;
  virtual std::list<int> getThirdIdListFor(int key) = 0;
  virtual ~TunerFacade() = default;
};

}  // namespace middlewarefacade
