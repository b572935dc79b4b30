#pragma once

#include <cstdint>
#include <string>

#include "cli/Output.h"

namespace quillwork::cli {

enum class Direction : std::uint8_t { toLibrary, toClient };

/// One record, request, answer or stretch of raw bytes of a trace, decoded.
struct TraceLine {
  Direction direction = Direction::toLibrary;
  /// "request", "reply", "list", "element", "bytes" or "notification"; "unknown" for what fits
  /// nothing.
  std::string kind;
  /// The operation, as the client library names it.
  std::string operation;
  /// The fields that the protocol names for it.
  Json fields = Json::object();
};

}  // namespace quillwork::cli
