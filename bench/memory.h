#pragma once

#include <vector>

#include "bench/Measurement.h"

namespace bench {

/// What a process has more of in memory while the adapter lives, and how much of their stacks its
/// threads have used after every kind of request.
std::vector<Size> measureMemory();

}  // namespace bench
