#pragma once

#include <chrono>

/// Threads and open descriptors that were not there when the test began.
struct Leftovers {
  int descriptors = 0;
  int threads = 0;
};

/// Says what the running test leaves behind on purpose, exactly; several calls add up. A test that
/// leaves more or less than it has said fails.
void leavesBehind(Leftovers expected);

/// Says how long the running test's end may wait for what it leaves to become as expected: as long
/// as any test waits, unless it is known that nothing will change.
void awaitsLeftovers(std::chrono::milliseconds time);

/// What a manager leaves, and so does an adapter, which makes one: the section-filter server's
/// thread, which goes on without a listener, and the socket that it listens on. A receiver has one
/// adapter in its life.
constexpr Leftovers ofAManager{.descriptors = 1, .threads = 1};

/// From now on each test is compared with what was there when it began.
void watchForLeftovers();
