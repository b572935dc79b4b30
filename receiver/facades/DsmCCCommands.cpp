#include "receiver/facades/DsmCCCommands.h"

namespace receiver {

using namespace middlewarefacade;

void DsmCCCommands::addCommandListener(std::string, DsmCCCommandListener* listener) {
  listener_.set(listener);
}

void DsmCCCommands::removeCommandListener(std::string, DsmCCCommandListener*) {
  listener_.set(nullptr);
}

}  // namespace receiver
