#pragma once

#include <fmt/format.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>

namespace quillwork::cli {

/// Says something in one line on the standard error stream. Where that cannot be written, nothing
/// else fails.
template <class... Parts>
void say(fmt::format_string<Parts...> format, Parts&&... parts) {
  const std::string text = fmt::format(format, std::forward<Parts>(parts)...);
  static_cast<void>(std::fprintf(stderr, "quillwork-client: %s\n", text.c_str()));
}

/// What ends a program that has to leave something in order: SIGINT, SIGTERM, SIGHUP and SIGQUIT,
/// blocked in this thread and in those that it begins, which arrive in wait(), and faults of its
/// threads. A write to a closed pipe or beyond a file's limit fails, and ends nothing by itself.
class EndingSignals {
 public:
  EndingSignals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT}) sigaddset(&signals_, signal);
    // nohup has it ignored.
    struct sigaction hangUp {};
    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) sigaddset(&signals_, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }

  void wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
  }

  /// Runs a part of the program, on any thread: what it throws is said, the first time, and ends
  /// wait().
  template <class Part>
  void guard(Part part) noexcept {
    try {
      part();
    } catch (const std::exception& error) {
      if (hasFailed_.exchange(true)) return;
      static_cast<void>(std::fprintf(stderr, "quillwork-client: %s\n", error.what()));
      kill(getpid(), SIGTERM);
    }
  }

  [[nodiscard]] bool hasFailed() const { return hasFailed_; }
  /// Of the program, when it ends.
  [[nodiscard]] int exitStatus() const { return hasFailed_ ? EXIT_FAILURE : EXIT_SUCCESS; }

 private:
  sigset_t signals_{};
  std::atomic<bool> hasFailed_ = false;
};

}  // namespace quillwork::cli
