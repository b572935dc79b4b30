#pragma once

#include <chrono>

/// How long a test waits for what must come. It ends the wait for what never comes; what is only
/// late, on a machine that is busy or emulated, comes long before.
constexpr std::chrono::seconds patience{300};
