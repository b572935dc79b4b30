#pragma once

#include "protocol/language.h"

#include <vector>

namespace quillwork {

/// Receives the requests of the section-filter channel, on that channel's accept thread, one at a
/// time. The position of an operation is its request code on the wire, so their order is an ABI and
/// a wire format. There is no operation that clears the greater-than filter. What the arguments
/// select is the middleware's own affair; middlewarefacade::DemuxFacade has the same operations and
/// says what the reference receiver does. Vectors are borrowed during the call.
///
/// A call that blocks is cancelled (pthread_cancel) when the server is stopped or the listener is
/// released: an implementation must unwind cleanly.
class IpcDemuxServerListener {
 public:
  /// Starts the filter. Request: section filter 0.
  virtual void start() = 0;

  /// Stops the filter. Request: section filter 1.
  virtual void stop() = 0;

  /// Selects the packets to read by their packet identifier: -1 if the client went before it had
  /// sent it, else any number. Request: section filter 2.
  virtual void set_pid(int pid) = 0;

  /// Selects a table id: -1 if the client went before it had sent it, else any number. Request:
  /// section filter 3.
  virtual void set_table_id(int tableId) = 0;

  /// Sets the pattern that a section must have. The integer is any number, and each vector has 0 to
  /// 16 MiB of bytes. Request: section filter 4.
  virtual void set_positive_filter(int filterArg, const std::vector<unsigned char>& first,
                                   const std::vector<unsigned char>& second) = 0;

  /// Sets the pattern that a section must be greater than. The integer is any number, and each
  /// vector has 0 to 16 MiB of bytes. Request: section filter 5.
  virtual void set_greater_than_filter(int filterArg, const std::vector<unsigned char>& first,
                                       const std::vector<unsigned char>& second) = 0;

  /// Sets the pattern that a section must be less than. The integer is any number, and each vector
  /// has 0 to 16 MiB of bytes. Request: section filter 6.
  virtual void set_less_than_filter(int filterArg, const std::vector<unsigned char>& first,
                                    const std::vector<unsigned char>& second) = 0;

  /// Sets the pattern of which a section must have one part and must not have another. The integer
  /// is any number, and each vector has 0 to 16 MiB of bytes. Request: section filter 7.
  virtual void set_xor_filter(int filterArg, const std::vector<unsigned char>& first,
                              const std::vector<unsigned char>& second,
                              const std::vector<unsigned char>& third) = 0;

  /// Sets how long read_section() waits, in a unit of the middleware's own, milliseconds in the
  /// reference receiver: 0 if the client went before it had sent it, else any 32-bit number.
  /// Request: section filter 8.
  virtual void set_time_out(long timeOut) = 0;

  /// Takes back set_table_id(). Request: section filter 9.
  virtual void clear_table_id() = 0;

  /// Takes back set_positive_filter(). Request: section filter 10.
  virtual void clear_positive_filter() = 0;

  /// Takes back set_less_than_filter(). Request: section filter 11.
  virtual void clear_less_than_filter() = 0;

  /// Takes back set_xor_filter(). Request: section filter 12.
  virtual void clear_xor_filter() = 0;

  /// The next section, whole, or no bytes; may block. Request: section filter 13.
  virtual std::vector<unsigned char> read_section() = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~IpcDemuxServerListener() = default;
};

}  // namespace quillwork
