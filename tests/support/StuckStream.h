#pragma once

#include <cstdio>
#include <ostream>
#include <thread>

/// What a standard stream can be that takes no more for a time.
enum class Stuck { fullPipe, fullSocket, stoppedTerminal };
inline const char* nameOf(Stuck kind) {
  switch (kind) {
    case Stuck::fullPipe:
      return "AFullPipe";
    case Stuck::fullSocket:
      return "AFullSocket";
    case Stuck::stoppedTerminal:
      return "AStoppedTerminal";
  }
  return "";
}
inline void PrintTo(Stuck kind, std::ostream* out) { *out << nameOf(kind); }

/// A standard stream that takes nothing while it lives, or until it is released.
class StuckStream {
 public:
  StuckStream(std::FILE* stream, Stuck kind);
  ~StuckStream();
  StuckStream(const StuckStream&) = delete;
  StuckStream& operator=(const StuckStream&) = delete;

  /// From here on a thread reads what is written, and drops it.
  void release();
  /// The flags of its open file.
  [[nodiscard]] int flags() const;

 private:
  std::FILE* stream_;
  Stuck kind_;
  int original_;
  int reader_ = -1;
  std::thread drain_;
};
