#pragma once

#include <sys/resource.h>

#include <cstdlib>
#include <cstring>

/// Lowers a resource limit of the process for a scope.
class Limit {
 public:
  /// `resource` as of setrlimit().
  Limit(int resource, rlim_t most) : resource_(static_cast<decltype(RLIMIT_AS)>(resource)) {
    getrlimit(resource_, &before_);
    const rlimit limit{most, before_.rlim_max};
    setrlimit(resource_, &limit);
  }
  ~Limit() { setrlimit(resource_, &before_); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

 private:
  decltype(RLIMIT_AS) resource_;
  rlimit before_{};
};

/// Whether the address space may be taken away: a sanitizer, valgrind and an emulator need it.
inline bool canLimitMemory() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
  return false;
#else
  const char* const preloaded = std::getenv("LD_PRELOAD");
  return preloaded == nullptr || std::strstr(preloaded, "valgrind") == nullptr;
#endif
}
