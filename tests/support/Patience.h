#pragma once

#include <chrono>
#include <string>

/// How long a test waits for an event that must come. It only ends the wait for an event that never
/// comes: on a machine that is busy or emulated, a late one still comes long before.
constexpr std::chrono::seconds patience{300};

/// The same in milliseconds, as the command line takes it: its own limit is too short for a
/// receiver that has to wait for the processor.
inline const std::string patiently = std::to_string(std::chrono::milliseconds(patience).count());
