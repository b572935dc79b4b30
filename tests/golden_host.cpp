// The library in a process of its own, with the listeners of the golden files: the other side for
// clients of another width. Says "serving" and the size of its pointers; obeys lines on its
// standard input: "calls" prints what the listeners were called with since the last time, "notify"
// sends one of each notification, "notify FILE" the one of a golden file, "section FILE" takes the
// section from a golden file. Says "waiting" when a question to the client waits for its answer,
// and "done" with the line that is done; ends with its input.

#include <future>
#include <iostream>
#include <string>

#include "protocol/IpcServerManager.h"
#include "support/ApplicationStateWait.h"
#include "support/DemuxRecorder.h"
#include "support/GoldenListener.h"
#include "support/GoldenNotification.h"

using quillwork::IpcServerManager;

namespace {

void printCalls(CallLog& log) {
  for (const std::string& call : log.take()) std::cout << call << '\n';
}

void notifyOfEverything(IpcServerManager& manager) {
  manager.endOfMedia(7);
  manager.changeGraphicsSettings({1, 2, 3, 4}, {5, 6, 7, -8});
  manager.downloadComplete("first", "second");
  manager.sendDsmCCCommand({9, 2.5, 200, "short"});
  manager.sendDsmCCCommand({10, -0.5, 1, std::string(5000, 't')});
  manager.setApplicationState(quillwork::state{3});
}

void notifyAndTell(IpcServerManager& manager, const Golden::Call& call) {
  auto result = std::async(std::launch::async, [&] { return notify(manager, call); });
  if (call.operation == "setApplicationState") {
    awaitApplicationStateWait();
    std::cout << "waiting" << std::endl;
  }
  std::cout << "result " << result.get() << '\n';
}

void takeSection(DemuxRecorder& recorder, const Golden& golden) {
  for (const Golden::Call& call : golden.calls) {
    if (call.operation != "read_section") continue;
    const std::string bytes = call.result("section").bytes();
    recorder.section = [bytes] { return DemuxRecorder::Bytes(bytes.begin(), bytes.end()); };
  }
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
      notifyOfEverything(*manager);
    } else if (line.starts_with("notify ")) {
      notifyAndTell(*manager, Golden::read(line.substr(7)).calls.front());
    } else if (line.starts_with("section ")) {
      takeSection(recorder, Golden::read(line.substr(8)));
    }
    std::cout << "done " << line << std::endl;
  }
  IpcServerManager::destroy();
}
