#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "bench/Shape.h"

class MiddlewareIpc;

namespace bench {

/// The library in this process, on facades that answer from prepared lists without a word. One at a
/// time.
class Host {
 public:
  /// Starts the library, which serves both channels from here on.
  explicit Host(const Shape& shape);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// Makes the lists of so many answers, so that the facades have nothing to do then: their work is
  /// the middleware's. Not while a request is under way.
  static void prepare(std::size_t answers = 1);
  /// Notifies the client of the end of a player's media, as the video facade would. Not at a
  /// manager without an adapter.
  void notify(int player) const;
  /// Called on the control channel's thread while it asks for the current service, and on the
  /// section filter's thread while it reads a section. Null for nothing.
  static std::function<void()> onCall;

 private:
  struct Listeners;
  MiddlewareIpc* adapter_ = nullptr;
  std::unique_ptr<Listeners> listeners_;
};

}  // namespace bench
