#include <gtest/gtest.h>
#include <unistd.h>

#include "support/OwnSharedMemory.h"

int main(int argumentCount, char** arguments) {
  testing::InitGoogleTest(&argumentCount, arguments);
  if (!testing::GTEST_FLAG(list_tests)) {
    takeOwnSharedMemory();
    // A test that hangs ends here, with a stack for the debugger.
    alarm(120);
  }
  return RUN_ALL_TESTS();
}
