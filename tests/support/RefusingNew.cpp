#include "support/RefusingNew.h"

#include <cstdlib>
#include <new>

// Not inlined: the compiler would see memory that new has given passed to free().
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = isRefused() ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return isRefused() ? nullptr : std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
