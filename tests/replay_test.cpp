// A receiver made of a recording, asked by clients of raw bytes.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/Golden.h"
#include "support/Program.h"
#include "support/RawClient.h"
#include "support/UnixSocket.h"

namespace {

using quillwork::message;

constexpr const char* path = "/dev/shm/recording";

enum Channel : char { control, sectionFilter };
enum Event : char { toLibrary, toClient, connected, endedByClient, endedByLibrary };

/// A recording, written by hand.
class Recorded {
 public:
  Recorded& add(Channel channel, Event event, const std::string& bytes = "") {
    const char kind[] = {channel, event, 0, 0};
    bytes_ += std::string(8, '\0') + std::string(kind, sizeof kind);
    bytes_ += word(static_cast<std::int32_t>(bytes.size())) + bytes;
    return *this;
  }
  void write(const std::string& signature = "quillwork-trace 2\n") const {
    std::ofstream(path) << signature << bytes_;
  }

 private:
  std::string bytes_;
};

/// Whether these bytes come: a failure shows none of them, for they are many.
bool receives(const RawClient& client, const std::string& bytes) {
  return client.receive(bytes.size()) == bytes;
}

std::string record(std::int32_t group, std::int32_t type, std::int32_t word3 = 0) {
  message made = request(group, type);
  made[3] = word3;
  return bytesOf(made);
}

/// A replay of what has been written, from when it serves on.
class Served {
 public:
  Served() : program_({CLIENT, "trace", "--replay", path}) {
    while (errors().find("answers as recorded\n") == std::string::npos) std::this_thread::yield();
  }
  /// What it says until it has said that.
  std::string awaitError(const std::string& text) const {
    while (errors().find(text) == std::string::npos) std::this_thread::yield();
    return errors();
  }
  [[nodiscard]] std::string errors() const { return program_.errors(); }
  int end() {
    program_.signal(SIGTERM);
    return program_.wait();
  }

 private:
  Program program_;
};

const std::string currentService = record(quillwork::SI, 7);
const std::string freeze = record(quillwork::VIDEO, 7, 1);

std::string endOfMedia(std::int32_t player) { return record(quillwork::MEDIA, 16, player); }
std::string service(std::int32_t identifier) { return record(quillwork::SI, 7, identifier); }

TEST(Replay, ARequestIsAnsweredAsRecordedWithTheNotificationsWhereTheyStood) {
  Recorded()
      .add(control, connected)
      .add(control, toClient, endOfMedia(1))
      .add(control, toLibrary, currentService)
      .add(control, toClient, endOfMedia(2) + service(1001) + endOfMedia(3))
      .add(control, toLibrary, freeze + currentService)
      .add(control, toClient, service(1002))
      .write();
  const Served replay;
  const RawClient client;
  EXPECT_TRUE(receives(client, endOfMedia(1)));
  client.send(currentService);
  EXPECT_TRUE(receives(client, endOfMedia(2) + service(1001) + endOfMedia(3)));
  // In pieces; the first request has no reply.
  client.send(freeze + currentService.substr(0, 7));
  client.send(currentService.substr(7));
  EXPECT_TRUE(receives(client, service(1002)));
  // From the beginning again.
  client.send(currentService + currentService);
  EXPECT_TRUE(receives(client, endOfMedia(2) + service(1001) + endOfMedia(3) + service(1002)));
  client.closeSending();
  EXPECT_TRUE(client.isAtEnd());
}

TEST(Replay, RepliesBelongToTheirRequestsAlsoWhereTheseWereSentAtOnce) {
  const std::string network = record(quillwork::SI, 14, 65312);
  Recorded()
      .add(control, connected)
      .add(control, toLibrary, currentService + record(quillwork::SI, 14))
      .add(control, toClient, service(1001) + network)
      .write();
  const Served replay;
  const RawClient client;
  client.send(record(quillwork::SI, 14));
  EXPECT_TRUE(receives(client, network));
  client.send(currentService);
  EXPECT_TRUE(receives(client, service(1001)));
}

TEST(Replay, EachConnectionBeginsWhereTheRecordedOneDid) {
  Recorded recorded;
  for (const std::int32_t number : {1, 2}) {
    recorded.add(control, connected)
        .add(control, toLibrary, currentService)
        .add(control, toClient, service(number))
        .add(control, endedByClient)
        .add(control, endedByLibrary);
  }
  recorded.write();
  const Served replay;
  // The last one stays.
  for (const std::int32_t number : {1, 2, 2}) {
    const RawClient client;
    client.send(currentService);
    EXPECT_TRUE(receives(client, service(number)));
  }
}

TEST(Replay, EveryGoldenRequestIsAnsweredByteForByte) {
  const std::vector<Golden> goldens = Golden::readAll(GOLDEN_DIRECTORY);
  Recorded recorded;
  recorded.add(control, connected);
  for (const Golden& golden : goldens) {
    for (const Golden::Part& part : golden.parts) {
      recorded.add(control, part.fromClient ? toLibrary : toClient, part.bytes);
    }
  }
  // As a trace of earlier versions has kept it.
  recorded.write("quillwork-trace 1\n");
  const Served replay;
  const RawClient client;
  for (const Golden& golden : goldens) {
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) {
        client.send(part.bytes);
      } else {
        EXPECT_TRUE(receives(client, part.bytes)) << golden.name;
      }
    }
  }
  EXPECT_EQ(replay.errors(), "quillwork-client: answers as recorded\n");
}

TEST(Replay, TheSectionFilterIsReplayedToo) {
  const std::string first = word(3) + "abc";
  const std::string second = word(2) + "de";
  Recorded()
      .add(sectionFilter, connected)
      .add(sectionFilter, toLibrary, word(2) + word(17) + word(13))
      .add(sectionFilter, toClient, first)
      .add(sectionFilter, toLibrary, word(13))
      .add(sectionFilter, toClient, second)
      .write();
  const Served replay;
  const RawClient client(RawClient::sectionFilter);
  client.send(word(2) + word(17) + word(13) + word(13));
  EXPECT_TRUE(receives(client, first + second));
  // Another PID is another request.
  client.send(word(2) + word(18));
  EXPECT_TRUE(client.isAtEnd());
  EXPECT_EQ(replay.awaitError("set_pid"),
            "quillwork-client: answers as recorded\n"
            "quillwork-client: not in the recording, the connection is ended: set_pid "
            "{\"pid\":18}\n");
}

TEST(Replay, ARequestThatIsNotInTheRecordingEndsTheConnectionAlone) {
  Recorded()
      .add(control, connected)
      .add(control, toLibrary, currentService)
      .add(control, toClient, service(7))
      .write();
  Served replay;
  for (const std::string& other : {record(quillwork::SI, 6), record(77, 5)}) {
    const RawClient client;
    client.send(currentService);
    EXPECT_TRUE(receives(client, service(7)));
    client.send(other + currentService);
    EXPECT_TRUE(client.isAtEnd());
  }
  EXPECT_EQ(replay.awaitError("dropped"),
            "quillwork-client: answers as recorded\n"
            "quillwork-client: not in the recording, the connection is ended: getServices {}\n"
            "quillwork-client: not in the recording, the connection is ended: dropped "
            "{\"group\":77,\"type\":5,\"printed\":\"Unknown message: 77\"}\n");
  EXPECT_EQ(replay.end(), 0);
  EXPECT_FALSE(std::filesystem::exists(RawClient::control));
  EXPECT_FALSE(std::filesystem::exists(RawClient::sectionFilter));
}

TEST(Replay, SocketsThatSomebodyServesAreLeftToThem) {
  Recorded().add(control, connected).write();
  const auto refusal = [] {
    Program second({CLIENT, "trace", "--replay", path});
    EXPECT_EQ(second.wait(), 1);
    return second.errors();
  };
  const std::string served = ": another receiver serves there\n";
  {
    const Served replay;
    EXPECT_EQ(refusal(), "quillwork-client: /dev/shm/ipc.socket" + served);
    // Nothing was taken away.
    EXPECT_TRUE(std::filesystem::exists(RawClient::sectionFilter));
  }
  // It was killed: what it has left is in nobody's way.
  Served().end();
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(listenAt(listening, RawClient::sectionFilter), 0);
  EXPECT_EQ(refusal(), "quillwork-client: /dev/shm/ipcdemux.socket" + served);
  EXPECT_FALSE(std::filesystem::exists(RawClient::control));
  close(listening);
  unlink(RawClient::sectionFilter);
}

TEST(Replay, AReceiverThatHasBoundASocketAnewKeepsIt) {
  Recorded().add(control, connected).write();
  Served replay;
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(unlink(RawClient::control), 0);
  ASSERT_EQ(listenAt(listening, RawClient::control), 0);
  EXPECT_EQ(replay.end(), 0);
  EXPECT_FALSE(std::filesystem::exists(RawClient::sectionFilter));
  const RawClient client;
  client.send("q");
  const int connection = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
  char byte = 0;
  EXPECT_EQ(recv(connection, &byte, 1, MSG_WAITALL), 1);
  close(connection);
  close(listening);
  unlink(RawClient::control);
}

TEST(Replay, WhatCannotBeReplayedIsRefused) {
  const auto errors = [](std::vector<std::string> words) {
    words.insert(words.begin(), {CLIENT, "trace"});
    Program program(words);
    EXPECT_EQ(program.wait(), 1);
    return program.errors();
  };
  EXPECT_EQ(errors({"--replay", "/nowhere"}),
            "quillwork-client: /nowhere: No such file or directory\n");
  EXPECT_EQ(errors({"--replay", "a", "--read", "b"}),
            "quillwork-client: --record, --read and --replay exclude each other\n");
  Recorded()
      .add(sectionFilter, connected)
      .add(sectionFilter, toLibrary, word(4) + word(0) + word(INT32_MAX))
      .write();
  EXPECT_EQ(errors({"--replay", path}),
            std::string("quillwork-client: ") + path + ": not decoded to its end\n");
}

}  // namespace
