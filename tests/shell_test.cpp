// The client in an event loop, and what the shell makes of a line.

#include "cli/Shell.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>
#include <variant>

#include "cli/Command.h"
#include "cli/Session.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "support/Manager.h"
#include "support/RecordingListener.h"
#include "support/UnixSocket.h"

namespace {

using namespace quillwork::cli;
using namespace quillwork::client;
using quillwork::message;
using Words = std::vector<std::string>;

/// A server that says what it is told to, piece by piece.
class InAnEventLoop : public testing::Test {
 protected:
  static constexpr const char* path = "/dev/shm/loop.socket";

  InAnEventLoop() : channel_(listening_, std::string(path)) {}
  ~InAnEventLoop() override { close(); }

  void say(const std::string& bytes) const {
    EXPECT_EQ(::send(channel_.server, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  void close() {
    if (channel_.server != -1) ::close(channel_.server);
    channel_.server = -1;
  }
  static std::string record(std::int32_t group, std::int32_t type, std::int32_t third = 0) {
    message bytes{};
    bytes.group = group;
    bytes.type = type;
    bytes[3] = third;
    return {reinterpret_cast<const char*>(&bytes), sizeof bytes};
  }
  static std::string part(const std::string& text) {
    std::string bytes = record(quillwork::DSMCC_COMMAND, 5);
    bytes.replace(25, text.size(), text);
    return bytes;
  }
  ControlChannel& channel() { return channel_.client; }

 private:
  struct Listening {
    int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Listening() { EXPECT_EQ(listenAt(descriptor, path), 0); }
    ~Listening() {
      ::close(descriptor);
      unlink(path);
    }
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;
  };
  struct Pair {
    Pair(const Listening& listening, const std::string& name)
        : client(name), server(accept(listening.descriptor, nullptr, nullptr)) {}
    ControlChannel client;
    int server;
  };

  const Listening listening_;
  Pair channel_;
};

TEST_F(InAnEventLoop, NothingIsWaitedForUntilItIsThere) {
  EXPECT_FALSE(channel().takeNotification());
  const std::string end = record(quillwork::MEDIA, 16, 7);
  say(end.substr(0, 1));
  EXPECT_FALSE(channel().takeNotification());
  say(end.substr(1, 1958));
  EXPECT_FALSE(channel().takeNotification());
  say(end.substr(1959) + end);
  for (int turn = 0; turn < 2; ++turn) {
    const auto notification = channel().takeNotification();
    ASSERT_TRUE(notification);
    EXPECT_EQ(std::get<EndOfMedia>(*notification).player, 7);
  }
  EXPECT_FALSE(channel().takeNotification());
}

TEST_F(InAnEventLoop, ALongCommandIsTakenWhole) {
  say(record(quillwork::LIST_HEADER, 2));
  EXPECT_FALSE(channel().takeNotification());
  const std::string first(1920, 'a');
  say(part(first));
  EXPECT_FALSE(channel().takeNotification());
  say(part("end").substr(0, 100));
  EXPECT_FALSE(channel().takeNotification());
  say(part("end").substr(100) + record(quillwork::MEDIA, 16, 8));
  EXPECT_EQ(std::get<DsmCCCommand>(*channel().takeNotification()).text, first + "end");
  EXPECT_EQ(std::get<EndOfMedia>(*channel().takeNotification()).player, 8);
}

TEST_F(InAnEventLoop, AReplyGoesOnWhereANotificationHasBegun) {
  say(record(quillwork::MEDIA, 16, 9).substr(0, 500));
  EXPECT_FALSE(channel().takeNotification());
  std::vector<std::int32_t> players;
  channel().onNotification([&](const Notification& notification) {
    players.push_back(std::get<EndOfMedia>(notification).player);
  });
  say(record(quillwork::MEDIA, 16, 9).substr(500) + record(quillwork::SI, 7, 101));
  EXPECT_EQ(channel().getCurrentService(), 101);
  EXPECT_EQ(players, std::vector<std::int32_t>{9});
}

TEST_F(InAnEventLoop, TheEndIsAnErrorEvenInTheMiddle) {
  say("half");
  EXPECT_FALSE(channel().takeNotification());
  close();
  EXPECT_THROW(channel().takeNotification(), Error);
  EXPECT_THROW(channel().takeNotification(), Error);
}

TEST_F(InAnEventLoop, ANegativeCountIsAnError) {
  say(record(quillwork::LIST_HEADER, -1));
  EXPECT_THROW(channel().takeNotification(), Error);
}

TEST_F(InAnEventLoop, ACommandOfTooManyPartsIsAnError) {
  say(record(quillwork::LIST_HEADER, 100'000));
  EXPECT_THROW(channel().takeNotification(), Error);
}

TEST(Words, ArePartedByBlanksQuotedAndEscaped) {
  EXPECT_EQ(splitWords("  a  b\tc "), (Words{"a", "b", "c"}));
  EXPECT_EQ(splitWords("media open 'a b' \"c'd\" e\\ f \"\\\"\" ''"),
            (Words{"media", "open", "a b", "c'd", "e f", "\"", ""}));
  EXPECT_EQ(splitWords("'a\\b'"), Words{"a\\b"});
  EXPECT_EQ(splitWords(""), Words{});
  EXPECT_THROW(splitWords("a 'b"), std::invalid_argument);
}

TEST(Completion, KnowsCommandsTheirSecondWordsAndOptions) {
  EXPECT_EQ(completions("serv"), (Words{"service", "services"}));
  EXPECT_EQ(completions("me"), Words{"media"});
  EXPECT_EQ(completions("media b"), (Words{"balance", "bass", "bounds"}));
  EXPECT_EQ(completions("section --t"), (Words{"--table-id", "--timeout"}));
  EXPECT_EQ(completions("video mute o"), (Words{"off", "on"}));
  EXPECT_EQ(completions("nonsense x"), Words{});
  EXPECT_GT(completions("").size(), 20U);
}

TEST(CommandTable, HasNoNameTwiceAndExplainsEverything) {
  std::set<std::pair<std::string_view, std::string_view>> names;
  for (const Command& command : commands()) {
    EXPECT_EQ(command.group.empty(), descriptionOf(command.group).empty()) << command.group;
    EXPECT_TRUE(names.insert({command.group, command.name}).second) << command.name;
    EXPECT_FALSE(command.description.empty()) << command.name;
    for (const Argument& argument : command.arguments) {
      EXPECT_FALSE(argument.description.empty()) << command.name << ' ' << argument.name;
    }
  }
}

/// Sends so many commands of a length before each answer, numbered by their codes.
class Sessions : public testing::Test {
 protected:
  Sessions() {
    listener_.onCall = [this](const std::string& operation) {
      if (operation != "getCurrentService") return;
      for (int code = 0; code < count; ++code) {
        manager_->sendDsmCCCommand({code, 0, 0, std::string(length, 'x')});
      }
    };
    manager_->addIpcServerListener(&listener_);
  }
  ~Sessions() override { quillwork::IpcServerManager::destroy(); }

  /// The codes of the first and the last one that are kept, and how many these are.
  std::vector<int> kept() {
    std::vector<int> codes;
    while (const auto notification = session_.takeEarly()) {
      codes.push_back(std::get<DsmCCCommand>(*notification).code);
    }
    if (codes.empty()) return {};
    return {codes.front(), codes.back(), static_cast<int>(codes.size())};
  }

  int count = 0;
  std::size_t length = 0;

 private:
  CallLog log_;
  RecordingListener listener_{log_};
  quillwork::IpcServerManager* manager_ = makeManager();

 protected:
  Session session_{{}};
};

TEST_F(Sessions, KeepTheNewestThousandOfWhatComesBeforeAReply) {
  count = 1005;
  session_.control().getCurrentService();
  EXPECT_EQ(kept(), (std::vector{5, 1004, 1000}));
  count = 3;
  session_.control().getCurrentService();
  EXPECT_EQ(kept(), (std::vector{0, 2, 3}));
}

TEST_F(Sessions, KeepTheNewestThirtyTwoMebibytesOfWhatComesBeforeAReply) {
  count = 40;
  length = 1 << 20;
  session_.control().getCurrentService();
  EXPECT_EQ(kept(), (std::vector{8, 39, 32}));
  // What was taken counts no more.
  session_.control().getCurrentService();
  EXPECT_EQ(kept(), (std::vector{8, 39, 32}));
}

}  // namespace
