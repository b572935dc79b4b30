#include "ipc/HostCall.h"

#include <cstdio>

#include "ipc/Report.h"

namespace quillwork {

void reportException(const char* consequence, const std::exception* exception) {
  const char* const text = exception != nullptr ? exception->what() : nullptr;
  if (text != nullptr) {
    printLine(stderr, {consequence, ": ", text});
  } else {
    printLine(stderr, {consequence, " of an unknown type"});
  }
}

}  // namespace quillwork
