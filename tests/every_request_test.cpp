// What has to be there for every row of the protocol's table: a command, and so an operation of the
// client library, that asks it, and words on the receiver's page for the integers of its answer.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"
#include "ipc/IpcDemuxServer.h"
#include "ipc/IpcListener.h"
#include "ipc/IpcServer.h"
#include "protocol/operations.h"
#include "support/DemuxRecorder.h"
#include "support/RawClient.h"
#include "support/StandardStreams.h"

namespace {

using namespace quillwork::cli;
using quillwork::message;
using quillwork::operations::Reply;
using quillwork::operations::Request;
using Names = std::set<std::string, std::less<>>;

/// Answers each request in the form that its row has: with the request itself or an empty list.
class Answerer : public quillwork::IpcListener {
 public:
  Answerer() { server_.start(); }

  void update(message& record) override {
    const Request* const row = rowFor(quillwork::operations::requests, record.group, record.type);
    if (row == nullptr) return;
    {
      const std::lock_guard lock(mutex_);
      names_.insert(row->name);
    }
    if (row->reply == Reply::none) return;
    message answer = row->reply == Reply::record ? record : request(quillwork::LIST_HEADER, 0);
    server_.sendMessage(answer);
  }
  void update(std::list<message>) override {}
  void clientConnected() override {}
  void clientDisconnected() override {}

  /// The rows that have been asked.
  Names names() {
    const std::lock_guard lock(mutex_);
    return names_;
  }

 private:
  std::mutex mutex_;
  Names names_;
  quillwork::IpcServer server_{this, RawClient::control,
                               static_cast<int>(std::string_view(RawClient::control).size())};
};

/// Something that the command takes for this argument.
std::string sample(const Argument& argument) {
  switch (argument.kind) {
    case Argument::Kind::integer:
      // All transport streams, the one kind of identifiers that needs no key.
      if (argument.name == "KIND") return "2";
      return std::to_string(argument.least > 0 ? static_cast<int>(argument.least) : 0);
    case Argument::Kind::real:
      return "0";
    case Argument::Kind::text:
      return argument.name == "--answer" ? "no" : "00";
    default:
      return "on";
  }
}

/// Without options, once with and once without the arguments that may be absent, and then with each
/// option. Nothing waits for what does not come.
std::vector<Values> uses(const Command& command) {
  Values shortest;
  for (const Argument& argument : command.arguments) {
    if (!argument.absent || argument.name == "--timeout") {
      shortest.set(argument.name, sample(argument));
    } else {
      shortest.setAbsent(argument);
    }
  }
  Values longest = shortest;
  for (const Argument& argument : command.arguments) {
    if (!argument.name.starts_with("--")) longest.set(argument.name, sample(argument));
  }
  std::vector<Values> all{shortest, longest};
  for (const Argument& argument : command.arguments) {
    if (!argument.name.starts_with("--")) continue;
    all.push_back(longest);
    all.back().set(argument.name, sample(argument));
  }
  return all;
}

/// The operation of a call as a CallLog has it.
std::string operationOf(const std::string& call) { return call.substr(0, call.find('(')); }

template <class Rows>
Names namesOf(const Rows& rows) {
  Names names;
  for (const auto& row : rows) names.insert(row.name);
  return names;
}

/// Names what is in one of the two only: the sets are too long to be printed.
void expectSame(const Names& seen, const Names& expected) {
  for (const std::string& name : expected) EXPECT_TRUE(seen.contains(name)) << name;
  for (const std::string& name : seen) EXPECT_TRUE(expected.contains(name)) << name;
}

class EveryRequest : public testing::Test {
 protected:
  EveryRequest() {
    recorder.section = [] { return DemuxRecorder::Bytes(16); };
    sections.setListener(&recorder);
    sections.start();
  }
  ~EveryRequest() override { sections.stop(); }

  void runAllCommands(Session& session) {
    const CaughtStream output(stdout);
    for (const Command& command : commands()) {
      for (const Values& values : uses(command)) {
        try {
          command.run(session, values);
        } catch (const Refusal&) {
          // What no receiver opens or mounts, and a trace beside a connection.
        }
      }
    }
  }

  Answerer answerer;
  DemuxRecorder recorder;
  quillwork::IpcDemuxServer sections;
};

TEST_F(EveryRequest, IsAskedByACommand) {
  Session session({});
  runAllCommands(session);
  // The shell's own word, and a command's when the library asks.
  session.control().answerApplicationState(true);
  // Answered, so that everything before has been taken.
  EXPECT_FALSE(session.control().checkVersionFlag(1));
  Names expected = namesOf(quillwork::operations::requests);
  // What only programs send that encode records themselves: bytes for the middleware, and selectors
  // of its own.
  expected.erase("setVideoProperty");
  expected.erase("setVideoAudio");
  expectSame(answerer.names(), expected);
}

/// As without the facade, or from a host that has not filled them in.
TEST_F(EveryRequest, RecordsThatAreZeroThroughoutAreNothingFound) {
  Session session({});
  std::size_t count = 0;
  for (const Command& command : commands()) {
    if (!command.group.empty()) continue;
    if (command.name == "event" || command.name == "network" ||
        command.name == "transport-stream") {
      EXPECT_THROW(command.run(session, {}), NothingFound) << command.name;
      ++count;
    }
  }
  EXPECT_EQ(count, 3U);
  // Not even programs are told of 1970.
  const CaughtStream output(stdout);
  session.setJson(true);
  const auto event = std::ranges::find(commands(), "event", &Command::name);
  event->run(session, {});
  std::fflush(stdout);
  EXPECT_NE(output.text().find("\"start\": null"), std::string::npos) << output.text();
}

TEST_F(EveryRequest, OfTheSectionFilterIsAskedByACommand) {
  Session session({});
  session.control();
  runAllCommands(session);
  Names seen;
  for (const std::string& call : recorder.log.take()) seen.insert(operationOf(call));
  expectSame(seen, namesOf(quillwork::operations::sectionFilterRequests));
}

/// Whether the answer, or an element of its list, is numbers of the middleware's own.
bool isAnsweredWithIntegers(const Request& row) {
  return std::string_view(row.answer.record).empty() &&
         std::any_of(row.answer.fields.begin(), row.answer.fields.end(),
                     [](const quillwork::operations::Field& field) {
                       return field.kind == quillwork::operations::Kind::integer;
                     });
}

TEST(ProfilePage, SaysWhatTheReceiverAnswersWithIntegers) {
  std::ifstream file(PROFILE_PAGE);
  const std::string page((std::istreambuf_iterator<char>(file)), {});
  // What the page has by other words than the request's name.
  const std::map<std::string_view, std::string_view> words = {
      {"getVideoProperty", "properties 9, 10"},
      {"getMainVideoBounds", "bounds in pixels"},
      {"getMediaBounds", "bounds in pixels"},
  };
  for (const Request& row : quillwork::operations::requests) {
    if (!isAnsweredWithIntegers(row)) continue;
    const auto found = words.find(row.name);
    const std::string wanted =
        found == words.end() ? '`' + std::string(row.name) + '`' : std::string(found->second);
    EXPECT_NE(page.find(wanted), std::string::npos) << wanted;
  }
}

}  // namespace
