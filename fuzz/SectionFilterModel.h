#pragma once

// What a section-filter client's bytes mean, read from memory by code that shares nothing with the
// library's but the table of the requests.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/IpcDemuxServerListener.h"
#include "protocol/operations.h"
#include "support/CallLog.h"

namespace section_filter_model {

using quillwork::operations::SectionFilterRequest;
using quillwork::operations::sectionFilterRequests;

using Bytes = std::vector<unsigned char>;

/// A vector as its size and a sum over its bytes: some of them have a million.
inline std::string outline(const Bytes& bytes) {
  std::uint32_t sum = 0;
  for (const unsigned char byte : bytes) sum = sum * 31 + byte;
  return std::to_string(bytes.size()) + ":" + std::to_string(sum);
}

/// What the listener answers, by the number of the call.
struct Answers {
  std::size_t sectionSize = 0;
  std::size_t faultyCall = SIZE_MAX;

  [[nodiscard]] Bytes section() const { return Bytes(sectionSize, 's'); }
};

class Listener : public quillwork::IpcDemuxServerListener {
 public:
  explicit Listener(const Answers& answers) : answers_(answers) {}

  CallLog log;

  void start() override { call("start"); }
  void stop() override { call("stop"); }
  void set_pid(int pid) override { call("set_pid", pid); }
  void set_table_id(int tableId) override { call("set_table_id", tableId); }
  void set_positive_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    call("set_positive_filter", filterArg, outline(first), outline(second));
  }
  void set_greater_than_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    call("set_greater_than_filter", filterArg, outline(first), outline(second));
  }
  void set_less_than_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    call("set_less_than_filter", filterArg, outline(first), outline(second));
  }
  void set_xor_filter(int filterArg, const Bytes& first, const Bytes& second,
                      const Bytes& third) override {
    call("set_xor_filter", filterArg, outline(first), outline(second), outline(third));
  }
  void set_time_out(long timeOut) override { call("set_time_out", timeOut); }
  void clear_table_id() override { call("clear_table_id"); }
  void clear_positive_filter() override { call("clear_positive_filter"); }
  void clear_less_than_filter() override { call("clear_less_than_filter"); }
  void clear_xor_filter() override { call("clear_xor_filter"); }
  Bytes read_section() override {
    call("read_section");
    return answers_.section();
  }

 private:
  template <class... Arguments>
  void call(const char* operation, const Arguments&... arguments) {
    log.add(operation, arguments...);
    if (calls_++ == answers_.faultyCall) throw std::runtime_error("a listener's fault");
  }

  const Answers& answers_;
  std::size_t calls_ = 0;
};

/// Up to which size a vector is certainly taken, and beyond which it certainly ends the connection.
struct VectorSizes {
  std::size_t certain;
  std::size_t largest;
};

/// Reads the bytes as the channel's protocol has it, those that never come included.
class Model {
 public:
  Model(std::string_view bytes, const Answers& answers, const VectorSizes& sizes)
      : rest_(bytes), answers_(answers), sizes_(sizes) {
    while (!hasEnded_ && readCode()) serve();
  }

  /// Whether a call or a vector has ended the connection before the bytes were at their end.
  [[nodiscard]] bool hasEnded() const { return hasEnded_; }

  CallLog log;
  std::string sent;
  /// Whether a vector came so near to the memory's end that either may have happened.
  bool isUndecided = false;

 private:
  bool readCode() {
    // The rest of an incomplete code is what the one before it was.
    const std::size_t size = std::min(rest_.size(), sizeof code_);
    if (size == 0) return false;
    std::memcpy(&code_, rest_.data(), size);
    rest_.remove_prefix(size);
    return true;
  }

  std::int32_t integer(std::int32_t kept) {
    if (rest_.size() < sizeof kept) {
      rest_ = {};
      return kept;
    }
    std::memcpy(&kept, rest_.data(), sizeof kept);
    rest_.remove_prefix(sizeof kept);
    return kept;
  }

  std::string vector() {
    count_ = integer(count_);
    Bytes bytes;
    const auto count = static_cast<std::size_t>(std::max(count_, 0));
    const std::size_t present = std::min(count, rest_.size());
    bytes.assign(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(present));
    rest_.remove_prefix(present);
    if (present > 0) byte_ = bytes.back();
    if (count > sizes_.largest) {
      hasEnded_ = true;
    } else if (count > sizes_.certain) {
      isUndecided = true;
      hasEnded_ = true;
    } else {
      bytes.resize(count, byte_);
    }
    return outline(bytes);
  }

  void serve() {
    if (code_ < 0 || code_ >= static_cast<std::int32_t>(std::size(sectionFilterRequests))) return;
    const SectionFilterRequest& row = sectionFilterRequests[code_];
    count_ = 0;
    byte_ = 0;
    const std::int32_t number = hasNumber(row) ? integer(row.numberIfCut) : 0;
    std::vector<std::string> vectors;
    while (vectors.size() < row.vectors.size() && !hasEnded_) vectors.push_back(vector());
    if (hasEnded_) return;
    if (!hasNumber(row)) {
      call(row);
    } else if (vectors.empty()) {
      call(row, number);
    } else if (vectors.size() == 2) {
      call(row, number, vectors[0], vectors[1]);
    } else {
      call(row, number, vectors[0], vectors[1], vectors[2]);
    }
    if (row.isAnswered && !hasEnded_) sendSection();
  }

  void sendSection() {
    const Bytes section = answers_.section();
    const auto count = static_cast<std::int32_t>(section.size());
    sent.append(reinterpret_cast<const char*>(&count), sizeof count);
    sent.append(section.begin(), section.end());
  }

  template <class... Arguments>
  void call(const SectionFilterRequest& row, const Arguments&... arguments) {
    log.add(row.name, arguments...);
    hasEnded_ = calls_++ == answers_.faultyCall;
  }

  std::string_view rest_;
  const Answers& answers_;
  const VectorSizes sizes_;
  std::int32_t code_ = 0;
  std::int32_t count_ = 0;
  unsigned char byte_ = 0;
  std::size_t calls_ = 0;
  bool hasEnded_ = false;
};

}  // namespace section_filter_model
