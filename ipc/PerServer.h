#pragma once

#include <atomic>
#include <new>
#include <type_traits>

namespace quillwork {

/// State of one server that cannot stand in the server's object, whose size is fixed. An entry is
/// never freed and serves the next server when its own has released it, so any thread may look for
/// its server's entry without a lock. The first entry needs no memory.
template <class State>
class PerServer {
 public:
  constexpr PerServer() = default;
  PerServer(const PerServer&) = delete;
  PerServer& operator=(const PerServer&) = delete;

  /// The server's state, or null.
  State* find(const void* server) {
    for (Entry* entry = &first_; entry != nullptr; entry = entry->next.load()) {
      if (entry->owner.load() == server) return &entry->state;
    }
    return nullptr;
  }

  /// The server's state, which another server may have used before; null when memory has run out.
  State* claim(const void* server) {
    if (State* const own = find(server)) return own;
    for (Entry* entry = &first_; entry != nullptr; entry = entry->next.load()) {
      const void* nobody = nullptr;
      if (entry->owner.compare_exchange_strong(nobody, server)) return &entry->state;
    }
    auto* const entry = new (std::nothrow) Entry;
    if (entry == nullptr) return nullptr;
    entry->owner.store(server);
    Entry* next = first_.next.load();
    do {
      entry->next.store(next);
    } while (!first_.next.compare_exchange_weak(next, entry));
    return &entry->state;
  }

  /// Leaves the server's state for another one.
  void release(const void* server) { replaceOwner(server, nullptr); }

  /// The server's state stays in use without a server, for good.
  void orphan(const void* server) { replaceOwner(server, this); }

  class Iterator;
  /// All states, also those without a server at the moment.
  Iterator begin() { return Iterator(&first_); }
  Iterator end() { return Iterator(nullptr); }

 private:
  struct Entry {
    State state{};
    std::atomic<const void*> owner{nullptr};
    std::atomic<Entry*> next{nullptr};
  };

  friend class Iterator;

  void replaceOwner(const void* server, const void* owner) {
    for (Entry* entry = &first_; entry != nullptr; entry = entry->next.load()) {
      const void* expected = server;
      if (entry->owner.compare_exchange_strong(expected, owner)) return;
    }
  }

  // The accept threads use it while the process exits, and behind that.
  static_assert(std::is_trivially_destructible_v<State>);

  Entry first_;
};

template <class State>
class PerServer<State>::Iterator {
 public:
  explicit Iterator(Entry* entry) : entry_(entry) {}
  State& operator*() const { return entry_->state; }
  Iterator& operator++() {
    entry_ = entry_->next.load();
    return *this;
  }
  bool operator!=(const Iterator& other) const { return entry_ != other.entry_; }

 private:
  Entry* entry_;
};

}  // namespace quillwork
