#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "cli/Output.h"

namespace quillwork::cli {

enum class Direction : std::uint8_t { toLibrary, toClient };

/// A time of a trace, counted from the beginning of 1970, UTC.
using TraceTime = std::chrono::nanoseconds;

/// One record, request, answer or stretch of raw bytes of a trace, decoded, or a fault in it.
struct TraceLine {
  TraceTime time{};
  Direction direction = Direction::toLibrary;
  /// "request", "reply", "list", "element", "bytes" or "notification"; "dropped" for a request that
  /// the library drops, "unknown" for what it sends and nobody asked for, "incomplete",
  /// "unanswered", and "undecoded" for where the decoding has ended.
  std::string kind;
  /// The operation, as the client library names it.
  std::string operation;
  /// The fields that the protocol names for it.
  Json fields = Json::object();
  /// The request's number on its connection, from 1 on, in its own line and in those of its reply;
  /// 0 elsewhere.
  std::size_t request = 0;
  /// How long after its request the reply began.
  std::optional<std::chrono::nanoseconds> after;
  /// What has passed, as it was.
  std::string bytes;
};

}  // namespace quillwork::cli
