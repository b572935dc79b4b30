#pragma once

#include <pthread.h>

#include <csignal>

namespace quillwork {

/// Creates a thread on which no signal handler of the host's ever runs. Returns 0 or an error
/// number.
inline int createAcceptThread(pthread_t& thread, void* (*body)(void*), void* argument) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&thread, nullptr, body, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

/// What an accept thread does first: it takes the name that a debugger shows, and is not cancelled
/// but where it allows it.
inline void beginAcceptThread(const char* name) {
  pthread_setname_np(pthread_self(), name);
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

}  // namespace quillwork
