#include "receiver/Time.h"

#include <fmt/format.h>

#include <chrono>

namespace receiver {

std::string timeText(std::optional<std::int64_t> time) {
  if (!time) return "none";
  // With std::chrono, for a time_t of 32 bits ends in 2038.
  const std::chrono::sys_seconds when{std::chrono::seconds(*time)};
  const auto day = std::chrono::floor<std::chrono::days>(when);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(when - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

}  // namespace receiver
