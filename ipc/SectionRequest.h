#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "protocol/operations.h"

#include "ipc/IpcDemuxServerListener.h"

/// The section-filter channel's requests: how their arguments are read, and what each asks of the
/// listener. Knows no sockets. docs/protocol.md describes the bytes.
namespace quillwork {

/// Where the bytes of the requests come from.
class ByteSource {
 public:
  /// Puts the next `size` bytes into `to` and returns how many there were: fewer only at the end,
  /// after which there are no more. May block.
  virtual std::size_t read(void* to, std::size_t size) = 0;

 protected:
  ~ByteSource() = default;
};

/// One request with its arguments.
struct SectionRequest {
  using Bytes = std::vector<unsigned char>;

  /// The codes from 0 on are known that are below this.
  static constexpr std::uint32_t codeCount = std::size(operations::sectionFilterRequests);
  /// The one request that is answered.
  static constexpr auto readSection =
      static_cast<std::int32_t>(operations::sectionFilterRequest("read_section"));

  /// Below `codeCount`.
  std::int32_t code = 0;
  /// The PID, the table id, the time-out or the filters' first argument.
  std::int32_t number = 0;
  std::array<Bytes, 3> vectors;
};

/// Reads the arguments of the request with this code, which must be known. What the source has no
/// bytes for keeps the value that it had. Throws std::length_error for a vector of more than 16 MiB
/// and std::bad_alloc when memory runs out: the source is out of step then.
SectionRequest readArguments(std::int32_t code, ByteSource& source);

/// Calls the listener's operation. Returns the section for `readSection`, and no bytes for the
/// other requests.
SectionRequest::Bytes perform(const SectionRequest& request, IpcDemuxServerListener& listener);

}  // namespace quillwork
