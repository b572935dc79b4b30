// The receiver on what is really on air: what a client reads through the sockets, compared with
// what is known of each capture.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "receiver/Text.h"
#include "support/Program.h"

namespace {

using namespace quillwork::client;
using Json = nlohmann::json;

const std::string captures[] = {
    "av-bbb-10s",        "dvbs-hotbird-si", "dvbs-it-mediaset-ait",
    "dvbs2-fr-tnt-si",   "dvbt-gr-ert-a",   "dvbt-it-rai-mux",
    "dvbt2-de-br",       "eit-pl",          "eit-sk",
    "isdbt-jp-nhk-si",   "made-dynamic-a",  "made-isdbtb-a",
    "oc-compressed",     "oc-streamevent",  "sdt-at-ca",
    "time-after-2038-a",
};

/// What is known of a capture's extended texts comes from a decoder that takes each descriptor by
/// itself: a letter whose mark stands at the end of one and itself in the next, and a text whose
/// table only the first descriptor names. In eit-sk a mark stands on a blank, too.
struct Correction {
  const char* capture;
  const char* known;
  const char* right;
};
const Correction corrections[] = {
    {"dvbs-hotbird-si", "renderΩ", "renderà"},
    {"dvbs-hotbird-si", "ed Ł convinta", "ed è convinta"},
    {"dvbs-hotbird-si", "crederΩ", "crederà"},
    {"dvbs-hotbird-si", "troverΩ", "troverà"},
    {"eit-sk", "zajím a nejmé", "zajímá nejmé"},
    {"eit-sk", "nebezpe cným", "nebezpečným"},
    {"eit-sk", "rozl usknite", "rozlúsknite"},
    {"eit-sk", "látok  \u030194", "látok ´94"},
};

/// Full-width letters and digits as their plain forms: both are right for ARIB texts.
std::string folded(const std::string& text) {
  std::string plain;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto byte = [&](std::size_t offset) {
      return index + offset < text.size() ? static_cast<unsigned char>(text[index + offset]) : 0U;
    };
    const bool isLow = byte(0) == 0xef && byte(1) == 0xbc && byte(2) >= 0x81 && byte(2) <= 0xbf;
    const bool isHigh = byte(0) == 0xef && byte(1) == 0xbd && byte(2) >= 0x80 && byte(2) <= 0x9e;
    if (isLow || isHigh) {
      plain += static_cast<char>(byte(2) - (isLow ? 0x60 : 0x20));
      index += 2;
    } else {
      plain += text[index];
    }
  }
  return plain;
}

bool canConvertTexts() {
  try {
    receiver::CharacterTable::named("ISO-8859-9");
    return true;
  } catch (const std::invalid_argument&) {
    return false;
  }
}

int integer(const Json& json) {
  return json.is_string() ? static_cast<int>(std::stol(json.get<std::string>(), nullptr, 0))
                          : json.get<int>();
}

/// Seconds since 1970 as the wire carries them.
int seconds(const Json& time) {
  if (time.is_null()) return -1;
  std::tm parts{};
  if (strptime(time.get<std::string>().c_str(), "%Y-%m-%dT%H:%M:%S", &parts) == nullptr) return 0;
  return static_cast<int>(static_cast<std::uint32_t>(timegm(&parts)));
}

class Capture : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const char* const directory = std::getenv("QUILLWORK_STREAMS");
    if (directory == nullptr) GTEST_SKIP() << "QUILLWORK_STREAMS does not name the captures";
    const std::string path = std::string(directory) + "/" + GetParam();
    std::ifstream file(path + ".expected.json");
    ASSERT_TRUE(file) << path;
    file >> expected;
    isArib = expected["text_profile"] == "arib";
    compareTexts = isArib ? receiver::canConvertArib() : canConvertTexts();
    host = std::make_unique<Program>(
        std::vector<std::string>{receiverProgram(), "--fast", path + ".ts"});
    ASSERT_TRUE(host->awaitOutput("broadcast time")) << host->errors();
    // A processor that is emulated takes its time.
    control = std::make_unique<ControlChannel>(ControlChannel::defaultPath,
                                               std::chrono::milliseconds(60'000));
  }

  void TearDown() override {
    if (host == nullptr) return;
    control.reset();
    host->signal(SIGTERM);
    EXPECT_EQ(host->wait(), 0);
    EXPECT_NE(host->output().find("deleting middleware ipc\n"), std::string::npos);
    EXPECT_EQ(host->errors(), "");
  }

  void expectText(const std::string& received, const Json& text) const {
    if (!compareTexts) return;
    std::string wanted = text.is_null() ? "" : text.get<std::string>();
    for (const Correction& correction : corrections) {
      const std::size_t at = wanted.find(correction.known);
      if (GetParam() == correction.capture && at != std::string::npos) {
        wanted.replace(at, std::string(correction.known).size(), correction.right);
      }
    }
    EXPECT_EQ(isArib ? folded(received) : received, isArib ? folded(wanted) : wanted);
  }

  static std::vector<int> tags(const std::vector<Descriptor>& descriptors) {
    std::vector<int> list;
    for (const Descriptor& descriptor : descriptors) list.push_back(descriptor.tag);
    return list;
  }

  static std::vector<int> tags(const Json& descriptors) {
    std::vector<int> list;
    for (const Json& tag : descriptors) list.push_back(integer(tag));
    return list;
  }

  void compareServices();
  void compareProgramMaps();
  void compareSound();
  void compareNetwork();
  void compareEvents();
  void compareSections();

  Json expected;
  bool isArib = false;
  bool compareTexts = true;
  std::unique_ptr<Program> host;
  std::unique_ptr<ControlChannel> control;
};

void Capture::compareServices() {
  constexpr int isActual = 1 << 6;
  std::map<std::pair<int, int>, Service> received;
  for (const Service& service : control->getServices()) {
    received.insert_or_assign({service.values[1], service.values[0]}, service);
  }
  // A later version of a sub-table takes the place of an earlier one.
  std::map<std::pair<int, int>, std::pair<Json, bool>> wanted;
  std::set<std::tuple<bool, int, int>> seen;
  for (const Json& table : expected["sdt"]) {
    const bool actual = table["actual"];
    const int stream = table["tsid"];
    if (!seen.emplace(actual, stream, table["onid"].get<int>()).second) {
      std::erase_if(wanted, [&](const auto& entry) {
        return entry.first.first == stream && entry.second.second == actual;
      });
    }
    for (const Json& service : table["services"]) {
      wanted[{stream, service["service_id"].get<int>()}] = {service, actual};
    }
  }
  for (const auto& [key, entry] : wanted) {
    const auto& [service, actual] = entry;
    const auto found = received.find(key);
    ASSERT_NE(found, received.end()) << "service " << key.second;
    const int flags = found->second.values[4];
    EXPECT_EQ((flags & isActual) != 0, actual);
    EXPECT_EQ(flags & 7, service["running_status"].get<int>());
    EXPECT_EQ(flags >> 3 & 1, service["free_ca_mode"].get<int>());
    EXPECT_EQ(flags >> 4 & 1, service["eit_schedule"].get<int>());
    EXPECT_EQ(flags >> 5 & 1, service["eit_pf"].get<int>());
    const bool described = service.contains("type") && !service["type"].is_null();
    EXPECT_EQ(found->second.values[3], described ? integer(service["type"]) : -1);
    expectText(found->second.name, described ? service["name"] : Json());
  }
  // Beyond the tables there are the programs of the PAT only.
  std::set<int> programs;
  if (!expected["pat"].empty()) {
    for (const Json& program : expected["pat"].back()["programs"]) {
      programs.insert(program["program"].get<int>());
    }
  }
  for (const auto& [key, service] : received) {
    if (wanted.count(key) == 0) {
      EXPECT_EQ(programs.count(key.second), 1U) << key.second;
    }
  }
  for (const int program : programs) {
    EXPECT_EQ(received.count({expected["pat"].back()["tsid"].get<int>(), program}), 1U) << program;
  }
}

void Capture::compareProgramMaps() {
  std::map<int, Json> wanted;
  std::set<int> programs;
  if (!expected["pat"].empty()) {
    for (const Json& program : expected["pat"].back()["programs"])
      programs.insert(program["program"].get<int>());
  }
  for (const Json& map : expected["pmts"]) {
    const int program = map["program"];
    if (map["in_pat"] == true && programs.count(program) != 0) wanted[program] = map;
  }
  const std::vector<ProgramMap> maps = control->getPMTs(-1);
  EXPECT_EQ(maps.size(), wanted.size());
  for (const ProgramMap& map : maps) {
    const auto found = wanted.find(map.values[0]);
    ASSERT_NE(found, wanted.end()) << map.values[0];
    const Json& entry = found->second;
    EXPECT_EQ(map.values[1], entry["pmt_pid"].get<int>());
    EXPECT_EQ(map.values[2], entry["pcr_pid"].get<int>());
    EXPECT_EQ(map.values[3], entry["version"].get<int>()) << map.values[0];
    const auto components = control->getServiceComponents(map.values[0]);
    ASSERT_EQ(components.size(), entry["streams"].size());
    for (std::size_t index = 0; index < components.size(); ++index) {
      const auto& [pid, type, tag, program, language, ca] = components[index].values;
      const Json& stream = entry["streams"][index];
      EXPECT_EQ(pid, stream["pid"].get<int>());
      EXPECT_EQ(type, integer(stream["stream_type"]));
      EXPECT_EQ(tag, stream.contains("component_tag") ? integer(stream["component_tag"]) : -1);
      EXPECT_EQ(program, map.values[0]);
      const Json loops = stream.value("ca", entry.value("ca", Json::array()));
      EXPECT_EQ(ca == -1, loops.empty());
      if (stream.contains("languages")) {
        const std::string code = stream["languages"][0];
        EXPECT_EQ(language, code[0] << 16 | code[1] << 8 | code[2]);
      }
    }
    // A PID can carry components of several programs; the first one's descriptors are shown.
    if (map.values[0] == maps.front().values[0] && !components.empty()) {
      EXPECT_EQ(tags(control->getServiceComponentDescriptors(components[0].values[0])),
                tags(entry["streams"][0]["descriptors"]));
    }
  }
  std::set<int> systems;
  for (const char* const source : {"ca_systems_in_pmts", "ca_systems_in_cat"}) {
    if (!expected["summary"].contains(source)) continue;
    for (const Json& system : expected["summary"][source]) systems.insert(integer(system));
  }
  const auto received = control->getCASystemIds();
  EXPECT_EQ(std::set<int>(received.begin(), received.end()), systems);
}

/// Each program's sound: by its stream type, or in private packets by the descriptor of AC-3,
/// enhanced AC-3, DTS or AAC.
void Capture::compareSound() {
  constexpr int hasVideo = 7;
  if (!control->checkVersionFlag(hasVideo)) return;
  const std::set<int> types = {0x03, 0x04, 0x0f, 0x11, 0x81};
  const std::set<int> codings = {0x6a, 0x7a, 0x7b, 0x7c};
  for (const ProgramMap& map : control->getPMTs(-1)) {
    const int program = map.values[0];
    std::vector<std::string> languages;
    std::set<int> pids;
    for (const Json& entry : expected["pmts"]) {
      if (entry["program"] != program || entry["version"] != map.values[3]) continue;
      for (const Json& stream : entry["streams"]) {
        const int type = integer(stream["stream_type"]);
        const auto list = tags(stream["descriptors"]);
        const bool isCoded =
            std::ranges::any_of(list, [&](int tag) { return codings.contains(tag); });
        if (!types.contains(type) && !(type == 0x06 && isCoded)) continue;
        pids.insert(stream["pid"].get<int>());
        if (stream.contains("languages")) languages.push_back(stream["languages"][0]);
      }
    }
    host->forgetOutput();
    host->say(fmt::format("service {}", program));
    ASSERT_TRUE(host->awaitOutput(fmt::format("service {}\n", program)));
    EXPECT_EQ(control->getVideoLanguages(), languages) << program;
    const int selected = control->getVideoProperty(13);
    EXPECT_TRUE(pids.empty() ? selected == -1 : pids.contains(selected)) << program;
  }
  host->say("service -1");
}

void Capture::compareNetwork() {
  const TransportStream stream = control->getTransportStream();
  const int id = expected["pat"].empty() ? -1 : expected["pat"].back()["tsid"].get<int>();
  EXPECT_EQ(stream.values[0], id);
  EXPECT_EQ(control->getCurrentTransportStreamID(), id);
  Json actual;
  for (const Json& table : expected["nit"]) {
    if (table["actual"] == true) actual = table;
  }
  const Network network = control->getNetwork();
  if (actual.is_null()) {
    EXPECT_EQ(network.value, -1);
    return;
  }
  EXPECT_EQ(network.value, actual["network_id"].get<int>());
  expectText(network.name, actual.contains("name") ? actual["name"] : Json());
  EXPECT_EQ(tags(control->getNetworkDescriptors()), tags(actual["descriptors"]));
  std::set<int> streams;
  for (const Json& entry : actual["transport_streams"]) {
    streams.insert(entry["tsid"].get<int>());
    if (entry["tsid"] != id) continue;
    EXPECT_EQ(stream.values[1], entry["onid"].get<int>());
    EXPECT_EQ(tags(control->getTransportStreamDescriptors(-1)), tags(entry["descriptors"]));
    if (entry.contains("centre_frequency_hz")) {
      EXPECT_NEAR(stream.real, entry["centre_frequency_hz"].get<double>() / 1e6, 0.01);
    }
    if (entry.contains("frequencies_mhz")) {
      EXPECT_NEAR(stream.real, entry["frequencies_mhz"][0].get<double>(), 0.001);
    }
    const std::string delivery = entry.value("delivery", "");
    if (delivery.find("terrestrial") != std::string::npos) {
      EXPECT_EQ(stream.mode, 3);
    }
    if (delivery == "satellite") {
      EXPECT_EQ(stream.mode, 1);
    }
  }
  const auto known = control->getAllIDs(4, 0);
  EXPECT_TRUE(known.empty());
  const auto ofNetwork = control->getAllIDs(3, actual["network_id"].get<int>());
  EXPECT_EQ(std::set<int>(ofNetwork.begin(), ofNetwork.end()), streams);
}

/// What tells one event from another.
using EventKey = std::tuple<int, int, int, int, int>;  // network, stream, service, event, start

void Capture::compareEvents() {
  std::map<EventKey, std::vector<Json>> wanted;
  std::set<EventKey> mayHaveGone;
  for (const Json& service : expected["eit"]) {
    for (const char* const list : {"pf_actual", "pf_other", "schedule_actual", "schedule_other"}) {
      if (!service.contains(list)) continue;
      for (const Json& event : service[list]) {
        const EventKey key = {service["onid"].get<int>(), service["tsid"].get<int>(),
                              service["service_id"].get<int>(), event["event_id"].get<int>(),
                              seconds(event["start"])};
        wanted[key].push_back(event);
        // Present moves on: the list holds the events of all versions.
        if (list[0] == 'p' && service[list].size() > 2) mayHaveGone.insert(key);
      }
    }
  }
  std::set<EventKey> received;
  std::size_t asked = 0;
  for (const ProgramEvent& event : control->getProgramEvents()) {
    const auto& [service, id, start, length, table, running, stream, network] = event.values;
    const EventKey key = {network, stream, service, id, start};
    received.insert(key);
    const auto found = wanted.find(key);
    ASSERT_NE(found, wanted.end()) << "service " << service << " event " << id;
    const auto same = std::find_if(
        found->second.begin(), found->second.end(),
        [table = table](const Json& candidate) { return integer(candidate["table_id"]) == table; });
    ASSERT_NE(same, found->second.end());
    const Json& known = *same;
    EXPECT_EQ(length, known["duration_s"].is_null() ? -1 : known["duration_s"].get<int>());
    EXPECT_EQ(event.textLists[2].size(), 2U);
    expectText(event.textLists[2][0], known.contains("name") ? known["name"] : Json());
    expectText(event.textLists[2][1], known.contains("text") ? known["text"] : Json());
    EXPECT_EQ(event.texts[0], known.value("lang", ""));
    expectText(event.textLists[0].at(0),
               known.contains("extended_text") ? known["extended_text"] : Json());
    const Json items = known.value("extended_items", Json::array());
    ASSERT_EQ(event.textLists[1].size(), 2 * items.size());
    for (std::size_t index = 0; index < items.size(); ++index) {
      expectText(event.textLists[1][2 * index], items[index][0]);
      expectText(event.textLists[1][2 * index + 1], items[index][1]);
    }
    std::string content;
    for (const Json& entry : known.value("content", Json::array())) content += entry;
    EXPECT_EQ(fmt::format("{:02x}", fmt::join(event.byteLists[0], "")), content);
    if (++asked <= 40 && stream == control->getCurrentTransportStreamID()) {
      std::vector<std::vector<int>> candidates;
      for (const auto& [other, events] : wanted) {
        if (std::get<2>(other) != service || std::get<3>(other) != id) continue;
        for (const Json& candidate : events) candidates.push_back(tags(candidate["descriptors"]));
      }
      const auto list = tags(control->getProgramEventDescriptors(service, id));
      EXPECT_NE(std::find(candidates.begin(), candidates.end(), list), candidates.end())
          << "service " << service << " event " << id;
    }
  }
  for (const auto& [key, event] : wanted) {
    if (mayHaveGone.count(key) == 0) {
      EXPECT_EQ(received.count(key), 1U)
          << "service " << std::get<2>(key) << " event " << std::get<3>(key);
    }
  }
}

void Capture::compareSections() {
  SectionFilterChannel sections(SectionFilterChannel::defaultPath,
                                std::chrono::milliseconds(60'000));
  for (const Json& table : expected["tables"]) {
    const int pid = table["pid"];
    const int tableId = integer(table["table_id"]);
    if (table["sections_received"].get<int>() == 0) continue;
    sections.set_pid(pid);
    sections.set_table_id(tableId);
    sections.start();
    // An answer shows that the filter is set; then what it waits for may begin.
    sections.set_time_out(0);
    static_cast<void>(sections.read_section());
    host->say("retune");
    sections.set_time_out(60'000);
    const auto section = sections.read_section();
    ASSERT_FALSE(section.empty()) << "PID " << pid << " table " << tableId;
    EXPECT_EQ(section[0], tableId);
    EXPECT_EQ(section.size(), 3U + ((section[1] & 15U) << 8U | section[2]));
  }
}

TEST_P(Capture, TheClientReadsWhatIsOnAir) {
  EXPECT_NE(
      host->output().find(": " + std::to_string(expected["packets"].get<int>()) + " packets (" +
                          std::to_string(expected["transport_errors"].get<int>()) + " damaged"),
      std::string::npos)
      << host->output();
  if (expected.contains("tdt") && !expected["tdt"].is_null() && expected["tdt"]["count"] != 0) {
    EXPECT_NE(host->output().find("broadcast time " + expected["tdt"]["last"].get<std::string>()),
              std::string::npos)
        << host->output();
  }
  compareServices();
  compareProgramMaps();
  compareSound();
  compareNetwork();
  compareEvents();
  compareSections();
}

INSTANTIATE_TEST_SUITE_P(Streams, Capture, testing::ValuesIn(captures), [](const auto& capture) {
  std::string name = capture.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

TEST(Captures, NoneIsLeftOut) {
  const char* const directory = std::getenv("QUILLWORK_STREAMS");
  if (directory == nullptr) GTEST_SKIP() << "QUILLWORK_STREAMS does not name the captures";
  std::set<std::string> there;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().extension() == ".ts") there.insert(entry.path().stem());
  }
  EXPECT_EQ(there, std::set<std::string>(std::begin(captures), std::end(captures)));
}

}  // namespace
