// How a list leaves: in pieces of up to sixteen records, cut by the kernel wherever it likes. The
// bytes are those of a server that changes one record and sends it again and again.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Manager.h"
#include "support/RawClient.h"
#include "support/RecordingListener.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

// The linker gives the library the function below for its own send().
extern "C" ssize_t __real_send(int socket, const void* data, size_t size, int flags);

namespace {

/// What becomes of the control channel's next send, in place of the kernel. Set while that thread
/// is idle.
std::function<ssize_t(int socket, const void* data, std::size_t size, int flags)> onSend;

bool isControlThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::strcmp(name, "ipc-control") == 0;
}

}  // namespace

extern "C" ssize_t __wrap_send(int socket, const void* data, size_t size, int flags) {
  return onSend && isControlThread() ? onSend(socket, data, size, flags)
                                     : __real_send(socket, data, size, flags);
}

namespace quillwork {
namespace {

using Sizes = std::vector<std::size_t>;

constexpr std::size_t recordSize = 1960;
constexpr std::size_t wholePiece = 16 * recordSize;

class ListPieces : public testing::Test {
 protected:
  ListPieces() { manager->addIpcServerListener(&listener); }
  ~ListPieces() override { IpcServerManager::destroy(); }

  /// Has the sizes of all sends written down.
  void watchSends() {
    onSend = [this](int socket, const void* data, std::size_t size, int flags) {
      sizes.push_back(size);
      return __real_send(socket, data, size, flags);
    };
  }

  /// Waits until the control thread is back from the list.
  void awaitIdle(const RawClient& client) const {
    static_cast<void>(client.ask(request(VERSION, 1)));
  }

  /// The sends of a request and of the VERSION request behind it, without the latter.
  Sizes sendsOf(const message& asked, std::size_t bytes) {
    const RawClient client;
    awaitIdle(client);
    sizes.clear();
    watchSends();
    client.send(asked);
    EXPECT_EQ(client.receive(bytes).size(), bytes);
    awaitIdle(client);
    onSend = nullptr;
    EXPECT_FALSE(sizes.empty());
    sizes.pop_back();
    return sizes;
  }

  CallLog log;
  RecordingListener listener{log};
  IpcServerManager* manager = makeManager();
  Sizes sizes;
};

service makeService(int number) {
  service made{};
  made.value_1 = number;
  setFieldText(made.name, "service " + std::to_string(number));
  return made;
}

std::list<service> makeServices(int count) {
  std::list<service> all;
  for (int number = 0; number < count; ++number) all.push_back(makeService(number));
  return all;
}

void writeWord(std::string& record, std::size_t byte, std::int32_t value) {
  record.replace(byte, 4, word(value));
}

void writeText(std::string& record, std::size_t byte, std::string text) {
  text.resize(255);
  record.replace(byte, 255, text);
}

/// A request whose every byte is 0x55 but for the group and the type.
std::string markedRequest(std::int32_t group, std::int32_t type) {
  std::string record(recordSize, '\x55');
  writeWord(record, 0, group);
  writeWord(record, 8, type);
  return record;
}

/// A list as one record that is changed and sent again: the header, then each element.
std::string listOf(std::string record, std::size_t count,
                   const std::function<void(std::string& record, std::size_t index)>& change) {
  writeWord(record, 0, 7);
  writeWord(record, 8, static_cast<std::int32_t>(count));
  std::string all = record;
  for (std::size_t index = 0; index < count; ++index) {
    change(record, index);
    all += record;
  }
  return all;
}

std::string listOfServices(const std::string& asked, std::size_t count) {
  return listOf(asked, count, [](std::string& record, std::size_t index) {
    writeWord(record, 0, 6);
    writeWord(record, 8, 6);
    record.replace(12, 540, 540, '\0');
    writeWord(record, 12, static_cast<std::int32_t>(index));
    writeText(record, 36, "service " + std::to_string(index));
  });
}

TEST_F(ListPieces, HaveSixteenRecordsAtMost) {
  for (const auto& [count, expected] : std::initializer_list<std::pair<int, Sizes>>{
           {0, {recordSize}},
           {1, {2 * recordSize}},
           {15, {wholePiece}},
           {16, {wholePiece, recordSize}},
           {31, {wholePiece, wholePiece}},
           {40, {wholePiece, wholePiece, 9 * recordSize}}}) {
    listener.services = makeServices(count);
    const std::size_t bytes = static_cast<std::size_t>(count + 1) * recordSize;
    EXPECT_EQ(sendsOf(request(SI, 6), bytes), expected) << count;
  }
}

TEST_F(ListPieces, LeaveBeforeRawBytesWhichKeepTheirOwnSends) {
  listener.descriptorLists["getNetworkDescriptors"] = {
      {1, "ab"}, {2, ""}, {3, ""}, {4, "c"}, {5, ""}};
  EXPECT_EQ(sendsOf(request(SI, 15), 6 * recordSize + 3),
            (Sizes{2 * recordSize, 1, 1, 3 * recordSize, 1, recordSize}));
  listener.makeEvents = [] {
    std::list<program_event> events(20);
    program_event& event = events.front();
    event.byte_list_2 = new std::list<char>{'x', 'y'};
    event.byte_list_2_count = 2;
    event.text_list_1 = new std::list<std::string>{"abc"};
    event.text_list_1_count = 1;
    return events;
  };
  EXPECT_EQ(sendsOf(request(SI, 1), 21 * recordSize + 2 + 4 + 3),
            (Sizes{wholePiece, 5 * recordSize, 1, 1, 4, 3}));
}

// Each form of element: with a type of its own, with the header's count, with a word of its own in
// the place of the type, and of texts.
TEST_F(ListPieces, HoldTheBytesOfOneRecordThatIsSentAgainAndAgain) {
  constexpr int count = 40;
  listener.services = makeServices(count);
  for (int number = 0; number < count; ++number) {
    listener.identifiers["getAllIDs"].push_back(1000 + number);
    listener.languages.push_back("language " + std::to_string(number));
    system_property& property = listener.properties.emplace_back();
    property.reserved = 77 + number;
    setFieldText(property.name, "n" + std::to_string(number));
    setFieldText(property.value, std::string(static_cast<std::size_t>(number), 'v'));
    listener.descriptorLists["getNetworkDescriptors"].emplace_back(number, "");
  }
  const auto text = [](std::size_t index) { return std::to_string(index); };
  const auto number = [](std::size_t index) { return static_cast<std::int32_t>(index); };
  const RawClient client;
  const auto ask = [&](const std::string& asked, std::size_t size) {
    client.send(asked);
    std::string received = client.receive(size);
    awaitIdle(client);
    return received;
  };
  const auto expect = [&](const std::string& asked, const std::string& expected) {
    EXPECT_TRUE(ask(asked, expected.size()) == expected);
  };
  const std::string services = markedRequest(6, 6);
  expect(services, listOfServices(services, count));
  const std::string ids = markedRequest(4, 2);
  expect(ids, listOf(ids, count, [&](std::string& record, std::size_t index) {
           writeWord(record, 0, 4);
           writeWord(record, 12, 1000 + number(index));
         }));
  const std::string languages = markedRequest(0, 4);
  expect(languages, listOf(languages, count, [&](std::string& record, std::size_t index) {
           writeWord(record, 0, 0);
           writeText(record, 12, "language " + text(index));
         }));
  const std::string properties = markedRequest(2, 1);
  expect(properties, listOf(properties, count, [&](std::string& record, std::size_t index) {
           writeWord(record, 0, 2);
           writeWord(record, 8, 77 + number(index));
           writeText(record, 12, "n" + text(index));
           writeText(record, 267, std::string(index, 'v'));
           record.replace(522, 2, 2, '\0');
         }));
  const std::string descriptors = markedRequest(6, 15);
  const std::string expected =
      listOf(descriptors, count, [&](std::string& record, std::size_t index) {
        writeWord(record, 0, 6);
        writeWord(record, 8, 3);
        record.replace(12, 2, word(number(index)).substr(0, 2));
        writeWord(record, 16, 0);
        writeWord(record, 20, 1);
      });
  std::string received = ask(descriptors, expected.size());
  // Where an address fits the word, it is the list's, which is not 0.
  for (std::size_t index = 1; index <= count && sizeof(void*) == 4; ++index) {
    const std::size_t reference = index * recordSize + 20;
    EXPECT_NE(received.substr(reference, 4), word(0)) << index;
    received.replace(reference, 4, word(1));
  }
  EXPECT_TRUE(received == expected);
}

// What a short record leaves out comes from the last element of the list before it.
TEST_F(ListPieces, LeaveTheReceivedRecordAsTheirLastElement) {
  for (const int count : {0, 1, 15, 16, 17, 40}) {
    listener.languages.clear();
    for (int number = 0; number < count; ++number) {
      listener.languages.push_back("language " + std::to_string(number));
    }
    message asked = request(VIDEO, 4);
    putShortString(asked, 12, "the request's own");
    RawClient client;
    client.send(asked);
    const std::size_t size = static_cast<std::size_t>(count + 1) * recordSize;
    EXPECT_EQ(client.receive(size).size(), size);
    log.take();
    client.send(word(SYSTEM_PROPERTY) + word(0) + word(3));
    client.close();
    EXPECT_TRUE(log.await(
        "removeSystemProperty(" +
        (count == 0 ? "the request's own" : "language " + std::to_string(count - 1)) + ")"));
  }
}

/// Where a piece may be cut: around each record's beginning, and in its middle.
Sizes cuts() {
  Sizes all;
  for (std::size_t record = 0; record <= 16; ++record) {
    for (const int off : {-1, 0, 1, 980}) {
      const auto cut = static_cast<std::ptrdiff_t>(record * recordSize) + off;
      if (cut >= 0 && cut < static_cast<std::ptrdiff_t>(wholePiece)) {
        all.push_back(static_cast<std::size_t>(cut));
      }
    }
  }
  return all;
}

TEST_F(ListPieces, GoOnWithTheRestOfTheRecordThatWasCutThenRecordByRecord) {
  listener.services = makeServices(20);
  const std::string asked = markedRequest(6, 6);
  const std::string expected = listOfServices(asked, 20);
  const CaughtStream errors(stderr);
  const RawClient client;
  for (const std::size_t cut : cuts()) {
    awaitIdle(client);
    sizes.clear();
    onSend = [&](int socket, const void* data, std::size_t size, int flags) {
      sizes.push_back(size);
      const std::size_t taken = sizes.size() == 1 ? cut : size;
      // A piece may find no memory where a record does.
      if (taken > 0) return __real_send(socket, data, taken, flags);
      errno = ENOBUFS;
      return ssize_t{-1};
    };
    client.send(asked);
    ASSERT_TRUE(client.receive(expected.size()) == expected) << cut;
    awaitIdle(client);
    onSend = nullptr;
    sizes.pop_back();
    Sizes sends{wholePiece, recordSize - cut % recordSize};
    for (std::size_t record = cut / recordSize + 1; record < 16; ++record) {
      sends.push_back(recordSize);
    }
    sends.push_back(5 * recordSize);
    EXPECT_EQ(sizes, sends) << cut;
  }
  EXPECT_EQ(errors.text(), "");
}

TEST_F(ListPieces, PrintALineForEachRecordThatFails) {
  listener.services = makeServices(20);
  const RawClient client;
  for (const std::size_t cut : cuts()) {
    awaitIdle(client);
    const CaughtStream errors(stderr);
    bool isFirst = true;
    onSend = [&](int socket, const void* data, std::size_t, int flags) {
      if (std::exchange(isFirst, false) && cut > 0) return __real_send(socket, data, cut, flags);
      errno = EPIPE;
      return ssize_t{-1};
    };
    client.send(request(SI, 6));
    // It has no reply, and comes when the list has been given up.
    log.take();
    client.send(request(CAROUSEL, 3));
    ASSERT_TRUE(log.await("addCarouselListener()"));
    onSend = nullptr;
    std::string lines;
    for (std::size_t failed = 21 - cut / recordSize; failed > 0; --failed) {
      lines += "Can't send message: Broken pipe\n";
    }
    EXPECT_EQ(errors.text(), lines) << cut;
    EXPECT_EQ(client.receive(cut).size(), cut);
  }
}

/// What a client does behind so many bytes of a list that does not fit the socket.
enum class Manner { closes, closesReceiving, waitsForTheDeletion };

class ListPiecesWithoutReader : public testing::TestWithParam<Manner> {};

TEST_P(ListPiecesWithoutReader, EndAtAnyPosition) {
  constexpr int count = 400;
  const std::string line = "Can't send message: Broken pipe\n";
  for (const std::size_t position : cuts()) {
    CallLog log;
    RecordingListener listener(log);
    listener.services = makeServices(count);
    IpcServerManager* const manager = makeManager();
    manager->addIpcServerListener(&listener);
    const CaughtStream errors(stderr);
    RawClient client;
    client.send(request(SI, 6));
    std::size_t received = client.receive(position + 1).size();
    EXPECT_EQ(received, position + 1);
    if (GetParam() == Manner::waitsForTheDeletion) {
      log.take();
      {
        const Watchdog watchdog{std::chrono::seconds(2)};
        IpcServerManager::destroy();
      }
      EXPECT_TRUE(log.take().empty());
      // The record that was blocked, if one was, and the first that could not begin.
      client.drain();
      const std::string refused = "Can't send message: Bad file descriptor\n";
      EXPECT_TRUE(errors.text() == line + refused || errors.text() == refused) << errors.text();
      continue;
    }
    if (GetParam() == Manner::closesReceiving) {
      shutdown(client.descriptor(), SHUT_RD);
      client.send(request(CAROUSEL, 3));
      EXPECT_TRUE(log.await("addCarouselListener()"));
      // It may still take what the kernel had for it.
      received += client.receive((count + 1) * recordSize).size();
      const std::size_t failed = count + 1 - received / recordSize;
      std::string lines;
      for (std::size_t index = 0; index < failed; ++index) lines += line;
      EXPECT_EQ(errors.text(), lines) << position;
    } else {
      client.close();
    }
    // The next client is served, whatever the one before has left.
    client.close();
    const RawClient next;
    EXPECT_EQ(next.ask(request(VERSION, 1)).group, VERSION);
    IpcServerManager::destroy();
  }
}

std::string nameOf(const testing::TestParamInfo<Manner>& manner) {
  switch (manner.param) {
    case Manner::closes:
      return "Closes";
    case Manner::closesReceiving:
      return "ClosesReceiving";
    case Manner::waitsForTheDeletion:
      break;
  }
  return "WaitsForTheDeletion";
}

INSTANTIATE_TEST_SUITE_P(Manners, ListPiecesWithoutReader,
                         testing::Values(Manner::closes, Manner::closesReceiving,
                                         Manner::waitsForTheDeletion),
                         nameOf);

}  // namespace
}  // namespace quillwork
