#include "ipc/HostCall.h"

#include <cstdio>

#include "ipc/Report.h"

namespace quillwork {

void reportException(const char* consequence, const std::exception* exception) {
  if (exception != nullptr) {
    printLine(stderr, {consequence, ": ", exception->what()});
  } else {
    printLine(stderr, {consequence, " of an unknown type"});
  }
}

}  // namespace quillwork
