#pragma once

#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "facade/CarouselListener.h"
#include "facade/DsmCCCommandListener.h"
#include "facade/GraphicsSettingsListener.h"
#include "facade/MediaListener.h"
#include "facade/records.h"
#include "support/CallLog.h"

/// The host process of the tests: facades that write down their calls and answer from these tables.
/// There is one; a new one forgets what the one before it held.
class FakeHost {
 public:
  FakeHost();
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  static FakeHost& current();

  CallLog log;
  /// The facades whose factories return null: "Video", "SI" and so on.
  std::set<std::string> missing;
  /// The facade whose factory throws.
  std::string throwing;

  std::map<std::string, int> numbers;
  std::map<std::string, std::string> texts;
  std::list<std::string> languages;
  std::list<middlewarefacade::Property_> properties;
  std::list<middlewarefacade::Service_> services;
  std::list<middlewarefacade::ServiceComponent_> components;
  std::list<middlewarefacade::ProgramMap_> programMaps;
  std::list<middlewarefacade::ProgramEvent_> events;
  std::list<middlewarefacade::Descriptors_> descriptors;
  middlewarefacade::Network_ network;
  middlewarefacade::TransportStream_ transportStream;
  std::list<int> identifiers;
  std::vector<unsigned char> section;
  /// Called at the beginning of each operation, with its name.
  std::function<void(const std::string& operation)> onCall;
  /// Called inside readSection().
  std::function<void()> onReadSection;
  /// Called while the video facade is being deleted.
  std::function<void()> onVideoDeletion;

  /// What the adapter has registered, null for nothing.
  middlewarefacade::GraphicsSettingsListener* graphicsListener = nullptr;
  middlewarefacade::DsmCCCommandListener* commandListener = nullptr;
  middlewarefacade::CarouselListener* carouselListener = nullptr;
  middlewarefacade::MediaListener* mediaListener = nullptr;

  int number(const std::string& operation);
  std::string text(const std::string& operation);
};
