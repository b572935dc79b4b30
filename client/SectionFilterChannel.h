#pragma once

#include "protocol/language.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "client/Channel.h"

namespace quillwork::client {

/// The section-filter channel: an operation for each request code of docs/protocol.md. What the
/// arguments select is the middleware's; docs/receiver.md says it for the reference receiver.
/// Operations throw Error when the receiver is gone or does not answer. One thread at a time.
class SectionFilterChannel {
 public:
  using Bytes = std::vector<std::uint8_t>;
  static constexpr const char* defaultPath = "/dev/shm/ipcdemux.socket";
  static constexpr std::chrono::milliseconds defaultTimeLimit{10'000};

  explicit SectionFilterChannel(const std::string& path = defaultPath,
                                std::chrono::milliseconds timeLimit = defaultTimeLimit)
      : channel_(path, timeLimit) {}

  void start();
  void stop();
  void set_pid(std::int32_t pid);
  void set_table_id(std::int32_t tableId);
  void set_positive_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);
  void set_greater_than_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);
  void set_less_than_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);
  void set_xor_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second,
                      const Bytes& third);
  /// The receiver's time limit for a section; read_section() has to be given as much.
  void set_time_out(std::int32_t timeOut);
  void clear_table_id();
  void clear_positive_filter();
  void clear_less_than_filter();
  void clear_xor_filter();
  /// The next section, or no bytes. `extra`: how much longer than for anything else to wait.
  Bytes read_section(std::chrono::milliseconds extra = {});

 private:
  void request(std::size_t code, std::initializer_list<std::int32_t> arguments = {},
               std::initializer_list<const Bytes*> vectors = {});

  Channel channel_;
};

}  // namespace quillwork::client
