#pragma once

#include <mutex>

namespace receiver {

/// A facade's place for the listener that the library registers. It outlives the facade, which the
/// library deletes.
template <class Listener>
class ListenerSlot {
 public:
  /// Waits for a call into the listener before it, which ends when the library shuts down, whatever
  /// the client does.
  void set(Listener* listener) {
    const std::lock_guard lock(mutex_);
    listener_ = listener;
  }
  /// Calls the listener, if there is one; it is not removed before the call has come back.
  template <class Call>
  void notify(Call&& call) {
    const std::lock_guard lock(mutex_);
    if (listener_ != nullptr) call(*listener_);
  }

 private:
  std::mutex mutex_;
  Listener* listener_ = nullptr;
};

}  // namespace receiver
