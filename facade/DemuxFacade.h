#pragma once

#include "protocol/language.h"

#include <vector>

#include "facade/visibility.h"

namespace middlewarefacade {

/// One section filter of the demultiplexer. Sections are those of ISO/IEC 13818-1, 2.4.4; what
/// the patterns and `filterArg` select is the middleware's business.
///
/// The order of the operations is an ABI: the platform's binary is compiled against it. They are
/// called on the section-filter channel's thread.
class DemuxFacade {
 public:
  using Bytes = std::vector<unsigned char>;

  /// Supplied by the host; a new object that the caller owns, or null where the host has none.
  QUILLWORK_HOST_DEFINED static DemuxFacade* createDemuxFacade();

  virtual void start() = 0;
  virtual void stop() = 0;
  virtual void setPid(int pid) = 0;
  virtual void setTableId(int tableId) = 0;
  virtual void setPositiveFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;
  virtual void setGreaterThanFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;
  virtual void setLessThanFilter(int filterArg, const Bytes& first, const Bytes& second) = 0;
  virtual void setXorFilter(int filterArg, const Bytes& first, const Bytes& second,
                            const Bytes& third) = 0;
  virtual void setTimeOut(long timeOut) = 0;
  virtual void clearTableId() = 0;
  virtual void clearPositiveFilter() = 0;
  virtual void clearLessThanFilter() = 0;
  virtual void clearXorFilter() = 0;
  /// One whole section, or no bytes. May block until a section arrives; deleting the adapter
  /// cancels a call that does not come back.
  virtual Bytes readSection() = 0;
  virtual ~DemuxFacade() = default;
};

}  // namespace middlewarefacade
