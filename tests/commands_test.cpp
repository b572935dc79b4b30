// The two programs as processes of their own, on the sample stream.

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "receiver/Text.h"
#include "support/Patience.h"
#include "support/Program.h"

namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result run(const Words& words) {
  Program program(words);
  const int status = program.wait();
  return {status, program.output(), program.errors()};
}

Result client(Words words) {
  words.insert(words.begin(), {CLIENT, "--time-limit", patiently});
  return run(words);
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

constexpr int failed = 1;
constexpr int nothingFound = 2;

void expectError(const Result& result, const std::string& message, int status = failed) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, message + "\n");
}

class OnTheSample : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host.awaitOutput("broadcast time")) << host.errors(); }
  void TearDown() override {
    host.signal(SIGINT);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");
  }

  Json json(Words words) {
    words.emplace_back("--json");
    const Result result = client(std::move(words));
    EXPECT_EQ(result.status, 0) << result.errors;
    return Json::parse(result.output);
  }

  /// So fast that every section comes many times a second.
  Program host{{receiverProgram(), "--loop", "--bitrate", "50000000", TABLES}};
};

TEST_F(OnTheSample, TheReceiverSaysWhatItHasRead) {
  EXPECT_EQ(host.output(), std::string("serving\n") + TABLES +
                               ": 476 packets (0 damaged, 0 gaps), 208 sections (0 bad, 49 "
                               "changes), 5 services, 56 events, broadcast time "
                               "2026-09-24T20:10:03\n");
}

TEST_F(OnTheSample, Services) {
  const Json services = json({"services"});
  ASSERT_EQ(services.size(), 5U);
  EXPECT_EQ(services[0]["value_1"], 1001);
  EXPECT_EQ(services[0]["value_2"], 0x2001);
  EXPECT_EQ(services[0]["name"], "Quill One");
  const Result table = client({"services"});
  EXPECT_EQ(firstLine(table.output),
            "service  stream  network  running  flags                       name            type");
  EXPECT_NE(table.output.find("   1001    8193    65312  running  actual pat schedule p/f     "
                              "Quill One       25 H.264/AVC HD digital television\n"),
            std::string::npos)
      << table.output;
  EXPECT_EQ(services[0]["service_type"], "H.264/AVC HD digital television");
  EXPECT_EQ(services[0]["running_status"], "running");
  EXPECT_EQ(services[0]["flags"], (Json{"actual", "pat", "schedule", "p/f"}));
}

TEST_F(OnTheSample, OutputThatCannotBeWrittenIsAFailure) {
  for (const Words& words : {Words{"services"}, {"--json", "services"}, {"tuned"}, {"--help"}}) {
    Words all = {CLIENT, "--time-limit", patiently};
    all.insert(all.end(), words.begin(), words.end());
    Program program(all, {"/bin/bash", "-c", R"(exec "$@" > /dev/full)", "bash"});
    EXPECT_EQ(program.wait(), failed) << words.back();
    EXPECT_EQ(program.errors(),
              "quillwork-client: the output cannot be written: No space left on device\n");
  }
}

TEST_F(OnTheSample, TextsOfEveryKind) {
  try {
    receiver::CharacterTable::named("ISO-8859-5");
  } catch (const std::invalid_argument&) {
    GTEST_SKIP() << "no character-set modules for this processor";
  }
  const Json services = json({"services"});
  EXPECT_EQ(services[1]["name"], "Cinéma Über");
  EXPECT_EQ(services[2]["name"], "Радио Перо");
  EXPECT_EQ(services[3]["name"], "Ελλάδα 日本 ğş");
  EXPECT_EQ(json({"network"})["name"], "Réseau d’échantillon");
  std::vector<std::string> names;
  for (const Json& event : json({"events", "--service", "1002"})) names.push_back(event["text_2"]);
  EXPECT_EQ(names, (std::vector<std::string>{"Français", "La nuit", "Le Café", "L'été", "Noël",
                                             "Coração", "Straße", "Müsli", "Café crème", "Cinq €",
                                             "El niño", "Garçon", "Français", "La nuit"}));
}

TEST_F(OnTheSample, Events) {
  EXPECT_EQ(json({"events"}).size(), 56U);
  EXPECT_EQ(json({"events", "--service", "1001"}).size(), 14U);
  const Json present = json({"events", "--present-following"});
  EXPECT_EQ(present.size(), 8U);
  EXPECT_EQ(present[0]["value_2"], 110);
  EXPECT_EQ(present[0]["value_3"], 1790280000);
  EXPECT_EQ(present[0]["value_4"], 7200);
  EXPECT_EQ(present[0]["value_5"], 0x4e);
  const Json event = json({"event"});
  EXPECT_EQ(event["text_2"], "Evening News");
  const std::string text = event["text_list_1"][0];
  EXPECT_GT(text.size(), 900U);
  EXPECT_NE(text.find("letters – señal, été, Ωmega"), std::string::npos);
  EXPECT_EQ(event["text_list_2"], (Json{"Director", "Ada Quill"}));
  EXPECT_EQ(event["byte_list_2"], "44455503");
  EXPECT_NE(client({"event"}).output.find("start        2026-09-24 20:00:00\n"), std::string::npos);
}

TEST_F(OnTheSample, MapsComponentsAndDescriptors) {
  const Json maps = json({"pmts"});
  ASSERT_EQ(maps.size(), 4U);
  EXPECT_EQ(maps[1]["value_2"], 0x110);
  EXPECT_EQ(maps[0]["name"], "Quill One");
  EXPECT_EQ(firstLine(client({"pmts"}).output), "program  PMT PID  PCR PID  version  name");
  EXPECT_NE(client({"pmts", "1002"}).output.find("   1002  0x0110   "), std::string::npos);
  EXPECT_EQ(json({"pmts", "1002"}).size(), 1U);
  const Json components = json({"components", "1002"});
  ASSERT_EQ(components.size(), 3U);
  EXPECT_EQ(components[1]["value_1"], 0x113);
  EXPECT_EQ(components[1]["value_6"], 0x0b00);
  EXPECT_EQ(json({"components"}).size(), 3U);
  const Json descriptors = json({"descriptors", "component", "257"});
  ASSERT_EQ(descriptors.size(), 2U);
  EXPECT_EQ(descriptors[1]["tag"], 0x80);
  EXPECT_EQ(descriptors[1]["data"], "");
  EXPECT_EQ(json({"descriptors", "event", "1001", "110"})[0]["tag"], 0x4d);
  EXPECT_EQ(json({"descriptors", "network"})[0]["tag"], 0x40);
  EXPECT_EQ(json({"descriptors", "transport-stream"})[1]["tag"], 0x5a);
  EXPECT_EQ(json({"descriptors", "transport-stream", "8194"})[0]["tag"], 0x41);
}

TEST_F(OnTheSample, SingleValues) {
  EXPECT_EQ(json({"network"})["network_value"], 0xff20);
  const Json stream = json({"transport-stream"});
  EXPECT_EQ(stream["value_1"], 0x2001);
  EXPECT_EQ(stream["real_value"], 570.0);
  EXPECT_EQ(stream["mode"], 3);
  EXPECT_EQ(json({"ca-systems"}), Json{0x0b00});
  EXPECT_EQ(client({"ca-systems"}).output, "0x0b00 Conax\n");
  EXPECT_EQ(json({"ids", "1", "8193"}), (Json{1001, 1002, 1003, 1004}));
  EXPECT_EQ(json({"ids", "2"}), (Json{8193, 8194}));
  EXPECT_EQ(json({"ids", "3", "65312"}), (Json{8193, 8194}));
  EXPECT_EQ(json({"ids", "4", "12289"}), Json{8193});
  EXPECT_EQ(json({"current-service"})["service"], 1001);
  EXPECT_EQ(json({"protected"})["protected"], false);
  EXPECT_EQ(json({"description"})["description"], "Quill One, Quillwork");
  EXPECT_EQ(json({"coding-format"})["coding_format"], "UTF-8");
  EXPECT_EQ(json({"version", "1"})["set"], true);
  EXPECT_EQ(json({"version", "77"})["set"], false);
  EXPECT_EQ(client({"--version"}).output.rfind("quillwork-client ", 0), 0U);
}

TEST_F(OnTheSample, Sections) {
  const Json section = json({"section", "--pid", "1792"});
  EXPECT_EQ(section["size"], 4096);
  const std::string sdt = json({"section", "--pid", "17", "--table-id", "66"})["section"];
  EXPECT_EQ(sdt.substr(0, 2), "42");
  const std::string service =
      json({"section", "--pid", "18", "--filter", "3:03ec/ffff"})["section"];
  EXPECT_EQ(service.substr(6, 4), "03ec");
  const Result shown = client({"section", "--pid", "0", "--count", "2"});
  EXPECT_EQ(firstLine(shown.output), "section of 32 bytes");
  EXPECT_NE(shown.output.find("0000  00 b0 1d 20 01 "), std::string::npos) << shown.output;
  expectError(client({"section", "--pid", "99", "--timeout", "10"}),
              "quillwork-client: no section on PID 99 within 10 ms", nothingFound);
}

TEST_F(OnTheSample, NumbersMayBeHexadecimal) {
  const std::string sdt = json({"section", "--pid", "0x11", "--table-id", "0x42"})["section"];
  EXPECT_EQ(sdt.substr(0, 2), "42");
  EXPECT_EQ(json({"pmts", "0x3ea"})[0]["value_1"], 1002);
  EXPECT_EQ(json({"ids", "0x1", "0x2001"}).size(), 4U);
  const std::string service =
      json({"section", "--pid", "18", "--filter", "0x3:03ec/ffff"})["section"];
  EXPECT_EQ(service.substr(6, 4), "03ec");
}

TEST_F(OnTheSample, WhatIsNotThereIsSaidInOneLineAndHasAStatusOfItsOwn) {
  const struct {
    Words words;
    std::string message;
  } rows[] = {
      {{"components", "77"}, "no program map of service 77"},
      {{"pmts", "77"}, "no program 77"},
      {{"service", "77"}, "no service 77"},
      {{"events", "--service", "77"}, "no service 77"},
      {{"descriptors", "component", "0x1234"}, "no component 0x1234 (4660)"},
      {{"descriptors", "event", "1001", "9999"}, "no event 9999 of service 1001"},
      {{"descriptors", "transport-stream", "77"}, "no transport stream 77 (0x004d)"},
      {{"ids", "1", "77"}, "no transport stream 77 (0x004d)"},
      {{"property", "no.such"}, "no property 'no.such'"},
      {{"property", "no.such", "--remove"}, "no property 'no.such'"},
      {{"mount", "dvb://..77"}, "'dvb://..77' cannot be mounted"},
  };
  for (const auto& row : rows) {
    Words words = row.words;
    expectError(client(words), "quillwork-client: " + row.message, nothingFound);
    words.emplace_back("--json");
    expectError(client(words), "quillwork-client: " + row.message, nothingFound);
  }
  expectError(client({"ids", "3", "77"}), "quillwork-client: no network 77", nothingFound);
  expectError(client({"ids", "4", "77"}), "quillwork-client: no bouquet 77", nothingFound);
  EXPECT_EQ(json({"ids", "4", "77"}), Json::array());
  // A list that is empty without anything having been named is an answer to a program.
  expectError(client({"events", "--text", "nowhere to be found"}),
              "quillwork-client: no such events", nothingFound);
  EXPECT_EQ(json({"events", "--text", "nowhere to be found"}), Json::array());
}

TEST_F(OnTheSample, EventsByTimeTableAndText) {
  const Json all = json({"events", "--service", "1001"});
  const auto count = [&](Words words) {
    words.insert(words.begin(), {"events", "--service", "1001"});
    return json(words).size();
  };
  EXPECT_EQ(count({"--table", "p/f"}), 2U);
  EXPECT_EQ(count({"--table", "0x4e"}), 2U);
  EXPECT_EQ(count({"--table", "schedule"}), all.size() - 2);
  // The present event lasts from 20:00 to 22:00.
  EXPECT_EQ(count({"--table", "p/f", "--to", "2026-09-24T20:00"}), 0U);
  EXPECT_EQ(count({"--table", "p/f", "--to", "2026-09-24T20:00:01"}), 1U);
  EXPECT_EQ(count({"--table", "p/f", "--from", "2026-09-24 21:59:59"}), 2U);
  EXPECT_EQ(count({"--table", "p/f", "--from", "2026-09-24T22:00"}), 1U);
  EXPECT_EQ(count({"--from", "1790280000"}), count({"--from", "2026-09-24T20:00:00"}));
  EXPECT_EQ(count({"--table", "p/f", "--text", "EVENING news"}), 1U);
  EXPECT_EQ(count({"--table", "p/f", "--text", "SEÑAL, été"}), 1U) << "in the extended text";
  EXPECT_EQ(count({"--table", "p/f", "--text", "ada quill"}), 1U) << "in an item";
  expectError(client({"events", "--from", "yesterday"}),
              "quillwork-client: --from: 'yesterday' is no time such as 2026-09-24T20:00");
  expectError(client({"events", "--from", "2026-02-30"}),
              "quillwork-client: --from: '2026-02-30' is no time such as 2026-09-24T20:00");
  expectError(
      client({"events", "--table", "0x100"}),
      "quillwork-client: --table: '0x100' is not p/f, p/f-other, schedule, schedule-other or "
      "a table id");
}

TEST_F(OnTheSample, NoRequestSelectsAService) {
  EXPECT_EQ(client({"service", "1001"}).output, "1001\n");
  expectError(
      client({"service", "1002"}),
      "quillwork-client: service 1002 is not selected, 1001 is: no request selects a service; "
      "type 'service 1002' into the receiver's standard input");
  host.say("service 1002");
  ASSERT_TRUE(host.awaitOutput("service 1002\n"));
  EXPECT_EQ(client({"service", "1002"}).output, "1002\n");
}

TEST_F(OnTheSample, WatchingEndsWhenNothingComes) {
  const Result result = client({"watch", "--timeout", "10"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
}

/// A receiver on the sample, and a client that watches it.
class Watched : public testing::Test {
 protected:
  /// Types in stream events until the client has connected and shows one: those before are lost.
  void SetUp() override {
    ASSERT_TRUE(host.awaitOutput("broadcast time")) << host.errors();
    watcher = std::make_unique<Program>(Words{CLIENT, "--time-limit", patiently, "watch"});
    std::string answers;
    while (watcher->output().empty()) {
      host.say("event 7 hello world");
      answers += "event 7\n";
      ASSERT_TRUE(host.awaitOutput(answers));
    }
  }

  /// Nothing of its own comes between what is typed in and its answers.
  Program host{{receiverProgram(), "--fast", TABLES}};
  std::unique_ptr<Program> watcher;
};

TEST_F(Watched, AStreamEventThatIsTypedInReachesTheClient) {
  EXPECT_NE(watcher->output().find("\"code\":7,"), std::string::npos) << watcher->output();
  EXPECT_NE(watcher->output().find("\"hello world\""), std::string::npos) << watcher->output();
}

TEST_F(Watched, AnApplicationStateThatIsTypedInIsAskedAndTheClientsLeavingAnswersIt) {
  host.say("state 4");
  ASSERT_TRUE(watcher->awaitOutput("\"state\":4"));
  watcher->signal(SIGTERM);
  EXPECT_TRUE(host.awaitOutput("state 4: yes\n"));
}

TEST_F(Watched, TheReceiverEndsWhileAClientIsAsked) {
  watcher->signal(SIGSTOP);
  host.say("help");
  ASSERT_TRUE(host.awaitOutput("state NUMBER"));
  host.say("state 5");
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait(), 0);
}

TEST(Commands, WhatIsWronglyTypedInIsSaidInOneLine) {
  const struct {
    std::string line;
    std::string complaint;
  } rows[] = {
      {"dance", "there is no command 'dance'; 'help' shows them"},
      {"state", "'state': a number is missing"},
      {"event x", "'event x': a number is missing"},
  };
  Program host({receiverProgram(), TABLES});
  ASSERT_TRUE(host.awaitOutput("serving\n"));
  std::string complaints;
  for (const auto& row : rows) {
    host.say(row.line);
    complaints += "quillwork-receiver: " + row.complaint + "\n";
  }
  host.say("");
  host.say("quit");
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(host.errors(), complaints);
}

TEST(Commands, WhatIsWrongIsSaidInOneLine) {
  expectError(client({"services"}),
              "quillwork-client: /dev/shm/ipc.socket: no receiver is running");
  expectError(client({"section", "--pid", "0"}),
              "quillwork-client: /dev/shm/ipcdemux.socket: no receiver is running");
  expectError(client({"nonsense"}), "quillwork-client: unknown command 'nonsense'");
  expectError(client({"media", "nonsense"}), "quillwork-client: unknown command 'media nonsense'");
  expectError(client({}), "quillwork-client: a command is required; '--help' lists them");
  expectError(client({"media"}),
              "quillwork-client: a command is required; 'media --help' lists them");
  expectError(client({"--time-limit", "x"}), "quillwork-client: --time-limit: 'x' is no number");
  expectError(client({"services", "extra"}),
              "quillwork-client: The following argument was not expected: extra");
  expectError(client({"watch", "--answer", "maybe"}),
              "quillwork-client: --answer: 'maybe' is neither yes nor no");
  expectError(client({"ids", "9"}), "quillwork-client: KIND: 9 is not 1 to 4");
  for (const char* const kind : {"1", "3", "4"}) {
    expectError(client({"ids", kind}),
                std::string("quillwork-client: KEY is required for the kind ") + kind);
  }
  expectError(client({"section", "--pid", "12x"}), "quillwork-client: --pid: '12x' is no number");
  expectError(client({"section", "--pid", "8192"}),
              "quillwork-client: --pid: 8192 is not 0 to 8191");
  expectError(client({"version", "99999999999"}),
              "quillwork-client: FLAG: 99999999999 is too large");
  expectError(client({"section"}), "quillwork-client: --pid is required");
}

TEST(Commands, AWrongFilterIsSaidInOneLine) {
  Program host({receiverProgram(), TABLES});
  ASSERT_TRUE(host.awaitOutput("serving\n"));
  expectError(client({"section", "--pid", "0", "--filter", "xyz"}),
              "quillwork-client: --filter: 'xyz' is not pairs of hexadecimal digits");
  expectError(client({"section", "--pid", "0", "--filter", "a:00"}),
              "quillwork-client: --filter: 'a' is no offset");
}

TEST(Commands, TheReceiverRefusesBadStreamsInOneLine) {
  const auto expectRefusal = [](const std::string& path, const std::string& message) {
    expectError(run({receiverProgram(), path}), "quillwork-receiver: " + path + message);
  };
  expectRefusal("/nowhere.ts", ": No such file or directory");
  const std::string path = "/dev/shm/bad.ts";
  std::ofstream(path).close();
  expectRefusal(path, ": is empty");
  std::ofstream(path) << "no stream";
  expectRefusal(path,
                ": is no MPEG transport stream of 188, 192 or 204-byte packets: it begins with 6e "
                "6f 20 73 74 72 65 61");
  expectError(run({receiverProgram(), TABLES, "--charset", "nope"}),
              "quillwork-receiver: unknown character table 'nope'");
  EXPECT_NE(run({receiverProgram()}).status, 0);
  for (const char* const number : {"1x", "", "0x", "999", "0x40000000", "nan"}) {
    EXPECT_NE(run({receiverProgram(), "--bitrate", number, TABLES}).status, 0) << number;
  }
  for (const char* const number : {"x", "65536", "0x10000"}) {
    EXPECT_NE(run({receiverProgram(), "--service", number, TABLES}).status, 0) << number;
  }
  EXPECT_EQ(run({receiverProgram(), "--help"}).status, 0);
}

TEST(Commands, TheReceiverReadsHexadecimalNumbers) {
  Program host(
      {receiverProgram(), "--fast", "--service", "0x3ea", "--bitrate", "0x100000", TABLES});
  ASSERT_TRUE(host.awaitOutput("broadcast time")) << host.errors();
  EXPECT_EQ(client({"current-service"}).output, "1002\n");
}

TEST(Commands, TheReceiverEndsOnBothSignals) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program host({receiverProgram(), TABLES});
    ASSERT_TRUE(host.awaitOutput("serving\n"));
    host.signal(signal);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_NE(host.output().find("deleting middleware ipc\n"), std::string::npos);
  }
}

TEST(Commands, DamagedPacketsAreCountedAndSkipped) {
  std::ifstream sample(TABLES, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(sample)), {});
  bytes[188 * 10] = 'x';
  bytes[188 * 30 + 1] = static_cast<char>(bytes[188 * 30 + 1] | '\x80');
  bytes[188 * 1 + 20] ^= 1;
  const std::string path = "/dev/shm/damaged.ts";
  std::ofstream(path, std::ios::binary) << bytes;
  Program host({receiverProgram(), "--fast", path});
  ASSERT_TRUE(host.awaitOutput("broadcast time"));
  // Nothing comes before the first of the two on its PID, so that it leaves no gap.
  EXPECT_NE(host.output().find("476 packets (2 damaged, 1 gaps)"), std::string::npos)
      << host.output();
  EXPECT_NE(host.output().find("(1 bad,"), std::string::npos) << host.output();
  EXPECT_NE(host.output().find("5 services, 56 events"), std::string::npos) << host.output();
}

}  // namespace
