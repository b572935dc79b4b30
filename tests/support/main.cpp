#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "support/Leftovers.h"
#include "support/OwnSharedMemory.h"
#include "support/TestLimit.h"

namespace {

/// A test finds no file of the one before it, such as the socket of a receiver that was killed.
class EmptySharedMemory : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    using Listing = std::filesystem::directory_iterator;
    const std::vector<std::filesystem::path> files(Listing("/dev/shm"), Listing());
    for (const auto& file : files) std::filesystem::remove_all(file);
  }
};

}  // namespace

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  if (!testing::GTEST_FLAG(list_tests)) {
    if (takeOwnSharedMemory()) {
      // GoogleTest deletes it.
      testing::UnitTest::GetInstance()->listeners().Append(new EmptySharedMemory);
    }
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
