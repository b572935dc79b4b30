#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace receiver {

/// Seconds since 1970 as "2026-09-24T20:10:03", and "none" for nothing.
std::string timeText(std::optional<std::int64_t> time);

}  // namespace receiver
