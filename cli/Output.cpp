#include "cli/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>

#include "cli/DescriptorFields.h"
#include "cli/Table.h"
#include "cli/Words.h"

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

std::string duration(std::int32_t seconds) {
  if (seconds == -1) return "-";
  return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

std::string language(std::int32_t value) {
  if (value == -1) return "-";
  return {static_cast<char>(value >> 16), static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::vector<std::string> serviceFlags(std::int32_t flags) {
  const std::pair<int, const char*> names[] = {
      {1 << 6, "actual"}, {1 << 7, "pat"}, {1 << 3, "ca"}, {1 << 4, "schedule"}, {1 << 5, "p/f"}};
  std::vector<std::string> set;
  for (const auto& [bit, name] : names) {
    if ((flags & bit) != 0) set.emplace_back(name);
  }
  return set;
}

std::string pid(std::int32_t value) { return fmt::format("{:#06x}", value); }

/// A number and, where it has any, the words for it.
std::string withWords(const std::string& number, const std::string& words) {
  return words.empty() ? number : number + ' ' + words;
}

/// The words for a number, or else the number.
std::string orNumber(const std::string& words, std::int32_t value) {
  return words.empty() ? number(value) : words;
}

std::string caSystem(std::int32_t system) {
  return system == -1 ? "-" : withWords(fmt::format("{:#06x}", system), words::caSystem(system));
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
  return fmt::format("{}", fmt::join(texts, separator));
}

/// "lang eng, text A text": a descriptor's fields, and its entries one behind the other.
std::string inWords(const Json& fields) {
  std::vector<std::string> parts;
  if (fields.is_array()) {
    for (const Json& entry : fields) parts.push_back(inWords(entry));
    return joined(parts, "; ");
  }
  for (const auto& [name, value] : fields.items()) {
    const std::string shown = value.is_array()    ? '(' + inWords(value) + ')'
                              : value.is_string() ? value.get<std::string>()
                                                  : value.dump();
    parts.push_back(fmt::format("{} {}", name, shown));
  }
  return joined(parts, ", ");
}

/// Null for what has no words.
Json orNull(const std::string& words) { return words.empty() ? Json() : Json(words); }

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

Json rectangle(const Rectangle& r) {
  return {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

/// Calls `take(piece, isControl)` with each control character, C0, DEL or C1, and what is between.
template <class Take>
void partByControls(std::string_view utf8, Take&& take) {
  std::size_t begin = 0;
  for (std::size_t index = 0; index < utf8.size(); ++index) {
    const auto byte = static_cast<unsigned char>(utf8[index]);
    const bool isC1 = byte == 0xc2 && index + 1 < utf8.size() &&
                      static_cast<unsigned char>(utf8[index + 1]) < 0xa0;
    if (!isC1 && byte >= 0x20 && byte != 0x7f) continue;
    const std::size_t size = isC1 ? 2 : 1;
    take(utf8.substr(begin, index - begin), false);
    take(utf8.substr(index, size), true);
    begin = index + size;
    index += size - 1;
  }
  take(utf8.substr(begin), false);
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

std::string printable(const std::string& bytes) {
  std::string line;
  partByControls(text(bytes).get<std::string>(),
                 [&](std::string_view piece, bool isControl) { line += isControl ? " " : piece; });
  return line;
}

std::string written(const Json& json, int indent) {
  std::string escaped;
  // The line ends between the elements are JSON's own.
  partByControls(json.dump(indent, ' ', false, Json::error_handler_t::replace),
                 [&](std::string_view piece, bool isControl) {
                   if (isControl && piece != "\n") {
                     const auto code = static_cast<unsigned char>(piece.back());
                     escaped += fmt::format("\\u{:04x}", code);
                   } else {
                     escaped += piece;
                   }
                 });
  return escaped;
}

/// 0 stands in a record that nobody has filled in.
bool isTime(std::int32_t seconds) { return seconds != -1 && seconds != 0; }

std::string time(std::int32_t seconds) {
  if (!isTime(seconds)) return "-";
  // With std::chrono, for a time_t of 32 bits ends in 2038.
  const std::chrono::sys_seconds when{std::chrono::seconds(static_cast<std::uint32_t>(seconds))};
  const auto day = std::chrono::floor<std::chrono::days>(when);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(when - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

Json toJson(const Service& service) {
  Json json;
  addValues(json, service.values);
  json["name"] = text(service.name);
  json["service_type"] = orNull(words::serviceType(service.values[3]));
  json["running_status"] = orNull(words::runningStatus(service.values[4] & 7));
  json["flags"] = serviceFlags(service.values[4]);
  return json;
}

Json toJson(const ServiceComponent& component) {
  const auto& [itsPid, type, tag, program, code, ca] = component.values;
  Json json;
  addValues(json, component.values);
  json["stream_type"] = orNull(words::streamType(type));
  json["language"] = code == -1 ? Json() : text(language(code));
  json["ca_system"] = orNull(ca == -1 ? "" : words::caSystem(ca));
  return json;
}

Json toJson(const NamedMap& map) {
  Json json;
  addValues(json, map.map.values);
  json["name"] = text(map.service);
  return json;
}

Json toJson(const ProgramEvent& event) {
  Json json;
  addValues(json, event.values);
  // Beyond 2038 the seconds need the sign's bit.
  const std::int32_t start = event.values[2];
  if (start != -1) json["value_3"] = static_cast<std::uint32_t>(start);
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
  json["start"] = isTime(start) ? Json(time(start)) : Json();
  json["table"] = orNull(words::eventTable(event.values[4]));
  json["running_status"] = orNull(words::runningStatus(event.values[5]));
  json["content"] = words::content(event.byteLists[0], event.values[7]);
  json["parental_rating"] = words::parentalRating(event.byteLists[1]);
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
  json["delivery"] = words::delivery(stream.mode);
  return json;
}

Json toJson(const DescribedDescriptor& described) {
  return {{"tag", described.descriptor.tag},
          {"data", hex(described.descriptor.data)},
          {"name", orNull(described.name)},
          {"fields", described.fields}};
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
  Table table({">service", ">stream", ">network", "running", "flags", "name", "type"});
  for (const Service& service : services) {
    const auto& [id, stream, network, type, flags] = service.values;
    table.add({number(id), number(stream), orDash(network),
               orNumber(words::runningStatus(flags & 7), flags & 7),
               joined(serviceFlags(flags), " "), service.name,
               withWords(orDash(type), words::serviceType(type))});
  }
  table.print(stdout);
}

void printTable(const std::vector<ServiceComponent>& components) {
  Table table({"PID", "stream type", ">tag", ">program", "language", "CA system"});
  for (const ServiceComponent& component : components) {
    const auto& [itsPid, type, tag, program, code, ca] = component.values;
    table.add({pid(itsPid), withWords(fmt::format("{:#04x}", type), words::streamType(type)),
               orDash(tag), number(program), language(code), caSystem(ca)});
  }
  table.print(stdout);
}

void printTable(const std::vector<NamedMap>& maps) {
  Table table({">program", "PMT PID", "PCR PID", ">version", "name"});
  for (const NamedMap& named : maps) {
    const auto& [program, mapPid, pcrPid, version] = named.map.values;
    table.add({number(program), pid(mapPid), pid(pcrPid), number(version), named.service});
  }
  table.print(stdout);
}

void printTable(const std::vector<ProgramEvent>& events) {
  Table table({">service", ">event", "start", ">duration", "table", "running", "lang", "name"});
  for (const ProgramEvent& event : events) {
    const auto& v = event.values;
    table.add({number(v[0]), number(v[1]), time(v[2]), duration(v[3]),
               orNumber(words::eventTable(v[4]), v[4]), orNumber(words::runningStatus(v[5]), v[5]),
               event.texts[0], event.texts[1]});
  }
  table.print(stdout);
}

void printTable(const std::vector<DescribedDescriptor>& descriptors) {
  Table table({"tag", "name", ">bytes", "fields, or data"});
  for (const DescribedDescriptor& described : descriptors) {
    const Descriptor& descriptor = described.descriptor;
    table.add({fmt::format("{:#04x}", static_cast<std::uint16_t>(descriptor.tag)), described.name,
               fmt::format("{}", descriptor.data.size()),
               described.fields.is_null() ? hex(descriptor.data) : inWords(described.fields)});
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
  Table table({"field", "value"});
  table.add({"service", number(v[0])});
  table.add({"event", number(v[1])});
  table.add({"start", time(v[2])});
  table.add({"duration", duration(v[3])});
  table.add({"running", orNumber(words::runningStatus(v[5]), v[5])});
  table.add({"language", event.texts[0]});
  table.add({"name", event.texts[1]});
  table.add({"text", event.texts[2]});
  table.add({"content", joined(words::content(event.byteLists[0], v[7]), ", ")});
  table.add({"rating", joined(words::parentalRating(event.byteLists[1]), ", ")});
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
               words::delivery(stream.mode)});
  }
  table.print(stdout);
}

void printNotification(const Notification& notification) {
  fmt::print("{}\n", written(toJson(notification)));
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
