// The section-filter channel's requests: the operation in the same position of the demultiplexer
// facade, with the same arguments. Without that facade they do nothing.

#include "adapter/MiddlewareIpc.h"
#include "adapter/Published.h"
#include "adapter/ask.h"
#include "facade/DemuxFacade.h"

using adapter::ask;
using adapter::load;
using adapter::tell;
using middlewarefacade::DemuxFacade;

using Bytes = std::vector<unsigned char>;

void MiddlewareIpc::start() { tell(load(demuxFacade), &DemuxFacade::start); }

void MiddlewareIpc::stop() { tell(load(demuxFacade), &DemuxFacade::stop); }

void MiddlewareIpc::set_pid(int pid) { tell(load(demuxFacade), &DemuxFacade::setPid, pid); }

void MiddlewareIpc::set_table_id(int tableId) {
  tell(load(demuxFacade), &DemuxFacade::setTableId, tableId);
}

void MiddlewareIpc::set_positive_filter(int filterArg, const Bytes& first, const Bytes& second) {
  tell(load(demuxFacade), &DemuxFacade::setPositiveFilter, filterArg, first, second);
}

void MiddlewareIpc::set_greater_than_filter(int filterArg, const Bytes& first,
                                            const Bytes& second) {
  tell(load(demuxFacade), &DemuxFacade::setGreaterThanFilter, filterArg, first, second);
}

void MiddlewareIpc::set_less_than_filter(int filterArg, const Bytes& first, const Bytes& second) {
  tell(load(demuxFacade), &DemuxFacade::setLessThanFilter, filterArg, first, second);
}

void MiddlewareIpc::set_xor_filter(int filterArg, const Bytes& first, const Bytes& second,
                                   const Bytes& third) {
  tell(load(demuxFacade), &DemuxFacade::setXorFilter, filterArg, first, second, third);
}

void MiddlewareIpc::set_time_out(long timeOut) {
  tell(load(demuxFacade), &DemuxFacade::setTimeOut, timeOut);
}

void MiddlewareIpc::clear_table_id() { tell(load(demuxFacade), &DemuxFacade::clearTableId); }

void MiddlewareIpc::clear_positive_filter() {
  tell(load(demuxFacade), &DemuxFacade::clearPositiveFilter);
}

void MiddlewareIpc::clear_less_than_filter() {
  tell(load(demuxFacade), &DemuxFacade::clearLessThanFilter);
}

void MiddlewareIpc::clear_xor_filter() { tell(load(demuxFacade), &DemuxFacade::clearXorFilter); }

Bytes MiddlewareIpc::read_section() { return ask(load(demuxFacade), &DemuxFacade::readSection); }
