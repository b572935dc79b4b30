// Tests that do what no test may. The tests of the runner run them, and look at what it says.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/Leftovers.h"

namespace {

constexpr std::chrono::milliseconds notLong(100);

void leakDescriptor() { ASSERT_NE(open("/dev/null", O_RDONLY | O_CLOEXEC), -1); }

void leakThread() {
  std::thread([] {
    pthread_setname_np(pthread_self(), "left-behind");
    for (;;) pause();
  }).detach();
}

TEST(Leaking, ADescriptor) {
  awaitsLeftovers(notLong);
  leakDescriptor();
}

TEST(Leaking, AThread) {
  awaitsLeftovers(notLong);
  leakThread();
}

TEST(Leaking, AsItHasSaid) {
  leavesBehind({.descriptors = 1, .threads = 1});
  leakDescriptor();
  leakThread();
}

TEST(Leaking, LessThanItHasSaid) {
  awaitsLeftovers(notLong);
  leavesBehind({.threads = 1});
}

TEST(Leaking, NothingInTheEnd) {
  const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
  std::thread([] {}).join();
  close(file);
}

TEST(Hanging, DISABLED_ForEver) {
  // The runner has set a limit. It is as good when it is a second.
  ASSERT_GT(alarm(1), 0U);
  for (;;) pause();
}

}  // namespace
