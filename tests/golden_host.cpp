// The library in a process of its own, with the listeners of the golden files: the other side for
// clients of another width. Says "serving" and the size of its pointers; obeys lines on its
// standard input: "calls" prints what the listeners were called with since the last time, "notify"
// sends one of each notification; ends with its input.

#include <iostream>
#include <string>

#include "protocol/IpcServerManager.h"
#include "support/DemuxRecorder.h"
#include "support/GoldenListener.h"

using quillwork::IpcServerManager;

namespace {

void printCalls(CallLog& log) {
  for (const std::string& call : log.take()) std::cout << call << '\n';
}

void notify(IpcServerManager& manager) {
  manager.endOfMedia(7);
  manager.changeGraphicsSettings({1, 2, 3, 4}, {5, 6, 7, -8});
  manager.downloadComplete("first", "second");
  manager.sendDsmCCCommand({9, 2.5, 200, "short"});
  manager.sendDsmCCCommand({10, -0.5, 1, std::string(5000, 't')});
  manager.setApplicationState(quillwork::state{3});
}

}  // namespace

int main() {
  CallLog log;
  RecordingListener listener(log);
  giveGoldenAnswers(listener);
  DemuxRecorder recorder;
  recorder.section = [] { return DemuxRecorder::Bytes(4096, 's'); };
  IpcServerManager* const manager = IpcServerManager::getInstance();
  manager->addIpcServerListener(&listener);
  manager->addIpcDemuxServerListener(&recorder);
  std::cout << "serving " << sizeof(void*) << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "calls") {
      printCalls(log);
      printCalls(recorder.log);
    } else if (line == "notify") {
      notify(*manager);
    }
    std::cout << "done " << line << std::endl;
  }
  IpcServerManager::destroy();
}
