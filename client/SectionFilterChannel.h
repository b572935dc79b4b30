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
/// arguments select is the middleware's own affair; said is what the reference receiver does. What
/// has been set may outlive this client. A vector of more than 16 MiB ends the connection.
///
/// Operations throw Error when the receiver is gone, does not take the request in time, or does not
/// answer in time; afterwards the channel is out of step and has to be made anew. Only
/// read_section() has a reply: the others block only while the receiver reads nothing, as it does
/// while a section is being read. Vectors are borrowed during the call. One thread at a time.
class SectionFilterChannel {
 public:
  /// Bytes of a pattern or a section.
  using Bytes = std::vector<std::uint8_t>;

  /// Where the library's section-filter channel is.
  static constexpr const char* defaultPath = "/dev/shm/ipcdemux.socket";

  /// For an operation as a whole.
  static constexpr std::chrono::milliseconds defaultTimeLimit{10'000};

  /// Connects to the socket at `path`; throws Error if nobody serves it. `timeLimit` is for each
  /// operation as a whole. The receiver serves one client at a time: the first read_section() of a
  /// second one waits until the first has gone.
  explicit SectionFilterChannel(const std::string& path = defaultPath,
                                std::chrono::milliseconds timeLimit = defaultTimeLimit)
      : channel_(path, timeLimit) {}

  /// Starts the filter with what has been set. Request: section filter 0.
  void start();

  /// Stops the filter. The reference receiver then answers read_section() with no bytes, at once.
  /// Request: section filter 1.
  void stop();

  /// Selects the packets to read by their packet identifier, 0 to 8191 on air. Request: section
  /// filter 2.
  void set_pid(std::int32_t pid);

  /// Selects a table id, 0 to 255 on air. Request: section filter 3.
  void set_table_id(std::int32_t tableId);

  /// Sets the pattern that a section must have. In the reference receiver `filterArg` is the offset
  /// in the section, in bytes, at which the pattern begins, `first` the value and `second` the
  /// mask. Request: section filter 4.
  void set_positive_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);

  /// Sets the pattern that a section must be greater than, in the reference receiver where the
  /// masked bytes are read as one number. The arguments are those of set_positive_filter(). Nothing
  /// clears it. Request: section filter 5.
  void set_greater_than_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);

  /// Sets the pattern that a section must be less than, in the reference receiver where the masked
  /// bytes are read as one number. The arguments are those of set_positive_filter(). Request:
  /// section filter 6.
  void set_less_than_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second);

  /// Sets the pattern of which a section must have one part and must not have another. In the
  /// reference receiver `first` is the value, `second` the mask, and `third` the bits of which at
  /// least one must differ. Request: section filter 7.
  void set_xor_filter(std::int32_t filterArg, const Bytes& first, const Bytes& second,
                      const Bytes& third);

  /// Sets how long the receiver waits for a section, in the reference receiver in milliseconds:
  /// 10,000 at first, 0 for not at all and a negative number for ever. read_section() has to be
  /// given as much. Request: section filter 8.
  void set_time_out(std::int32_t timeOut);

  /// Takes back set_table_id(). Request: section filter 9.
  void clear_table_id();

  /// Takes back set_positive_filter(). Request: section filter 10.
  void clear_positive_filter();

  /// Takes back set_less_than_filter(). Request: section filter 11.
  void clear_less_than_filter();

  /// Takes back set_xor_filter(). Request: section filter 12.
  void clear_xor_filter();

  /// The next section, whole, from its table id to its last byte, or no bytes if none came in the
  /// receiver's time. Blocks until it answers; `extra` is how much longer than for another
  /// operation to wait. Throws Error for more than 1 MiB. Request: section filter 13.
  Bytes read_section(std::chrono::milliseconds extra = {});

 private:
  void send(std::size_t code, std::initializer_list<std::int32_t> arguments,
            std::initializer_list<const Bytes*> vectors);
  void request(std::size_t code, std::initializer_list<std::int32_t> arguments = {},
               std::initializer_list<const Bytes*> vectors = {});

  Channel channel_;
};

}  // namespace quillwork::client
