// Yields and sleeps at random where the library and its tests lock, send, receive, connect and
// close, so that threads meet in other places than they usually do. Linked with --wrap for each
// function below. QUILLWORK_SEED repeats the choices of a run, as far as the threads come in the
// same order; each process prints its own.

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>

namespace {

std::uint32_t seed() {
  static const std::uint32_t chosen = [] {
    const char* const wanted = std::getenv("QUILLWORK_SEED");
    const auto value = wanted != nullptr
                           ? static_cast<std::uint32_t>(std::strtoul(wanted, nullptr, 0))
                           : std::random_device()();
    std::fprintf(stderr, "QUILLWORK_SEED=%u\n", value);
    return value;
  }();
  return chosen;
}

/// A number of the calling thread's own sequence. A thread may be cancelled between any two.
std::uint32_t next() {
  static std::atomic<std::uint32_t> threads{0};
  static thread_local std::uint32_t state = seed() + 0x9e3779b9U * ++threads;
  state ^= state << 13U;
  state ^= state >> 17U;
  state ^= state << 5U;
  return state;
}

/// Mostly nothing; every eighth time the processor is given away, every sixty-fourth time for long
/// enough that everybody else comes to where they wait.
void perturb() {
  const std::uint32_t number = next();
  if (number % 64 == 0) {
    int before = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    const timespec moment{0, static_cast<long>(number % 200'000U)};
    nanosleep(&moment, nullptr);
    pthread_setcancelstate(before, nullptr);
  } else if (number % 8 == 0) {
    sched_yield();
  }
}

}  // namespace

// The linker's names for the functions that are wrapped.
// NOLINTBEGIN(bugprone-reserved-identifier)
#define PERTURBED(result, name, parameters, arguments) \
  extern "C" result __real_##name parameters;          \
  extern "C" result __wrap_##name parameters {         \
    perturb();                                         \
    return __real_##name arguments;                    \
  }

PERTURBED(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
PERTURBED(ssize_t, send, (int socket, const void* data, size_t size, int flags),
          (socket, data, size, flags))
PERTURBED(ssize_t, recv, (int socket, void* data, size_t size, int flags),
          (socket, data, size, flags))
PERTURBED(int, accept4, (int socket, sockaddr* address, socklen_t* size, int flags),
          (socket, address, size, flags))
PERTURBED(int, shutdown, (int socket, int direction), (socket, direction))
PERTURBED(int, close, (int number), (number))
// An unlock lets go first: the next owner comes before this thread goes on.
extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const int result = __real_pthread_mutex_unlock(mutex);
  perturb();
  return result;
}
// NOLINTEND(bugprone-reserved-identifier)
