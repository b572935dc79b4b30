// What stands between a client and the library: every row of the protocol decoded, and the program.

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cli/ControlDecoder.h"
#include "cli/SectionDecoder.h"
#include "protocol/operations.h"
#include "support/Golden.h"
#include "support/Program.h"
#include "support/RawClient.h"
#include "support/UnixSocket.h"

namespace {

using quillwork::message;
using quillwork::cli::ControlDecoder;
using quillwork::cli::Direction;
using quillwork::cli::Json;
using quillwork::cli::SectionDecoder;
using quillwork::cli::TraceLine;
using quillwork::cli::TraceTime;
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
  EXPECT_EQ(show(lines.back()), R"(< reply getCurrentService {"serviceId":4711})");
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

/// The operations that the parts of a channel's golden files are decoded as.
template <class Decoder>
std::set<std::string> operationsIn(const std::string& directory) {
  std::set<std::string> names;
  for (const Golden& golden : Golden::readAll(GOLDEN_DIRECTORY "/" + directory)) {
    if (golden.name.starts_with("raw-")) continue;
    Decoder decoder;
    Lines lines;
    for (const Golden::Part& part : golden.parts) {
      feed(lines, decoder, part.fromClient ? Direction::toLibrary : Direction::toClient,
           part.bytes);
    }
    for (const TraceLine& line : lines) {
      EXPECT_TRUE(line.kind == "notification" || line.kind == "list" || line.kind == "request" ||
                  line.kind == "reply")
          << golden.name << ": " << show(line);
      names.insert(line.operation);
    }
  }
  return names;
}

template <class Rows>
std::set<std::string> namesOf(const Rows& rows) {
  std::set<std::string> names;
  for (const auto& row : rows) names.insert(row.name);
  return names;
}

TEST(Trace, EveryGoldenNotificationIsDecoded) {
  std::set<std::string> expected = namesOf(quillwork::operations::notifications);
  expected.insert("answerApplicationState");
  EXPECT_EQ(operationsIn<ControlDecoder>("notifications"), expected);
}

TEST(Trace, EveryGoldenSectionFilterRequestIsDecoded) {
  EXPECT_EQ(operationsIn<SectionDecoder>("section-filter"),
            namesOf(quillwork::operations::sectionFilterRequests));
}

TEST(Trace, WhatTheLibraryDropsIsShownWithWhatItPrints) {
  ControlDecoder decoder;
  Lines lines;
  const std::int32_t dropped[][2] = {{77, 5}, {-1, 0}, {7, 0}, {9, 1}, {6, 17}, {6, -1},
                                     {0, 19}, {0, -1}, {2, 4}, {5, 2}, {8, 16}};
  for (const auto& [group, type] : dropped) {
    feed(lines, decoder, Direction::toLibrary, bytesOf(request(group, type)));
  }
  EXPECT_EQ(show(lines),
            (std::vector<std::string>{
                R"(> dropped  {"group":77,"type":5,"printed":"Unknown message: 77"})",
                R"(> dropped  {"group":-1,"type":0,"printed":"Unknown message: -1"})",
                R"(> dropped  {"group":7,"type":0,"printed":"Unknown message: 7"})",
                R"(> dropped  {"group":9,"type":1,"printed":"Unknown message: 9"})",
                R"(> dropped  {"group":6,"type":17,"printed":"Unknown si message type:  17"})",
                R"(> dropped  {"group":6,"type":-1,"printed":"Unknown si message type:  -1"})",
                R"(> dropped  {"group":0,"type":19})", R"(> dropped  {"group":0,"type":-1})",
                R"(> dropped  {"group":2,"type":4})", R"(> dropped  {"group":5,"type":2})",
                R"(> dropped  {"group":8,"type":16})"}));
}

TEST(Trace, WhatNobodyAskedForIsShownAsUnknown) {
  ControlDecoder decoder;
  Lines lines;
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::SI, 7)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 2)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::SI, 6)));
  EXPECT_EQ(show(lines), (std::vector<std::string>{R"(< unknown  {"group":6,"type":7})",
                                                   R"(< unknown  {"count":2})",
                                                   R"(< unknown  {"group":6,"type":6})"}));
  // An element of another list, and what comes after it.
  lines.clear();
  feed(lines, decoder, Direction::toLibrary, bytesOf(request(quillwork::SI, 6)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 1)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::SI, 16)));
  feed(lines, decoder, Direction::toClient, bytesOf(request(quillwork::MEDIA, 16)));
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(show(lines[2]), R"(< unknown getServices {"group":6,"type":16})");
  EXPECT_EQ(show(lines[3]), R"(< notification endOfMedia {"player":0})");
  SectionDecoder sections;
  lines.clear();
  feed(lines, sections, Direction::toClient, word(1) + "x");
  EXPECT_EQ(show(lines), std::vector<std::string>{R"(< unknown  {"size":1,"section":"78"})"});
}

/// What a decoder says when that many bytes, of which only the first have come, are announced.
template <class Decoder>
std::vector<std::string> announce(Decoder decoder, Direction direction, const std::string& bytes) {
  Lines lines;
  feed(lines, decoder, direction, bytes);
  const std::size_t before = decoder.touched();
  feed(lines, decoder, direction, std::string(1'000'000, 'x'));
  EXPECT_EQ(decoder.touched(), before);
  for (TraceLine& line : decoder.finish({})) lines.push_back(std::move(line));
  return show(lines);
}

TEST(Trace, AnAnnouncedLengthBeyondAllMeasureEndsTheDecoding) {
  const std::string tooLong = R"(< undecoded getProgramEvent {"announced":2147483647})";
  const std::string rest = R"(> undecoded  {"bytes":1000000})";
  message event = request(quillwork::SI, 2);
  quillwork::put<std::int32_t>(event, 812, INT32_MAX);
  quillwork::put<std::int32_t>(event, 836, 1);
  ControlDecoder asked;
  asked.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, 2)));
  auto lines = announce(asked, Direction::toClient, bytesOf(event));
  EXPECT_EQ(std::vector(lines.begin() + 1, lines.end()), (std::vector{tooLong, rest}));

  // A text of four gigabytes, and more texts than a list has.
  event = request(quillwork::SI, 2);
  quillwork::put<std::int32_t>(event, 812 + 4 * 3, 1);
  quillwork::put<std::int32_t>(event, 836 + 4 * 3, 1);
  lines = announce(asked, Direction::toClient, bytesOf(event) + word(-1));
  EXPECT_EQ(lines[1], R"(< undecoded getProgramEvent {"announced":4294967295})");
  quillwork::put<std::int32_t>(event, 812 + 4 * 3, 1'048'577);
  lines = announce(asked, Direction::toClient, bytesOf(event));
  EXPECT_EQ(lines[1], R"(< undecoded getProgramEvent {"announced_elements":1048577})");

  ControlDecoder list;
  list.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, 15)));
  message descriptor = request(quillwork::SI, 3);
  descriptor[4] = INT32_MAX;
  descriptor[5] = 1;
  lines = announce(list, Direction::toClient,
                   bytesOf(request(quillwork::LIST_HEADER, 1)) + bytesOf(descriptor));
  EXPECT_EQ(lines[1], R"(< undecoded getNetworkDescriptors {"announced":2147483647})");
  // The record behind a header of two or more belongs to what is not decoded.
  lines = announce(list, Direction::toClient,
                   bytesOf(request(quillwork::LIST_HEADER, INT32_MAX)) + bytesOf(descriptor));
  EXPECT_EQ(lines[1], R"(< undecoded getNetworkDescriptors {"announced_elements":2147483647})");

  lines = announce(SectionDecoder(), Direction::toLibrary, word(4) + word(0) + word(INT32_MAX));
  EXPECT_EQ(lines.front(), R"(> undecoded set_positive_filter {"announced":2147483647})");
  SectionDecoder section;
  section.feed(Direction::toLibrary, word(13));
  lines = announce(section, Direction::toClient, word(INT32_MAX));
  EXPECT_EQ(lines, (std::vector<std::string>{R"(< undecoded read_section {"announced":2147483647})",
                                             rest}));
}

/// Feeds byte for byte and gives how many bytes the decoder has touched for each of them.
template <class Decoder>
double cost(Decoder& decoder, Direction direction, std::string_view bytes) {
  const std::size_t before = decoder.touched();
  for (std::size_t position = 0; position < bytes.size(); ++position) {
    decoder.feed(direction, bytes.substr(position, 1));
  }
  return static_cast<double>(decoder.touched() - before) / static_cast<double>(bytes.size());
}

TEST(Trace, WhatTheDecodingCostsIsLinearInTheBytesWhateverThePieces) {
  constexpr double most = 4;
  // Sixty-four thousand texts in small pieces, and a list in one.
  ControlDecoder control;
  control.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, 2)));
  message event = request(quillwork::SI, 2);
  quillwork::put<std::int32_t>(event, 812 + 4 * 3, 64'000);
  quillwork::put<std::int32_t>(event, 836 + 4 * 3, 1);
  std::string texts;
  for (int index = 0; index < 64'000; ++index) texts += word(5) + "quill";
  EXPECT_LE(cost(control, Direction::toClient, bytesOf(event) + texts), most);
  control.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, 6)));
  std::string list = bytesOf(request(quillwork::LIST_HEADER, 2000));
  for (int index = 0; index < 2000; ++index) list += bytesOf(request(quillwork::SI, 6));
  std::size_t before = control.touched();
  EXPECT_EQ(control.feed(Direction::toClient, list).size(), 2001U);
  EXPECT_LE(control.touched() - before, 4 * list.size());

  SectionDecoder sections;
  EXPECT_LE(cost(sections, Direction::toClient, word(1'000'000) + std::string(1'000'000, 's')),
            most);
  std::string requests;
  for (int index = 0; index < 100'000; ++index) requests += word(2) + word(17);
  before = sections.touched();
  EXPECT_EQ(sections.feed(Direction::toLibrary, requests).size(), 100'000U);
  EXPECT_LE(sections.touched() - before, 4 * requests.size());
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
    feed(lines, decoder, Direction::toClient, word(3) + "abc");
    EXPECT_EQ(
        show(lines),
        (std::vector<std::string>{
            "> request start {}", "> request stop {}", R"(> request set_pid {"pid":17})",
            R"(> request set_table_id {"tableId":66})",
            R"(> request set_positive_filter {"filterArg":1,"first":"01ff","second":"01ff"})",
            R"(> request set_greater_than_filter {"filterArg":2,"first":"01ff","second":"01ff"})",
            R"(> request set_less_than_filter {"filterArg":3,"first":"01ff","second":"01ff"})",
            R"(> request set_xor_filter {"filterArg":4,"first":"01ff","second":"01ff","third":""})",
            R"(> request set_time_out {"timeOut":900})", "> request clear_table_id {}",
            "> request clear_positive_filter {}", "> request clear_less_than_filter {}",
            "> request clear_xor_filter {}", "> request read_section {}",
            R"(> dropped  {"code":14})", R"(< reply read_section {"size":3,"section":"616263"})"}));
  }
}

TEST(Trace, ARecordWhoseRestDoesNotComeWithinASecondIsIncomplete) {
  using namespace std::chrono_literals;
  const std::string record = bytesOf(request(quillwork::SI, 6));
  ControlDecoder decoder;
  EXPECT_TRUE(decoder.feed(Direction::toLibrary, record.substr(0, 1912), 10s).empty());
  EXPECT_EQ(decoder.nextStall(), 11s);
  EXPECT_TRUE(decoder.stalled(11s - 1ns).empty());
  Lines lines = decoder.stalled(12s);
  ASSERT_EQ(show(lines),
            std::vector<std::string>{R"(> incomplete  {"received":1912,"expected":1960})"});
  EXPECT_EQ(lines[0].time, 11s);
  // Once, until more comes.
  EXPECT_FALSE(decoder.nextStall());
  EXPECT_TRUE(decoder.stalled(20s).empty());
  EXPECT_TRUE(decoder.feed(Direction::toLibrary, record.substr(1912, 40), 21s).empty());
  EXPECT_EQ(show(decoder.stalled(22s)),
            std::vector<std::string>{R"(> incomplete  {"received":1952,"expected":1960})"});
  EXPECT_EQ(decoder.feed(Direction::toLibrary, record.substr(1952), 23s)[0].kind, "request");
  EXPECT_FALSE(decoder.nextStall());

  // Of a list's three elements one, and a part of the next; an event's list.
  decoder.feed(Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 3)) + record, 23s);
  EXPECT_EQ(show(decoder.stalled(24s)),
            std::vector<std::string>{
                R"(< incomplete getServices {"received":0,"expected":1960,"elements_left":2})"});
  decoder.feed(Direction::toClient, "1234567", 25s);
  EXPECT_EQ(show(decoder.end(Direction::toClient, 25s)),
            std::vector<std::string>{
                R"(< incomplete getServices {"received":7,"expected":1960,"elements_left":2})"});
  message event = request(quillwork::SI, 2);
  quillwork::put<std::int32_t>(event, 812, 5);
  quillwork::put<std::int32_t>(event, 836, 1);
  ControlDecoder asked;
  asked.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, 2)), 30s);
  asked.feed(Direction::toClient, bytesOf(event) + "123", 30s);
  EXPECT_EQ(
      show(asked.stalled(31s)),
      std::vector<std::string>{R"(< incomplete getProgramEvent {"received":3,"expected":5})"});
}

TEST(Trace, ASectionFilterRequestAndASectionAreIncompleteLikewise) {
  using namespace std::chrono_literals;
  SectionDecoder decoder;
  // At least the code, an integer and two counts.
  decoder.feed(Direction::toLibrary, word(4) + "ab", 1s);
  EXPECT_EQ(
      show(decoder.stalled(2s)),
      std::vector<std::string>{R"(> incomplete set_positive_filter {"received":6,"expected":16})"});
  decoder.feed(Direction::toLibrary, "cd" + word(3) + "xy", 3s);
  EXPECT_EQ(show(decoder.stalled(4s)),
            std::vector<std::string>{
                R"(> incomplete set_positive_filter {"received":14,"expected":19})"});
  SectionDecoder asked;
  asked.feed(Direction::toLibrary, word(13), 5s);
  asked.feed(Direction::toClient, word(9) + "quill", 5s);
  EXPECT_EQ(show(asked.end(Direction::toClient, 5s)),
            (std::vector<std::string>{R"(< incomplete read_section {"received":9,"expected":13})",
                                      "< unanswered read_section {}"}));
}

TEST(Trace, AReplyTellsHowLongItTookAndARequestWithoutOneIsUnanswered) {
  using namespace std::chrono_literals;
  ControlDecoder decoder;
  const auto ask = [&](std::int32_t type, TraceTime time) {
    decoder.feed(Direction::toLibrary, bytesOf(request(quillwork::SI, type)), time);
  };
  ask(6, 10ms);
  ask(14, 20ms);
  ask(7, 30ms);
  ask(6, 40ms);
  Lines lines =
      decoder.feed(Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 0)), 15ms);
  EXPECT_EQ(lines[0].after, 5ms);
  EXPECT_EQ(lines[0].request, 1U);
  // The library answers in the order of the requests: this one shows that the one before it has got
  // no reply.
  lines = decoder.feed(Direction::toClient, bytesOf(request(quillwork::SI, 7)), 50ms);
  EXPECT_EQ(show(lines),
            (std::vector<std::string>{"< unanswered getNetwork {}",
                                      R"(< reply getCurrentService {"serviceId":0})"}));
  EXPECT_EQ(lines[0].after, 30ms);
  EXPECT_EQ(lines[0].request, 2U);
  EXPECT_EQ(lines[1].after, 20ms);
  // The header's time counts, not the one of the record that tells what it is.
  decoder.feed(Direction::toClient, bytesOf(request(quillwork::LIST_HEADER, 2)), 60ms);
  lines = decoder.feed(Direction::toClient, bytesOf(request(quillwork::SI, 6)), 90ms);
  EXPECT_EQ(lines[0].after, 20ms);
  EXPECT_EQ(lines[0].time, 60ms);
  ask(12, 100ms);
  lines = decoder.finish(101ms);
  EXPECT_EQ(show(lines),
            (std::vector<std::string>{
                R"(< incomplete getServices {"received":0,"expected":1960,"elements_left":1})",
                "< unanswered getTransportStream {}"}));
  EXPECT_EQ(lines[1].after, 1ms);
}

TEST(Trace, AnApplicationStateThatTheClientDoesNotAnswerIsUnanswered) {
  using namespace std::chrono_literals;
  const std::string state = bytesOf(request(quillwork::APPLICATION_STATE, 3));
  const std::string answer = bytesOf(request(quillwork::APPLICATION_STATE, 0));
  ControlDecoder decoder;
  // An answer that nobody asked for answers nothing.
  decoder.feed(Direction::toLibrary, answer, 1ms);
  decoder.feed(Direction::toClient, state, 10ms);
  decoder.feed(Direction::toClient, state, 20ms);
  decoder.feed(Direction::toLibrary, answer, 30ms);
  // The client may still answer a library that sends nothing more.
  EXPECT_TRUE(decoder.end(Direction::toClient, 40ms).empty());
  const Lines lines = decoder.end(Direction::toLibrary, 50ms);
  EXPECT_EQ(show(lines), std::vector<std::string>{"> unanswered setApplicationState {}"});
  EXPECT_EQ(lines[0].after, 30ms);
  EXPECT_TRUE(decoder.finish(60ms).empty());

  ControlDecoder asked;
  for (std::size_t index = 0; index < ControlDecoder::maxUnanswered; ++index) {
    asked.feed(Direction::toClient, state);
  }
  EXPECT_EQ(show(asked.feed(Direction::toClient, state)).back(),
            R"(< undecoded setApplicationState {"unanswered":65536})");
}

/// A library of raw bytes at both sockets, with a trace before it.
class Between : public testing::Test {
 protected:
  static constexpr const char* recording = "/dev/shm/recording";

  /// One of its sockets.
  class Server {
   public:
    explicit Server(const char* path) : path_(path) { begin(); }
    ~Server() {
      end();
      close(listening_);
      unlink(path_);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void accept() { connection_ = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC); }
    void send(std::string_view bytes) const {
      EXPECT_EQ(::send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
    }
    /// Takes so many bytes and forgets them.
    void take(std::size_t size) const {
      std::string bytes(size, '\0');
      EXPECT_EQ(recv(connection_, bytes.data(), size, MSG_WAITALL), std::ssize(bytes));
    }
    void end() {
      if (connection_ != -1) close(std::exchange(connection_, -1));
    }
    /// Ends and begins anew, as a library does: whatever is at the path goes.
    void restart() {
      end();
      close(listening_);
      begin();
    }
    /// Whether a client that connects to the path arrives here.
    [[nodiscard]] bool isReached() {
      const RawClient client(path_);
      client.send("q");
      accept();
      char byte = 0;
      const bool isReached = recv(connection_, &byte, 1, MSG_WAITALL) == 1 && byte == 'q';
      end();
      return isReached;
    }

   private:
    void begin() {
      listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      unlink(path_);
      EXPECT_EQ(listenAt(listening_, path_), 0);
    }

    const char* path_;
    int listening_ = -1;
    int connection_ = -1;
  };

  Server control{RawClient::control};
  Server sections{RawClient::sectionFilter};
  Program trace{{CLIENT, "trace", "--record", recording}};

  void SetUp() override { awaitPlace(trace); }

  static void awaitPlace(const Program& program) {
    while (program.errors().find("between the library") == std::string::npos) {
      std::this_thread::yield();
    }
  }

  /// Clients reach the library at both paths, and nothing of a trace is left.
  void expectGivenBack() {
    EXPECT_FALSE(std::filesystem::exists(std::string(RawClient::control) + ".traced"));
    EXPECT_FALSE(std::filesystem::exists(std::string(RawClient::sectionFilter) + ".traced"));
    EXPECT_TRUE(control.isReached());
    EXPECT_TRUE(sections.isReached());
  }

  /// What is printed so far, without times.
  static std::vector<std::string> linesOf(const std::string& output) {
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
      line = line.substr(line.find(' ') + 1);
      lines.push_back(line.substr(0, line.find(" after ")));
    }
    return lines;
  }

  /// Ends the trace, whose recording shows what it has shown.
  std::vector<std::string> end() {
    trace.signal(SIGTERM);
    EXPECT_EQ(trace.wait(), 0) << trace.errors();
    Program read({CLIENT, "trace", "--read", recording});
    EXPECT_EQ(read.wait(), 0) << read.errors();
    EXPECT_EQ(read.output(), trace.output());
    return linesOf(trace.output());
  }
};

TEST_F(Between, ItShowsWhoEndedAConnectionAndWhatIsMissing) {
  {
    RawClient client;
    control.accept();
    client.send(bytesOf(request(quillwork::SI, 6)).substr(0, 1912));
    // The record stays so for a second.
    ASSERT_TRUE(trace.awaitOutput("> incomplete: 1912 of 1960 bytes\n"));
    client.send(std::string(48, '\0'));
    control.take(1960);
    control.send(bytesOf(request(quillwork::LIST_HEADER, 1)) + "quill");
    ASSERT_TRUE(trace.awaitOutput("< incomplete: 5 of 1960 bytes getServices elements_left=1\n"));
    client.send(bytesOf(request(quillwork::SI, 7)) + bytesOf(request(78, 0)) + "end");
    control.take(2 * 1960 + 3);
    control.end();
    ASSERT_TRUE(trace.awaitOutput("unanswered   getCurrentService after "));
  }
  EXPECT_EQ(end(),
            (std::vector<std::string>{
                "control        > connection", "control        > incomplete: 1912 of 1960 bytes",
                "control        > request      getServices",
                "control        < list         getServices count=1",
                "control        < incomplete: 5 of 1960 bytes getServices elements_left=1",
                "control        > request      getCurrentService",
                R"(control        > dropped      group=78 type=0 printed="Unknown message: 78")",
                R"(control        < disconnection by="library")",
                "control        < unanswered   getCurrentService",
                "control        > incomplete: 3 of 1960 bytes"}));
}

TEST_F(Between, ItShowsTheSectionFiltersFaultsToo) {
  {
    RawClient client(RawClient::sectionFilter);
    sections.accept();
    client.send(word(13) + word(99) + word(2) + "ab");
    sections.take(14);
    sections.send(word(4) + "qui");
    ASSERT_TRUE(trace.awaitOutput("> incomplete: 6 of 8 bytes set_pid\n"));
    ASSERT_TRUE(trace.awaitOutput("< incomplete: 7 of 8 bytes read_section\n"));
    sections.send("l");
    client.send("cd" + word(13));
    sections.take(6);
    client.close();
    ASSERT_TRUE(trace.awaitOutput("disconnection by=\"client\"\n"));
    sections.end();
    ASSERT_TRUE(trace.awaitOutput("unanswered "));
  }
  const std::vector<std::string> lines = end();
  EXPECT_EQ(std::set(lines.begin(), lines.end()),
            (std::set<std::string>{
                "section-filter > connection", "section-filter > request      read_section",
                "section-filter > dropped      code=99",
                "section-filter > incomplete: 6 of 8 bytes set_pid",
                "section-filter < incomplete: 7 of 8 bytes read_section",
                R"(section-filter < reply        read_section size=4 section="7175696c")",
                "section-filter > request      set_pid pid=1684234849",
                R"(section-filter > disconnection by="client")",
                "section-filter < unanswered   read_section"}));
}

TEST_F(Between, ATraceThatEndsEndsTheConnections) {
  RawClient client;
  control.accept();
  client.send(bytesOf(request(quillwork::SI, 7)) + "q");
  control.take(1961);
  ASSERT_TRUE(trace.awaitOutput("getCurrentService"));
  const std::vector<std::string> lines = end();
  EXPECT_EQ(lines[2], R"(control        > disconnection by="trace")");
  EXPECT_EQ(lines[3], "control        > incomplete: 1 of 1960 bytes");
  EXPECT_EQ(lines[4], "control        < unanswered   getCurrentService");
  Program read({CLIENT, "--json", "trace", "--read", recording});
  EXPECT_EQ(read.wait(), 0);
  std::istringstream stream(read.output());
  std::vector<Json> entries;
  for (std::string line; std::getline(stream, line);) entries.push_back(Json::parse(line));
  ASSERT_EQ(entries.size(), 5U);
  EXPECT_EQ(entries[2]["fields"]["by"], "trace");
  EXPECT_EQ(entries[3]["kind"], "incomplete");
  EXPECT_EQ(entries[3]["fields"], (Json{{"received", 1}, {"expected", 1960}}));
  EXPECT_EQ(entries[4]["kind"], "unanswered");
  EXPECT_EQ(entries[4]["request"], entries[1]["request"]);
  EXPECT_GE(entries[4]["after_ns"].get<std::int64_t>(), 0);
}

TEST_F(Between, AnOutputThatCannotBeWrittenEndsItInOrder) {
  // One line is longer than what a stream keeps, and than the limit.
  const rlimit limit{400, 400};
  ASSERT_EQ(prlimit(trace.process(), RLIMIT_FSIZE, &limit, nullptr), 0);
  {
    const RawClient client(RawClient::sectionFilter);
    sections.accept();
    client.send(word(13));
    sections.take(4);
    const std::string section = word(8000) + std::string(8000, 's');
    sections.send(section);
    EXPECT_EQ(trace.wait(), 1);
  }
  sections.end();
  EXPECT_EQ(trace.errors(),
            "quillwork-client: between the library and its next client\n"
            "quillwork-client: /dev/shm/recording: cannot be written any more\n"
            "quillwork-client: the output cannot be written: File too large\n");
  expectGivenBack();
}

TEST_F(Between, AHangUpAndAQuitEndItInOrderAndAClosedPipeDoesNot) {
  trace.signal(SIGPIPE);
  trace.signal(SIGXFSZ);
  {
    const RawClient client;
    control.accept();
    client.send(bytesOf(request(quillwork::SI, 7)));
    EXPECT_TRUE(trace.awaitOutput("getCurrentService"));
  }
  control.end();
  trace.signal(SIGQUIT);
  EXPECT_EQ(trace.wait(), 0) << trace.errors();
  expectGivenBack();
  // The tests may have been begun with it ignored.
  const auto before = std::signal(SIGHUP, SIG_DFL);
  Program second({CLIENT, "trace"});
  std::signal(SIGHUP, before);
  awaitPlace(second);
  second.signal(SIGHUP);
  EXPECT_EQ(second.wait(), 0) << second.errors();
  expectGivenBack();
}

TEST_F(Between, ALibraryThatHasBegunAnewKeepsItsSocket) {
  control.restart();
  trace.signal(SIGTERM);
  EXPECT_EQ(trace.wait(), 0) << trace.errors();
  expectGivenBack();
}

TEST_F(Between, ASocketThatWasRemovedIsPutBack) {
  ASSERT_EQ(unlink(RawClient::control), 0);
  trace.signal(SIGTERM);
  EXPECT_EQ(trace.wait(), 0) << trace.errors();
  expectGivenBack();
}

TEST_F(Between, ItTakesThePlaceOfANewLibraryAfterATraceThatWasKilled) {
  trace.signal(SIGKILL);
  trace.wait();
  control.restart();
  sections.restart();
  Program second({CLIENT, "trace"});
  awaitPlace(second);
  // By which the trace has seen that somebody serves there.
  for (Server* const server : {&control, &sections}) {
    server->accept();
    server->end();
  }
  {
    const RawClient client;
    control.accept();
    client.send(bytesOf(request(quillwork::SI, 7)));
    control.take(1960);
    EXPECT_TRUE(second.awaitOutput("getCurrentService"));
    control.end();
  }
  second.signal(SIGTERM);
  EXPECT_EQ(second.wait(), 0) << second.errors();
  expectGivenBack();
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
  const auto errors = [](const std::vector<std::string>& words) {
    Program program(words);
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
  // A chunk's header, and none of its bytes.
  const std::string cut = std::string(12, '\0') + word(5);
  std::ofstream("/dev/shm/cut") << "quillwork-trace 2\n" << cut;
  for (const char* const option : {"--read", "--replay"}) {
    EXPECT_EQ(errors({CLIENT, "trace", option, "/dev/shm/cut"}),
              "quillwork-client: /dev/shm/cut: cut short\n");
  }
  // The first nanoseconds of 2201 and before 1970, and the last that there are.
  const auto chunkAt = [](std::int64_t time) {
    return std::string(reinterpret_cast<const char*>(&time), sizeof time) + std::string(8, '\0');
  };
  for (const std::string& chunk : {std::string(16, 'x'), chunkAt(-1), chunkAt(INT64_MIN),
                                   chunkAt(7'289'654'400'000'000'000), chunkAt(INT64_MAX)}) {
    std::ofstream("/dev/shm/damaged") << "quillwork-trace 2\n" << chunk;
    EXPECT_EQ(errors({CLIENT, "trace", "--read", "/dev/shm/damaged"}),
              "quillwork-client: /dev/shm/damaged: a damaged recording\n");
  }
  std::ofstream("/dev/shm/sound") << "quillwork-trace 2\n" << chunkAt(7'289'654'399'999'999'999);
  Program sound({CLIENT, "trace", "--read", "/dev/shm/sound"});
  EXPECT_EQ(sound.wait(), 0) << sound.errors();
}

}  // namespace
