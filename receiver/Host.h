#pragma once

#include "facade/DsmCCCommandListener.h"
#include "receiver/ListenerSlot.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamFile.h"

namespace receiver {

/// What the facades work on. The library creates them through static factories, so they find it
/// here; main() sets it before it creates the adapter and keeps it until the adapter is gone.
struct Host {
  const StreamFile& stream;
  ServiceInformation& information;
  /// Whether the section filter stops at the stream's end instead of beginning again.
  bool once;
  /// Who wants to hear of stream events.
  ListenerSlot<middlewarefacade::DsmCCCommandListener> commandListener;

  static Host*& current() {
    static Host* host = nullptr;
    return host;
  }
};

}  // namespace receiver
