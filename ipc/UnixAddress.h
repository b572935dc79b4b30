#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string_view>

namespace quillwork {

/// The address of a Unix-domain socket. A path of more than 107 bytes is cut off.
inline sockaddr_un unixAddress(std::string_view path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

}  // namespace quillwork
