#pragma once

#include "protocol/language.h"

#include <list>
#include <utility>

#include "protocol/records.h"

/// Owners for the lists that `program_event` and `descriptor` records refer to. A record is plain
/// and copies share its lists, so code that has the answer to a query keeps it in one of these.
namespace quillwork {

/// Calls `visit` with each of the record's six list pointers, by reference, in wire order.
template <class Event, class Visitor>
void forEachList(Event& event, Visitor&& visit) {
  visit(event.byte_list_1);
  visit(event.byte_list_2);
  visit(event.byte_list_3);
  visit(event.text_list_1);
  visit(event.text_list_2);
  visit(event.text_list_3);
}

/// Deletes what the record owns and sets its pointers to null.
inline void freeLists(program_event& event) {
  forEachList(event, [](auto*& list) { delete std::exchange(list, nullptr); });
}
inline void freeLists(descriptor& element) { delete std::exchange(element.data, nullptr); }
/// Records without lists own nothing.
template <class Record>
void freeLists(Record&) {}

/// A record with its lists, which are freed at the end of the scope.
template <class Record>
class OwnedRecord {
 public:
  OwnedRecord() = default;
  explicit OwnedRecord(const Record& record) : record_(record) {}
  ~OwnedRecord() { freeLists(record_); }
  OwnedRecord(const OwnedRecord&) = delete;
  OwnedRecord& operator=(const OwnedRecord&) = delete;

  Record* operator->() { return &record_; }
  Record& operator*() { return record_; }

  /// Frees the record's lists and takes over another's.
  void replace(const Record& record) {
    freeLists(record_);
    record_ = record;
  }
  /// Gives the record and its lists away.
  Record release() { return std::exchange(record_, Record{}); }

 private:
  Record record_{};
};

/// Owns a list of records together with the records' lists.
template <class Record>
class OwnedRecords {
 public:
  OwnedRecords() = default;
  explicit OwnedRecords(std::list<Record>&& records) : records_(std::move(records)) {}
  ~OwnedRecords() {
    for (Record& record : records_) freeLists(record);
  }
  OwnedRecords(const OwnedRecords&) = delete;
  OwnedRecords& operator=(const OwnedRecords&) = delete;

  std::list<Record>& operator*() { return records_; }
  std::list<Record>* operator->() { return &records_; }
  std::list<Record> release() { return std::move(records_); }

 private:
  std::list<Record> records_;
};

}  // namespace quillwork
