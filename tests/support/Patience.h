#pragma once

#include <chrono>
#include <string>

/// How long a test waits for what must come. It ends the wait for what never comes; what is only
/// late, on a machine that is busy or emulated, comes long before.
constexpr std::chrono::seconds patience{300};

/// The same in milliseconds, as the command line takes it: its own limit is too short for a
/// receiver that has to wait for the processor.
inline const std::string patiently = std::to_string(std::chrono::milliseconds(patience).count());
