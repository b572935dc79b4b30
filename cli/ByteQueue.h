#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillwork::cli {

/// Bytes that arrive in pieces and are taken in items. Each byte is copied a constant number of
/// times, however small the pieces are and however many items wait.
class ByteQueue {
 public:
  void append(std::string_view bytes) {
    // What was taken is dropped once it is the larger half: a byte moves at most as often as one is
    // taken.
    if (begin_ > size()) dropTaken();
    bytes_ += bytes;
    touched_ += bytes.size();
  }

  /// The first bytes, of which there must be so many. They are valid until the next append().
  std::string_view take(std::size_t size) {
    const std::string_view item = std::string_view(bytes_).substr(begin_, size);
    begin_ += size;
    touched_ += size;
    return item;
  }

  [[nodiscard]] std::size_t size() const { return bytes_.size() - begin_; }
  /// How many bytes were copied or given away so far: what the queue has cost.
  [[nodiscard]] std::size_t touched() const { return touched_; }

 private:
  void dropTaken() {
    touched_ += size();
    bytes_.erase(0, begin_);
    begin_ = 0;
  }

  std::string bytes_;
  std::size_t begin_ = 0;
  std::size_t touched_ = 0;
};

}  // namespace quillwork::cli
