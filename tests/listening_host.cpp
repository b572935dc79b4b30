// A host that listens: it derives from every interface of the library that a host may derive from,
// and owns the adapter. scripts/check-headers compiles it with the warnings that a host may have.

#include <adapter/AdapterOwner.h>
#include <adapter/MiddlewareIpc.h>
#include <facade/CarouselListener.h>
#include <facade/DsmCCCommandListener.h>
#include <facade/GraphicsSettingsListener.h>
#include <facade/MediaListener.h>
#include <protocol/ConnectionListener.h>
#include <protocol/IpcServerManager.h>

#include <iostream>
#include <memory>
#include <string>

namespace {

class Client final : public quillwork::ConnectionListener {
 public:
  void clientConnected() override { std::cout << "connected\n"; }
  void clientDisconnected() override { std::cout << "gone\n"; }
};

class Listeners final : public middlewarefacade::CarouselListener,
                        public middlewarefacade::DsmCCCommandListener,
                        public middlewarefacade::GraphicsSettingsListener,
                        public middlewarefacade::MediaListener {
 public:
  void downloadComplete(std::string) override {}
  void downloadComplete(std::string, std::string) override {}
  void commandReceived(const ipcutil::DsmCCCommand_t&) override {}
  void graphicsSettingsChanged(ipcutil::Rectangle_t, ipcutil::Rectangle_t) override {}
  void endOfMedia(int) override {}
};

}  // namespace

int main() {
  const quillwork::AdapterOwner adapter(MiddlewareIpc::getInstance());
  quillwork::IpcServerManager* const manager = quillwork::IpcServerManager::getInstance();
  const auto client = std::make_unique<Client>();
  const auto listeners = std::make_unique<Listeners>();
  listeners->endOfMedia(0);
  manager->addConnectionListener(client.get());
  std::cin.get();
  manager->removeConnectionListener(client.get());
}
