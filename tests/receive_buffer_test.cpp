// What a record that came short has behind it.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/IpcServer.h"
#include "protocol/message.h"
#include "support/CallLog.h"
#include "support/RawClient.h"

namespace quillwork {
namespace {

constexpr const char* path = "/dev/shm/buffer.socket";
constexpr int pathLength = 22;
constexpr std::size_t size = sizeof(message);
constexpr std::size_t front = 1000;

class Keeper : public IpcListener {
 public:
  void update(message& record) override {
    records.push_back(bytesOf(record));
    if (onUpdate) onUpdate(record);
  }
  void update(std::list<message>) override {}
  void clientConnected() override {}
  void clientDisconnected() override { log.add("disconnected"); }

  std::vector<std::string> records;
  std::function<void(message&)> onUpdate;
  CallLog log;
};

class ReceiveBuffer : public testing::Test {
 protected:
  ReceiveBuffer() { server.start(); }

  /// A client that sends the bytes and leaves; the records that the listener got, the one of the
  /// connection's end included.
  std::vector<std::string> recordsOf(std::string_view bytes) {
    {
      const RawClient client(path);
      client.send(bytes);
    }
    EXPECT_TRUE(keeper.log.await("disconnected()"));
    keeper.log.take();
    return std::exchange(keeper.records, {});
  }

  Keeper keeper;
  IpcServer server{&keeper, path, pathLength};
};

std::string repeated(char letter, std::size_t count) { return std::string(count, letter); }

/// With the words of the connection's end written into it.
std::string ended(std::string record) {
  record.replace(0, 4, word(0));
  record.replace(8, 4, word(2));
  return record;
}

TEST_F(ReceiveBuffer, KeepsWhatTheClientBeforeHasSent) {
  const std::string whole = repeated('a', size);
  EXPECT_EQ(recordsOf(whole), (std::vector<std::string>{whole, ended(whole)}));
  const std::string mixed = repeated('b', front) + repeated('a', size - front);
  EXPECT_EQ(recordsOf(repeated('b', front)), (std::vector<std::string>{mixed, ended(mixed)}));
}

TEST_F(ReceiveBuffer, KeepsTheWordsOfTheConnectionsEnd) {
  const std::string whole = repeated('a', size);
  recordsOf(whole);
  EXPECT_EQ(recordsOf(""), std::vector<std::string>{ended(whole)});
  std::string mixed = ended(whole);
  mixed.replace(0, 2, "bb");
  EXPECT_EQ(recordsOf("bb"), (std::vector<std::string>{mixed, ended(mixed)}));
}

TEST_F(ReceiveBuffer, KeepsWhatTheListenerHasWritten) {
  keeper.onUpdate = [](message& record) { record[489] = 0x64646464; };
  recordsOf(repeated('a', size));
  const std::string mixed =
      repeated('b', front) + repeated('a', size - front - 4) + repeated('d', 4);
  EXPECT_EQ(recordsOf(repeated('b', front)).front(), mixed);
}

TEST_F(ReceiveBuffer, IsZeroBytesWhenTheThreadStarts) {
  const std::string mixed = repeated('b', front) + repeated('\0', size - front);
  EXPECT_EQ(recordsOf(repeated('b', front)).front(), mixed);
}

TEST_F(ReceiveBuffer, IsZeroBytesAgainWhenTheServerIsStartedAgain) {
  recordsOf(repeated('a', size));
  server.stop();
  server.start();
  const std::string mixed = repeated('b', front) + repeated('\0', size - front);
  EXPECT_EQ(recordsOf(repeated('b', front)).front(), mixed);
}

}  // namespace
}  // namespace quillwork
