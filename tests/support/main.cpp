#include <gtest/gtest.h>

#include "support/Leftovers.h"
#include "support/OwnSharedMemory.h"
#include "support/TestLimit.h"

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  if (!testing::GTEST_FLAG(list_tests)) {
    takeOwnSharedMemory();
    limitTests();
    watchForLeftovers();
  }
  return RUN_ALL_TESTS();
}

// What the sanitizers' runtimes ask a program for when it starts.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the runtimes'.
extern "C" {

// A cancelled thread unwinds without telling AddressSanitizer, whose own clean-up then takes the
// stack that it uses itself for somebody else's.
__attribute__((visibility("default"))) const char* __asan_default_options() {
  return "use_sigaltstack=0";
}

__attribute__((visibility("default"))) const char* __asan_default_suppressions() {
  return "interceptor_name:sigaltstack\n";
}

// The adapter's constructor initialises the instance mutex while getInstance() holds it.
__attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "mutex:MiddlewareIpc::getInstance\nmutex:MiddlewareIpc::MiddlewareIpc\n";
}

__attribute__((visibility("default"))) const char* __tsan_default_options() {
  // By default every process waits a second for late reports.
  return "atexit_sleep_ms=0";
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
