#pragma once

#include "facade/CarouselListener.h"
#include "facade/DsmCCCommandListener.h"
#include "facade/GraphicsSettingsListener.h"
#include "receiver/CarouselMounts.h"
#include "receiver/ListenerSlot.h"
#include "receiver/ServiceInformation.h"
#include "receiver/StreamPlayer.h"
#include "receiver/Worker.h"
#include "receiver/facades/Version.h"

namespace receiver {

class Display;

/// What the facades work on. The library creates them through static factories, which find it here;
/// main() sets it before it creates the adapter and keeps it until the adapter is gone.
struct Host {
  ServiceInformation& information;
  StreamPlayer& streamPlayer;
  Worker& worker;
  CarouselMounts& mounts;
  Display* display;        ///< null for none
  std::string properties;  ///< the file
  bool isFast = false;
  Version version;
  ListenerSlot<middlewarefacade::DsmCCCommandListener> commandListener;
  ListenerSlot<middlewarefacade::CarouselListener> carouselListener;
  ListenerSlot<middlewarefacade::GraphicsSettingsListener> graphicsListener;

  static Host*& current() {
    static Host* host = nullptr;
    return host;
  }
};

}  // namespace receiver
