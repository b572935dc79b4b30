#include "receiver/facades/StreamEventCommands.h"

namespace receiver {

using namespace middlewarefacade;

void StreamEventCommands::addCommandListener(std::string, DsmCCCommandListener* listener) {
  listener_.set(listener);
}

void StreamEventCommands::removeCommandListener(std::string, DsmCCCommandListener*) {
  listener_.set(nullptr);
}

}  // namespace receiver
