#include "support/Watchdog.h"

#include <cstdio>
#include <cstdlib>

#include "support/Stacks.h"

namespace {

// One step of the limit. A machine that keeps this thread waiting keeps the others waiting, too:
// each step then lasts longer, and with it the limit.
constexpr std::chrono::milliseconds step{5};

}  // namespace

Watchdog::Watchdog(std::chrono::milliseconds limit)
    : thread_([this, limit] {
        std::unique_lock lock(mutex_);
        for (auto left = limit; left.count() > 0; left -= step) {
          if (ended_.wait_for(lock, step, [this] { return hasEnded_; })) return;
        }
        std::fprintf(stderr, "not done after %lld ms\n", static_cast<long long>(limit.count()));
        printStacks();
        std::abort();
      }) {}

Watchdog::~Watchdog() {
  {
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
  }
  ended_.notify_one();
  thread_.join();
}
