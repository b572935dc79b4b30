// Bytes on the section-filter channel. What the listener is called with and what the client gets is
// compared with a reading of the same bytes from memory.

#include <string>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "fuzz/SectionFilterModel.h"
#include "fuzz/SmallMemory.h"
#include "ipc/IpcDemuxServer.h"
#include "support/OwnSharedMemory.h"

namespace {

using namespace section_filter_model;

constexpr const char* path = "/dev/shm/ipcdemux.socket";

// A vector doubles what it holds, or takes what is missing.
constexpr VectorSizes sizes{largestAllocation / 4, largestAllocation};

quillwork::IpcDemuxServer& server() {
  static quillwork::IpcDemuxServer instance;
  return instance;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  takeOwnSharedMemory();
  server().start();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Answers answers;
  answers.sectionSize = input.take<std::uint16_t>() % 33;
  if (input.takeBoolean()) answers.faultyCall = input.takeBelow(32);
  // Each client begins with an unknown code: an incomplete one keeps what the code before it was,
  // which would be that of another input.
  const std::string bytes = std::string(4, '\xff').append(input.takeRest());
  const Model model(bytes, answers, sizes);

  Listener listener(answers);
  server().setListener(&listener);
  const std::string received = converse(path, bytes);
  quillwork::IpcDemuxServer::releaseListener(&listener);
  if (model.isUndecided) return 0;
  if (listener.log.calls() != model.log.calls()) fail("the listener was called otherwise");
  if (received != model.sent) fail("the client was answered otherwise");
  return 0;
}
