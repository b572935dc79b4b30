#pragma once

#include <gtest/gtest.h>

/// The next death test runs in a process that is started anew, so that it has no thread and no
/// adapter of the tests before. An emulator starts no other program of its processor: there it is a
/// fork.
inline void startDeathTestAnew() {
  testing::GTEST_FLAG(death_test_style) = IS_EMULATED ? "fast" : "threadsafe";
}
