#pragma once

#include <cstdint>

#include "bench/Shape.h"

namespace bench {

/// The floor under the library: bare loops on the two sockets, which make the same calls with the
/// same sizes as the library and nothing else. Both serve one client after another and never
/// return. `client` holds the descriptor of who is connected.
[[noreturn]] void serveControl(int listening, const Shape& shape, int& client);
[[noreturn]] void serveSections(int listening, const Shape& shape);

/// One notification.
void sendEndOfMedia(int client, std::int32_t player);

/// A listening socket at a path, as bare as the rest.
int listenAt(const char* path);

}  // namespace bench
