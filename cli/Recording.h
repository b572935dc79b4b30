#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

namespace quillwork::cli {

enum class TraceChannel : std::uint8_t { control, sectionFilter };

/// What a chunk of a recording is: bytes of one direction, or an event without bytes.
enum class TraceEvent : std::uint8_t {
  toLibrary,
  toClient,
  connected,
  endedByClient,   ///< the client has sent everything
  endedByLibrary,  ///< likewise the library
  endedByTrace,    ///< what comes then is not recorded any more
};

/// How a recording holds a chunk, little-endian; its bytes follow.
struct TraceChunk {
  std::int64_t time;  ///< nanoseconds since the beginning of 1970, UTC; not after 2200
  TraceChannel channel;
  TraceEvent event;
  std::uint16_t reserved;
  std::uint32_t size;
};
static_assert(sizeof(TraceChunk) == 16);

/// A file that keeps what passes.
class Recording {
 public:
  /// Begins the file. Throws Refusal when it cannot be written.
  explicit Recording(std::string path);

  /// What can no longer be written is said once on the standard error stream.
  void write(const TraceChunk& chunk, std::string_view bytes);

  using Take = std::function<void(const TraceChunk& chunk, std::string_view bytes)>;
  /// Gives each chunk of a recording. Throws Refusal for what is none.
  static void read(const std::string& path, const Take& take);

 private:
  std::string path_;
  std::ofstream file_;
};

}  // namespace quillwork::cli
