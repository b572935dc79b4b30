#pragma once

#include <atomic>

namespace adapter {

/// A plain variable that more than one thread reaches: the adapter's pointers are set while the
/// channels already serve clients, and its sizes come on threads of the middleware.
template <class Value>
Value load(Value& variable) {
  return std::atomic_ref<Value>(variable).load();
}

template <class Value>
void store(Value& variable, Value value) {
  std::atomic_ref<Value>(variable).store(value);
}

}  // namespace adapter
