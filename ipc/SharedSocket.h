#pragma once

#include "ipc/Descriptor.h"
#include "ipc/Mutex.h"

namespace quillwork {

/// A socket whose number also stands in a variable that all servers of a class share. Any thread
/// may call any operation; none blocks. It stands in static storage and closes nothing when the
/// process exits: the accept threads may live for as long as that takes.
class SharedSocket {
 public:
  /// Owns nothing yet. `shared` is the variable, -1 for no socket.
  constexpr explicit SharedSocket(int& shared) : shared_(shared) {}
  SharedSocket(const SharedSocket&) = delete;
  SharedSocket& operator=(const SharedSocket&) = delete;

  /// Takes the socket over, closes the one before it, and puts its number into the shared variable.
  void own(Descriptor socket);

  /// The socket's number, or -1.
  [[nodiscard]] int number() const;

  /// Shuts both directions down: threads that wait on the socket wake, in both processes.
  void shutDown();

  /// Takes the number out of the shared variable, unless another server has put its own there, and
  /// shuts the socket down and closes it. The peer sees the end also while a child of the host's
  /// process holds a copy. Does nothing the second time.
  void close();

 private:
  void end() QUILLWORK_REQUIRES(mutex_);

  // Held while the socket is shut down or closed: its number cannot pass to another file in
  // between.
  mutable Mutex mutex_;
  int& shared_;
  int own_ QUILLWORK_GUARDED_BY(mutex_) = -1;
};

}  // namespace quillwork
