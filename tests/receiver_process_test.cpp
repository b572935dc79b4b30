// Everything that the receiver can do, through the client: two processes on the sample stream.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

#include "support/Patience.h"
#include "support/Program.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

/// The lines of a text.
Words lines(const std::string& text) {
  Words all;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) all.push_back(line);
  return all;
}

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result run(const Words& words, const std::string& input = "") {
  Program program(words);
  for (const std::string& line : lines(input)) program.say(line);
  const int status = program.wait();
  return {status, program.output(), program.errors()};
}

std::string client(Words words) {
  words.insert(words.begin(), {CLIENT, "--time-limit", patiently});
  const Result result = run(words);
  EXPECT_EQ(result.status, 0) << result.errors;
  return result.output;
}

/// What the commands print that are given to one client, each on a line.
Words shell(const std::string& commands) {
  const Result result = run({CLIENT, "--time-limit", patiently, "shell"}, commands + "quit\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  return lines(result.output);
}

/// The lines without the notifications, which come when the broadcast has them.
Words answersAmong(Words said) {
  std::erase_if(said,
                [](const std::string& line) { return line.starts_with("{\"notification\""); });
  return said;
}

/// A receiver that has seen the whole sample stream, and sees it again when it is tuned anew.
class WholeSample : public testing::Test {
 protected:
  static constexpr const char* mount = "/dev/shm/carousels";
  static constexpr const char* properties = "/dev/shm/properties.db";

  void SetUp() override { start(); }
  void TearDown() override { stop(SIGTERM); }

  void start(Words more = {}) {
    Words words = {receiverProgram(), "--fast", "--mount", mount, "--properties", properties};
    words.insert(words.end(), more.begin(), more.end());
    words.emplace_back(SAMPLE);
    host = std::make_unique<Program>(words);
    ASSERT_TRUE(host->awaitOutput("broadcast time")) << host->errors();
  }
  void stop(int signal) {
    if (host == nullptr) return;
    host->signal(signal);
    EXPECT_EQ(host->wait(), signal == SIGKILL ? 128 + SIGKILL : 0) << host->errors();
  }
  /// A client that watches, and is known to be connected.
  std::unique_ptr<Program> watch(Words more = {}) {
    Words words = {CLIENT, "--time-limit", patiently, "watch"};
    words.insert(words.end(), more.begin(), more.end());
    auto watcher = std::make_unique<Program>(words);
    while (watcher->output().empty()) {
      host->say("event 99");
      asked += "event 99\n";
      EXPECT_TRUE(host->awaitOutput(asked));
    }
    return watcher;
  }
  void playAgain() const {
    host->forgetOutput();
    host->say("retune");
    ASSERT_TRUE(host->awaitOutput("broadcast time"));
  }
  /// GStreamer, which neither ThreadSanitizer nor an emulator sees through.
  static bool hasVideo() {
#ifdef __SANITIZE_THREAD__
    return false;
#else
    return !std::string(SAMPLE_PICTURES).empty() && client({"version", "7"}) == "true\n";
#endif
  }

  std::unique_ptr<Program> host;
  std::string asked;
};

TEST_F(WholeSample, TheMainVideosRequests) {
  if (!hasVideo()) GTEST_SKIP() << "GStreamer is not there, or not to be watched";
  EXPECT_EQ(answersAmong(
                shell("video languages\n"
                      "video language 3\n"
                      "video select-language por\n"
                      "video language 3\n"
                      "video language 5\n"
                      "video select-language xyz\n"
                      "video language 3\n"
                      "video set-bounds 10 20 300 200\n"
                      "video bounds\n"
                      "video property 9\nvideo property 10\nvideo property 11\nvideo property 12\n"
                      "video property 13\nvideo property 14\nvideo property 15\nvideo property 16\n"
                      "video mute on\nvideo freeze on\n"
                      "video property 15\nvideo property 16\n"
                      "video sound 0.5\nvideo balance -1\nvideo bass 1\nvideo treble 1\n"
                      "video option off\n"
                      "video region 1 2 3 4\n"
                      "video reset\n"
                      "video property 15\nvideo property 16\nvideo language 3\n")),
            (Words{"eng", "por", "eng", "por", "eng", "por", "-1 -1 -1 -1", "1280", "720", "257",
                   "27",  "260", "15",  "0",   "0",   "1",   "1",           "0",    "0",   "eng"}));
  EXPECT_NE(host->output().find("region = {1,2,3,4}\n"), std::string::npos);
}

TEST_F(WholeSample, AMediaPlayerFromItsOpeningToItsEnd) {
  if (!hasVideo()) GTEST_SKIP() << "GStreamer is not there, or not to be watched";
  const Words said = shell(std::string("media open ") + SAMPLE +
                           "#1002\n"
                           "media time 1\n"
                           "media bounds 1\n"
                           "media set-bounds 1 1 2 3 4\n"
                           "media bounds 1\n"
                           "media sound 1 0.3\nmedia balance 1 1\nmedia bass 1 -1\n"
                           "media treble 1 0.5\nmedia mute 1 on\nmedia freeze 1 on\n"
                           "media listen 1\n"
                           "media seek 1 39000\n"
                           "media play 1\n"
                           "watch --count 1 --timeout 300000\n"
                           "media stop 1\n"
                           "media time 1\n"
                           "media close 1\n"
                           "media time 1\nmedia duration 1\nmedia play 1\nmedia bounds 1\n"
                           "media seek 1 0\nmedia set-bounds 1 1 1 1 1\n");
  const Words expected = {"1",
                          "0",
                          "0 0 1280 720",
                          "0",
                          "1 2 3 4",
                          "39000",
                          "true",
                          "{\"notification\":\"end-of-media\",\"player\":1}",
                          "0",
                          "-1",
                          "-1",
                          "false",
                          "0 0 0 0",
                          "-1",
                          "-1"};
  EXPECT_EQ(said, expected);
}

TEST_F(WholeSample, AProgrammeOfTheStreamIsPlayed) {
  if (!hasVideo()) GTEST_SKIP() << "GStreamer is not there, or not to be watched";
  const Words said = shell(
      "media open dvb://..3ea\nmedia duration 1\nmedia seek 1 5\n"
      "media play 1\nmedia stop 1\nmedia close 1\n");
  EXPECT_EQ(said, (Words{"1", "-1", "-1", "true"}));
}

TEST_F(WholeSample, WhatCannotBeOpenedIsSaid) {
  for (const char* const locator : {"/dev/shm/none", "/dev/shm", "dvb://..999", ""}) {
    const Result result = run({CLIENT, "--time-limit", patiently, "media", "open", locator});
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.errors, std::string("quillwork-client: '") + locator + "' cannot be opened\n");
  }
  const Result result = run({CLIENT, "--time-limit", patiently, "mount", "dvb://..999"});
  EXPECT_EQ(result.errors, "quillwork-client: 'dvb://..999' cannot be mounted\n");
}

TEST_F(WholeSample, PropertiesSurviveAKill) {
  if (client({"version", "6"}) != "true\n") GTEST_SKIP() << "SQLite is not there";
  client({"property", "a", "--set", "one"});
  client({"property", "b", "--set", ""});
  client({"property", "receiver.model", "--set", "other"});
  const Json all = Json::parse(client({"property", "--json"}));
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(all[2], (Json{{"name", "receiver.model"}, {"value", "quillwork-receiver"}}));
  EXPECT_EQ(all[4], (Json{{"name", "a"}, {"value", "one"}}));
  EXPECT_EQ(client({"property", "library.revision"}), "r2483\n");
  EXPECT_EQ(client({"property", "broadcast.time"}), "2026-09-24T22:00:19\n");
  stop(SIGKILL);
  start();
  EXPECT_EQ(client({"property", "a"}), "one\n");
  client({"property", "a", "--remove"});
  constexpr int nothingFound = 2;
  const Result removed = run({CLIENT, "--time-limit", patiently, "property", "a"});
  EXPECT_EQ(removed.status, nothingFound);
  EXPECT_EQ(removed.errors, "quillwork-client: no property 'a'\n");
  EXPECT_EQ(client({"property", "b"}), "\n");
}

TEST_F(WholeSample, ACarouselIsMountedChangesAndIsUnmounted) {
  const std::string place = "dvb://ff20.2001.3e9.40";
  Program mounting(
      {CLIENT, "--time-limit", patiently, "mount", place, "--wait", "3", "--timeout", patiently});
  // What is complete already comes at once, and both versions when it is broadcast once more.
  ASSERT_TRUE(mounting.awaitOutput("download-complete")) << mounting.errors();
  host->say("retune");
  EXPECT_EQ(mounting.wait(), 0) << mounting.errors();
  const std::string path = std::string(mount) + "/3e9.40";
  EXPECT_EQ(lines(mounting.output()).front(), path);
  std::ifstream index(path + "/index.html");
  std::string text;
  std::getline(index, text);
  EXPECT_EQ(text, "<h1>The second half</h1>");
  EXPECT_EQ(fs::file_size(path + "/media/picture.bin"), 6000U);
  EXPECT_TRUE(fs::exists(path + "/media/new.txt"));
  client({"umount", place});
  while (fs::exists(path)) std::this_thread::yield();
}

TEST_F(WholeSample, WhatAClientHasAskedToHearEndsWithIt) {
  const std::string place = "dvb://ff20.2001.3e9.40";
  const std::string path = std::string(mount) + "/3e9.40";
  // It is killed, and does not take its listener back.
  Program first({CLIENT, "--time-limit", patiently, "shell"});
  first.say("mount " + place + " --wait 99 --timeout " + patiently);
  ASSERT_TRUE(first.awaitOutput("download-complete")) << first.errors();
  first.signal(SIGKILL);
  first.wait();
  const auto versionOf = [&] {
    std::error_code ignored;
    return fs::read_symlink(path, ignored);
  };
  const fs::path before = versionOf();
  Program second({CLIENT, "--time-limit", patiently, "shell"});
  second.say("services");
  ASSERT_TRUE(second.awaitOutput("1001")) << second.errors();
  const auto ends = [&] {
    std::size_t count = 0;
    for (const std::string& line : lines(second.output())) {
      if (line.find("\"code\":6,") != line.npos) ++count;
    }
    return count;
  };
  const std::size_t already = ends();
  playAgain();
  while (versionOf() == before) std::this_thread::yield();
  // The commands of the next turn come behind whatever is told of this one.
  playAgain();
  while (ends() < already + 2) std::this_thread::yield();
  second.say("quit");
  EXPECT_EQ(second.wait(), 0) << second.errors();
  EXPECT_EQ(second.output().find("download-complete"), std::string::npos) << second.output();
}

TEST_F(WholeSample, StreamEventsOfTheOneNameReachTheClient) {
  const auto watcher = watch();
  host->say("retune");
  ASSERT_TRUE(watcher->awaitOutput("\"code\":6,")) << watcher->output();
  std::string output = watcher->output();
  EXPECT_NE(output.find("{\"notification\":\"dsmcc-command\",\"code\":5,\"time\":0.0,\"flag\":1,"
                        "\"text\":\"startDocument index\"}\n"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("\"code\":49"), std::string::npos) << "'goal' is not for it";
  EXPECT_TRUE(host->awaitOutput("stream event 2 'goal', 3 bytes\n"));
}

TEST_F(WholeSample, ChangedGraphicsSettingsReachTheClient) {
  if (!hasVideo()) GTEST_SKIP() << "GStreamer is not there, or not to be watched";
  const auto watcher = watch();
  host->say("graphics 1920 1080");
  ASSERT_TRUE(watcher->awaitOutput("graphics-settings")) << watcher->output();
  EXPECT_NE(watcher->output().find("1920"), std::string::npos);
}

TEST_F(WholeSample, AWatchingClientAnswersAnApplicationState) {
  auto watcher = watch({"--answer", "no"});
  int lost = 0;
  for (int i = 0; i < 20; ++i) {
    host->forgetOutput();
    host->say("state 3");
    for (int pauses = 0; host->output().find("state 3: no\n") == std::string::npos; ++pauses) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (pauses < 3000) continue;
      // A host that had no processor for so long has lost the answer. The client's end is one.
      ++lost;
      EXPECT_NE(watcher->output().find("\"state\":3"), std::string::npos);
      watcher.reset();
      ASSERT_TRUE(host->awaitOutput("state 3: yes\n"));
      watcher = watch({"--answer", "no"});
      break;
    }
  }
  EXPECT_LT(lost, 7);
}

TEST_F(WholeSample, TheShellOnATerminalShowsItsPromptAgainAndEndsWithControlD) {
  if (HAS_EDITLINE == 0) GTEST_SKIP() << "libedit is not there for this processor";
  const std::string prompt = "quillwork> ";
  Program shell(
      {CLIENT, "--time-limit", patiently, "shell"},
      {"/bin/bash", "-c", R"(HOME=/dev/shm TERM=xterm exec script -qec "$*" /dev/null)", "bash"});
  ASSERT_TRUE(shell.awaitOutput(prompt));
  shell.give("tuned\r");
  ASSERT_TRUE(shell.awaitOutput("8193\r\n" + prompt)) << shell.output();
  // A line that is being typed stands below what comes meanwhile.
  shell.give("ver");
  ASSERT_TRUE(shell.awaitOutput(prompt + "ver")) << shell.output();
  shell.forgetOutput();
  host->say("graphics 1234 567");
  ASSERT_TRUE(shell.awaitOutput("1234"));
  ASSERT_TRUE(shell.awaitOutput(prompt + "ver")) << shell.output();
  shell.forgetOutput();
  shell.give("sion 4\r");
  ASSERT_TRUE(shell.awaitOutput("\n" + prompt)) << shell.output();
  shell.give("\x04");
  EXPECT_EQ(shell.wait(), 0);
}

TEST_F(WholeSample, AnApplicationStateIsAnsweredEitherWayInTheShell) {
  Program shell({CLIENT, "--time-limit", patiently, "shell"});
  shell.say("tuned");
  ASSERT_TRUE(shell.awaitOutput("8193\n"));
  for (const std::string answer : {"no", "yes", "no"}) {
    // An answer that comes before the receiver has begun to wait is lost.
    const std::string wanted = "state 7: " + answer + "\n";
    host->forgetOutput();
    shell.forgetOutput();
    host->say("state 7");
    ASSERT_TRUE(shell.awaitOutput("The receiver waits for 'answer yes' or 'answer no'.\n"));
    while (host->output().find(wanted) == std::string::npos) shell.say("answer " + answer);
    // Whatever was said too often has been taken by now.
    shell.forgetOutput();
    shell.say("tuned");
    ASSERT_TRUE(shell.awaitOutput("8193\n"));
  }
  shell.say("quit");
  EXPECT_EQ(shell.wait(), 0);
}

TEST_F(WholeSample, TheShellGoesOnAfterWhatIsWrong) {
  const Result result = run({CLIENT, "--time-limit", patiently, "shell"},
                            "# a comment\n\ntuned --json\nnonsense\nids\nmedia open 'no such'\n"
                            "answer maybe\nproperty \"unclosed\ntuned\nquit\n");
  EXPECT_EQ(result.output, "{\"transport_stream\":8193}\n8193\n");
  EXPECT_EQ(lines(result.errors), (Words{"quillwork-client: unknown command 'nonsense'",
                                         "quillwork-client: KIND is required",
                                         "quillwork-client: 'no such' cannot be opened",
                                         "quillwork-client: answer: yes or no is needed",
                                         "quillwork-client: \" is not closed"}));
}

TEST_F(WholeSample, FiltersOfEveryKindOnTheRunningStream) {
  // The sections of all services' events, by the service's number in them.
  const auto services = [this](const std::string& option, const std::string& value) {
    Program reader({CLIENT, "--time-limit", patiently, "section", "--pid", "18", "--table-id", "78",
                    option, value, "--timeout", patiently, "--count", "4", "--json"});
    while (lines(reader.output()).size() < 4) playAgain();
    EXPECT_EQ(reader.wait(), 0) << reader.errors();
    std::set<std::string> found;
    for (const std::string& line : lines(reader.output())) {
      found.insert(Json::parse(line)["section"].get<std::string>().substr(6, 4));
    }
    return found;
  };
  EXPECT_EQ(services("--filter", "3:03ea/ffff"), std::set<std::string>{"03ea"});
  EXPECT_EQ(services("--less", "3:03ea/ffff"), std::set<std::string>{"03e9"});
  EXPECT_EQ(services("--xor", "3:03ea/ffff/0001"), std::set<std::string>{"03eb"});
  // Last, for nothing clears it.
  EXPECT_EQ(services("--greater", "3:03eb/ffff"), std::set<std::string>{"03ec"});
}

TEST_F(WholeSample, AnotherServiceIsSelected) {
  host->say("service 1002");
  ASSERT_TRUE(host->awaitOutput("service 1002\n"));
  EXPECT_EQ(client({"current-service"}), "1002\n");
  EXPECT_EQ(client({"protected"}), "true\n");
  host->say("retune 1003");
  ASSERT_TRUE(host->awaitOutput("retuned\n"));
  while (client({"current-service"}) != "1003\n") {
  }
}

// The window.

/// What a display shows.
class Screenshot {
 public:
  /// By the program that everybody has with a display; its format is that of X11/XWDFile.h.
  Screenshot() {
    const std::string path = "/dev/shm/screen.xwd";
    EXPECT_EQ(std::system(("xwd -root -silent -out " + path).c_str()), 0);
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    const std::size_t colours = word(19) * 12;
    begin_ = word(0) + colours;
    lineSize_ = word(12);
    EXPECT_EQ(word(11), 32U);
  }

  /// 0xRRGGBB.
  [[nodiscard]] unsigned at(std::size_t x, std::size_t y) const {
    const std::size_t place = begin_ + y * lineSize_ + x * 4;
    if (place + 4 > bytes_.size()) return 0xffffffff;
    return byte(place + 2) << 16U | byte(place + 1) << 8U | byte(place);
  }

 private:
  [[nodiscard]] unsigned byte(std::size_t place) const {
    return static_cast<unsigned char>(bytes_[place]);
  }
  [[nodiscard]] std::size_t word(std::size_t index) const {
    std::size_t value = 0;
    for (std::size_t part = 0; part < 4; ++part) value = value << 8U | byte(index * 4 + part);
    return value;
  }

  std::string bytes_;
  std::size_t begin_ = 0;
  std::size_t lineSize_ = 0;
};

bool isNear(unsigned colour, unsigned wanted) {
  for (const unsigned shift : {0U, 8U, 16U}) {
    const int difference =
        static_cast<int>(colour >> shift & 0xffU) - static_cast<int>(wanted >> shift & 0xffU);
    if (std::abs(difference) > 40) return false;
  }
  return true;
}

TEST(Window, ShowsTheVideosAtTheirBoundsBelowTheGraphics) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a window's libraries are not to be watched";
#endif
  if (std::string(SAMPLE_PICTURES).empty()) GTEST_SKIP() << "there are no pictures in this build";
  Program screen({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "1280x720x24"});
  ASSERT_TRUE(screen.awaitOutput("\n"));
  setenv("DISPLAY", (":" + lines(screen.output()).front()).c_str(), 1);
  for (const std::string colour : {"red", "blue"}) {
    const std::string command =
        "gst-launch-1.0 -q videotestsrc num-buffers=1500 pattern=" + colour +
        " ! video/x-raw,width=320,height=240,framerate=25/1 ! jpegenc ! avimux ! filesink "
        "location=/dev/shm/" +
        colour + ".avi";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  Program host({receiverProgram(), "--display", "--loop", SAMPLE});
  ASSERT_TRUE(host.awaitOutput("serving\n")) << host.errors();
  Program shell({CLIENT, "--time-limit", patiently, "shell"});
  for (const char* const line :
       {"media open /dev/shm/red.avi", "media open /dev/shm/blue.avi",
        "media set-bounds 1 100 50 400 300", "media set-bounds 2 300 150 300 300", "media play 1",
        "media play 2", "video set-bounds 640 0 640 360", "video region 0 300 1280 300", "tuned"}) {
    shell.say(line);
  }
  ASSERT_TRUE(shell.awaitOutput("8193\n"));
  // The colour at a place, the veil of the graphics region over it from line 300 to 599.
  constexpr unsigned red = 0xff0000;
  constexpr unsigned blue = 0x0000ff;
  constexpr unsigned black = 0x000000;
  constexpr unsigned veiledRed = 0xc01030;
  constexpr unsigned veiledBlue = 0x1020e0;
  constexpr unsigned veil = 0x131d30;
  const struct {
    std::size_t x;
    std::size_t y;
    unsigned colour;
  } places[] = {
      {50, 100, black},       {110, 60, red},         {200, 200, red},       {290, 290, red},
      {310, 160, blue},       {490, 290, blue},       {590, 250, blue},      {200, 320, veiledRed},
      {400, 320, veiledBlue}, {400, 440, veiledBlue}, {50, 400, veil},       {1000, 500, veil},
      {50, 650, black},       {1000, 650, black},     {680, 150, 0xffffff},  {780, 150, 0xffff00},
      {870, 150, 0x00ffff},   {960, 150, 0x00ff00},   {1050, 150, 0xff00ff}, {1140, 150, 0xff0000},
      {1230, 150, 0x0000ff},
  };
  std::string difference = "nothing was compared";
  // The first pictures take a moment.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(40);
  while (!difference.empty() && std::chrono::steady_clock::now() < end) {
    const Screenshot shot;
    difference.clear();
    for (const auto& place : places) {
      if (isNear(shot.at(place.x, place.y), place.colour)) continue;
      std::ostringstream text;
      text << place.x << ' ' << place.y << ": " << std::hex << shot.at(place.x, place.y)
           << " instead of " << place.colour << '\n';
      difference += text.str();
    }
  }
  EXPECT_EQ(difference, "");
  // The main video follows the service: the next one's pictures are a ball before black.
  host.say("service 1002");
  const auto isBlack = [](const Screenshot& shot) {
    int count = 0;
    for (const std::size_t x : {780U, 870U, 960U, 1050U, 1140U}) {
      if (isNear(shot.at(x, 150), black)) ++count;
    }
    return count >= 4;
  };
  while (!isBlack(Screenshot()) && std::chrono::steady_clock::now() < end + patience) {
  }
  EXPECT_TRUE(isBlack(Screenshot()));
  shell.say("quit");
  shell.wait();
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, TakesItsServiceAndItsCommandsFromTheCommandLine) {
  const std::string script = "/dev/shm/script";
  std::ofstream(script) << "# what is to be done\nservice 1004\nwait 0\nservice 1003\nquit\n";
  const Result result =
      run({receiverProgram(), "--fast", "--service", "1002", "--script", script, TABLES});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_NE(result.output.find("service 1004\n"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("service 1003\n"), std::string::npos);
  const Result missing = run({receiverProgram(), "--script", "/dev/shm/none", TABLES});
  EXPECT_NE(missing.status, 0);
  EXPECT_EQ(missing.errors, "quillwork-receiver: /dev/shm/none: No such file or directory\n");
}

TEST(Receiver, AnswersNothingButCommandsWhenItIsToBeQuiet) {
  const std::string script = "/dev/shm/script";
  std::ofstream(script) << "service 1004\nquit\n";
  const Result result = run({receiverProgram(), "--fast", "--quiet", "--script", script, TABLES});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "service 1004\n");
  EXPECT_EQ(result.errors, "");
}

TEST(Receiver, TakesLinesAsEditorsLeaveThem) {
  const std::string script = "/dev/shm/script";
  std::ofstream(script) << "service 1004\r\nwait 0.01\r\n\r\nservice 1003\nquit";
  const Result result = run({receiverProgram(), "--fast", "--quiet", "--script", script, TABLES});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "service 1004\nservice 1003\n");
  EXPECT_EQ(result.errors, "");
}

TEST(Receiver, WaitsForSecondsAlone) {
  const std::string script = "/dev/shm/script";
  std::ofstream(script) << "wait\nwait x\nwait 0 0\nwait -1\nquit\n";
  const Result result = run({receiverProgram(), "--fast", "--quiet", "--script", script, TABLES});
  EXPECT_EQ(result.errors,
            "quillwork-receiver: 'wait': it takes a number of seconds\n"
            "quillwork-receiver: 'wait x': it takes a number of seconds\n"
            "quillwork-receiver: 'wait 0 0': it takes a number of seconds\n"
            "quillwork-receiver: 'wait -1': it takes a number of seconds\n");
}

/// A pipe of two pages, with nobody who reads it.
class UnreadPipe {
 public:
  UnreadPipe() {
    EXPECT_EQ(mkfifo(path, 0600), 0);
    reader_ = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(fcntl(reader_, F_SETPIPE_SZ, capacity), capacity);
  }
  ~UnreadPipe() {
    close(reader_);
    unlink(path);
  }
  UnreadPipe(const UnreadPipe&) = delete;
  UnreadPipe& operator=(const UnreadPipe&) = delete;

  static constexpr const char* path = "/dev/shm/unread";
  /// What starts a program that prints there.
  static Words launcher() { return {"/bin/bash", "-c", R"(exec "$@" > "$0")", path}; }
  void awaitBytes(int least) const {
    for (int held = 0; held < least; std::this_thread::yield()) ioctl(reader_, FIONREAD, &held);
  }
  /// Reads what is there.
  [[nodiscard]] std::string read() const {
    std::string text(capacity, '\0');
    text.resize(
        static_cast<std::size_t>(std::max<ssize_t>(::read(reader_, text.data(), text.size()), 0)));
    return text;
  }

 private:
  static constexpr int capacity = 8192;
  int reader_;
};

TEST(Receiver, EndsAlthoughNobodyReadsItsOutput) {
  const UnreadPipe pipe;
  Program host({receiverProgram(), "--fast", "--loop", SAMPLE}, UnreadPipe::launcher());
  pipe.awaitBytes(4000);
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, GoesOnAlthoughNobodyReadsItsOutput) {
  const UnreadPipe pipe;
  Program host({receiverProgram(), "--loop", TABLES}, UnreadPipe::launcher());
  pipe.awaitBytes(static_cast<int>(std::string_view("serving\n").size()));
  Program watcher({CLIENT, "--time-limit", patiently, "watch"});
  for (int index = 0; index < 1000; ++index) host.say("graphics 1280 720");
  while (watcher.output().find("\"code\":1234,") == std::string::npos) {
    host.say("event 1234");
    std::this_thread::yield();
  }
  EXPECT_TRUE(pipe.read().starts_with("serving\ngraphics 1280 720\n"));
  // It says what it has dropped, and nothing is said in pieces.
  const std::string dropped = " texts for the standard output were dropped, which nobody read\n";
  while (!host.errors().ends_with(dropped)) host.say("graphics 1 1");
  for (const std::string& line : lines(pipe.read())) {
    EXPECT_TRUE(line.empty() || line.starts_with("event 1234") || line == "graphics 1280 720" ||
                line == "graphics 1 1" || std::string("graphics 1280 720").starts_with(line))
        << line;
  }
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, EndsAlthoughNobodyReadsItsErrors) {
  const UnreadPipe pipe;
  Program host({receiverProgram(), "--quiet", TABLES},
               {"/bin/bash", "-c", R"(exec "$@" 2> "$0")", UnreadPipe::path});
  while (run({CLIENT, "--time-limit", patiently, "tuned"}).output != "8193\n") {
  }
  for (int index = 0; index < 1000; ++index) host.say("nonsense");
  pipe.awaitBytes(4090);
  host.say("event 1");
  ASSERT_TRUE(host.awaitOutput("event 1\n"));
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, EndsAlthoughNobodyReadsTheSocketOfItsErrors) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const int size = 4096;
  ASSERT_EQ(setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size), 0);
  for (const char* const stream : {"1", "2"}) {
    Program host({receiverProgram(), TABLES},
                 {"/bin/bash", "-c", R"(exec "$@" )" + std::string(stream) + R"(>&"$0")",
                  std::to_string(ends[0])});
    while (run({CLIENT, "--time-limit", patiently, "tuned"}).output != "8193\n") {
    }
    for (int index = 0; index < 20; ++index) host.say("event " + std::string(60'000, 'z'));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
  }
  close(ends[0]);
  close(ends[1]);
}

TEST(Receiver, OutlivesAFullDiskBehindItsErrors) {
  const Words onFullDisk = {"/bin/bash", "-c", R"(exec "$@" 2> /dev/full)", "bash"};
  Program none({receiverProgram(), "/dev/shm/none.ts"}, onFullDisk);
  EXPECT_EQ(none.wait(), 1);
  Program host({receiverProgram(), "--quiet", TABLES}, onFullDisk);
  host.say("nonsense");
  host.say("event 1");
  ASSERT_TRUE(host.awaitOutput("event 1\n"));
  host.say("quit");
  EXPECT_EQ(host.wait(), 0);
}

// Such as a recorder leaves that has reserved the place.
TEST(Receiver, EndsInAFileWithALongHole) {
  const std::string path = "/dev/shm/hole.ts";
  fs::copy_file(TABLES, path);
  fs::resize_file(path, std::uintmax_t{1} << 30U);
  Program host({receiverProgram(), "--fast", path});
  ASSERT_TRUE(host.awaitOutput("serving\n")) << host.errors();
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
  Program once({receiverProgram(), "--fast", "--once", path});
  EXPECT_EQ(once.wait(), 0);
  EXPECT_TRUE(
      once.errors().ends_with("quillwork-receiver: /dev/shm/hole.ts: there is no packet in 256 "
                              "MiB, which is taken for the "
                              "end\n"))
      << once.errors();
  fs::remove(path);
}

TEST(Receiver, DoesNotWaitForTheWriterOfItsScript) {
  const std::string path = "/dev/shm/script-pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  Program host({receiverProgram(), "--script", path, TABLES});
  ASSERT_TRUE(host.awaitOutput("serving\n")) << host.errors();
  std::ofstream(path) << "event 7\n";
  EXPECT_TRUE(host.awaitOutput("event 7\n"));
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
  fs::remove(path);
}

TEST(Receiver, ForgetsALineWithoutAnEnd) {
  Program host({receiverProgram(), "--quiet", TABLES});
  const std::string blanks(4096, ' ');
  while (host.errors() != "quillwork-receiver: a line of more than 65536 bytes is no command\n") {
    host.give(blanks);
  }
  // What ends the line belongs to it.
  host.say("quit");
  // Its end comes with its last byte.
  host.say("quit" + std::string(65536 - 3, ' '));
  host.say("event 1");
  EXPECT_TRUE(host.awaitOutput("event 1\n"));
  host.say("quit");
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, FailsWhereAllThatItIsToPlayIsNoStream) {
  Program host({receiverProgram(), "--once", "-"},
               {"/bin/bash", "-c", R"(exec "$@" < /dev/null)", "bash"});
  EXPECT_EQ(host.wait(), 1);
}

TEST(Receiver, SaysWhichServiceIsNotThere) {
  const std::string script = "/dev/shm/script";
  std::ofstream(script) << "service 77\nquit\n";
  const Result result = run({receiverProgram(), "--quiet", "--script", script, TABLES});
  EXPECT_EQ(result.output, "service 1001\n");
  EXPECT_EQ(result.errors, "quillwork-receiver: service 77 is not in the stream so far\n");
}

TEST(Receiver, SaysItsVersionAndWhatIsWrongWithItsArgumentsInOneLine) {
  const Result version = run({receiverProgram(), "--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.output.starts_with("quillwork-receiver 0.")) << version.output;
  for (const auto& [words, message] :
       {std::pair{Words{}, "STREAM is required"},
        {Words{"--none", "x.ts"}, "The following argument was not expected: --none"},
        {Words{"/dev/shm/none.ts"}, "/dev/shm/none.ts: No such file or directory"}}) {
    Words all = {receiverProgram()};
    all.insert(all.end(), words.begin(), words.end());
    const Result result = run(all);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, std::string("quillwork-receiver: ") + message + "\n");
  }
}

TEST_F(WholeSample, ASecondReceiverIsRefusedAndTheFirstOnesClientNotDisturbed) {
  const auto watcher = watch();
  for (int i = 0; i < 20; ++i) {
    const Result second = run({receiverProgram(), TABLES});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors,
              "quillwork-receiver: /dev/shm/ipc.socket: another receiver serves there; it has to "
              "end first\n");
  }
  host->say("event 1234 after it");
  EXPECT_TRUE(watcher->awaitOutput("\"code\":1234,")) << watcher->output() << watcher->errors();
}

TEST_F(WholeSample, AHangUpEndsItAsItIsToEnd) {
  stop(SIGHUP);
  EXPECT_NE(host->output().find("deleting middleware ipc\n"), std::string::npos);
  host = nullptr;
}

TEST(Receiver, OutlivesAHangUpWhenItIsToldSo) {
  Program host({receiverProgram(), "--loop", TABLES}, {"/usr/bin/nohup"});
  ASSERT_TRUE(host.awaitOutput("serving\n")) << host.errors();
  host.signal(SIGHUP);
  EXPECT_EQ(client({"tuned"}), "8193\n");
  host.say("quit");
  EXPECT_EQ(host.wait(), 0);
}

TEST(Receiver, EndsAsItIsToEndWhenNobodyReadsItsOutputAnyMore) {
  // It says each stream event, time and again. The shell's status is that of the receiver.
  Program shell({receiverProgram(), "--fast", "--loop", SAMPLE},
                {"/bin/bash", "-c", R"("$@" | head -n 1; exit ${PIPESTATUS[0]})", "bash"});
  EXPECT_EQ(shell.wait(), 0) << shell.errors();
  EXPECT_EQ(shell.output(), "serving\n");
}

TEST(Receiver, DeletesItsAdapterAlsoWhenSomethingIsWrongBesides) {
  const Result result = run({receiverProgram(), "--script", "/dev/shm/none", TABLES});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "serving\ndeleting middleware ipc\n");
}

TEST(Receiver, RefusesWhatItCannotUseInOneLine) {
  const auto expectError = [](Words words, const std::string& message) {
    words.insert(words.begin(), receiverProgram());
    words.emplace_back(TABLES);
    const Result result = run(words);
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(result.errors, "quillwork-receiver: " + message + "\n");
  };
  std::ofstream("/dev/shm/file") << std::string(5000, 'x');
  expectError({"--mount", "/dev/shm/file"}, "/dev/shm/file: Not a directory");
#ifdef QUILLWORK_SQLITE
  expectError({"--properties", "/dev/shm/file"}, "/dev/shm/file: file is not a database");
#endif
}

TEST(Receiver, EndsInItsOrderWhereItCannotGoOn) {
  const Result result = run({receiverProgram(), "--script", "/dev/shm/none", TABLES});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "quillwork-receiver: /dev/shm/none: No such file or directory\n");
  EXPECT_NE(result.output.find("deleting middleware ipc\n"), std::string::npos) << result.output;
}

TEST(Receiver, PlaysItsStandardInput) {
  Program host({receiverProgram(), "-", "--quiet"});
  std::ifstream file(TABLES, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  host.give(bytes);
  while (run({CLIENT, "--time-limit", patiently, "tuned"}).output != "8193\n") {
  }
  while (Json::parse(client({"services", "--json"})).size() < 5) {
  }
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

}  // namespace
