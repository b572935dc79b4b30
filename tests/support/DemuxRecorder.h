#pragma once

#include <functional>
#include <vector>

#include "ipc/IpcDemuxServerListener.h"
#include "support/CallLog.h"

/// Writes down the section-filter channel's calls; `section` makes the answer to a read.
class DemuxRecorder : public quillwork::IpcDemuxServerListener {
 public:
  using Bytes = std::vector<unsigned char>;

  CallLog log;
  std::function<Bytes()> section = [] { return Bytes(); };

  void start() override { log.add("start"); }
  void stop() override { log.add("stop"); }
  void set_pid(int pid) override { log.add("set_pid", pid); }
  void set_table_id(int tableId) override { log.add("set_table_id", tableId); }
  void set_positive_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    log.add("set_positive_filter", filterArg, hex(first), hex(second));
  }
  void set_greater_than_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    log.add("set_greater_than_filter", filterArg, hex(first), hex(second));
  }
  void set_less_than_filter(int filterArg, const Bytes& first, const Bytes& second) override {
    log.add("set_less_than_filter", filterArg, hex(first), hex(second));
  }
  void set_xor_filter(int filterArg, const Bytes& first, const Bytes& second,
                      const Bytes& third) override {
    log.add("set_xor_filter", filterArg, hex(first), hex(second), hex(third));
  }
  void set_time_out(long timeOut) override { log.add("set_time_out", timeOut); }
  void clear_table_id() override { log.add("clear_table_id"); }
  void clear_positive_filter() override { log.add("clear_positive_filter"); }
  void clear_less_than_filter() override { log.add("clear_less_than_filter"); }
  void clear_xor_filter() override { log.add("clear_xor_filter"); }
  Bytes read_section() override {
    log.add("read_section");
    return section();
  }
};
