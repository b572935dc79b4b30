// The pace of a stream, and where it can come from.

#include "receiver/StreamPlayer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "receiver/Worker.h"
#include "support/Patience.h"
#include "support/StandardStreams.h"
#include "support/Watchdog.h"

namespace receiver {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using PacketBytes = std::array<std::uint8_t, packetSize>;

constexpr std::uint64_t clockRate = 27'000'000;

PacketBytes plain(std::uint8_t number) {
  PacketBytes bytes{};
  bytes[0] = syncByte;
  bytes[3] = 0x10;
  bytes[4] = number;
  return bytes;
}

PacketBytes withClock(std::uint64_t clock, std::uint8_t pid = 50) {
  PacketBytes bytes{};
  const std::uint64_t base = clock / 300;
  const std::uint64_t extension = clock % 300;
  bytes = {syncByte, 0, pid, 0x20, 183, 0x10};
  for (unsigned index = 0; index < 4; ++index) {
    bytes[6 + index] = static_cast<std::uint8_t>(base >> (25U - 8 * index));
  }
  bytes[10] = static_cast<std::uint8_t>(base << 7U | 0x7eU | extension >> 8U);
  bytes[11] = static_cast<std::uint8_t>(extension);
  return bytes;
}

/// Keeps what is played, and when.
class Recorder : public PacketSink {
 public:
  void take(Packet packet) override {
    times.push_back(Clock::now());
    packets.emplace_back(packet.begin(), packet.end());
  }
  void interrupted(bool isOther) override { interruptions.push_back(isOther); }
  void ended() override { end.set_value(); }

  bool awaitEnd() { return end.get_future().wait_for(patience) == std::future_status::ready; }
  /// From a time before the first packet to this one. That a busy machine wakes the player late
  /// makes it longer, never shorter.
  [[nodiscard]] std::chrono::milliseconds span(std::size_t packet) const {
    return std::chrono::round<std::chrono::milliseconds>(times.at(packet) - begin);
  }

  Clock::time_point begin = Clock::now();
  std::vector<Clock::time_point> times;
  std::vector<std::vector<std::uint8_t>> packets;
  std::vector<bool> interruptions;
  std::promise<void> end;
};

class Playing : public testing::Test {
 protected:
  static constexpr const char* path = "/dev/shm/played.ts";

  void write(const std::vector<PacketBytes>& packets) {
    std::ofstream file(path, std::ios::binary);
    for (const PacketBytes& bytes : packets) {
      file.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
    }
  }
  void play(StreamPlayer::Settings settings = {}) {
    StreamPlayer player(std::make_unique<FileSource>(path), settings);
    player.add(recorder);
    player.start();
    EXPECT_TRUE(recorder.awaitEnd());
  }

  Recorder recorder;
};

TEST(ProgramClock, IsReadToItsLastBit) {
  for (const std::uint64_t clock : {std::uint64_t{0}, std::uint64_t{299}, std::uint64_t{12'345'678},
                                    (std::uint64_t{1} << 33U) * 300 - 1}) {
    EXPECT_EQ(programClock(withClock(clock)), clock);
  }
  EXPECT_FALSE(programClock(plain(0)));
  PacketBytes bytes = withClock(300);
  bytes[5] = 0;
  EXPECT_FALSE(programClock(bytes)) << "the flag is not set";
  bytes = withClock(300);
  bytes[4] = 6;
  EXPECT_FALSE(programClock(bytes)) << "the field is too short";
}

TEST_F(Playing, KeepsThePaceOfTheClockAndSpreadsThePacketsBetween) {
  std::vector<PacketBytes> packets = {withClock(0)};
  for (std::uint64_t step = 1; step <= 4; ++step) {
    for (int index = 0; index < 9; ++index) packets.push_back(plain(0));
    packets.push_back(withClock(step * clockRate / 20));
  }
  write(packets);
  play();
  ASSERT_EQ(recorder.packets.size(), packets.size());
  // The first packet behind a clock reference comes with it, so that the last is early by its
  // share.
  EXPECT_GE(recorder.span(40), 190ms);
  EXPECT_GE(recorder.span(20), 90ms);
  EXPECT_GE(recorder.span(15), 65ms);
}

/// A source that has nothing, as a file has that was emptied while it was played.
class Emptied : public Source {
 public:
  explicit Emptied(std::function<void()> onRewind) : onRewind_(std::move(onRewind)) {}
  std::optional<Packet> next() override { return std::nullopt; }
  bool isReady() override { return true; }
  bool rewind() override {
    onRewind_();
    return true;
  }
  void interrupt() override {}
  [[nodiscard]] bool keepsPace() const override { return false; }

 private:
  const std::function<void()> onRewind_;
};

TEST(Looping, ASourceThatHasNothingIsAskedOnceASecond) {
  const Clock::time_point begin = Clock::now();
  std::atomic<int> rewinds{0};
  std::promise<void> isSecond;
  StreamPlayer player(std::make_unique<Emptied>([&] {
                        if (++rewinds == 2) isSecond.set_value();
                      }),
                      {.isLooped = true});
  player.start();
  ASSERT_EQ(isSecond.get_future().wait_for(patience), std::future_status::ready);
  EXPECT_GE(Clock::now() - begin, 2s);
  player.stop();
}

TEST_F(Playing, AClockThatWrapsGoesOn) {
  const std::uint64_t range = (std::uint64_t{1} << 33U) * 300;
  write({withClock(range - clockRate / 10), withClock(0), plain(1), withClock(clockRate / 10)});
  play();
  EXPECT_GE(recorder.span(3), 100ms);
}

TEST_F(Playing, AClockThatJumpsIsANewOneAtTheSamePace) {
  write({withClock(0), withClock(clockRate / 20), withClock(1000 * clockRate),
         withClock(1000 * clockRate + clockRate / 20), plain(1)});
  // A thousand seconds of waiting would be noticed.
  play();
  EXPECT_EQ(recorder.packets.size(), 5U);
}

TEST_F(Playing, WithoutAClockTheBitRateCounts) {
  write(std::vector<PacketBytes>(26, plain(0)));
  StreamPlayer::Settings settings;
  settings.bitRate = 1504 * 100;
  play(settings);
  EXPECT_GE(recorder.span(25), 240ms);
}

TEST_F(Playing, FastHasNoPace) {
  // Of more time than anybody waits for it.
  std::vector<PacketBytes> packets;
  for (std::uint64_t second = 0; second < 1000; ++second) {
    packets.push_back(withClock(second * clockRate));
    packets.push_back(plain(1));
  }
  write(packets);
  StreamPlayer::Settings settings;
  settings.isFast = true;
  play(settings);
  EXPECT_EQ(recorder.packets.size(), packets.size());
}

TEST_F(Playing, ALoopBeginsAgainAndARetuneBeginsSomethingElse) {
  write({plain(1), plain(2)});
  StreamPlayer::Settings settings;
  settings.isLooped = true;
  settings.bitRate = 1e6;
  StreamPlayer player(std::make_unique<FileSource>(path), settings);
  struct Waiter : Recorder {
    void interrupted(bool isOther) override { (isOther ? others : loops)++; }
    std::atomic<int> loops{0};
    std::atomic<int> others{0};
  } waiter;
  player.add(waiter);
  player.start();
  while (waiter.loops < 3) std::this_thread::yield();
  EXPECT_EQ(waiter.others, 0);
  player.retune();
  while (waiter.others < 1) std::this_thread::yield();
  player.remove(waiter);
  const std::size_t packets = waiter.packets.size();
  EXPECT_GE(packets, 6U);
  for (std::size_t index = 0; index < 6; ++index)
    EXPECT_EQ(waiter.packets[index][4], 1 + index % 2);
}

TEST_F(Playing, AStreamThatWaitsForItsTimeEndsAtOnce) {
  write({plain(0), plain(1)});
  StreamPlayer::Settings settings;
  settings.bitRate = 1;  // The second packet is due in half an hour.
  StreamPlayer player(std::make_unique<FileSource>(path), settings);
  player.add(recorder);
  player.start();
  const Watchdog watchdog{10s};
  player.stop();
}

TEST_F(Playing, WhatGoesWrongInASinkIsSaidOnceAndEndsNothing) {
  struct Failing : PacketSink {
    void take(Packet) override { throw std::runtime_error("no room"); }
    void interrupted(bool) override {}
  } failing;
  write({plain(1), plain(2), plain(3)});
  StreamPlayer::Settings settings;
  settings.isFast = true;
  testing::internal::CaptureStderr();
  {
    StreamPlayer player(std::make_unique<FileSource>(path), settings);
    player.add(failing);
    player.add(recorder);
    player.start();
    EXPECT_TRUE(recorder.awaitEnd());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "quillwork-receiver: a part of the stream is lost: no room\n");
  EXPECT_EQ(recorder.packets.size(), 3U);
}

/// Everything that a source has, in the fifth bytes of its packets; 'x' for one whose sync byte is
/// damaged.
std::string numbers(Source& source) {
  std::string all;
  while (const auto packet = source.next()) {
    all += (*packet)[0] == syncByte ? static_cast<char>('0' + (*packet)[4]) : 'x';
  }
  return all;
}

std::string bytesOf(const PacketBytes& bytes) { return {bytes.begin(), bytes.end()}; }

/// Packets 0 to 9, each between other bytes.
std::string tenBetween(const std::string& before, const std::string& behind) {
  std::string all;
  for (std::uint8_t number = 0; number < 10; ++number) {
    all += before + bytesOf(plain(number)) + behind;
  }
  return all;
}

/// What the source has that opens a file of these bytes, and what it says of the file.
struct Read {
  std::string numbers;
  std::string notice;
};
constexpr const char* readPath = "/dev/shm/read.ts";
Read readFile(const std::string& bytes) {
  std::ofstream(readPath, std::ios::binary) << bytes;
  FileSource source(readPath);
  return {numbers(source), source.notice()};
}
std::string complaint(const std::string& bytes) {
  try {
    readFile(bytes);
  } catch (const StreamError& error) {
    return error.what();
  }
  return "";
}

TEST(StreamFiles, PacketsOf192AndOf204BytesAreTaken) {
  for (const auto& [before, behind] :
       {std::pair{"", ""}, {"\x01\x02\x03\x04", ""}, {"", "0123456789abcdef"}}) {
    const Read read = readFile(tenBetween(before, behind));
    EXPECT_EQ(read.numbers, "0123456789") << before << behind;
    EXPECT_EQ(read.notice, "") << before << behind;
  }
}

TEST(StreamFiles, AFileThatIsCutIsPlayedAndSaysSo) {
  const std::string whole = tenBetween("", "");
  const auto said = [](int before, int behind) {
    return std::string(readPath) + ": is cut inside packets: " + std::to_string(before) +
           " bytes before the first whole one and " + std::to_string(behind) +
           " behind the last are skipped";
  };
  for (const std::size_t cut : {1U, 4U, 100U, 187U}) {
    const Read head = readFile(whole.substr(cut));
    EXPECT_EQ(head.numbers, "123456789") << cut;
    EXPECT_EQ(head.notice, said(static_cast<int>(188 - cut), 0));
    const Read tail = readFile(whole.substr(0, whole.size() - cut));
    EXPECT_EQ(tail.numbers, "012345678") << cut;
    EXPECT_EQ(tail.notice, said(0, static_cast<int>(188 - cut)));
  }
  const std::string stamped = tenBetween("\x01\x02\x03\x04", "");
  EXPECT_EQ(readFile(stamped.substr(10)).notice, said(182, 0));
  EXPECT_EQ(readFile("some other thing" + whole + "G12").notice, said(16, 3));
}

/// Ten packets at the file's beginning, and ten where so many MiB have passed.
void writeWithHole(int mebibytes) {
  std::ofstream file(readPath, std::ios::binary);
  file << tenBetween("", "");
  file.seekp(mebibytes << 20);
  file << tenBetween("", "");
}

TEST(StreamFiles, AHoleOf256MebibytesIsTheEndUntilItIsRewound) {
  writeWithHole(300);
  FileSource source(readPath);
  EXPECT_EQ(source.notice(), "");
  const CaughtStream errors(stderr);
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(numbers(source), "012345678");
    EXPECT_FALSE(source.next());
    source.rewind();
  }
  EXPECT_EQ(errors.text(), "quillwork-receiver: " + std::string(readPath) +
                               ": there is no packet in 256 MiB, which is taken for the end\n");
}

TEST(StreamFiles, WhatIsBehindTheLastPacketIsCounted) {
  const std::string whole = tenBetween("", "");
  const auto said = [](int behind) {
    return std::string(readPath) +
           ": is cut inside packets: 0 bytes before the first whole one and " +
           std::to_string(behind) + " behind the last are skipped";
  };
  const auto zeros = [](int count) { return std::string(static_cast<std::size_t>(count), '\0'); };
  for (const int count : {1, 187}) EXPECT_EQ(readFile(whole + zeros(count)).notice, said(count));
  EXPECT_EQ(readFile(tenBetween("\x01\x02\x03\x04", "") + zeros(100)).notice, said(100));
  // The last packet before so many has none behind it that would bear it out.
  for (const int count : {1000, 300'000, 1'000'000}) {
    EXPECT_EQ(readFile(whole + zeros(count)).notice, said(count + 188));
  }
}

TEST(StreamFiles, ALongHoleIsSearchedUntilSomebodyInterrupts) {
  writeWithHole(100);
  FileSource source(readPath);
  // The last packet before a gap has none behind it that would bear it out.
  EXPECT_EQ(numbers(source), "0123456780123456789");
  source.rewind();
  for (int packet = 0; packet < 9; ++packet) ASSERT_TRUE(source.next());
  source.interrupt();
  while (source.next()) {
  }
  source.rewind();
  EXPECT_EQ(numbers(source), "");
}

TEST(StreamFiles, BytesInTheMiddleAreNoneBehindTheLastPacket) {
  std::string bytes = tenBetween("", "");
  bytes.insert(5 * 188, "seven..");
  EXPECT_EQ(readFile(bytes).notice, "");
}

TEST(StreamFiles, DamagedSyncBytesStayInTheirPacketsAndOtherBytesBetweenThemAreSkipped) {
  std::string bytes = tenBetween("", "");
  for (const std::size_t damaged : {0U, 4U, 9U}) bytes[damaged * 188] = 'D';
  EXPECT_EQ(readFile(bytes).numbers, "x123x5678x");
  bytes = tenBetween("", "");
  bytes.insert(5 * 188, "GG");
  EXPECT_EQ(readFile(bytes).numbers, "0123456789");
  bytes.erase(8 * 188 + 100, 30);
  EXPECT_EQ(readFile(bytes + bytesOf(plain(10))).numbers.substr(0, 7), "0123456");
  // The last packet before a gap has none behind it that would bear it out.
  const std::string apart = tenBetween("", "") + std::string(1000, 'x') + tenBetween("abcd", "");
  EXPECT_EQ(readFile(apart).numbers, "0123456780123456789");
}

TEST(StreamFiles, WhatIsRefusedNamesWhatWasFound) {
  const std::string none =
      std::string(readPath) + ": is no MPEG transport stream of 188, 192 or 204-byte packets: ";
  EXPECT_EQ(complaint(tenBetween("", std::string(20, 'x'))), none + "it has packets of 208 bytes");
  EXPECT_EQ(complaint(std::string("\0\0\0\x18"
                                  "ftypisom",
                                  12) +
                      std::string(1000, 0)),
            none + "it is an MP4 file");
  EXPECT_EQ(complaint("RIFF" + std::string(1000, 0)), none + "it is a RIFF file");
  EXPECT_EQ(complaint("ten bytes!"), none + "it begins with 74 65 6e 20 62 79 74 65");
  EXPECT_EQ(complaint("G"), none + "it begins with 47");
}

TEST(StreamFiles, AFileThatBecomesShorterWhileItIsPlayedHasItsEndThere) {
  std::string all;
  for (int index = 0; index < 1000; ++index) all += tenBetween("", "");
  std::ofstream(readPath, std::ios::binary) << all;
  FileSource source(readPath);
  ASSERT_TRUE(source.next());
  ASSERT_EQ(truncate(readPath, 0), 0);
  // What had been read stays.
  EXPECT_LT(numbers(source).size(), 9000U);
  EXPECT_TRUE(source.rewind());
  EXPECT_EQ(numbers(source), "");
}

TEST(LiveSources, FindThePacketsBetweenOtherBytes) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string all =
      "xxG" + bytesOf(plain(1)) + bytesOf(plain(2)) + "G" + bytesOf(plain(3)) + bytesOf(plain(4));
  ASSERT_EQ(write(ends[1], all.data(), all.size()), static_cast<ssize_t>(all.size()));
  close(ends[1]);
  LiveSource source("a pipe", readDescriptor(ends[0]));
  EXPECT_FALSE(source.rewind());
  EXPECT_EQ(numbers(source), "1234");
}

TEST(LiveSources, HandOnWhatHasComeWithoutWaitingForMore) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  LiveSource source("a pipe", readDescriptor(ends[0]));
  for (std::uint8_t number = 1; number <= 3; ++number) {
    const std::string one = bytesOf(plain(number));
    ASSERT_EQ(write(ends[1], one.data(), one.size()), static_cast<ssize_t>(one.size()));
    EXPECT_TRUE(source.isReady());
    const auto packet = source.next();
    ASSERT_TRUE(packet);
    EXPECT_EQ((*packet)[4], number);
  }
  EXPECT_FALSE(source.isReady());
  close(ends[1]);
}

TEST(LiveSources, AWaitEndsWhenItIsInterrupted) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  LiveSource source("a pipe", readDescriptor(ends[0]));
  std::thread other([&] { source.interrupt(); });
  EXPECT_FALSE(source.next());
  other.join();
  close(ends[1]);
}

TEST(LiveSources, ANamedPipeIsReadToItsWritersEnd) {
  const char* const path = "/dev/shm/pipe";
  ASSERT_EQ(mkfifo(path, 0600), 0);
  const auto source = openSource(path);
  EXPECT_FALSE(source->isReady()) << "nobody writes yet";
  std::thread writer([&] { std::ofstream(path, std::ios::binary) << tenBetween("", ""); });
  EXPECT_EQ(numbers(*source), "0123456789");
  writer.join();
}

/// Brings what it is told to, piece by piece.
class Pieces : public ByteInput {
 public:
  explicit Pieces(std::vector<std::string> pieces) : pieces_(std::move(pieces)) {}

  /// An empty piece is a silence.
  Arrival read(PacketFramer& framer, std::chrono::milliseconds) override {
    if (next_ == pieces_.size()) return Arrival::end;
    const std::string& piece = pieces_[next_++];
    std::copy(piece.begin(), piece.end(), framer.room(piece.size()).begin());
    framer.add(piece.size());
    return piece.empty() ? Arrival::nothing : Arrival::bytes;
  }
  bool isReady() override { return true; }
  bool restart() override { return false; }
  void interrupt() override {}
  [[nodiscard]] bool keepsPace() const override { return true; }

 private:
  const std::vector<std::string> pieces_;
  std::size_t next_ = 0;
};

/// What a source says that brings these pieces.
std::string saidOf(std::vector<std::string> pieces) {
  testing::internal::CaptureStderr();
  LiveSource source("it", std::make_unique<Pieces>(std::move(pieces)));
  numbers(source);
  return testing::internal::GetCapturedStderr();
}

TEST(LiveSources, ASilenceIsSaidOnceAndItsEndToo) {
  const std::string one = bytesOf(plain(1));
  EXPECT_EQ(saidOf({"", "", one, one, "", one}),
            "quillwork-receiver: it: nothing has arrived for 5.0 s\n"
            "quillwork-receiver: it: the stream goes on\n"
            "quillwork-receiver: it: nothing has arrived for 5.0 s\n"
            "quillwork-receiver: it: the stream goes on\n");
  EXPECT_EQ(saidOf({one, one}), "");
}

TEST(LiveSources, WhatIsNoStreamIsSaidOnce) {
  EXPECT_EQ(saidOf({"<html>", std::string(70'000, ' '), std::string(70'000, ' ')}),
            "quillwork-receiver: it: what arrives is no MPEG transport stream of 188, 192 or "
            "204-byte packets: it is a markup text\n");
  EXPECT_EQ(saidOf({"ten bytes!"}),
            "quillwork-receiver: it: what arrives is no MPEG transport stream of 188, 192 or "
            "204-byte packets: it begins with 74 65 6e 20 62 79 74 65\n");
}

TEST(Workers, DoWhatTheyAreGivenInOrderAndDropWhatIsTooMuch) {
  std::promise<void> held;
  std::promise<void> begun;
  std::vector<int> done;
  Worker worker;
  worker.post([&] {
    begun.set_value();
    held.get_future().wait();
  });
  begun.get_future().wait();
  for (int index = 0; index < static_cast<int>(Worker::mostTasks); ++index) {
    ASSERT_TRUE(worker.post([&done, index] { done.push_back(index); }));
  }
  testing::internal::CaptureStderr();
  EXPECT_FALSE(worker.post([] {}));
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  held.set_value();
  std::promise<void> last;
  while (!worker.post([&last] { last.set_value(); })) std::this_thread::yield();
  last.get_future().wait();
  EXPECT_EQ(done.size(), Worker::mostTasks);
  EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
}

}  // namespace
}  // namespace receiver
