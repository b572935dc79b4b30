#pragma once

#include "ipc/Descriptor.h"

namespace quillwork {

/// A new Unix-domain stream socket that is bound and listens with a backlog of one client.
struct ListeningSocket {
  Descriptor socket;
  /// False when a step after the socket's creation failed: it is open and of no use.
  bool listens = false;
};

/// Makes the socket. A file at the path is removed first. Prints what failed. `path` may be null:
/// the name was refused.
ListeningSocket openListeningSocket(const char* path, int pathLength);

/// Blocks until a client connects, and returns its socket. The descriptor is -1, with errno set, if
/// accepting failed or the listening socket has been shut down.
Descriptor acceptClient(int listeningSocket);

}  // namespace quillwork
