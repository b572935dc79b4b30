#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Recording.h"
#include "cli/TraceLine.h"

namespace quillwork::cli {

class ChannelTrace;

/// Shows what client and library say to each other, one line a record, and what is wrong with it:
/// as it passes, when it stands between them, or out of a recording. Any thread; one call at a time
/// is served.
class Trace {
 public:
  /// With a recording in that file, unless it is empty. Throws Refusal when it cannot be written.
  Trace(bool json, const std::string& recording);
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  /// Takes the place of the library's sockets, so that the next client connects here, until one of
  /// the EndingSignals, or until the output cannot be written; then puts them back and ends the
  /// process. Throws Refusal when there are none.
  void stand();
  /// Shows a recording. Throws Refusal for what is none, and when the output cannot be written.
  void read(const std::string& path);

 private:
  struct State;

  /// Something has happened now.
  void note(TraceChannel channel, TraceEvent event, std::string_view bytes = {});
  void noteLocked(TraceChannel channel, TraceEvent event, std::string_view bytes);
  void show(const TraceChunk& chunk, std::string_view bytes);
  void serve(TraceChannel channel, int listening, const std::string& path);
  void pass(TraceChannel channel, int client, int library);
  void endConnections();
  /// Says what has stalled, for as long as the process lives or until it has failed.
  void watch();
  [[nodiscard]] ChannelTrace* nextToStall() const;
  void showStalled(TraceTime now);
  /// Throws Refusal when the output cannot be written.
  void print(TraceChannel channel, const std::vector<TraceLine>& lines) const;

  std::unique_ptr<State> state_;
};

}  // namespace quillwork::cli
