#include "bench/quiet.h"

#include <fstream>
#include <string>
#include <thread>

namespace bench {
namespace {

/// The processors' time since the start of the machine, in ticks, as of proc(5).
struct Ticks {
  long busy = 0;
  long all = 0;

  static Ticks now() {
    std::ifstream file("/proc/stat");
    std::string cpu;
    file >> cpu;
    Ticks ticks;
    long value = 0;
    // user, nice, system, idle, waiting for a disk, interrupts, soft interrupts, stolen.
    for (int column = 0; column < 8 && file >> value; ++column) {
      ticks.all += value;
      if (column != 3 && column != 4) ticks.busy += value;
    }
    return ticks;
  }
};

constexpr std::chrono::milliseconds look{200};
/// Of the processors' time.
constexpr double quietShare = 0.05;

bool isQuiet() {
  const Ticks before = Ticks::now();
  std::this_thread::sleep_for(look);
  const Ticks after = Ticks::now();
  return static_cast<double>(after.busy - before.busy) <=
         quietShare * static_cast<double>(after.all - before.all);
}

}  // namespace

bool awaitQuiet(std::chrono::milliseconds& left) {
  for (; left.count() > 0; left -= look) {
    if (isQuiet()) return true;
  }
  return false;
}

}  // namespace bench
