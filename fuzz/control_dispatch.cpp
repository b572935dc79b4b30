// Records on the control channel, with several listeners that answer, answer nothing and throw. The
// client must be able to place every byte that it receives.

#include <condition_variable>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <vector>

#include "fuzz/Conversation.h"
#include "fuzz/Input.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/OwnSharedMemory.h"
#include "support/RecordingListener.h"

namespace {

using namespace quillwork;

constexpr const char* path = "/dev/shm/ipc.socket";

class Departures : public ConnectionListener {
 public:
  void clientConnected() override {}
  void clientDisconnected() override {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
  }
  /// Waits for the end of one connection more than the last time.
  void awaitNext() {
    std::unique_lock lock(mutex_);
    ++awaited_;
    changed_.wait(lock, [&] { return count_ >= awaited_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
  int awaited_ = 0;
};

class Listener final : public RecordingListener {
 public:
  using RecordingListener::RecordingListener;
};

// The listeners' answers.

const char* const descriptorOperations[] = {
    "getNetworkDescriptors", "getTransportStreamDescriptors", "getServiceDescriptors",
    "getProgramEventDescriptors", "getServiceComponentDescriptors"};

std::int32_t takeNumber(Input& input) {
  switch (input.takeBelow(4)) {
    case 0:
      return 0;
    case 1:
      return -1;
    case 2:
      return input.take<std::int8_t>();
    default:
      return input.take<std::int32_t>();
  }
}

/// Small lists mostly, and now and then one that does not fit a socket's buffers.
std::size_t takeCount(Input& input) {
  const std::size_t count = input.takeBelow(128);
  return count < 120 ? count % 8 : (count - 119) * 40;
}

template <class Element>
std::list<Element> takePlainList(Input& input) {
  std::list<Element> list(takeCount(input));
  for (Element& element : list) {
    if (input.isAtEnd()) break;
    const std::string bytes(input.takeText());
    std::memcpy(&element, bytes.data(), std::min(bytes.size(), sizeof element));
  }
  return list;
}

struct EventPlan {
  std::int32_t key;
  std::string text;
  /// Negative for an absent list.
  int byteCounts[3];
  int textCounts[3];
};

EventPlan takeEventPlan(Input& input) {
  EventPlan plan{takeNumber(input), input.takeText(), {}, {}};
  for (int& count : plan.byteCounts) count = input.take<std::int8_t>();
  for (int& count : plan.textCounts) count = input.take<std::int8_t>() / 8;
  return plan;
}

program_event makeEvent(const EventPlan& plan) {
  program_event event{};
  event.value_2 = plan.key;
  setFieldText(event.text_1, plan.text);
  std::int32_t* const counts = &event.byte_list_1_count;
  std::list<char>** const bytes[] = {&event.byte_list_1, &event.byte_list_2, &event.byte_list_3};
  std::list<std::string>** const texts[] = {&event.text_list_1, &event.text_list_2,
                                            &event.text_list_3};
  for (int index = 0; index < 3; ++index) {
    counts[index] = std::max(plan.byteCounts[index], 0);
    counts[3 + index] = std::max(plan.textCounts[index], 0);
    if (plan.byteCounts[index] >= 0) {
      *bytes[index] = new std::list<char>(static_cast<std::size_t>(counts[index]), 'b');
    }
    if (plan.textCounts[index] >= 0) {
      *texts[index] =
          new std::list<std::string>(static_cast<std::size_t>(counts[3 + index]), plan.text);
    }
  }
  return event;
}

void takeAnswers(Input& input, RecordingListener& listener) {
  const std::int32_t number = takeNumber(input);
  const std::string text = input.takeText();
  for (const operations::Request& row : operations::requests) {
    listener.numbers[row.name] = number;
    listener.texts[row.name] = text;
  }
  listener.numbers["open.player"] = number;
  listener.languages.assign(takeCount(input), text);
  const std::list<int> identifiers(takeCount(input), number);
  listener.identifiers = {{"getAllIDs", identifiers}, {"getCASystemIds", identifiers}};
  listener.properties = takePlainList<system_property>(input);
  listener.services = takePlainList<service>(input);
  listener.components = takePlainList<service_component>(input);
  listener.pmts = takePlainList<pmt>(input);
  listener.networkAnswer.network_value = takeNumber(input);
  listener.transportStream.value_2 = takeNumber(input);
  std::list<std::pair<int, std::string>> descriptors;
  for (std::size_t left = takeCount(input); left > 0; --left) {
    descriptors.emplace_back(input.take<std::uint8_t>(), input.takeText());
  }
  for (const char* const operation : descriptorOperations) {
    listener.descriptorLists[operation] = descriptors;
  }
  std::list<EventPlan> plans(takeCount(input) % 4);
  for (EventPlan& plan : plans) plan = takeEventPlan(input);
  listener.makeEvents = [plans] {
    std::list<program_event> events;
    for (const EventPlan& plan : plans) events.push_back(makeEvent(plan));
    return events;
  };
  if (!plans.empty()) listener.makeEvent = [plans] { return makeEvent(plans.front()); };
  for (int& bound : listener.bounds) bound = takeNumber(input);
}

// The client's records.

/// A group and a type: of a row mostly, or anything.
void takeOperation(Input& input, message& record) {
  const std::size_t index = input.takeBelow(std::size(operations::requests) + 8);
  if (index >= std::size(operations::requests)) {
    record.group = input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>();
    record.type = input.takeBoolean() ? input.take<std::int8_t>() : input.take<std::int32_t>();
    return;
  }
  const operations::Request& row = operations::requests[index];
  record.group = row.group;
  record.type = row.types.first;
  if (isAnyOther(row.types)) {
    record.type = input.take<std::int8_t>();
  } else if (row.types.last > row.types.first) {
    const std::int32_t count = row.types.last - row.types.first + 1;
    record.type += static_cast<std::int32_t>(input.takeBelow(static_cast<std::size_t>(count)));
  }
}

message takeRecord(Input& input) {
  message record{};
  takeOperation(input, record);
  record.reserved = input.take<std::int8_t>();
  switch (input.takeBelow(3)) {
    case 0: {
      const std::string bytes = input.takeText();
      std::memcpy(record.payload, bytes.data(), bytes.size());
      break;
    }
    case 1:
      // No zero byte anywhere: a text has no end but the record's.
      std::memset(record.payload, static_cast<int>(input.takeBelow(255)) + 1,
                  sizeof record.payload);
      break;
    default:
      for (std::size_t word = 0; word < 8; ++word) record.payload[word] = takeNumber(input);
  }
  return record;
}

// What comes back, request by request.

class Replies {
 public:
  explicit Replies(const std::string& bytes) : rest_(bytes) {}

  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }

  /// Takes the reply to a request off the bytes, if it has one.
  void takeReplyTo(const message& request) {
    const operations::Request* const row =
        rowFor(operations::requests, request.group, request.type);
    if (row == nullptr || row->reply == operations::Reply::none) return;
    if (row->reply == operations::Reply::record) return takeOne(request, *row);
    takeList(request, *row);
  }

 private:
  std::string_view take(std::size_t size) {
    if (rest_.size() < size) fail("a reply ends in the middle");
    const std::string_view bytes = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return bytes;
  }

  message takeRecord(const message& request, std::int32_t group) {
    message record{};
    std::memcpy(&record, take(sizeof record).data(), sizeof record);
    if (record.group != group) fail("a reply of another group");
    if (record.reserved != request.reserved) fail("the word that nobody reads was written");
    return record;
  }

  void takeOne(const message& request, const operations::Request& row) {
    const message reply = takeRecord(request, request.group);
    if (reply.type != request.type) fail("a reply of another type");
    takeTrailing(reply, row);
  }

  void takeList(const message& request, const operations::Request& row) {
    const std::int32_t count = takeRecord(request, LIST_HEADER).type;
    if (count < 0) fail("a list of less than nothing");
    std::vector<message> records;
    for (std::int32_t index = 0; index < count; ++index) {
      records.push_back(takeRecord(request, row.group));
      if (!isElementType(row.elementType, records.back().type, count)) fail("another element");
      if (row.reply == operations::Reply::list) takeTrailing(records.back(), row);
    }
    if (row.reply == operations::Reply::list) return;
    for (const message& record : records) takeTrailing(record, row);
  }

  static bool isElementType(std::int32_t expected, std::int32_t type, std::int32_t count) {
    if (expected == operations::ofTheRecord) return true;
    return type == (expected == operations::keepsCount ? count : expected);
  }

  void takeTrailing(const message& record, const operations::Request& row) {
    for (const operations::Trailing& list : row.answer.trailing) {
      if (get<std::int32_t>(record, list.presence) == 0) continue;
      auto count = static_cast<std::size_t>(get<std::int32_t>(record, list.count));
      if (list.kind == operations::Trailing::Kind::bytes) {
        take(count);
        continue;
      }
      for (; count > 0; --count) {
        std::uint32_t length = 0;
        std::memcpy(&length, take(sizeof length).data(), sizeof length);
        take(length);
      }
    }
  }

  std::string_view rest_;
};

Departures& departures() {
  static Departures instance;
  return instance;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  takeOwnSharedMemory();
  IpcServerManager::getInstance()->addConnectionListener(&departures());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  IpcServerManager& manager = *IpcServerManager::getInstance();
  Input input(data, size);
  CallLog log;
  std::list<Listener> listeners;
  // The call that throws, if there are so many.
  std::size_t callsLeft = input.takeBoolean() ? input.takeBelow(64) : SIZE_MAX;
  const std::size_t fault = input.takeBelow(3);
  bool hasThrown = false;
  for (std::size_t left = input.takeBelow(4); left > 0; --left) {
    Listener& listener = listeners.emplace_back(log);
    takeAnswers(input, listener);
    listener.onCall = [&](const std::string&) {
      if (callsLeft-- != 0) return;
      hasThrown = true;
      if (fault == 0) throw std::runtime_error("a listener's fault");
      if (fault == 1) throw std::bad_alloc();
      throw 1;
    };
  }
  std::vector<message> requests;
  std::string bytes;
  const bool isCut = input.takeBoolean();
  const std::size_t cut = input.take<std::uint16_t>() % sizeof(message);
  while (!input.isAtEnd() && requests.size() < 40) {
    requests.push_back(takeRecord(input));
    bytes.append(reinterpret_cast<const char*>(&requests.back()), sizeof(message));
  }
  if (isCut && !requests.empty()) {
    // The front of the last record; what the library makes of it depends on the one before.
    bytes.resize(bytes.size() - sizeof(message) + cut);
    requests.pop_back();
  }

  for (Listener& listener : listeners) manager.addIpcServerListener(&listener);
  const std::string received = converse(path, bytes);
  departures().awaitNext();
  for (Listener& listener : listeners) manager.removeIpcServerListener(&listener);

  Replies replies(received);
  for (const message& request : requests) {
    // A listener that throws ends the connection, between two replies.
    if (hasThrown && replies.isAtEnd()) break;
    replies.takeReplyTo(request);
  }
  if (!replies.isAtEnd() && !isCut) fail("there is more than was asked for");
  return 0;
}
