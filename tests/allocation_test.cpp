// What answering a request allocates: nothing for a number or a truth value. Counted on the control
// channel's thread from the moment it has received the record until it sends the answer.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Host.h"
#include "protocol/message.h"
#include "protocol/operations.h"
#include "support/Leftovers.h"
#include "support/RawClient.h"

// The linker gives the library the __wrap_ functions below for its own recv(), send() and malloc().
extern "C" {
ssize_t __real_recv(int socket, void* data, size_t size, int flags);
ssize_t __real_send(int socket, const void* data, size_t size, int flags);
void* __real_malloc(size_t size);
}

namespace {

thread_local bool isCounting = false;
thread_local int allocations = 0;
// What the last answer's first record took.
std::atomic<int> lastCount = -1;

void count() {
  if (isCounting) ++allocations;
}

bool isControlThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::strcmp(name, "ipc-control") == 0;
}

void* allocate(std::size_t size) {
  count();
  void* const memory = __real_malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

extern "C" {
ssize_t __wrap_recv(int socket, void* data, size_t size, int flags) {
  const ssize_t received = __real_recv(socket, data, size, flags);
  isCounting = isControlThread();
  allocations = 0;
  return received;
}

ssize_t __wrap_send(int socket, const void* data, size_t size, int flags) {
  if (isCounting) lastCount = allocations;
  isCounting = false;
  return __real_send(socket, data, size, flags);
}

void* __wrap_malloc(size_t size) {
  count();
  return __real_malloc(size);
}
}

// Not inlined: the compiler would see memory that new has given passed to free().
[[gnu::noinline]] void* operator new(std::size_t size) { return allocate(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using quillwork::message;

using quillwork::operations::Kind;
using quillwork::operations::Reply;

struct Query {
  const char* name;
  std::int32_t group;
  std::int32_t type;
};

void PrintTo(const Query& query, std::ostream* stream) {
  *stream << "group " << query.group << ", type " << query.type;
}

/// Whether one record with nothing but numbers answers the request. A domain record is copied from
/// the listener's answer, which may hold texts and lists.
bool isAnsweredWithNumbers(const quillwork::operations::Request& row) {
  const auto isNumber = [](const quillwork::operations::Field& field) {
    return field.kind != Kind::shortText && field.kind != Kind::longText &&
           field.kind != Kind::textPart;
  };
  return row.reply == Reply::record && std::string_view(row.answer.record).empty() &&
         std::all_of(row.answer.fields.begin(), row.answer.fields.end(), isNumber);
}

std::vector<Query> queriesForNumbers() {
  std::vector<Query> queries;
  for (const auto& row : quillwork::operations::requests) {
    if (!isAnsweredWithNumbers(row)) continue;
    if (isAnyOther(row.types)) {
      queries.push_back({row.name, row.group, 1});
      continue;
    }
    for (std::int32_t type = row.types.first; type <= row.types.last; ++type) {
      queries.push_back({row.name, row.group, type});
    }
  }
  return queries;
}

/// Says what it leaves behind.
class OwnHost : public bench::Host {
 public:
  explicit OwnHost(const bench::Shape& shape) : bench::Host(shape) { leavesBehind(ofAManager); }
};

class NoAllocation : public testing::TestWithParam<Query> {
 protected:
  static bench::Shape shape() {
    bench::Shape shape;
    shape.services = 3;
    return shape;
  }

  OwnHost host{shape()};
};

TEST_P(NoAllocation, BetweenARequestAndItsNumber) {
  const RawClient client;
  message record = request(GetParam().group, GetParam().type);
  record[3] = 1;
  record[4] = 1;
  // The first answer may pay for what is made once.
  static_cast<void>(client.ask(record));
  lastCount = -1;
  static_cast<void>(client.ask(record));
  EXPECT_EQ(lastCount, 0);
}

INSTANTIATE_TEST_SUITE_P(Requests, NoAllocation, testing::ValuesIn(queriesForNumbers()),
                         [](const auto& query) {
                           return query.param.name + ("_" + std::to_string(query.param.type));
                         });

/// What the library allocates between the request of a type of SI and the header of its list.
int allocationsFor(std::int32_t type, const bench::Shape& shape, std::int32_t elements) {
  const OwnHost host(shape);
  bench::Host::prepare();
  const RawClient client;
  EXPECT_EQ(client.ask(request(quillwork::SI, type)).type, elements);
  const int count = lastCount;
  client.closeSending();
  client.drain();
  return count;
}

// On its way from the facade to the send a list is moved: one allocation for each element's node.
TEST(Allocation, BuildsAListOnce) {
  bench::Shape shape;
  shape.services = 200;
  EXPECT_EQ(allocationsFor(6, shape, 200), 200);
}

// The list of a descriptor's bytes, and a node for each: signed and unsigned bytes share none.
TEST(Allocation, BuildsAByteListOnce) {
  bench::Shape shape;
  shape.descriptors = 20;
  shape.descriptorBytes = 64;
  EXPECT_EQ(allocationsFor(15, shape, 20), 20 * (1 + 1 + 64));
}

// An event's six lists; the texts in them are the facade's own.
TEST(Allocation, MovesTheTextsOfAnEvent) {
  bench::Shape shape;
  shape.events = 10;
  shape.eventBytes = 16;
  shape.eventTexts = 5;
  EXPECT_EQ(allocationsFor(1, shape, 10), 10 * (1 + 6 + 3 * 16));
}

// A locator is a text that the interface passes by value.
TEST(Allocation, ALongLocatorIsCopiedForTheListener) {
  const OwnHost host({});
  const RawClient client;
  message record = request(quillwork::MEDIA, 0);
  const std::string locator(100, 'x');
  quillwork::putBytes(record, 16, locator.data(), locator.size());
  static_cast<void>(client.ask(record));
  EXPECT_GT(lastCount, 0);
  EXPECT_LE(lastCount, 4);
}

}  // namespace
