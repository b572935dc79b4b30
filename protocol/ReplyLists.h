#pragma once

#include "protocol/language.h"

#include <list>
#include <utility>

#include "protocol/records.h"

/// Owners for the lists that `program_event` and `descriptor` records refer to. A record is plain
/// and copies share its lists, so whoever holds the answer to a query holds it in one of these.
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

/// Deletes what the record owns and sets its pointer to null.
inline void freeLists(descriptor& element) { delete std::exchange(element.data, nullptr); }

/// Records without lists own nothing.
template <class Record>
void freeLists(Record&) {}

/// A record with its lists, which are freed at the end of the scope.
template <class Record>
class OwnedRecord {
 public:
  /// A zero record.
  OwnedRecord() = default;

  /// Takes over the record's lists: the caller's copy must not free them.
  explicit OwnedRecord(const Record& record) : record_(record) {}

  /// Frees the lists.
  ~OwnedRecord() { freeLists(record_); }

  /// Lists have one owner.
  OwnedRecord(const OwnedRecord&) = delete;

  /// Lists have one owner.
  OwnedRecord& operator=(const OwnedRecord&) = delete;

  /// The record, which stays this object's.
  Record* operator->() { return &record_; }

  /// The record, which stays this object's.
  Record& operator*() { return record_; }

  /// Frees the record's lists and takes over another's.
  void replace(const Record& record) {
    freeLists(record_);
    record_ = record;
  }

  /// Gives the record and its lists to the caller.
  Record release() { return std::exchange(record_, Record{}); }

 private:
  Record record_{};
};

/// A list of records with their lists, which are freed at the end of the scope.
template <class Record>
class OwnedRecords {
 public:
  /// No records.
  OwnedRecords() = default;

  /// Takes over the records and their lists.
  explicit OwnedRecords(std::list<Record>&& records) : records_(std::move(records)) {}

  /// Frees the records' lists.
  ~OwnedRecords() {
    for (Record& record : records_) freeLists(record);
  }

  /// Lists have one owner.
  OwnedRecords(const OwnedRecords&) = delete;

  /// Lists have one owner.
  OwnedRecords& operator=(const OwnedRecords&) = delete;

  /// The records, which stay this object's.
  std::list<Record>& operator*() { return records_; }

  /// The records, which stay this object's.
  std::list<Record>* operator->() { return &records_; }

  /// Gives the records and their lists to the caller.
  std::list<Record> release() { return std::move(records_); }

 private:
  std::list<Record> records_;
};

}  // namespace quillwork
