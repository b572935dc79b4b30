#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "cli/Command.h"
#include "cli/Output.h"
#include "cli/Replay.h"
#include "cli/Trace.h"
#include "client/Fields.h"
#include "protocol/operations.h"

namespace quillwork::cli {

using namespace client;
namespace {

using std::chrono::milliseconds;
using Kind = Argument::Kind;

template <class Element>
void show(const Session& session, const std::vector<Element>& elements) {
  if (!session.settings().json) {
    printTable(elements);
    return;
  }
  Json list = Json::array();
  for (const Element& element : elements) list.push_back(toJson(element));
  fmt::print("{}\n", list.dump(2));
}

template <class Record>
void showRecord(const Session& session, const Record& record) {
  if (session.settings().json) {
    fmt::print("{}\n", toJson(record).dump(2));
  } else {
    printRecord(record);
  }
}

/// A value that is neither a record nor a list.
void showValue(const Session& session, std::string_view key, const Json& value) {
  const auto text = [](const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
  };
  if (session.settings().json) {
    fmt::print("{}\n", text(Json{{key, value}}));
  } else {
    fmt::print("{}\n", value.is_string() ? value.get<std::string>() : text(value));
  }
}

void showIdentifiers(const Session& session, const std::vector<std::int32_t>& identifiers,
                     bool hexadecimal) {
  if (session.settings().json) {
    fmt::print("{}\n", Json(identifiers).dump());
    return;
  }
  for (const std::int32_t identifier : identifiers) {
    fmt::print("{}\n",
               hexadecimal ? fmt::format("{:#06x}", identifier) : fmt::to_string(identifier));
  }
}

void showTexts(const Session& session, const std::vector<std::string>& texts) {
  if (session.settings().json) {
    fmt::print("{}\n", Json(texts).dump(-1, ' ', false, Json::error_handler_t::replace));
    return;
  }
  for (const std::string& text : texts) fmt::print("{}\n", text);
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

constexpr Argument level = {
    "LEVEL", Kind::real, "for the reference receiver: sound 0 to 1, others -1 to 1", {}, -1e9, 1e9};
constexpr Argument onOff = {"ON", Kind::onOff, "on or off", {}};
constexpr Argument player = integer("PLAYER", "what 'media open' gave");

constexpr Argument leftEdge = integer("X", "left edge, in pixels");
constexpr Argument upperEdge = integer("Y", "upper edge");
constexpr Argument width = integer("WIDTH", "width");
constexpr Argument height = integer("HEIGHT", "height");

/// The types of all rows of an operation, in words: "9 to 16" or "3 or 5".
class TypesInWords {
 public:
  constexpr explicit TypesInWords(std::string_view operation) {
    for (const operations::Request& row : operations::requests) {
      if (row.name != operation) continue;
      if (size_ > 0) add(" or ");
      add(row.types.first);
      if (row.types.last == row.types.first) continue;
      add(" to ");
      add(row.types.last);
    }
  }
  [[nodiscard]] constexpr std::string_view text() const { return {text_.data(), size_}; }

 private:
  constexpr void add(std::string_view text) {
    for (const char character : text) text_[size_++] = character;
  }
  constexpr void add(std::int32_t number) {
    if (number >= 10) add(number / 10);
    text_[size_++] = static_cast<char>('0' + number % 10);
  }

  std::array<char, 32> text_{};
  std::size_t size_ = 0;
};
template <operations::Name operation>
constexpr TypesInWords typesInWords{operation};

/// An argument that says which of the operation's types is meant.
template <operations::Name operation>
constexpr Argument oneOfTypes(std::string_view name) {
  double least = INT32_MAX;
  double most = INT32_MIN;
  for (const operations::Request& row : operations::requests) {
    if (row.name != std::string_view(operation)) continue;
    least = std::min<double>(least, row.types.first);
    most = std::max<double>(most, row.types.last);
  }
  return integer(name, typesInWords<operation>.text(), {}, least, most);
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
      const char* const end = rest.data() + colon;
      const auto [last, error] = std::from_chars(rest.data(), end, offset);
      if (error != std::errc() || last != end || offset < 0) {
        throw std::invalid_argument(option + ": '" + rest.substr(0, colon) + "' is no offset");
      }
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
      throw Refusal(fmt::format("no section on PID {} within {} ms", pid, timeOut));
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
  session.control().addCarouselListener();
  for (int left = values.integer("--count"); left > 0; --left) {
    const auto notification = await(session, values.integer("--timeout"));
    if (!notification) break;
    printNotification(*notification);
    if (std::holds_alternative<ApplicationState>(*notification)) {
      session.control().answerApplicationState(values.text("--answer") == "yes");
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
  if (path.empty()) throw Refusal("'" + locator + "' cannot be mounted");
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
  if (values.isOn("--remove")) {
    channel.removeSystemProperty(name);
  } else if (isSet) {
    channel.setSystemProperty(name, values.text("--set"));
  } else if (name.empty()) {
    show(session, channel.getSystemProperties());
  } else {
    showValue(session, "value", channel.getSystemProperty(name));
  }
}

void listEvents(Session& session, const Values& values) {
  std::vector<ProgramEvent> all = session.control().getProgramEvents();
  const int wanted = values.integer("--service");
  std::erase_if(all, [&](const ProgramEvent& event) {
    const bool isPresentFollowing = event.values[4] == 0x4e || event.values[4] == 0x4f;
    return (wanted != -1 && event.values[0] != wanted) ||
           (values.isOn("--present-following") && !isPresentFollowing);
  });
  show(session, all);
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

template <auto operation>
void showRecordOf(Session& session, const Values& values) {
  showRecord(session, call<operation>(session, values));
}

template <auto operation, operations::Name... arguments>
void showList(Session& session, const Values& values) {
  show(session, call<operation, arguments...>(session, values));
}

void listCASystems(Session& session, const Values&) {
  showIdentifiers(session, session.control().getCASystemIds(), true);
}

void listIdentifiers(Session& session, const Values& values) {
  showIdentifiers(session, call<&ControlChannel::getAllIDs, "KIND", "KEY">(session, values), false);
}

void listVideoLanguages(Session& session, const Values&) {
  showTexts(session, session.control().getVideoLanguages());
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
    {"", "services", "list the services", {}, showList<&ControlChannel::getServices>},
    {"", "current-service", "show the current service", {},
     showAnswer<"service", &ControlChannel::getCurrentService>},
    {"", "description", "show the description of the current service", {},
     showAnswer<"description", &ControlChannel::getServiceDescription>},
    {"", "protected", "tell whether the current service is protected", {},
     showAnswer<"protected", &ControlChannel::isProtectedService>},
    {"", "events", "list the events",
     {integer("--service", "only the events of this service", "-1"),
      flag("--present-following", "only the present and following ones")},
     listEvents},
    {"", "event", "show the present event of the current service", {},
     showRecordOf<&ControlChannel::getProgramEvent>},
    {"", "components", "list the components of a service",
     {integer("SERVICE", "the service; the current one without it", "-1")},
     showList<&ControlChannel::getServiceComponents, "SERVICE">},
    {"", "pmts", "list the program maps",
     {integer("PROGRAM", "only the map of this program", "-1")},
     showList<&ControlChannel::getPMTs, "PROGRAM">},
    {"", "network", "show the network", {}, showRecordOf<&ControlChannel::getNetwork>},
    {"", "transport-stream", "show the transport stream", {},
     showRecordOf<&ControlChannel::getTransportStream>},
    {"", "ca-systems", "list the conditional-access systems", {}, listCASystems},
    {"", "coding-format", "show the coding of the texts", {},
     showAnswer<"coding_format", &ControlChannel::getSICodingFormat>},
    {"descriptors", "event", "list the descriptors of an event",
     {integer("SERVICE", "the event's service"), integer("EVENT", "the event's identifier")},
     showList<&ControlChannel::getProgramEventDescriptors, "SERVICE", "EVENT">},
    {"descriptors", "component", "list the descriptors of a component",
     {integer("COMPONENT", "the component, for the reference receiver its PID")},
     showList<&ControlChannel::getServiceComponentDescriptors, "COMPONENT">},
    {"descriptors", "transport-stream", "list the descriptors of a transport stream",
     {integer("STREAM", "its identifier; the current one without it", "-1")},
     showList<&ControlChannel::getTransportStreamDescriptors, "STREAM">},
    {"descriptors", "network", "list the descriptors of the network", {},
     showList<&ControlChannel::getNetworkDescriptors>},

    {"", "tuned", "show the transport stream that is tuned to", {},
     showAnswer<"transport_stream", &ControlChannel::getCurrentTransportStreamID>},
    {"", "ids", "list identifiers of the tuner",
     {integer("KIND", "which identifiers: 1, 2, 3 or 4", {}, 1, 4),
      integer("KEY", "the key that the kinds 1, 3 and 4 need", "0")},
     listIdentifiers},
    {"", "property", "list, show or change properties",
     {text("NAME", "the property; all of them without it", ""),
      text("--set", "give it this value, also an empty one", ""), flag("--remove", "remove it")},
     changeProperty},
    {"", "version", "tell whether a version flag is set", {integer("FLAG", "the flag")},
     showAnswer<"set", &ControlChannel::checkVersionFlag, "FLAG">},
    {"", "section", "read sections through the section filter",
     {integer("--pid", "PID, 0 to 8191", {}, 0, 8191),
      integer("--table-id", "table id, 0 to 255; any without it", "-1", -1, 255),
      text("--filter", "[OFFSET:]VALUE[/MASK] in hexadecimal: bytes that the section must have",
           ""),
      text("--greater", "the same: the section's bytes must be greater, as a number", ""),
      text("--less", "the same: the section's bytes must be less, as a number", ""),
      text("--xor",
           "[OFFSET:]VALUE[/MASK[/DIFFERENT]]: equal outside of DIFFERENT, not equal inside", ""),
      integer("--timeout", "milliseconds to wait for a section", "5000", 0, 3'600'000),
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
      text("--answer", "what an application state is answered with: yes or no", "yes")},
     watch},

    {"video", "bounds", "show the main video's bounds", {}, showVideoBounds},
    {"video", "set-bounds", "set the main video's bounds", {leftEdge, upperEdge, width, height},
     setRectangle<&ControlChannel::setVideoBounds>},
    {"video", "reset", "do what the receiver does when its client goes away", {},
     tell<&ControlChannel::videoPropertyAction>},
    {"video", "language", "show a language of the main video",
     {oneOfTypes<"getVideoLanguage">("WHICH")},
     showAnswer<"language", &ControlChannel::getVideoLanguage, "WHICH">},
    {"video", "languages", "list the languages of the main video", {}, listVideoLanguages},
    {"video", "select-language", "select the language of the main video",
     {text("LANGUAGE", "one of 'video languages'")},
     tell<&ControlChannel::selectVideoLanguage, "LANGUAGE">},
    {"video", "freeze", "stop the main video's picture, or let it go on", {onOff},
     tell<&ControlChannel::setVideoFreeze, "ON">},
    {"video", "option", "set the main video's option", {onOff},
     tell<&ControlChannel::setVideoOption, "ON">},
    {"video", "property", "show a property of the main video",
     {oneOfTypes<"getVideoProperty">("NUMBER")},
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

std::int32_t Values::integer(std::string_view name) const {
  return static_cast<std::int32_t>(std::stol(text(name)));
}

double Values::real(std::string_view name) const { return std::stod(text(name)); }

std::span<const Command> commands() { return all; }

}  // namespace quillwork::cli
