// The section-filter channel's requests: the operation in the same position of the demultiplexer
// facade, with the same arguments. Without that facade they do nothing.

#include "adapter/MiddlewareIpc.h"
#include "adapter/Published.h"
#include "facade/DemuxFacade.h"

using adapter::load;
using middlewarefacade::DemuxFacade;

namespace {

using Bytes = std::vector<unsigned char>;

template <class... Parameters, class... Arguments>
void forward(DemuxFacade* facade, void (DemuxFacade::*operation)(Parameters...),
             const Arguments&... arguments) {
  if (facade != nullptr) (facade->*operation)(arguments...);
}

}  // namespace

void MiddlewareIpc::start() { forward(load(demuxFacade), &DemuxFacade::start); }

void MiddlewareIpc::stop() { forward(load(demuxFacade), &DemuxFacade::stop); }

void MiddlewareIpc::set_pid(int pid) { forward(load(demuxFacade), &DemuxFacade::setPid, pid); }

void MiddlewareIpc::set_table_id(int tableId) {
  forward(load(demuxFacade), &DemuxFacade::setTableId, tableId);
}

void MiddlewareIpc::set_positive_filter(int filterArg, const Bytes& first, const Bytes& second) {
  forward(load(demuxFacade), &DemuxFacade::setPositiveFilter, filterArg, first, second);
}

void MiddlewareIpc::set_greater_than_filter(int filterArg, const Bytes& first,
                                            const Bytes& second) {
  forward(load(demuxFacade), &DemuxFacade::setGreaterThanFilter, filterArg, first, second);
}

void MiddlewareIpc::set_less_than_filter(int filterArg, const Bytes& first, const Bytes& second) {
  forward(load(demuxFacade), &DemuxFacade::setLessThanFilter, filterArg, first, second);
}

void MiddlewareIpc::set_xor_filter(int filterArg, const Bytes& first, const Bytes& second,
                                   const Bytes& third) {
  forward(load(demuxFacade), &DemuxFacade::setXorFilter, filterArg, first, second, third);
}

void MiddlewareIpc::set_time_out(long timeOut) {
  forward(load(demuxFacade), &DemuxFacade::setTimeOut, timeOut);
}

void MiddlewareIpc::clear_table_id() { forward(load(demuxFacade), &DemuxFacade::clearTableId); }

void MiddlewareIpc::clear_positive_filter() {
  forward(load(demuxFacade), &DemuxFacade::clearPositiveFilter);
}

void MiddlewareIpc::clear_less_than_filter() {
  forward(load(demuxFacade), &DemuxFacade::clearLessThanFilter);
}

void MiddlewareIpc::clear_xor_filter() { forward(load(demuxFacade), &DemuxFacade::clearXorFilter); }

Bytes MiddlewareIpc::read_section() {
  DemuxFacade* const facade = load(demuxFacade);
  return facade != nullptr ? facade->readSection() : Bytes();
}
