#include "support/GoldenNotification.h"

#include <stdexcept>

namespace {

ipcutil::Rectangle_t rectangle(const Golden::Call& call, const std::string& name) {
  const auto side = [&](const char* const which) { return call.argument(name + which).integer(); };
  return {side(".x"), side(".y"), side(".width"), side(".height")};
}

}  // namespace

bool notify(quillwork::IpcServerManager& manager, const Golden::Call& call) {
  const auto integer = [&](const char* const name) { return call.argument(name).integer(); };
  const auto bytes = [&](const char* const name) { return call.argument(name).bytes(); };
  if (call.operation == "endOfMedia") return manager.endOfMedia(integer("player"));
  if (call.operation == "changeGraphicsSettings") {
    return manager.changeGraphicsSettings(rectangle(call, "first"), rectangle(call, "second"));
  }
  if (call.operation == "downloadComplete") {
    return manager.downloadComplete(bytes("first"), bytes("second"));
  }
  if (call.operation == "sendDsmCCCommand") {
    return manager.sendDsmCCCommand({integer("code"), call.argument("time").real(),
                                     static_cast<std::uint8_t>(integer("flag")), bytes("text")});
  }
  if (call.operation == "setApplicationState") {
    return manager.setApplicationState(quillwork::state{integer("state")});
  }
  throw std::runtime_error("no notification: " + call.operation);
}
