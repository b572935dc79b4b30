#pragma once

#include "protocol/language.h"

#include <vector>

namespace quillwork {

/// Receives the requests of the section-filter channel, on that channel's accept thread, one at a
/// time. The position of an operation is its request code on the wire, so their order is an ABI and
/// a wire format. There is no operation that clears the greater-than filter.
///
/// A call that blocks is cancelled (pthread_cancel) when the server is stopped or the listener is
/// released: an implementation must unwind cleanly.
class IpcDemuxServerListener {
 public:
  virtual void start() = 0;
  virtual void stop() = 0;
  virtual void set_pid(int pid) = 0;
  virtual void set_table_id(int tableId) = 0;
  virtual void set_positive_filter(int filterArg, const std::vector<unsigned char>& first,
                                   const std::vector<unsigned char>& second) = 0;
  virtual void set_greater_than_filter(int filterArg, const std::vector<unsigned char>& first,
                                       const std::vector<unsigned char>& second) = 0;
  virtual void set_less_than_filter(int filterArg, const std::vector<unsigned char>& first,
                                    const std::vector<unsigned char>& second) = 0;
  virtual void set_xor_filter(int filterArg, const std::vector<unsigned char>& first,
                              const std::vector<unsigned char>& second,
                              const std::vector<unsigned char>& third) = 0;
  virtual void set_time_out(long timeOut) = 0;
  virtual void clear_table_id() = 0;
  virtual void clear_positive_filter() = 0;
  virtual void clear_less_than_filter() = 0;
  virtual void clear_xor_filter() = 0;
  /// The next section, or no bytes.
  virtual std::vector<unsigned char> read_section() = 0;

 protected:
  /// Nobody deletes a listener through this class, and a virtual destructor would be a slot more. A
  /// class that implements it is final or has a virtual destructor, or compilers warn of that.
  ~IpcDemuxServerListener() = default;
};

}  // namespace quillwork
