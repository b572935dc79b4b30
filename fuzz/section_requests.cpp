// Bytes for the decoder of section-filter requests alone, without a socket or a thread. What the
// listener is called with is compared with another reading of the same bytes.

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "fuzz/SectionFilterModel.h"
#include "ipc/SectionRequest.h"

namespace {

using namespace section_filter_model;
using quillwork::SectionRequest;

constexpr std::size_t maxVectorSize = 16 << 20;

class Memory : public quillwork::ByteSource {
 public:
  explicit Memory(std::string_view bytes) : rest_(bytes) {}
  std::size_t read(void* to, std::size_t size) override {
    const std::string_view part = rest_.substr(0, size);
    if (!part.empty()) std::memcpy(to, part.data(), part.size());
    rest_.remove_prefix(part.size());
    return part.size();
  }

 private:
  std::string_view rest_;
};

/// Performs one request after the other, as long as there are bytes and no call throws, and returns
/// what the client would get.
std::string performAll(std::string_view bytes, Listener& listener) {
  Memory source(bytes);
  std::string sent;
  std::int32_t code = 0;
  while (source.read(&code, sizeof code) > 0) {
    if (static_cast<std::uint32_t>(code) >= SectionRequest::codeCount) continue;
    const Bytes section = perform(readArguments(code, source), listener);
    if (code != SectionRequest::readSection) continue;
    const auto count = static_cast<std::int32_t>(section.size());
    sent.append(reinterpret_cast<const char*>(&count), sizeof count);
    sent.append(section.begin(), section.end());
  }
  return sent;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Answers answers;
  answers.sectionSize = input.take<std::uint16_t>() % 33;
  if (input.takeBoolean()) answers.faultyCall = input.takeBelow(32);
  const std::string bytes(input.takeRest());
  const Model model(bytes, answers, {maxVectorSize, maxVectorSize});

  Listener listener(answers);
  bool hasThrown = false;
  try {
    if (performAll(bytes, listener) != model.sent) fail("the client was answered otherwise");
  } catch (const std::exception&) {
    hasThrown = true;
  }
  if (listener.log.calls() != model.log.calls()) fail("the listener was called otherwise");
  if (hasThrown != model.hasEnded()) fail("an exception came where none was due, or none came");
  return 0;
}
