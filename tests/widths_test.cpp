// Host and client as two processes, which need not have pointers of the same size: every request
// and reply, every notification, byte by byte and through the client library. QUILLWORK_HOST_BUILD
// names the build of the host; without it, it is this one.

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "support/AskEverything.h"
#include "support/Golden.h"
#include "support/Patience.h"
#include "support/Program.h"
#include "support/RawClient.h"

namespace {

using namespace quillwork::client;
using Calls = std::vector<std::string>;

class Widths : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host.awaitOutput("serving")) << host.errors(); }

  [[nodiscard]] bool isWide() const { return host.output().rfind("serving 8", 0) == 0; }

  /// Tells the host something and waits until it says that this is done.
  void tell(const std::string& line) {
    host.forgetOutput();
    host.say(line);
    EXPECT_TRUE(host.awaitOutput("done " + line)) << host.errors();
  }

  /// What the host's listeners were called with.
  Calls calls() {
    const std::size_t before = host.output().size();
    host.say("calls");
    while (host.output().find("done calls\n", before) == std::string::npos) {
      std::this_thread::yield();
    }
    Calls lines;
    std::istringstream text(host.output().substr(before));
    for (std::string line; std::getline(text, line) && line != "done calls";) {
      lines.push_back(line);
    }
    return lines;
  }

  Program host{{hostProgram("tests/quillwork-golden-host")}};
};

TEST_F(Widths, EveryRequestAndReply) {
  const RawClient client;
  for (const Golden& golden : Golden::readAll(GOLDEN_DIRECTORY)) {
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) {
        client.send(part.bytes);
      } else {
        EXPECT_EQ(differences(part, client.receive(part.bytes.size()), isWide()), "")
            << golden.name;
      }
    }
    // Answered always, and the last of what was asked.
    EXPECT_EQ(client.ask(request(quillwork::VERSION, 99)).group, quillwork::VERSION);
    Calls expected = golden.callTexts();
    expected.emplace_back("checkVersionFlag(99)");
    EXPECT_EQ(calls(), expected) << golden.name;
  }
}

TEST_F(Widths, ThroughTheClientLibrary) {
  ControlChannel channel;
  askEverything(channel);
}

TEST_F(Widths, Notifications) {
  ControlChannel channel;
  EXPECT_TRUE(channel.checkVersionFlag(1));
  host.say("notify");
  const auto next = [&] { return channel.waitForNotification(patience).value(); };
  EXPECT_EQ(std::get<EndOfMedia>(next()).player, 7);
  EXPECT_EQ(std::get<GraphicsSettingsChanged>(next()).second.height, -8);
  EXPECT_EQ(std::get<DownloadComplete>(next()).second, "second");
  const auto command = std::get<DsmCCCommand>(next());
  EXPECT_EQ(command.code, 9);
  EXPECT_EQ(command.time, 2.5);
  EXPECT_EQ(command.flag, 200);
  EXPECT_EQ(command.text, "short");
  EXPECT_EQ(std::get<DsmCCCommand>(next()).text, std::string(5000, 't'));
  EXPECT_EQ(std::get<ApplicationState>(next()).state, 3);
}

TEST_F(Widths, EveryGoldenNotification) {
  const bool wide = isWide();
  const RawClient client;
  EXPECT_EQ(client.ask(request(quillwork::VERSION, 1)).group, quillwork::VERSION);
  const std::string directory = GOLDEN_DIRECTORY "/notifications/";
  for (const Golden& golden : Golden::readAll(directory)) {
    const std::string line = "notify " + directory + golden.name + ".golden";
    host.forgetOutput();
    host.say(line);
    bool expected = true;
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) {
        EXPECT_TRUE(host.awaitOutput("waiting")) << host.errors();
        client.send(part.bytes);
        expected = golden.calls.front().result("answer").integer() != 0;
      } else {
        EXPECT_EQ(differences(part, client.receive(part.bytes.size()), wide), "") << golden.name;
      }
    }
    EXPECT_TRUE(host.awaitOutput("done " + line)) << host.errors();
    EXPECT_NE(host.output().find(expected ? "result 1\n" : "result 0\n"), std::string::npos)
        << golden.name;
  }
}

TEST_F(Widths, EveryGoldenSectionFilterRequest) {
  const bool wide = isWide();
  const std::string directory = GOLDEN_DIRECTORY "/section-filter/";
  for (const Golden& golden : Golden::readAll(directory)) {
    tell("section " + directory + golden.name + ".golden");
    const RawClient client(RawClient::sectionFilter);
    for (const Golden::Part& part : golden.parts) {
      if (part.fromClient) {
        client.send(part.bytes);
      } else {
        EXPECT_EQ(differences(part, client.receive(part.bytes.size()), wide), "") << golden.name;
      }
    }
    client.closeSending();
    EXPECT_TRUE(client.isAtEnd()) << golden.name;
    EXPECT_EQ(calls(), golden.callTexts()) << golden.name;
  }
}

TEST_F(Widths, TheSectionFilter) {
  SectionFilterChannel sections;
  askEverything(sections);
  EXPECT_EQ(calls(), everySectionFilterCall);
}

}  // namespace
