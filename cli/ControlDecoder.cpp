#include "cli/ControlDecoder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "client/Fields.h"

namespace quillwork::cli {
namespace {

using operations::Content;
using operations::Field;
using operations::Kind;
using operations::Reply;
using operations::Trailing;

template <class Rows>
auto find(const Rows& rows, const message& record) {
  return operations::rowFor(rows, record.group, record.type);
}

Json readField(const message& record, const Field& field) {
  switch (field.kind) {
    case Kind::boolean:
      return client::readBoolean(record, field);
    case Kind::real32:
    case Kind::real64:
      return client::readReal(record, field);
    case Kind::shortText:
    case Kind::longText:
    case Kind::textPart:
      return text(client::readText(record, field));
    default:
      return client::readInteger(record, field);
  }
}

Json readFields(const message& record, const Content& content) {
  Json fields = Json::object();
  for (const Field& field : content.fields) fields[field.name] = readField(record, field);
  return fields;
}

/// How long the lists behind a record are, none less than 0.
template <class Lengths>
Lengths readLengths(const message& record, const Content& content) {
  Lengths lengths{};
  for (std::size_t list = 0; list < content.trailing.size(); ++list) {
    const Trailing& trailing = content.trailing[list];
    const bool isPresent = get<std::int32_t>(record, trailing.presence) != 0;
    if (isPresent) lengths[list] = std::max(get<std::int32_t>(record, trailing.count), 0);
  }
  return lengths;
}

Json kindOf(const message& record) { return {{"group", record.group}, {"type", record.type}}; }

/// The row of a notification whose text has several records; null for any other record.
const operations::Notification* findPart(const message& record) {
  const auto* const row = find(operations::notifications, record);
  if (row == nullptr) return nullptr;
  const bool hasParts = std::ranges::any_of(
      row->content.fields, [](const Field& field) { return field.kind == Kind::textPart; });
  return hasParts ? row : nullptr;
}

/// What the library prints for a request that it drops; of most it says nothing.
std::string printedFor(const message& record) {
  const bool isGroup = std::ranges::any_of(
      operations::requests,
      [&](const operations::Request& row) { return row.group == record.group; });
  if (!isGroup) return "Unknown message: " + std::to_string(record.group);
  if (record.group == SI) return "Unknown si message type:  " + std::to_string(record.type);
  return "";
}

bool isElement(const message& record, const operations::Request& row, std::int32_t count) {
  const std::int32_t type = row.elementType == operations::keepsCount ? count : row.elementType;
  return record.group == row.group &&
         (record.type == type || row.elementType == operations::ofTheRecord);
}

bool hasList(const operations::Request& row) {
  return row.reply == Reply::list || row.reply == Reply::listFirst;
}

message recordOf(std::string_view item) {
  message record{};
  std::memcpy(&record, item.data(), sizeof record);
  return record;
}

}  // namespace

ControlDecoder::ControlDecoder() : TraceDecoder(sizeof(message), sizeof(message)) {}

void ControlDecoder::take(Direction direction, std::string_view item) {
  if (direction == Direction::toLibrary) {
    takeRequest(recordOf(item));
  } else {
    (this->*step_)(item);
  }
}

void ControlDecoder::explain(Direction direction, Json& fields) const {
  if (direction == Direction::toClient && elementsLeft_ > 0) {
    fields["elements_left"] = elementsLeft_;
  }
}

void ControlDecoder::takeRequest(const message& record) {
  if (const auto* const row = find(operations::requests, record)) {
    const auto index = static_cast<std::size_t>(row - std::begin(operations::requests));
    addRequest(row->name, readFields(record, row->request), row->reply != Reply::none,
               {index, record.type});
    if (row->group == APPLICATION_STATE) answerQuestion();
    return;
  }
  Json fields = kindOf(record);
  const std::string printed = printedFor(record);
  if (!printed.empty()) fields["printed"] = printed;
  add(Direction::toLibrary, "dropped", "", std::move(fields));
}

void ControlDecoder::expectRecord() {
  step_ = &ControlDecoder::takeRecord;
  expectNew(Direction::toClient, sizeof(message));
}

void ControlDecoder::expectPart(Step step, std::size_t size) {
  step_ = step;
  expectMore(Direction::toClient, size, reply_.operation);
}

void ControlDecoder::takeRecord(std::string_view item) {
  const message record = recordOf(item);
  if (record.group == LIST_HEADER) {
    takeHeader(record);
  } else if (const auto* const row = find(operations::notifications, record)) {
    add(Direction::toClient, "notification", row->name, readFields(record, row->content));
    if (row->group == APPLICATION_STATE) addQuestion(row->name);
  } else {
    takeReply(record);
  }
}

const operations::Request& ControlDecoder::row() const {
  return operations::requests[reply_.key.row];
}

void ControlDecoder::takeReply(const message& record) {
  const auto* const row = find(operations::requests, record);
  const auto request = findWaiting([&](const Key& key) {
    const auto& candidate = operations::requests[key.row];
    return &candidate == row && candidate.reply == Reply::record && key.type == record.type;
  });
  if (!request) {
    add(Direction::toClient, "unknown", "", kindOf(record));
    return;
  }
  reply_ = answer(*request);
  addReply("reply", readFields(record, row->answer)).after = now() - reply_.time;
  if (row->answer.trailing.size() == 0) return;
  behind_.push_back(readLengths<Lengths>(record, row->answer));
  expectLists();
}

TraceLine& ControlDecoder::addReply(std::string kind, Json fields) {
  TraceLine& line = add(Direction::toClient, std::move(kind), reply_.operation, std::move(fields));
  line.request = reply_.number;
  return line;
}

/// A header of two or more can open a notification in parts: the record behind it tells.
void ControlDecoder::takeHeader(const message& header) {
  reply_ = {};
  headerTime_ = now();
  count_ = header.type;
  if (count_ >= 2) {
    expectPart(&ControlDecoder::takeBehindHeader, sizeof(message));
  } else {
    beginList();
  }
}

void ControlDecoder::takeBehindHeader(std::string_view item) {
  if (const auto* const row = findPart(recordOf(item))) {
    reply_.operation = row->name;
    addHeader("list");
    expectElements(&ControlDecoder::takePart);
  } else {
    beginList();
  }
  if (!isGivenUp()) (this->*step_)(item);
}

TraceLine& ControlDecoder::addHeader(std::string kind) {
  TraceLine& line = addFirst(sizeof(message), Direction::toClient, std::move(kind),
                             reply_.operation, {{"count", count_}});
  line.time = headerTime_;
  return line;
}

void ControlDecoder::beginList() {
  const auto request =
      findWaiting([](const Key& key) { return hasList(operations::requests[key.row]); });
  if (!request) {
    addHeader("unknown");
    expectRecord();
    return;
  }
  reply_ = answer(*request);
  TraceLine& line = addHeader("list");
  line.request = reply_.number;
  line.after = headerTime_ - reply_.time;
  expectElements(&ControlDecoder::takeElement);
}

void ControlDecoder::expectElements(Step step) {
  if (count_ > maxElements) {
    giveUp(Direction::toClient, reply_.operation, {{"announced_elements", count_}});
    return;
  }
  elementStep_ = step;
  elementsLeft_ = std::max(count_, 0);
  expectElement();
}

/// The next element, or what is behind the last one.
void ControlDecoder::expectElement() {
  if (elementsLeft_ > 0) {
    expectPart(elementStep_, sizeof(message));
  } else if (!behind_.empty()) {
    expectLists();
  } else {
    expectRecord();
  }
}

void ControlDecoder::endElement() {
  --elementsLeft_;
  expectElement();
}

void ControlDecoder::takePart(std::string_view item) {
  const message record = recordOf(item);
  if (const auto* const row = findPart(record)) {
    add(Direction::toClient, "notification", row->name, readFields(record, row->content));
  } else {
    add(Direction::toClient, "unknown", reply_.operation, kindOf(record));
  }
  endElement();
}

void ControlDecoder::takeElement(std::string_view item) {
  const message record = recordOf(item);
  if (!isElement(record, row(), count_)) {
    addReply("unknown", kindOf(record));
    endElement();
    return;
  }
  Json fields = readFields(record, row().answer);
  if (row().answer.trailing.size() > 0) {
    behind_.push_back(readLengths<Lengths>(record, row().answer));
  }
  if (row().reply == Reply::list && !behind_.empty()) {
    lists_ = std::move(fields);
    expectLists();
  } else {
    addReply("element", std::move(fields));
    endElement();
  }
}

/// The lists behind the records that have come; an element that has its own right behind it is
/// shown with them.
void ControlDecoder::expectLists() {
  while (!behind_.empty()) {
    for (; list_ < row().answer.trailing.size(); ++list_) {
      if (beginsList(behind_.front()[list_])) return;
    }
    behind_.pop_front();
    list_ = 0;
    const bool isElement = elementsLeft_ > 0;
    addReply(isElement ? "element" : "bytes", std::exchange(lists_, Json::object()));
    if (isElement) --elementsLeft_;
  }
  expectElement();
}

/// Whether there is something in it to wait for.
bool ControlDecoder::beginsList(std::int32_t count) {
  const bool isText = row().answer.trailing[list_].kind == Trailing::Kind::texts;
  list() = isText ? Json::array() : Json("");
  if (count == 0) return false;
  textsLeft_ = count;
  if (isText && count > maxElements) {
    giveUp(Direction::toClient, reply_.operation, {{"announced_elements", count}});
  } else if (isText) {
    expectPart(&ControlDecoder::takeTextSize, sizeof(std::uint32_t));
  } else {
    expectPart(&ControlDecoder::takeBytes, static_cast<std::size_t>(count));
  }
  return true;
}

Json& ControlDecoder::list() { return lists_[row().answer.trailing[list_].name]; }

void ControlDecoder::takeBytes(std::string_view item) {
  list() = hex(item);
  ++list_;
  expectLists();
}

void ControlDecoder::takeTextSize(std::string_view item) {
  std::uint32_t size = 0;
  std::memcpy(&size, item.data(), sizeof size);
  expectPart(&ControlDecoder::takeText, size);
}

void ControlDecoder::takeText(std::string_view item) {
  list().push_back(text(std::string(item)));
  if (--textsLeft_ > 0) {
    expectPart(&ControlDecoder::takeTextSize, sizeof(std::uint32_t));
  } else {
    ++list_;
    expectLists();
  }
}

}  // namespace quillwork::cli
