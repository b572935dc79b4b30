#pragma once

#include <cstddef>

/// In a program that links SmallMemory.cpp, `new` throws std::bad_alloc for more bytes than this at
/// once on every thread but the first: an exhausted memory without exhausting the machine's, also
/// under a sanitizer, whose own operator ends the program instead.
inline constexpr std::size_t largestAllocation = std::size_t{1} << 20U;
