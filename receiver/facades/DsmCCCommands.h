#pragma once

#include <string>

#include "facade/DsmCCCommandFacade.h"
#include "facade/DsmCCCommandListener.h"
#include "receiver/ListenerSlot.h"

namespace receiver {

/// The facade of DSM-CC commands. The one name that somebody listens to is that of editing
/// commands.
class DsmCCCommands : public middlewarefacade::DsmCCCommandFacade {
 public:
  using Listener = ListenerSlot<middlewarefacade::DsmCCCommandListener>;

  explicit DsmCCCommands(Listener& listener) : listener_(listener) {}

  void addCommandListener(std::string, middlewarefacade::DsmCCCommandListener* listener) override;
  void removeCommandListener(std::string, middlewarefacade::DsmCCCommandListener*) override;

 private:
  Listener& listener_;
};

}  // namespace receiver
