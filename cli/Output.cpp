#include "cli/Output.h"

#include <fmt/format.h>
#include <cstdio>

#include <chrono>
#include <map>

#include "cli/Table.h"

namespace quillwork::cli {

using namespace client;
namespace {

template <std::size_t Size>
void addValues(Json& json, const std::array<std::int32_t, Size>& values) {
  int number = 0;
  for (const std::int32_t value : values) json[fmt::format("value_{}", ++number)] = value;
}

std::string number(std::int32_t value) { return fmt::format("{}", value); }

std::string orDash(std::int32_t value) { return value == -1 ? "-" : number(value); }

std::string time(std::int32_t value) {
  if (value == -1) return "-";
  // With std::chrono, for a time_t of 32 bits ends in 2038.
  const std::chrono::sys_seconds when{std::chrono::seconds(static_cast<std::uint32_t>(value))};
  const auto day = std::chrono::floor<std::chrono::days>(when);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(when - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::string duration(std::int32_t seconds) {
  if (seconds == -1) return "-";
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string language(std::int32_t value) {
  if (value == -1) return "-";
  return {static_cast<char>(value >> 16), static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string serviceFlags(std::int32_t flags) {
  const std::pair<int, const char*> names[] = {
      {1 << 6, "actual"}, {1 << 7, "pat"}, {1 << 3, "ca"}, {1 << 4, "schedule"}, {1 << 5, "p/f"}};
  std::string words;
  for (const auto& [bit, name] : names) {
    if ((flags & bit) == 0) continue;
    if (!words.empty()) words += ' ';
    words += name;
  }
  return words;
}

std::string tableName(std::int32_t table) {
  if (table == 0x4e || table == 0x4f) return table == 0x4e ? "p/f" : "p/f other";
  if (table >= 0x50 && table <= 0x6f) return table < 0x60 ? "schedule" : "schedule other";
  return number(table);
}

const char* deliveryName(std::int32_t mode) {
  static const char* const names[] = {"unknown", "satellite", "cable", "terrestrial"};
  return mode >= 0 && mode <= 3 ? names[mode] : "unknown";
}

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

Json rectangle(const Rectangle& r) {
  return {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

}  // namespace

std::string hex(std::span<const std::uint8_t> bytes) {
  return fmt::format("{:02x}", fmt::join(bytes, ""));
}

std::string hex(std::string_view bytes) {
  return hex(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

Json text(const std::string& bytes) {
  const Json value(bytes);
  return Json::parse(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json toJson(const Service& service) {
  Json json;
  addValues(json, service.values);
  json["name"] = text(service.name);
  return json;
}

Json toJson(const ServiceComponent& component) {
  Json json;
  addValues(json, component.values);
  return json;
}

Json toJson(const ProgramMap& map) {
  Json json;
  addValues(json, map.values);
  return json;
}

Json toJson(const ProgramEvent& event) {
  Json json;
  addValues(json, event.values);
  for (std::size_t index = 0; index < 3; ++index) {
    json[fmt::format("text_{}", index + 1)] = text(event.texts[index]);
  }
  for (std::size_t index = 0; index < 3; ++index) {
    json[fmt::format("byte_list_{}", index + 1)] = hex(event.byteLists[index]);
  }
  for (std::size_t index = 0; index < 3; ++index) {
    Json& list = json[fmt::format("text_list_{}", index + 1)] = Json::array();
    for (const std::string& element : event.textLists[index]) list.push_back(text(element));
  }
  return json;
}

Json toJson(const Network& network) {
  return {{"network_value", network.value}, {"name", text(network.name)}};
}

Json toJson(const TransportStream& stream) {
  Json json;
  addValues(json, stream.values);
  json["real_value"] = stream.real;
  json["mode"] = stream.mode;
  return json;
}

Json toJson(const Descriptor& descriptor) {
  return {{"tag", descriptor.tag}, {"data", hex(descriptor.data)}};
}

Json toJson(const SystemProperty& property) {
  return {{"name", text(property.name)}, {"value", text(property.value)}};
}

Json toJson(const Notification& notification) {
  return std::visit(
      Overloaded{
          [](const EndOfMedia& end) {
            return Json{{"notification", "end-of-media"}, {"player", end.player}};
          },
          [](const GraphicsSettingsChanged& changed) {
            return Json{{"notification", "graphics-settings-changed"},
                        {"first", rectangle(changed.first)},
                        {"second", rectangle(changed.second)}};
          },
          [](const DownloadComplete& download) {
            return Json{{"notification", "download-complete"},
                        {"first", text(download.first)},
                        {"second", text(download.second)}};
          },
          [](const ApplicationState& request) {
            return Json{{"notification", "application-state"}, {"state", request.state}};
          },
          [](const DsmCCCommand& command) {
            return Json{{"notification", "dsmcc-command"},
                        {"code", command.code},
                        {"time", command.time},
                        {"flag", command.flag},
                        {"text", text(command.text)}};
          },
      },
      notification);
}

void printTable(const std::vector<Service>& services) {
  Table table({">service", ">stream", ">network", ">type", ">running", "flags", "name"});
  for (const Service& service : services) {
    const auto& [id, stream, network, type, flags] = service.values;
    table.add({number(id), number(stream), orDash(network), orDash(type), number(flags & 7),
               serviceFlags(flags), service.name});
  }
  table.print(stdout);
}

void printTable(const std::vector<ServiceComponent>& components) {
  Table table({">PID", ">stream type", ">tag", ">program", "language", "CA system"});
  for (const ServiceComponent& component : components) {
    const auto& [pid, type, tag, program, code, ca] = component.values;
    table.add({number(pid), fmt::format("{:#04x}", type), orDash(tag), number(program),
               language(code), ca == -1 ? "-" : fmt::format("{:#06x}", ca)});
  }
  table.print(stdout);
}

void printTable(const std::vector<ProgramMap>& maps) {
  Table table({">program", ">PMT PID", ">PCR PID", ">version"});
  for (const ProgramMap& map : maps) {
    const auto& [program, pid, pcr, version] = map.values;
    table.add({number(program), number(pid), number(pcr), number(version)});
  }
  table.print(stdout);
}

void printTable(const std::vector<ProgramEvent>& events) {
  Table table({">service", ">event", "start", ">duration", "table", ">running", "lang", "name"});
  for (const ProgramEvent& event : events) {
    const auto& v = event.values;
    table.add({number(v[0]), number(v[1]), time(v[2]), duration(v[3]), tableName(v[4]),
               number(v[5]), event.texts[0], event.texts[1]});
  }
  table.print(stdout);
}

void printTable(const std::vector<Descriptor>& descriptors) {
  Table table({"tag", ">bytes", "data"});
  for (const Descriptor& descriptor : descriptors) {
    table.add({fmt::format("{:#04x}", static_cast<std::uint16_t>(descriptor.tag)),
               fmt::format("{}", descriptor.data.size()), hex(descriptor.data)});
  }
  table.print(stdout);
}

void printTable(const std::vector<SystemProperty>& properties) {
  Table table({"name", "value"});
  for (const SystemProperty& property : properties) table.add({property.name, property.value});
  table.print(stdout);
}

void printRecord(const ProgramEvent& event) {
  const auto& v = event.values;
  if (v[1] == -1) {
    fmt::print("no event\n");
    return;
  }
  Table table({"field", "value"});
  table.add({"service", number(v[0])});
  table.add({"event", number(v[1])});
  table.add({"start", time(v[2])});
  table.add({"duration", duration(v[3])});
  table.add({"language", event.texts[0]});
  table.add({"name", event.texts[1]});
  table.add({"text", event.texts[2]});
  for (std::size_t index = 0; index < 3; ++index) {
    table.add({fmt::format("byte list {}", index + 1), hex(event.byteLists[index])});
  }
  for (std::size_t index = 0; index < 3; ++index) {
    for (const std::string& element : event.textLists[index]) {
      table.add({fmt::format("text list {}", index + 1), element});
    }
  }
  table.print(stdout);
}

void printRecord(const Network& network) {
  Table table({">network", "name"});
  if (network.value != -1) table.add({number(network.value), network.name});
  table.print(stdout);
}

void printRecord(const TransportStream& stream) {
  Table table({">stream", ">network", ">version", ">MHz", "delivery"});
  const auto& [id, network, version] = stream.values;
  if (id != -1) {
    table.add({number(id), orDash(network), orDash(version),
               stream.real > 0 ? fmt::format("{:.3f}", stream.real) : "-",
               deliveryName(stream.mode)});
  }
  table.print(stdout);
}

void printNotification(const Notification& notification) {
  fmt::print("{}\n", toJson(notification).dump(-1, ' ', false, Json::error_handler_t::replace));
  std::fflush(stdout);
}

void printSection(const std::vector<std::uint8_t>& section) {
  constexpr std::size_t perLine = 16;
  for (std::size_t begin = 0; begin < section.size(); begin += perLine) {
    std::string bytes;
    std::string characters;
    for (std::size_t index = begin; index < std::min(begin + perLine, section.size()); ++index) {
      bytes += fmt::format("{:02x} ", section[index]);
      const bool printable = section[index] >= 0x20 && section[index] < 0x7f;
      characters += printable ? static_cast<char>(section[index]) : '.';
    }
    fmt::print("{:04x}  {:<48} {}\n", begin, bytes, characters);
  }
}

}  // namespace quillwork::cli
