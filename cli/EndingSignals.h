#pragma once

#include <pthread.h>

#include <csignal>

namespace quillwork::cli {

/// SIGINT and SIGTERM, blocked in this thread and in those that it begins: they arrive in wait().
class EndingSignals {
 public:
  EndingSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  }

  void wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
  }

 private:
  sigset_t signals_{};
};

}  // namespace quillwork::cli
