#pragma once

#include <chrono>
#include <cstdint>

#include "bench/Server.h"

namespace bench {

/// Microseconds that an operation takes.
template <class Operation>
double timed(Operation operation) {
  const auto begin = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
      .count();
}

/// Microseconds since another process's stamp().
inline double since(std::int32_t sent) { return ((stamp() - sent) & 0x7fffffff) / 1000.0; }

}  // namespace bench
