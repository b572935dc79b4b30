#include "support/Watchdog.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "support/Stacks.h"

namespace {

// One step of the limit is as much waiting as work. Where the processors are taken away the work
// lasts longer, here and in what is watched, and with it the limit.
constexpr std::chrono::milliseconds half{2};
constexpr std::chrono::milliseconds step = 2 * half;

std::chrono::nanoseconds timeAtWork() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void work() {
  const auto end = timeAtWork() + half;
  while (timeAtWork() < end) {
  }
}

}  // namespace

Watchdog::Watchdog(std::chrono::milliseconds limit)
    : thread_([this, limit] {
        for (auto left = limit; left.count() > 0; left -= step) {
          if (endsWithin(half)) return;
          work();
        }
        if (endsWithin({})) return;
        std::fprintf(stderr, "not done after %lld ms\n", static_cast<long long>(limit.count()));
        printStacks();
        std::abort();
      }) {}

bool Watchdog::endsWithin(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return ended_.wait_for(lock, time, [this] { return hasEnded_; });
}

Watchdog::~Watchdog() {
  {
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
  }
  ended_.notify_one();
  thread_.join();
}
