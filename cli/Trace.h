#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "cli/ControlDecoder.h"
#include "cli/SectionDecoder.h"

namespace quillwork::cli {

/// Shows what client and library say to each other, one line a record: as it passes, when it stands
/// between them, or out of a recording. Any thread; one call at a time is served.
class Trace {
 public:
  enum class Channel : std::uint8_t { control, sectionFilter };

  /// With a recording in that file, unless it is empty. Throws Refusal when it cannot be written.
  Trace(bool json, const std::string& recording);
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// A client has connected: what it says is decoded from the beginning.
  void begin(Channel channel);
  void pass(Channel channel, Direction direction, std::string_view bytes);

  /// Takes the place of the library's sockets, so that the next client connects here, until SIGINT
  /// or SIGTERM; then puts them back. Throws Refusal when there are none.
  void stand();
  /// Shows a recording. Throws Refusal for what is none.
  void read(const std::string& path);

 private:
  struct Chunk;
  struct State;

  void show(const Chunk& chunk, std::string_view bytes);
  template <class Decoder>
  void decode(Decoder& decoder, const Chunk& chunk, std::string_view bytes);
  void print(const Chunk& chunk, const TraceLine& line) const;

  std::unique_ptr<State> state_;
};

}  // namespace quillwork::cli
