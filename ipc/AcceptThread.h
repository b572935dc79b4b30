#pragma once

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>

#include "ipc/Cancellation.h"

/// What the two socket servers' setting-up and accept threads have in common.
namespace quillwork {

/// Creates, binds and listens on a Unix-domain stream socket, with a backlog of one client. A file
/// at the path is removed first. Prints what failed.
///
/// `path` may be null: the name was refused. Returns whether the socket listens; `listenSocket`
/// holds the descriptor, -1 if there is none.
inline bool openListeningSocket(int& listenSocket, const char* path, int pathLength) {
  listenSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listenSocket < 0) {
    std::perror("Can't create socket");
    return false;
  }
  if (path == nullptr) {
    std::perror("Invalid file name or file name is too big");
    return false;
  }
  unlink(path);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, static_cast<std::size_t>(pathLength));
  const std::size_t size = std::strlen(address.sun_path) + sizeof address.sun_family;
  if (bind(listenSocket, reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(size)) == -1) {
    std::perror("Can't bind filename");
    return false;
  }
  if (listen(listenSocket, 1) != 0) {
    std::perror("Can't listen socket");
    return false;
  }
  return true;
}

/// Waits for a client, as a cancellation point where the calling thread allows it. Prints a failure
/// and returns -1.
inline int acceptClient(int listenSocket) {
  for (;;) {
    // A cancellation can strike accept() when it has already taken the client's connection, which
    // nobody would close then. So the wait is poll()'s, and the accept is neither cancelled nor
    // blocked.
    pollfd waiting{listenSocket, POLLIN, 0};
    poll(&waiting, 1, -1);
    const CancellationScope scope(PTHREAD_CANCEL_DISABLE);
    const int client = accept4(listenSocket, nullptr, nullptr, SOCK_CLOEXEC);
    if (client != -1) return client;
    const bool shutDown = (waiting.revents & POLLHUP) != 0;
    if (errno == EAGAIN && !shutDown) continue;
    if (shutDown) errno = EINVAL;
    std::perror("Can't accept new connections");
    return -1;
  }
}

/// Creates a thread on which no signal handler of the host ever runs. Returns 0 or an error number.
inline int createAcceptThread(pthread_t& thread, void* (*body)(void*), void* argument) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&thread, nullptr, body, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

/// Inside a handler for everything: whether it has caught the unwinding of a cancelled thread,
/// which must go on. A cancellation has no exception object.
inline bool isCancellation() { return std::current_exception() == nullptr; }

/// Runs code of the host's. An exception that escapes it is printed as one line; returns whether
/// none did. The unwinding of a cancelled thread passes through.
template <class Call>
bool callHost(Call&& call) {
  try {
    call();
    return true;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "Client's connection ended by an exception: %s\n", error.what());
  } catch (...) {
    if (isCancellation()) throw;
    std::fputs("Client's connection ended by an exception of an unknown type\n", stderr);
  }
  return false;
}

}  // namespace quillwork
