#pragma once

#include <chrono>

namespace bench {

/// Waits until the machine's processors have nothing else to do. Takes the time from `left`, and
/// returns false when that is used up.
bool awaitQuiet(std::chrono::milliseconds& left);

}  // namespace bench
