// What stands between a client and the library: every row of the protocol decoded, and the program.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/ControlDecoder.h"
#include "cli/SectionDecoder.h"
#include "support/Golden.h"
#include "support/Program.h"
#include "support/RawClient.h"

namespace {

using quillwork::message;
using quillwork::cli::ControlDecoder;
using quillwork::cli::Direction;
using quillwork::cli::Json;
using quillwork::cli::SectionDecoder;
using quillwork::cli::TraceLine;
using Lines = std::vector<TraceLine>;

template <class Decoder>
void feed(Lines& lines, Decoder& decoder, Direction direction, std::string_view bytes) {
  for (TraceLine& line : decoder.feed(direction, bytes)) lines.push_back(std::move(line));
}

/// A line as one text, to compare.
std::string show(const TraceLine& line) {
  return (line.direction == Direction::toLibrary ? "> " : "< ") + line.kind + " " + line.operation +
         " " + line.fields.dump();
}

std::vector<std::string> show(const Lines& lines) {
  std::vector<std::string> texts;
  for (const TraceLine& line : lines) texts.push_back(show(line));
  return texts;
}

class EveryRow : public testing::TestWithParam<Golden> {};

Lines decode(const Golden& golden, std::size_t piece) {
  ControlDecoder decoder;
  Lines lines;
  for (const Golden::Part& part : golden.parts) {
    const Direction direction = part.fromClient ? Direction::toLibrary : Direction::toClient;
    for (std::size_t position = 0; position < part.bytes.size(); position += piece) {
      feed(lines, decoder, direction, std::string_view(part.bytes).substr(position, piece));
    }
  }
  // Whatever has not been taken apart would be in the way of the next request.
  feed(lines, decoder, Direction::toLibrary, bytesOf(request(quillwork::SI, 7)));
  message record = request(quillwork::SI, 7);
  record[3] = 4711;
  feed(lines, decoder, Direction::toClient, bytesOf(record));
  return lines;
}

TEST_P(EveryRow, IsDecodedWholeAndInPieces) {
  const Lines lines = decode(GetParam(), 1 << 20);
  ASSERT_GE(lines.size(), 3U);
  for (const TraceLine& line : lines) EXPECT_NE(line.kind, "unknown") << show(line);
  EXPECT_EQ(lines.front().kind, "request");
  EXPECT_EQ(show(lines.back()), R"(< reply getCurrentService {"service":4711})");
  EXPECT_EQ(show(decode(GetParam(), 7)), show(lines));
}

INSTANTIATE_TEST_SUITE_P(Trace, EveryRow, testing::ValuesIn(Golden::readAll(GOLDEN_DIRECTORY)),
                         [](const auto& row) { return testName(row.param); });

TEST(Trace, NotificationsAreDecodedBetweenARequestAndItsReply) {
  ControlDecoder decoder;
  Lines lines;
  feed(lines, decoder, Direction::toLibrary, bytesOf(request(quillwork::SI, 6)));
  message record = request(quillwork::MEDIA, 16);
  record[3] = 7;
  feed(lines, decoder, Direction::toClient, bytesOf(record));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::VIDEO, 17)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::APPLICATION_STATE, 3)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::CAROUSEL, 2)));
  // A command of two parts, whose header could be the list's.
  message part = request(quillwork::DSMCC_COMMAND, 5);
  quillwork::putBytes(part, 25, "goal", 4);
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 2)));
  feed(lines, decoder, Direction::toClient, bytesOf(part) + bytesOf(part));
  feed(lines, decoder, Direction::toClient, bytesOf(part));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 0)));
  std::vector<std::string> kinds;
  for (const TraceLine& line : lines) kinds.push_back(line.kind + ' ' + line.operation);
  EXPECT_EQ(kinds, (std::vector<std::string>{
                       "request getServices", "notification endOfMedia",
                       "notification changeGraphicsSettings", "notification setApplicationState",
                       "notification downloadComplete", "list sendDsmCCCommand",
                       "notification sendDsmCCCommand", "notification sendDsmCCCommand",
                       "notification sendDsmCCCommand", "list getServices"}));
  EXPECT_EQ(lines[1].fields, (Json{{"player", 7}}));
  EXPECT_EQ(lines[3].fields, (Json{{"state", 3}}));
  EXPECT_EQ(lines[6].fields["text"], "goal");
}

TEST(Trace, WhatFitsNothingIsShownAsUnknown) {
  ControlDecoder decoder;
  Lines lines;
  feed(lines, decoder, Direction::toLibrary, bytesOf(request(77, 5)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::SI, 7)));
  EXPECT_EQ(show(lines), (std::vector<std::string>{R"(> unknown  {"group":77,"type":5})",
                                                   R"(< unknown  {"group":6,"type":7})"}));
}

// In a process of 32 bits the length and what is before it are more than a size can hold.
TEST(Trace, ATextOfFourGigabytesIsWaitedFor) {
  ControlDecoder decoder;
  Lines lines;
  feed(lines, decoder, Direction::toLibrary, bytesOf(request(quillwork::SI, 2)));
  message event = request(quillwork::SI, 2);
  quillwork::put<std::int32_t>(event, 812 + 4 * 3, 1);
  quillwork::put<std::int32_t>(event, 836 + 4 * 3, 1);
  feed(lines, decoder, Direction::toClient, bytesOf(event) + word(-1) + "text");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines.back().kind, "reply");
}

TEST(Trace, EverySectionFilterRequestIsDecoded) {
  const std::string vector = word(2) + "\x01\xff";
  const std::string requests = word(0) + word(1) + word(2) + word(17) + word(3) + word(66) +
                               word(4) + word(1) + vector + vector + word(5) + word(2) + vector +
                               vector + word(6) + word(3) + vector + vector + word(7) + word(4) +
                               vector + vector + word(0) + word(8) + word(900) + word(9) +
                               word(10) + word(11) + word(12) + word(13) + word(14);
  for (const std::size_t piece : {requests.size(), std::size_t{3}}) {
    SectionDecoder decoder;
    Lines lines;
    for (std::size_t position = 0; position < requests.size(); position += piece) {
      feed(lines, decoder, Direction::toLibrary,
           std::string_view(requests).substr(position, piece));
    }
    feed(lines, decoder, Direction::toClient, word(3) + "abc" + word(0));
    EXPECT_EQ(
        show(lines),
        (std::vector<std::string>{
            "> request start {}", "> request stop {}", R"(> request set_pid {"pid":17})",
            R"(> request set_table_id {"table_id":66})",
            R"(> request set_positive_filter {"filter_arg":1,"bytes_1":"01ff","bytes_2":"01ff"})",
            R"(> request set_greater_than_filter {"filter_arg":2,"bytes_1":"01ff","bytes_2":"01ff"})",
            R"(> request set_less_than_filter {"filter_arg":3,"bytes_1":"01ff","bytes_2":"01ff"})",
            R"(> request set_xor_filter {"filter_arg":4,"bytes_1":"01ff","bytes_2":"01ff","bytes_3":""})",
            R"(> request set_time_out {"time_out":900})", "> request clear_table_id {}",
            "> request clear_positive_filter {}", "> request clear_less_than_filter {}",
            "> request clear_xor_filter {}", "> request read_section {}",
            R"(> unknown  {"code":14})", R"(< reply read_section {"size":3,"section":"616263"})",
            R"(< reply read_section {"size":0,"section":""})"}));
  }
}

class Standing : public testing::Test {
 protected:
  static constexpr const char* recording = "/dev/shm/recording";

  Program host{{receiverProgram(), "--fast", TABLES}};

  static std::string client(std::vector<std::string> words) {
    words.insert(words.begin(), CLIENT);
    Program program(words);
    EXPECT_EQ(program.wait(), 0) << program.errors();
    return program.output();
  }

  static void awaitSocket(const std::string& path) {
    while (!std::filesystem::exists(path)) std::this_thread::yield();
  }
};

TEST_F(Standing, ChangesNothingOfWhatTheClientGetsAndPutsTheSocketsBack) {
  // Everything has been on air.
  ASSERT_TRUE(host.awaitOutput("broadcast time"));
  const std::string before = client({"services"}) + client({"network"});
  Program trace({CLIENT, "trace", "--record", recording});
  awaitSocket("/dev/shm/ipcdemux.socket.traced");
  awaitSocket("/dev/shm/ipcdemux.socket");
  EXPECT_EQ(client({"services"}) + client({"network"}), before);
  ASSERT_TRUE(trace.awaitOutput("reply        getNetwork"));
  trace.signal(SIGTERM);
  EXPECT_EQ(trace.wait(), 0);
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/ipc.socket.traced"));
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/ipcdemux.socket.traced"));
  EXPECT_EQ(client({"services"}) + client({"network"}), before);

  EXPECT_NE(trace.output().find("control        > request      getServices\n"), std::string::npos);
  EXPECT_NE(trace.output().find("name=\"Quill One\""), std::string::npos);
  EXPECT_EQ(client({"trace", "--read", recording}), trace.output());
  std::istringstream json(client({"--json", "trace", "--read", recording}));
  std::set<std::string> operations;
  for (std::string line; std::getline(json, line);) {
    const Json entry = Json::parse(line);
    EXPECT_EQ(entry["channel"], "control");
    if (entry["kind"] == "request") operations.insert(entry["operation"]);
  }
  EXPECT_EQ(operations, (std::set<std::string>{"getNetwork", "getServices"}));
}

TEST_F(Standing, ASecondOneIsRefusedAndOneThatWasKilledIsFollowed) {
  // Everything has been on air.
  ASSERT_TRUE(host.awaitOutput("broadcast time"));
  Program first({CLIENT, "trace"});
  awaitSocket("/dev/shm/ipcdemux.socket.traced");
  awaitSocket("/dev/shm/ipcdemux.socket");
  // Its threads accept from here on.
  const std::string services = client({"services"});
  Program second({CLIENT, "trace"});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.errors(),
            "quillwork-client: /dev/shm/ipc.socket: another trace stands there already\n");
  EXPECT_EQ(client({"services"}), services);
  first.signal(SIGKILL);
  first.wait();
  {
    Program third({CLIENT, "trace"});
    while (third.errors().find("between the library") == std::string::npos) {
      std::this_thread::yield();
    }
    EXPECT_EQ(client({"services"}), services);
    third.signal(SIGTERM);
    EXPECT_EQ(third.wait(), 0);
  }
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/ipc.socket.traced"));
  EXPECT_EQ(client({"services"}), services);
}

TEST(Trace, SaysWhatIsWrong) {
  const auto errors = [](std::vector<std::string> words) {
    Program program(std::move(words));
    EXPECT_EQ(program.wait(), 1);
    return program.errors();
  };
  EXPECT_EQ(errors({CLIENT, "trace"}),
            "quillwork-client: /dev/shm/ipc.socket: No such file or directory\n");
  EXPECT_EQ(errors({CLIENT, "trace", "--read", "/nowhere"}),
            "quillwork-client: /nowhere: No such file or directory\n");
  EXPECT_EQ(errors({CLIENT, "trace", "--record", "/nowhere/x"}),
            "quillwork-client: /nowhere/x: No such file or directory\n");
  EXPECT_EQ(errors({CLIENT, "trace", "--read", CLIENT}),
            std::string("quillwork-client: ") + CLIENT + ": no recording of a trace\n");
  std::ofstream("/dev/shm/cut") << "quillwork-trace 1\n1234567";
  EXPECT_EQ(errors({CLIENT, "trace", "--read", "/dev/shm/cut"}),
            "quillwork-client: /dev/shm/cut: cut short\n");
  std::ofstream("/dev/shm/damaged") << "quillwork-trace 1\n" << std::string(16, 'x');
  EXPECT_EQ(errors({CLIENT, "trace", "--read", "/dev/shm/damaged"}),
            "quillwork-client: /dev/shm/damaged: a damaged recording\n");
}

}  // namespace
