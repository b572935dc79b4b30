#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cwctype>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "cli/Command.h"
#include "cli/DescriptorFields.h"
#include "cli/Output.h"
#include "cli/Replay.h"
#include "cli/Trace.h"
#include "cli/Words.h"
#include "client/Fields.h"
#include "common/Number.h"
#include "protocol/operations.h"

namespace quillwork::cli {

using namespace client;
namespace {

using std::chrono::milliseconds;
using Kind = Argument::Kind;

/// `nothing`: what an empty list is for people; to programs it is an answer like another.
template <class Element>
void show(const Session& session, const std::vector<Element>& elements,
          const std::string& nothing) {
  if (!session.settings().json) {
    if (elements.empty()) throw NothingFound(nothing);
    printTable(elements);
    return;
  }
  Json list = Json::array();
  for (const Element& element : elements) list.push_back(toJson(element));
  fmt::print("{}\n", written(list, 2));
}

/// `isThere`: a record that says that there is none is an answer for programs only.
template <class Record>
void showRecord(const Session& session, const Record& record, bool isThere,
                const std::string& nothing) {
  if (session.settings().json) {
    fmt::print("{}\n", written(toJson(record), 2));
  } else if (!isThere) {
    throw NothingFound(nothing);
  } else {
    printRecord(record);
  }
}

/// A value that is neither a record nor a list.
void showValue(const Session& session, std::string_view key, const Json& value) {
  if (session.settings().json) {
    fmt::print("{}\n", written(Json{{key, value}}));
  } else {
    fmt::print("{}\n", value.is_string() ? printable(value.get<std::string>()) : written(value));
  }
}

/// The same, where -1 or an empty text means that there is none.
void showFound(const Session& session, std::string_view key, const Json& value,
               const std::string& nothing) {
  if (!session.settings().json && (value == Json(-1) || value == Json(""))) {
    throw NothingFound(nothing);
  }
  showValue(session, key, value);
}

void showTexts(const Session& session, const std::vector<std::string>& texts,
               const std::string& nothing) {
  if (session.settings().json) {
    fmt::print("{}\n", written(Json(texts)));
    return;
  }
  if (texts.empty()) throw NothingFound(nothing);
  for (const std::string& text : texts) fmt::print("{}\n", printable(text));
}

void showRectangle(const Session& session, const Rectangle& rectangle) {
  if (session.settings().json) {
    fmt::print("{}\n", Json{{"x", rectangle.x},
                            {"y", rectangle.y},
                            {"width", rectangle.width},
                            {"height", rectangle.height}}
                           .dump());
  } else {
    fmt::print("{} {} {} {}\n", rectangle.x, rectangle.y, rectangle.width, rectangle.height);
  }
}

constexpr Argument integer(std::string_view name, std::string_view description,
                           std::optional<std::string_view> absent = {}, double least = INT32_MIN,
                           double most = INT32_MAX) {
  return {name, Kind::integer, description, absent, least, most};
}

constexpr Argument text(std::string_view name, std::string_view description,
                        std::optional<std::string_view> absent = {}) {
  return {name, Kind::text, description, absent};
}

constexpr Argument flag(std::string_view name, std::string_view description) {
  return {name, Kind::flag, description, "off"};
}

constexpr double anyReal = std::numeric_limits<double>::max();
constexpr Argument level = {
    "LEVEL", Kind::real, "for the reference receiver: sound 0 to 1, others -1 to 1",
    {},      -anyReal,   anyReal};
constexpr Argument onOff = {"ON", Kind::onOff, "on or off", {}};
constexpr Argument player = integer("PLAYER", "what 'media open' gave");

constexpr Argument leftEdge = integer("X", "left edge, in pixels");
constexpr Argument upperEdge = integer("Y", "upper edge");
constexpr Argument width = integer("WIDTH", "width");
constexpr Argument height = integer("HEIGHT", "height");

/// An argument that says which of the operation's types is meant.
template <operations::Name operation>
constexpr Argument oneOfTypes(std::string_view name, std::string_view description) {
  double least = INT32_MAX;
  double most = INT32_MIN;
  for (const operations::Request& row : operations::requests) {
    if (row.name != std::string_view(operation)) continue;
    least = std::min<double>(least, row.types.first);
    most = std::max<double>(most, row.types.last);
  }
  return integer(name, description, {}, least, most);
}

Rectangle rectangle(const Values& values) {
  return {values.integer("X"), values.integer("Y"), values.integer("WIDTH"),
          values.integer("HEIGHT")};
}

/// "42 ff" or "42ff" as bytes.
std::vector<std::uint8_t> parseBytes(const std::string& option, const std::string& written) {
  std::string digits;
  for (const char character : written) {
    if (character != ' ') digits += character;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t index = 0; index < digits.size(); index += 2) {
    std::uint8_t byte = 0;
    const char* const begin = digits.data() + index;
    const char* const end = begin + std::min<std::size_t>(2, digits.size() - index);
    if (end - begin != 2 || std::from_chars(begin, end, byte, 16).ptr != end) {
      throw std::invalid_argument(
          fmt::format("{}: '{}' is not pairs of hexadecimal digits", option, written));
    }
    bytes.push_back(byte);
  }
  return bytes;
}

/// "[OFFSET:]VALUE[/MASK[/DIFFERENT]]" as a filter's arguments.
struct Filter {
  int offset = 0;
  std::array<std::vector<std::uint8_t>, 3> vectors;

  Filter(const std::string& option, const std::string& written) {
    std::string rest = written;
    if (const std::size_t colon = rest.find(':'); colon != std::string::npos) {
      const auto number = parseInteger(rest.substr(0, colon));
      if (!number || *number < 0 || *number > INT32_MAX) {
        throw std::invalid_argument(option + ": '" + rest.substr(0, colon) + "' is no offset");
      }
      offset = static_cast<int>(*number);
      rest.erase(0, colon + 1);
    }
    for (auto& vector : vectors) {
      const std::size_t slash = rest.find('/');
      vector = parseBytes(option, rest.substr(0, slash));
      rest.erase(0, slash == std::string::npos ? slash : slash + 1);
    }
  }
};

/// What a section must have, as the options say it: where one is not given, nothing.
struct Filters {
  std::optional<Filter> positive;
  std::optional<Filter> greater;
  std::optional<Filter> less;
  std::optional<Filter> exclusive;

  explicit Filters(const Values& values)
      : positive(read(values, "--filter")),
        greater(read(values, "--greater")),
        less(read(values, "--less")),
        exclusive(read(values, "--xor")) {}

  void set(SectionFilterChannel& channel) const {
    if (positive) {
      channel.set_positive_filter(positive->offset, positive->vectors[0], positive->vectors[1]);
    }
    if (greater) {
      channel.set_greater_than_filter(greater->offset, greater->vectors[0], greater->vectors[1]);
    }
    if (less) channel.set_less_than_filter(less->offset, less->vectors[0], less->vectors[1]);
    if (exclusive) {
      channel.set_xor_filter(exclusive->offset, exclusive->vectors[0], exclusive->vectors[1],
                             exclusive->vectors[2]);
    }
  }

 private:
  static std::optional<Filter> read(const Values& values, const std::string& option) {
    const std::string& written = values.text(option);
    return written.empty() ? std::optional<Filter>() : Filter(option, written);
  }
};

void showSection(const Session& session, const std::vector<std::uint8_t>& bytes) {
  if (session.settings().json) {
    fmt::print("{}\n", Json{{"size", bytes.size()}, {"section", hex(bytes)}}.dump());
  } else {
    fmt::print("section of {} bytes\n", bytes.size());
    printSection(bytes);
  }
  std::fflush(stdout);
}

void readSections(Session& session, const Values& values) {
  const int pid = values.integer("--pid");
  const int timeOut = values.integer("--timeout");
  const Filters filters(values);
  SectionFilterChannel& channel = session.sections();
  channel.stop();
  channel.set_pid(pid);
  channel.clear_table_id();
  channel.clear_positive_filter();
  channel.clear_less_than_filter();
  channel.clear_xor_filter();
  if (values.integer("--table-id") >= 0) channel.set_table_id(values.integer("--table-id"));
  filters.set(channel);
  channel.set_time_out(timeOut);
  channel.start();
  for (int left = values.integer("--count"); left > 0; --left) {
    const std::vector<std::uint8_t> bytes = channel.read_section(milliseconds(timeOut));
    if (bytes.empty()) {
      throw NothingFound(fmt::format("no section on PID {} within {} ms", pid, timeOut));
    }
    showSection(session, bytes);
  }
  channel.stop();
}

/// The next notification within the time, if any time is set.
std::optional<Notification> await(Session& session, int timeOut) {
  if (auto notification = session.takeEarly()) return notification;
  for (;;) {
    const auto wait = timeOut >= 0 ? milliseconds(timeOut) : std::chrono::hours(24);
    auto notification = session.control().waitForNotification(wait);
    if (notification || timeOut >= 0) return notification;
  }
}

void watch(Session& session, const Values& values) {
  const std::string& answer = values.text("--answer");
  if (answer != "yes" && answer != "no") {
    throw std::invalid_argument(fmt::format("--answer: '{}' is neither yes nor no", answer));
  }
  session.control().addCarouselListener();
  for (int left = values.integer("--count"); left > 0; --left) {
    const auto notification = await(session, values.integer("--timeout"));
    if (!notification) break;
    printNotification(*notification);
    if (std::holds_alternative<ApplicationState>(*notification)) {
      session.control().answerApplicationState(answer == "yes");
    }
  }
  session.control().removeCarouselListener();
}

void playToTheEnd(Session& session, const Values& values) {
  ControlChannel& channel = session.control();
  const std::string& locator = values.text("LOCATOR");
  const OpenedMedia media = channel.open(locator);
  if (!media.opened) throw Refusal("'" + locator + "' cannot be opened");
  channel.addMediaListener(media.player);
  if (!channel.play(media.player)) throw Refusal("'" + locator + "' cannot be played");
  for (;;) {
    const auto notification = await(session, values.integer("--timeout"));
    if (!notification) {
      throw Refusal(
          fmt::format("'{}' has not ended within {} ms", locator, values.integer("--timeout")));
    }
    printNotification(*notification);
    const auto* const end = std::get_if<EndOfMedia>(&*notification);
    if (end != nullptr && end->player == media.player) break;
  }
  channel.close(media.player);
}

void mountAndWait(Session& session, const Values& values) {
  ControlChannel& channel = session.control();
  const std::string& locator = values.text("LOCATOR");
  int left = values.integer("--wait");
  if (left > 0) channel.addCarouselListener();
  const std::string path = channel.mountCarousel(locator);
  if (path.empty()) throw NothingFound("'" + locator + "' cannot be mounted");
  showValue(session, "path", path);
  std::fflush(stdout);
  while (left > 0) {
    const auto notification = await(session, values.integer("--timeout"));
    if (!notification) {
      throw Refusal(
          fmt::format("'{}' is not complete within {} ms", locator, values.integer("--timeout")));
    }
    printNotification(*notification);
    const auto* const done = std::get_if<DownloadComplete>(&*notification);
    if (done != nullptr && done->first == locator) --left;
  }
}

void changeProperty(Session& session, const Values& values) {
  ControlChannel& channel = session.control();
  const std::string& name = values.text("NAME");
  const bool isSet = values.has("--set");
  if (values.isOn("--remove") && isSet) {
    throw std::invalid_argument("--remove and --set exclude each other");
  }
  if (name.empty() && (isSet || values.isOn("--remove"))) {
    throw std::invalid_argument("NAME is required");
  }
  if (isSet) {
    channel.setSystemProperty(name, values.text("--set"));
    return;
  }
  if (name.empty()) {
    show(session, channel.getSystemProperties(), "no properties");
    return;
  }
  const std::string value = channel.getSystemProperty(name);
  // The empty text is also the value of a property that is not there.
  const auto isMeant = [&](const SystemProperty& property) { return property.name == name; };
  const bool isThere =
      !value.empty() || std::ranges::any_of(channel.getSystemProperties(), isMeant);
  if (values.isOn("--remove")) channel.removeSystemProperty(name);
  if (!isThere) throw NothingFound("no property '" + name + "'");
  if (!values.isOn("--remove")) showValue(session, "value", value);
}

/// "2026-09-24T20:00", with seconds or without, with a blank for the T, or the date alone; or
/// seconds since 1970.
std::optional<std::int64_t> parseTime(const std::string& option, const std::string& written) {
  if (written.empty()) return std::nullopt;
  if (const auto seconds = parseInteger(written)) return seconds;
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd";
  std::array<int, 6> parts{};
  std::size_t part = 0;
  bool isTime = written.size() == 10 || written.size() == 16 || written.size() == form.size();
  for (std::size_t index = 0; isTime && index < written.size(); ++index) {
    const char character = written[index];
    if (form[index] == 'd') {
      isTime = character >= '0' && character <= '9';
      parts[part] = parts[part] * 10 + (character - '0');
    } else {
      isTime = character == form[index] || (form[index] == 'T' && character == ' ');
      ++part;
    }
  }
  const auto& [year, month, day, hour, minute, second] = parts;
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!isTime || !date.ok() || hour > 23 || minute > 59 || second > 59) {
    throw std::invalid_argument(
        fmt::format("{}: '{}' is no time such as 2026-09-24T20:00", option, written));
  }
  return std::chrono::sys_days(date).time_since_epoch() / std::chrono::seconds(1) + hour * 3600 +
         minute * 60 + second;
}

/// In small letters, as far as the locale has them.
std::wstring folded(const std::string& text) {
  std::wstring wide(text.size() + 1, L'\0');
  std::mbstate_t state{};
  std::size_t size = 0;
  for (std::size_t index = 0; index < text.size();) {
    const std::size_t length =
        std::mbrtowc(&wide[size], text.data() + index, text.size() - index, &state);
    const bool isCharacter = length > 0 && length <= text.size() - index;
    if (!isCharacter) {
      wide[size] = static_cast<unsigned char>(text[index]);
      state = {};
    }
    index += isCharacter ? length : 1;
    wide[size] = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(wide[size])));
    ++size;
  }
  wide.resize(size);
  return wide;
}

/// What an event must have to be listed.
class EventFilter {
 public:
  explicit EventFilter(const Values& values)
      : service_(values.integer("--service")),
        isPresentFollowing_(values.isOn("--present-following")),
        from_(parseTime("--from", values.text("--from"))),
        to_(parseTime("--to", values.text("--to"))),
        text_(folded(values.text("--text"))) {
    const std::string& table = values.text("--table");
    if (table.empty()) return;
    const std::pair<std::string_view, std::pair<int, int>> names[] = {
        {"p/f", {0x4e, 0x4e}},
        {"p/f-other", {0x4f, 0x4f}},
        {"schedule", {0x50, 0x5f}},
        {"schedule-other", {0x60, 0x6f}},
    };
    const auto* const named =
        std::ranges::find(names, table, [](const auto& n) { return n.first; });
    const auto number = parseInteger(table);
    if (named != std::end(names)) {
      tables_ = named->second;
    } else if (number && *number >= 0 && *number <= 0xff) {
      tables_ = {static_cast<int>(*number), static_cast<int>(*number)};
    } else {
      throw std::invalid_argument(fmt::format(
          "--table: '{}' is not p/f, p/f-other, schedule, schedule-other or a table id", table));
    }
  }

  [[nodiscard]] bool passes(const ProgramEvent& event) const {
    const int table = event.values[4];
    if (service_ != -1 && event.values[0] != service_) return false;
    if (isPresentFollowing_ && table != 0x4e && table != 0x4f) return false;
    if (table < tables_.first || table > tables_.second) return false;
    return isInTime(event) && hasText(event);
  }

 private:
  /// Whether some of it lies between the two times.
  [[nodiscard]] bool isInTime(const ProgramEvent& event) const {
    if (!from_ && !to_) return true;
    if (event.values[2] == -1) return false;
    const std::int64_t start = static_cast<std::uint32_t>(event.values[2]);
    const std::int64_t end = start + std::max(event.values[3], 0);
    return (!from_ || end > *from_ || start == *from_) && (!to_ || start < *to_);
  }

  [[nodiscard]] bool hasText(const ProgramEvent& event) const {
    if (text_.empty()) return true;
    const auto has = [&](const std::string& text) {
      return folded(text).find(text_) != std::wstring::npos;
    };
    return std::ranges::any_of(event.texts, has) ||
           std::ranges::any_of(event.textLists,
                               [&](const auto& list) { return std::ranges::any_of(list, has); });
  }

  int service_;
  bool isPresentFollowing_;
  std::pair<int, int> tables_{INT32_MIN, INT32_MAX};
  std::optional<std::int64_t> from_;
  std::optional<std::int64_t> to_;
  std::wstring text_;
};

bool isServiceKnown(Session& session, int service) {
  return std::ranges::any_of(session.control().getServices(),
                             [&](const Service& known) { return known.values[0] == service; });
}

void listEvents(Session& session, const Values& values) {
  const EventFilter filter(values);
  std::vector<ProgramEvent> all = session.control().getProgramEvents();
  std::erase_if(all, [&](const ProgramEvent& event) { return !filter.passes(event); });
  const int service = values.integer("--service");
  if (all.empty() && service != -1 && !isServiceKnown(session, service)) {
    throw NothingFound(fmt::format("no service {}", service));
  }
  show(session, all, "no such events");
}

/// Whether a record says something: without its facade, and where a host has not filled it in, it
/// is zero throughout; -1 in the number that tells one from another is nothing known, too.
template <class Numbers>
bool isKnown(const Numbers& values, std::int32_t number) {
  return number != -1 && std::ranges::any_of(values, [](std::int32_t value) { return value != 0; });
}

void showEvent(Session& session, const Values&) {
  const ProgramEvent event = session.control().getProgramEvent();
  showRecord(session, event, isKnown(event.values, event.values[1]), "no present event");
}

void listServices(Session& session, const Values&) {
  show(session, session.control().getServices(), "no services");
}

/// Selects nothing: no request does. What it says is how the service can be selected.
void selectService(Session& session, const Values& values) {
  const int wanted = values.integer("SERVICE");
  const int current = session.control().getCurrentService();
  if (wanted != current) {
    if (!isServiceKnown(session, wanted)) throw NothingFound(fmt::format("no service {}", wanted));
    throw Refusal(
        fmt::format("service {0} is not selected, {1} is: no request selects a service; "
                    "type 'service {0}' into the receiver's standard input",
                    wanted, current));
  }
  showValue(session, "service", current);
}

std::vector<int> programs(Session& session) {
  std::vector<int> list;
  for (const ProgramMap& map : session.control().getPMTs(-1)) list.push_back(map.values[0]);
  return list;
}

void listComponents(Session& session, const Values& values) {
  const int service = values.integer("SERVICE");
  const auto components = session.control().getServiceComponents(service);
  if (components.empty() && service != -1 && std::ranges::count(programs(session), service) == 0) {
    throw NothingFound(fmt::format("no program map of service {}", service));
  }
  show(session, components, "no components");
}

void listMaps(Session& session, const Values& values) {
  const int program = values.integer("PROGRAM");
  const std::vector<ProgramMap> maps = session.control().getPMTs(program);
  if (maps.empty() && program != -1) throw NothingFound(fmt::format("no program {}", program));
  std::vector<NamedMap> named;
  const std::vector<Service> services =
      maps.empty() ? std::vector<Service>() : session.control().getServices();
  for (const ProgramMap& map : maps) {
    // Those of the received stream come first.
    const auto service = std::ranges::find_if(
        services, [&](const Service& candidate) { return candidate.values[0] == map.values[0]; });
    named.push_back({map, service == services.end() ? "" : service->name});
  }
  show(session, named, "no program maps");
}

bool isKnown(const Network& network) {
  return network.value != -1 && (network.value != 0 || !network.name.empty());
}

void showNetwork(Session& session, const Values&) {
  const Network network = session.control().getNetwork();
  showRecord(session, network, isKnown(network), "no network");
}

void showStream(Session& session, const Values&) {
  const TransportStream stream = session.control().getTransportStream();
  showRecord(session, stream, isKnown(stream.values, stream.values[1]), "no transport stream");
}

/// The character table of texts that do not name their own, found out as the reference receiver
/// does: by the delivery and the number of the network.
std::string characterTable(Session& session) {
  constexpr int isdbTerrestrialDelivery = 0xfa;
  constexpr int firstOfJapan = 0x7800;
  const auto loop = session.control().getTransportStreamDescriptors(-1);
  if (std::ranges::none_of(loop, [](const Descriptor& descriptor) {
        return static_cast<std::uint8_t>(descriptor.tag) == isdbTerrestrialDelivery;
      })) {
    return "ISO6937";
  }
  const int network = session.control().getTransportStream().values[1];
  return network >= firstOfJapan ? "ARIB" : "ISO-8859-15";
}

/// A loop without descriptors is an answer, too.
void showDescriptors(Session& session, const std::vector<Descriptor>& loop) {
  if (loop.empty() && !session.settings().json) {
    fmt::print("no descriptors\n");
    return;
  }
  const std::string table = loop.empty() ? std::string() : characterTable(session);
  show(session, describe(loop, table), "");
}

void listEventDescriptors(Session& session, const Values& values) {
  ControlChannel& channel = session.control();
  const int service = values.integer("SERVICE");
  const int event = values.integer("EVENT");
  const auto loop = channel.getProgramEventDescriptors(service, event);
  if (loop.empty()) {
    const int wanted = service == -1 ? channel.getCurrentService() : service;
    const bool isThere =
        std::ranges::any_of(channel.getProgramEvents(), [&](const ProgramEvent& candidate) {
          return candidate.values[0] == wanted && candidate.values[1] == event;
        });
    if (!isThere) throw NothingFound(fmt::format("no event {} of service {}", event, wanted));
  }
  showDescriptors(session, loop);
}

void listComponentDescriptors(Session& session, const Values& values) {
  const int pid = values.integer("COMPONENT");
  const auto loop = session.control().getServiceComponentDescriptors(pid);
  const auto isThere = [&](int program) {
    return std::ranges::any_of(
        session.control().getServiceComponents(program),
        [&](const ServiceComponent& component) { return component.values[0] == pid; });
  };
  if (loop.empty() && std::ranges::none_of(programs(session), isThere)) {
    throw NothingFound(fmt::format("no component {0:#06x} ({0})", pid));
  }
  showDescriptors(session, loop);
}

NothingFound unknownStream(int stream) {
  return NothingFound(fmt::format("no transport stream {0} ({0:#06x})", stream));
}

void listStreamDescriptors(Session& session, const Values& values) {
  constexpr int allStreams = 2;
  const int stream = values.integer("STREAM");
  const auto loop = session.control().getTransportStreamDescriptors(stream);
  if (loop.empty() && stream != -1) {
    const auto known = session.control().getAllIDs(allStreams, 0);
    if (std::ranges::find(known, stream) == known.end()) {
      throw unknownStream(stream);
    }
  }
  showDescriptors(session, loop);
}

void listNetworkDescriptors(Session& session, const Values&) {
  const auto loop = session.control().getNetworkDescriptors();
  if (loop.empty() && !session.settings().json && !isKnown(session.control().getNetwork())) {
    throw NothingFound("no network");
  }
  showDescriptors(session, loop);
}

void trace(Session& session, const Values& values) {
  const std::string& record = values.text("--record");
  const std::string& read = values.text("--read");
  const std::string& replay = values.text("--replay");
  if (!record.empty() + !read.empty() + !replay.empty() > 1) {
    throw std::invalid_argument("--record, --read and --replay exclude each other");
  }
  if (!read.empty()) {
    Trace(session.settings().json, "").read(read);
    return;
  }
  if (session.isConnected())
    throw Refusal("this connection would stay where it is: not in a shell");
  if (!replay.empty()) Replay(replay).serve();
  Trace(session.settings().json, record).stand();
}

/// What was given for an argument, as the type that a client's operation wants.
struct Given {
  const Values& values;
  std::string_view name;

  operator std::int32_t() const { return values.integer(name); }
  operator double() const { return values.real(name); }
  operator bool() const { return values.isOn(name); }
  operator const std::string&() const { return values.text(name); }
};

// Functions for the rows: a client's operation, and the arguments that it is called with.

template <auto operation, operations::Name... arguments>
auto call(Session& session, const Values& values) {
  return (session.control().*operation)(Given{values, arguments}...);
}

template <auto operation, operations::Name... arguments>
void tell(Session& session, const Values& values) {
  call<operation, arguments...>(session, values);
}

template <operations::Name key, auto operation, operations::Name... arguments>
void showAnswer(Session& session, const Values& values) {
  showValue(session, key, call<operation, arguments...>(session, values));
}

/// `nothing`: what -1 or an empty text means.
template <operations::Name key, auto operation, operations::Name nothing,
          operations::Name... arguments>
void showIfFound(Session& session, const Values& values) {
  showFound(session, key, call<operation, arguments...>(session, values),
            std::string(std::string_view(nothing)));
}

void listCASystems(Session& session, const Values&) {
  const auto systems = session.control().getCASystemIds();
  if (session.settings().json) {
    fmt::print("{}\n", written(Json(systems)));
    return;
  }
  if (systems.empty()) throw NothingFound("no conditional-access systems");
  for (const std::int32_t system : systems) {
    const std::string name = words::caSystem(system);
    fmt::print("{:#06x}{}{}\n", system, name.empty() ? "" : " ", name);
  }
}

void listIdentifiers(Session& session, const Values& values) {
  enum Identifiers { ofStream = 1, streams = 2, ofNetwork = 3, ofBouquet = 4 };
  const int kind = values.integer("KIND");
  if (kind != streams && !values.has("KEY")) {
    throw std::invalid_argument(fmt::format("KEY is required for the kind {}", kind));
  }
  const int key = values.has("KEY") ? values.integer("KEY") : 0;
  const auto identifiers = session.control().getAllIDs(kind, key);
  if (identifiers.empty() && kind == ofStream) {
    const auto known = session.control().getAllIDs(streams, 0);
    if (std::ranges::find(known, key) == known.end()) throw unknownStream(key);
  }
  if (session.settings().json) {
    fmt::print("{}\n", written(Json(identifiers)));
    return;
  }
  if (identifiers.empty()) {
    // Whether a network or a bouquet is known without any streams, no request tells.
    throw NothingFound(kind == ofStream    ? fmt::format("no services of transport stream {}", key)
                       : kind == ofNetwork ? fmt::format("no network {}", key)
                       : kind == ofBouquet ? fmt::format("no bouquet {}", key)
                                           : "no transport streams");
  }
  for (const std::int32_t identifier : identifiers) fmt::print("{}\n", identifier);
}

void listVideoLanguages(Session& session, const Values&) {
  showTexts(session, session.control().getVideoLanguages(), "no languages");
}

template <auto operation>
void setRectangle(Session& session, const Values& values) {
  (session.control().*operation)(rectangle(values));
}

void showVideoBounds(Session& session, const Values&) {
  showRectangle(session, session.control().getMainVideoBounds());
}

void showMediaBounds(Session& session, const Values& values) {
  showRectangle(session, session.control().getMediaBounds(values.integer("PLAYER")));
}

void setMediaBounds(Session& session, const Values& values) {
  showValue(session, "result",
            session.control().setMediaBounds(values.integer("PLAYER"), rectangle(values)));
}

/// A level of the main video's sound: the row's type is the operation's selector.
template <operations::Name row>
void setVideoLevel(Session& session, const Values& values) {
  session.control().setVideoAudio(rowOf<row>.types.first, values.real("LEVEL"));
}

void openMedia(Session& session, const Values& values) {
  const OpenedMedia media = session.control().open(values.text("LOCATOR"));
  if (!media.opened) throw Refusal("'" + values.text("LOCATOR") + "' cannot be opened");
  showValue(session, "player", media.player);
}

// clang-format off

/// In the order of the help.
constexpr Command all[] = {
    {"", "services", "list the services", {}, listServices},
    {"", "service", "tell whether a service is the current one, or how to select it",
     {integer("SERVICE", "the service")},
     selectService},
    {"", "current-service", "show the current service", {},
     showIfFound<"service", &ControlChannel::getCurrentService, "no current service">},
    {"", "description", "show the description of the current service", {},
     showIfFound<"description", &ControlChannel::getServiceDescription, "no description">},
    {"", "protected", "tell whether the current service is protected", {},
     showAnswer<"protected", &ControlChannel::isProtectedService>},
    {"", "events", "list the events",
     {integer("--service", "only the events of this service", "-1"),
      flag("--present-following", "only the present and following ones"),
      text("--from", "only what goes on after this time: 2026-09-24T20:00, or seconds since 1970", ""),
      text("--to", "only what begins before this time", ""),
      text("--table", "only of this table: p/f, p/f-other, schedule, schedule-other, or its id", ""),
      text("--text", "only with this in a name or text, in small letters or capitals", "")},
     listEvents},
    {"", "event", "show the present event of the current service", {},
     showEvent},
    {"", "components", "list the components of a service",
     {integer("SERVICE", "the service; the current one without it", "-1")},
     listComponents},
    {"", "pmts", "list the program maps",
     {integer("PROGRAM", "only the map of this program", "-1")},
     listMaps},
    {"", "network", "show the network", {}, showNetwork},
    {"", "transport-stream", "show the transport stream", {},
     showStream},
    {"", "ca-systems", "list the conditional-access systems", {}, listCASystems},
    {"", "coding-format", "show the coding of the texts", {},
     showAnswer<"coding_format", &ControlChannel::getSICodingFormat>},
    {"descriptors", "event", "list the descriptors of an event",
     {integer("SERVICE", "the event's service"), integer("EVENT", "the event's identifier")},
     listEventDescriptors},
    {"descriptors", "component", "list the descriptors of a component",
     {integer("COMPONENT", "the component, for the reference receiver its PID")},
     listComponentDescriptors},
    {"descriptors", "transport-stream", "list the descriptors of a transport stream",
     {integer("STREAM", "its identifier; the current one without it", "-1")},
     listStreamDescriptors},
    {"descriptors", "network", "list the descriptors of the network", {},
     listNetworkDescriptors},

    {"", "tuned", "show the transport stream that is tuned to", {},
     showIfFound<"transport_stream", &ControlChannel::getCurrentTransportStreamID,
                 "no transport stream">},
    {"", "ids", "list identifiers of the tuner",
     {integer("KIND",
              "1: services of the transport stream KEY; 2: all transport streams; "
              "3: transport streams of the network KEY; 4: of the bouquet KEY",
              {}, 1, 4),
      integer("KEY", "the key that the kinds 1, 3 and 4 need", Argument::unset)},
     listIdentifiers},
    {"", "property", "list, show or change properties",
     {text("NAME", "the property; all of them without it", ""),
      text("--set", "give it this value, also an empty one", Argument::unset), flag("--remove", "remove it")},
     changeProperty},
    {"", "version", "tell whether a version flag is set",
     {integer("FLAG",
              "for the reference receiver: 0 reference receiver; 1 service information; "
              "2 section filter; 3 ARIB texts; 4 carousels; 5 stream events; 6 properties; 7 video")},
     showAnswer<"set", &ControlChannel::checkVersionFlag, "FLAG">},
    {"", "section", "read sections through the section filter",
     {integer("--pid", "PID", {}, 0, 8191),
      integer("--table-id", "table id; any without it", "-1", -1, 255),
      text("--filter", "[OFFSET:]VALUE[/MASK] in hexadecimal: bytes that the section must have",
           ""),
      text("--greater", "the same: the section's bytes must be greater, as a number", ""),
      text("--less", "the same: the section's bytes must be less, as a number", ""),
      text("--xor",
           "[OFFSET:]VALUE[/MASK[/DIFFERENT]]: equal outside of DIFFERENT, not equal inside", ""),
      integer("--timeout", "milliseconds to wait for a section; 5000 without it", "5000", 0, 3'600'000),
      integer("--count", "how many sections", "1", 1, 1'000'000)},
     readSections},
    {"", "mount", "mount a carousel and show its directory",
     {text("LOCATOR", "for the reference receiver: dvb://[ONID].[TSID].SID[.TAG], hexadecimal"),
      integer("--wait", "wait until so many downloads are complete", "0", 0),
      integer("--timeout", "milliseconds to wait for each; without it for ever", "-1", -1)},
     mountAndWait},
    {"", "umount", "unmount a carousel", {text("LOCATOR", "what it was mounted with")},
     tell<&ControlChannel::umountCarousel, "LOCATOR">},
    {"", "trace", "stand between the library and its clients, and print what they say, a line a record",
     {text("--record", "keep it in this file, too", ""),
      text("--read", "print what this file has kept, and end", ""),
      text("--replay", "stand in the library's place and answer as this file has it", "")},
     trace},
    {"", "watch", "print notifications as they come, complete downloads among them",
     {integer("--count", "end after so many", "2147483647", 1),
      integer("--timeout", "end when none has come for so many milliseconds", "-1", -1),
      text("--answer", "what an application state is answered with: yes or no; yes without it", "yes")},
     watch},

    {"video", "bounds", "show the main video's bounds", {}, showVideoBounds},
    {"video", "set-bounds", "set the main video's bounds", {leftEdge, upperEdge, width, height},
     setRectangle<&ControlChannel::setVideoBounds>},
    {"video", "reset", "do what the receiver does when its client goes away", {},
     tell<&ControlChannel::videoPropertyAction>},
    {"video", "language", "show a language of the main video",
     {oneOfTypes<"getVideoLanguage">("WHICH", "3: the selected one; 5: the first one")},
     showIfFound<"language", &ControlChannel::getVideoLanguage, "no language", "WHICH">},
    {"video", "languages", "list the languages of the main video", {}, listVideoLanguages},
    {"video", "select-language", "select the language of the main video",
     {text("LANGUAGE", "one of 'video languages'")},
     tell<&ControlChannel::selectVideoLanguage, "LANGUAGE">},
    {"video", "freeze", "stop the main video's picture, or let it go on", {onOff},
     tell<&ControlChannel::setVideoFreeze, "ON">},
    {"video", "option", "set the main video's option", {onOff},
     tell<&ControlChannel::setVideoOption, "ON">},
    {"video", "property", "show a property of the main video",
     {oneOfTypes<"getVideoProperty">(
         "NUMBER",
         "for the reference receiver: 9, 10 width and height of the plane; 11, 12 PID and stream "
         "type of the pictures, -1 for none; 13, 14 of the sound; 15 sound off; 16 picture frozen")},
     showAnswer<"value", &ControlChannel::getVideoProperty, "NUMBER">},
    {"video", "region", "set the region of the graphics", {leftEdge, upperEdge, width, height},
     setRectangle<&ControlChannel::updateGraphicsRegion>},
    {"video", "mute", "turn the sound off, or on again", {onOff},
     tell<&ControlChannel::setVideoMute, "ON">},
    {"video", "sound", "set the sound level", {level}, setVideoLevel<"setVideoSoundLevel">},
    {"video", "balance", "set the balance level", {level}, setVideoLevel<"setVideoBalanceLevel">},
    {"video", "bass", "set the bass level", {level}, setVideoLevel<"setVideoBassLevel">},
    {"video", "treble", "set the treble level", {level}, setVideoLevel<"setVideoTrebleLevel">},

    {"media", "open", "open a media player and show its number",
     {text("LOCATOR", "for the reference receiver: a file, or dvb://[ONID].[TSID].SID")},
     openMedia},
    {"media", "listen", "ask to be told of a player's end", {player},
     tell<&ControlChannel::addMediaListener, "PLAYER">},
    {"media", "play", "let a player play", {player},
     showAnswer<"playing", &ControlChannel::play, "PLAYER">},
    {"media", "stop", "stop a player", {player}, tell<&ControlChannel::stop, "PLAYER">},
    {"media", "close", "close a player", {player}, tell<&ControlChannel::close, "PLAYER">},
    {"media", "duration", "show how long a player's medium is", {player},
     showAnswer<"duration", &ControlChannel::getDuration, "PLAYER">},
    {"media", "time", "show where a player is", {player},
     showAnswer<"time", &ControlChannel::getCurrentTime, "PLAYER">},
    {"media", "seek", "set where a player is",
     {player, integer("TIME", "milliseconds from the beginning"),
      integer("MODE", "for the reference receiver: 0 exact, 1 nearest key picture", "0")},
     showAnswer<"time", &ControlChannel::setCurrentTime, "PLAYER", "TIME", "MODE">},
    {"media", "bounds", "show a player's bounds", {player}, showMediaBounds},
    {"media", "set-bounds", "set a player's bounds", {player, leftEdge, upperEdge, width, height},
     setMediaBounds},
    {"media", "freeze", "stop a player's picture, or let it go on", {player, onOff},
     tell<&ControlChannel::setMediaFreeze, "PLAYER", "ON">},
    {"media", "mute", "turn a player's sound off, or on again", {player, onOff},
     tell<&ControlChannel::setMediaMute, "PLAYER", "ON">},
    {"media", "run", "open, play to the end and close",
     {text("LOCATOR", "as for 'media open'"),
      integer("--timeout", "milliseconds to wait; without it for ever", "-1", -1)},
     playToTheEnd},
    {"media", "sound", "set a player's sound level", {player, level},
     tell<&ControlChannel::setMediaSoundLevel, "PLAYER", "LEVEL">},
    {"media", "balance", "set a player's balance level", {player, level},
     tell<&ControlChannel::setMediaBalanceLevel, "PLAYER", "LEVEL">},
    {"media", "bass", "set a player's bass level", {player, level},
     tell<&ControlChannel::setMediaBassLevel, "PLAYER", "LEVEL">},
    {"media", "treble", "set a player's treble level", {player, level},
     tell<&ControlChannel::setMediaTrebleLevel, "PLAYER", "LEVEL">},
};

// clang-format on

}  // namespace

std::string Argument::complaint(const std::string& text) const {
  std::optional<double> number;
  if (kind == Kind::integer) {
    if (const auto integer = parseInteger(text)) number = static_cast<double>(*integer);
  } else {
    number = parseReal(text);
  }
  if (!number) return fmt::format("'{}' is no number", text);
  if (*number >= least && *number <= most) return {};
  const std::string wanted = range();
  return wanted.empty() ? text + " is too large" : fmt::format("{} is not {}", text, wanted);
}

std::string Argument::range() const {
  const bool hasLeast = least > INT32_MIN;
  const bool hasMost = most < INT32_MAX;
  // What stands for an option that is not given is not for people.
  const double lowest = least == -1 && absent == "-1" ? 0 : least;
  if (hasLeast && hasMost) return fmt::format("{:.0f} to {:.0f}", lowest, most);
  return hasLeast ? fmt::format("{:.0f} or more", lowest) : std::string();
}

void Values::setAbsent(const Argument& argument) {
  if (argument.absent && argument.absent != Argument::unset) {
    set(argument.name, std::string(*argument.absent));
  }
}

std::int32_t Values::integer(std::string_view name) const {
  return static_cast<std::int32_t>(parseInteger(text(name)).value());
}

double Values::real(std::string_view name) const { return parseReal(text(name)).value(); }

std::string_view descriptionOf(std::string_view group) {
  if (group == "descriptors") return "what a descriptor loop of the tables says";
  if (group == "video") return "the main video: bounds, language, sound, properties";
  if (group == "media") return "media players: open, play, seek, bounds, sound";
  return {};
}

std::span<const Command> commands() { return all; }

}  // namespace quillwork::cli
