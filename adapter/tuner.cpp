// The tuner.

#include <list>
#include <string>

#include "adapter/MiddlewareIpc.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/TunerFacade.h"

using adapter::ask;
using adapter::askOr;
using adapter::load;
using middlewarefacade::TunerFacade;

int MiddlewareIpc::getCurrentTransportStreamID() {
  return askOr(-1, load(tunerFacade), &TunerFacade::getCurrentTransportStreamID);
}

std::string MiddlewareIpc::getChannelName(int first, int second) {
  return ask(load(tunerFacade), &TunerFacade::getChannelName, first, second);
}

int MiddlewareIpc::getVirtualChannelNumber(int first, int second) {
  return askOr(-1, load(tunerFacade), &TunerFacade::getVirtualChannelNumber, first, second);
}

std::list<int> MiddlewareIpc::getAllIDs(quillwork::tuner_data& request) {
  TunerFacade* const facade = load(tunerFacade);
  if (facade == nullptr) return {};
  switch (request.kind) {
    case 1:
      return facade->getIdListFor(request.argument);
    case 2:
      return facade->getIdList();
    case 3:
      return facade->getSecondIdListFor(request.argument);
    case 4:
      return facade->getThirdIdListFor(request.argument);
    default:
      return {};
  }
}
