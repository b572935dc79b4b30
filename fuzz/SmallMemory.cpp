#include "fuzz/SmallMemory.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  const bool isRefused = size > largestAllocation && syscall(SYS_gettid) != getpid();
  return isRefused ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* operator new(std::size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
