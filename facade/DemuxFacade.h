#pragma once

#include "protocol/language.h"

#include <vector>

#include "facade/visibility.h"

namespace middlewarefacade {

/// One section filter of the demultiplexer. Sections are those of ISO/IEC 13818-1, 2.4.4; what
/// the patterns and `filterArg` select is the middleware's own affair. The library checks no
/// argument: integers are what the client sent, and a vector has from 0 to 16 MiB of bytes.
///
/// The operations are called on the section-filter channel's thread, one at a time, and at the same
/// time as the other facades' operations on the control channel's thread. Settings outlive the
/// client that made them unless this facade forgets them itself. Nothing but readSection() is
/// answered, so the client does not learn whether a setting was accepted. Vectors are borrowed
/// during the call.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it.
class DemuxFacade {
 public:
  /// Bytes of a pattern or a section.
  using Bytes = std::vector<unsigned char>;

  /// Supplied by the host: a new object that the library owns and deletes with the adapter, or null
  /// if the host has no section filter; then requests are ignored, and no section is ever there.
  /// Called once for each adapter, inside MiddlewareIpc::getInstance().
  QUILLWORK_HOST_DEFINED static DemuxFacade* createDemuxFacade();

  /// Starts the filter with what has been set. The reference receiver forgets the sections that it
  /// has kept. Request: section filter 0.
  virtual void start() = 0;

  /// Stops the filter. The reference receiver then answers readSection() with no bytes, at once.
  /// Request: section filter 1.
  virtual void stop() = 0;

  /// Selects the packets to read: a packet identifier, 0 to 8191 on air. Request: section filter 2.
  virtual void setPid(int pid) = 0;

  /// Selects a table id, 0 to 255 on air. Request: section filter 3.
  virtual void setTableId(int tableId) = 0;

  /// Sets the pattern that a section must have. In the reference receiver `filterArg` is the offset
  /// in the section, in bytes, at which the pattern begins, `first` the value and `second` the
  /// mask. Request: section filter 4.
  virtual void setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;

  /// Sets the pattern that a section must be greater than; in the reference receiver the masked
  /// bytes are read as one number, and the arguments are those of setPositiveFilter(). Nothing
  /// clears it. Request: section filter 5.
  virtual void setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;

  /// Sets the pattern that a section must be less than; in the reference receiver the masked bytes
  /// are read as one number, and the arguments are those of setPositiveFilter(). Request: section
  /// filter 6.
  virtual void setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;

  /// Sets the pattern that a section must have in one part and must not have in another. In the
  /// reference receiver `first` is the value, `second` the mask, and `third` the bits of which at
  /// least one must differ. Request: section filter 7.
  virtual void setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                            const Bytes& third) = 0;

  /// Sets how long readSection() waits. The unit is the middleware's own; in the reference receiver
  /// milliseconds, 10,000 at first, 0 for not at all and a negative number for ever. The client
  /// sends 32 bits. Request: section filter 8.
  virtual void setTimeOut(long timeOut) = 0;

  /// Takes back setTableId(): sections of every table id pass. Request: section filter 9.
  virtual void clearTableId() = 0;

  /// Takes back setPositiveFilter(). Request: section filter 10.
  virtual void clearPositiveFilter() = 0;

  /// Takes back setLessThanFilter(). Request: section filter 11.
  virtual void clearLessThanFilter() = 0;

  /// Takes back setXorFilter(). Request: section filter 12.
  virtual void clearXorFilter() = 0;

  /// The next section, whole, from its table id to its last byte, or no bytes if none came in time.
  /// May block; the section-filter channel does nothing else meanwhile, and a client that goes away
  /// does not end the wait. Deleting the adapter cancels the call (`pthread_cancel`) at any point
  /// where it blocks: hold locks and memory in objects. Request: section filter 13.
  virtual Bytes readSection() = 0;

  /// Called once, by the thread that deletes the adapter, when no operation of this facade runs any
  /// more.
  virtual ~DemuxFacade() = default;
};

}  // namespace middlewarefacade
