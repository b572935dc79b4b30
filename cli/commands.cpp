#include <fmt/format.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <utility>

#include "cli/Command.h"
#include "cli/Output.h"
#include "cli/Replay.h"
#include "cli/Trace.h"

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
void showValue(const Session& session, const std::string& key, const Json& value) {
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

Argument integer(const std::string& name, const std::string& description,
                 std::optional<std::string> absent = std::nullopt, double least = INT32_MIN,
                 double most = INT32_MAX) {
  return {name, Kind::integer, description, std::move(absent), least, most};
}

Argument text(const std::string& name, const std::string& description,
              std::optional<std::string> absent = std::nullopt) {
  return {name, Kind::text, description, std::move(absent)};
}

Argument onOff(const std::string& description) { return {"ON", Kind::onOff, description, {}}; }

Argument flag(const std::string& name, const std::string& description) {
  return {name, Kind::flag, description, "off"};
}

const Argument level = {
    "LEVEL",      Kind::real, "for the reference receiver: sound 0 to 1, others -1 to 1",
    std::nullopt, -1e9,       1e9};
const Argument player = integer("PLAYER", "what 'media open' gave");
const Argument service = integer("SERVICE", "the service; the current one without it", "-1");

std::vector<Argument> bounds() {
  return {integer("X", "left edge, in pixels"), integer("Y", "upper edge"),
          integer("WIDTH", "width"), integer("HEIGHT", "height")};
}

Rectangle rectangle(const Values& values) {
  return {values.integer("X"), values.integer("Y"), values.integer("WIDTH"),
          values.integer("HEIGHT")};
}

std::vector<Argument> playerAnd(std::vector<Argument> others) {
  others.insert(others.begin(), player);
  return others;
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

void readSections(Session& session, const Values& values) {
  const int pid = values.integer("--pid");
  const int timeOut = values.integer("--timeout");
  const auto filter = [&](const std::string& option) {
    return values.text(option).empty() ? std::optional<Filter>()
                                       : Filter(option, values.text(option));
  };
  const auto positive = filter("--filter");
  const auto greater = filter("--greater");
  const auto less = filter("--less");
  const auto exclusive = filter("--xor");
  SectionFilterChannel& channel = session.sections();
  channel.stop();
  channel.set_pid(pid);
  channel.clear_table_id();
  channel.clear_positive_filter();
  channel.clear_less_than_filter();
  channel.clear_xor_filter();
  if (values.integer("--table-id") >= 0) channel.set_table_id(values.integer("--table-id"));
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
  channel.set_time_out(timeOut);
  channel.start();
  for (int left = values.integer("--count"); left > 0; --left) {
    const std::vector<std::uint8_t> bytes = channel.read_section(milliseconds(timeOut));
    if (bytes.empty()) {
      throw Refusal(fmt::format("no section on PID {} within {} ms", pid, timeOut));
    }
    if (session.settings().json) {
      fmt::print("{}\n", Json{{"size", bytes.size()}, {"section", hex(bytes)}}.dump());
    } else {
      fmt::print("section of {} bytes\n", bytes.size());
      printSection(bytes);
    }
    std::fflush(stdout);
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

/// Answers twice: the receiver loses an answer that comes before it has begun to wait for it, and
/// one that comes when nobody waits does nothing.
void answerApplicationState(Session& session, bool answer) {
  session.control().answerApplicationState(answer);
  std::this_thread::sleep_for(milliseconds(100));
  session.control().answerApplicationState(answer);
}

void watch(Session& session, const Values& values) {
  session.control().addCarouselListener();
  for (int left = values.integer("--count"); left > 0; --left) {
    const auto notification = await(session, values.integer("--timeout"));
    if (!notification) break;
    printNotification(*notification);
    if (std::holds_alternative<ApplicationState>(*notification)) {
      answerApplicationState(session, values.text("--answer") == "yes");
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

std::vector<Command> serviceInformation() {
  return {
      {"services",
       "list the services",
       {},
       [](Session& session, const Values&) { show(session, session.control().getServices()); }},
      {"current-service",
       "show the current service",
       {},
       [](Session& session, const Values&) {
         showValue(session, "service", session.control().getCurrentService());
       }},
      {"description",
       "show the description of the current service",
       {},
       [](Session& session, const Values&) {
         showValue(session, "description", session.control().getServiceDescription());
       }},
      {"protected",
       "tell whether the current service is protected",
       {},
       [](Session& session, const Values&) {
         showValue(session, "protected", session.control().isProtectedService());
       }},
      {"events",
       "list the events",
       {integer("--service", "only the events of this service", "-1"),
        flag("--present-following", "only the present and following ones")},
       listEvents},
      {"event",
       "show the present event of the current service",
       {},
       [](Session& session, const Values&) {
         showRecord(session, session.control().getProgramEvent());
       }},
      {"components",
       "list the components of a service",
       {service},
       [](Session& session, const Values& values) {
         show(session, session.control().getServiceComponents(values.integer("SERVICE")));
       }},
      {"pmts",
       "list the program maps",
       {integer("PROGRAM", "only the map of this program", "-1")},
       [](Session& session, const Values& values) {
         show(session, session.control().getPMTs(values.integer("PROGRAM")));
       }},
      {"network",
       "show the network",
       {},
       [](Session& session, const Values&) {
         showRecord(session, session.control().getNetwork());
       }},
      {"transport-stream",
       "show the transport stream",
       {},
       [](Session& session, const Values&) {
         showRecord(session, session.control().getTransportStream());
       }},
      {"ca-systems",
       "list the conditional-access systems",
       {},
       [](Session& session, const Values&) {
         showIdentifiers(session, session.control().getCASystemIds(), true);
       }},
      {"coding-format",
       "show the coding of the texts",
       {},
       [](Session& session, const Values&) {
         showValue(session, "coding_format", session.control().getSICodingFormat());
       }},
      {"descriptors event",
       "list the descriptors of an event",
       {integer("SERVICE", "the event's service"), integer("EVENT", "the event's identifier")},
       [](Session& session, const Values& values) {
         show(session, session.control().getProgramEventDescriptors(values.integer("SERVICE"),
                                                                    values.integer("EVENT")));
       }},
      {"descriptors component",
       "list the descriptors of a component",
       {integer("COMPONENT", "the component, for the reference receiver its PID")},
       [](Session& session, const Values& values) {
         show(session,
              session.control().getServiceComponentDescriptors(values.integer("COMPONENT")));
       }},
      {"descriptors transport-stream",
       "list the descriptors of a transport stream",
       {integer("STREAM", "its identifier; the current one without it", "-1")},
       [](Session& session, const Values& values) {
         show(session, session.control().getTransportStreamDescriptors(values.integer("STREAM")));
       }},
      {"descriptors network",
       "list the descriptors of the network",
       {},
       [](Session& session, const Values&) {
         show(session, session.control().getNetworkDescriptors());
       }},
  };
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

std::vector<Command> receiverCommands() {
  return {
      {"tuned",
       "show the transport stream that is tuned to",
       {},
       [](Session& session, const Values&) {
         showValue(session, "transport_stream", session.control().getCurrentTransportStreamID());
       }},
      {"ids",
       "list identifiers of the tuner",
       {integer("KIND", "which identifiers: 1, 2, 3 or 4", std::nullopt, 1, 4),
        integer("KEY", "the key that the kinds 1, 3 and 4 need", "0")},
       [](Session& session, const Values& values) {
         showIdentifiers(session,
                         session.control().getAllIDs(values.integer("KIND"), values.integer("KEY")),
                         false);
       }},
      {"property",
       "list, show or change properties",
       {text("NAME", "the property; all of them without it", ""),
        {"--set", Kind::text, "give it this value, also an empty one", ""},
        flag("--remove", "remove it")},
       changeProperty},
      {"version",
       "tell whether a version flag is set",
       {integer("FLAG", "the flag")},
       [](Session& session, const Values& values) {
         showValue(session, "set", session.control().checkVersionFlag(values.integer("FLAG")));
       }},
      {"section",
       "read sections through the section filter",
       {integer("--pid", "PID, 0 to 8191", std::nullopt, 0, 8191),
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
      {"mount",
       "mount a carousel and show its directory",
       {text("LOCATOR", "for the reference receiver: dvb://[ONID].[TSID].SID[.TAG], hexadecimal"),
        integer("--wait", "wait until so many downloads are complete", "0", 0),
        integer("--timeout", "milliseconds to wait for each; without it for ever", "-1", -1)},
       mountAndWait},
      {"umount",
       "unmount a carousel",
       {text("LOCATOR", "what it was mounted with")},
       [](Session& session, const Values& values) {
         session.control().umountCarousel(values.text("LOCATOR"));
       }},
      {"trace",
       "stand between the library and its clients, and print what they say, a line a record",
       {text("--record", "keep it in this file, too", ""),
        text("--read", "print what this file has kept, and end", ""),
        text("--replay", "stand in the library's place and answer as this file has it", "")},
       trace},
      {"watch",
       "print notifications as they come, complete downloads among them",
       {integer("--count", "end after so many", "2147483647", 1),
        integer("--timeout", "end when none has come for so many milliseconds", "-1", -1),
        text("--answer", "what an application state is answered with: yes or no", "yes")},
       watch},
  };
}

std::vector<Command> videoCommands() {
  std::vector<Command> list = {
      {"video bounds",
       "show the main video's bounds",
       {},
       [](Session& session, const Values&) {
         showRectangle(session, session.control().getMainVideoBounds());
       }},
      {"video set-bounds", "set the main video's bounds", bounds(),
       [](Session& session, const Values& values) {
         session.control().setVideoBounds(rectangle(values));
       }},
      {"video reset",
       "do what the receiver does when its client goes away",
       {},
       [](Session& session, const Values&) { session.control().videoPropertyAction(); }},
      {"video language",
       "show a language of the main video",
       {integer("WHICH", "3 or 5", std::nullopt, 3, 5)},
       [](Session& session, const Values& values) {
         showValue(session, "language",
                   session.control().getVideoLanguage(values.integer("WHICH")));
       }},
      {"video languages",
       "list the languages of the main video",
       {},
       [](Session& session, const Values&) {
         showTexts(session, session.control().getVideoLanguages());
       }},
      {"video select-language",
       "select the language of the main video",
       {text("LANGUAGE", "one of 'video languages'")},
       [](Session& session, const Values& values) {
         session.control().selectVideoLanguage(values.text("LANGUAGE"));
       }},
      {"video freeze",
       "stop the main video's picture, or let it go on",
       {onOff("on or off")},
       [](Session& session, const Values& values) {
         session.control().setVideoFreeze(values.isOn("ON"));
       }},
      {"video option",
       "set the main video's option",
       {onOff("on or off")},
       [](Session& session, const Values& values) {
         session.control().setVideoOption(values.isOn("ON"));
       }},
      {"video property",
       "show a property of the main video",
       {integer("NUMBER", "9 to 16", std::nullopt, 9, 16)},
       [](Session& session, const Values& values) {
         showValue(session, "value", session.control().getVideoProperty(values.integer("NUMBER")));
       }},
      {"video region", "set the region of the graphics", bounds(),
       [](Session& session, const Values& values) {
         session.control().updateGraphicsRegion(rectangle(values));
       }},
      {"video mute",
       "turn the sound off, or on again",
       {onOff("on or off")},
       [](Session& session, const Values& values) {
         session.control().setVideoMute(values.isOn("ON"));
       }},
  };
  const std::pair<const char*, int> levels[] = {
      {"sound", 0}, {"balance", 1}, {"bass", 2}, {"treble", 3}};
  for (const auto& [name, selector] : levels) {
    list.push_back({fmt::format("video {}", name),
                    fmt::format("set the {} level", name),
                    {level},
                    [selector = selector](Session& session, const Values& values) {
                      session.control().setVideoAudio(selector, values.real("LEVEL"));
                    }});
  }
  return list;
}

std::vector<Command> mediaCommands() {
  using Level = void (ControlChannel::*)(std::int32_t, double);
  std::vector<Command> list = {
      {"media open",
       "open a media player and show its number",
       {text("LOCATOR", "for the reference receiver: a file, or dvb://[ONID].[TSID].SID")},
       [](Session& session, const Values& values) {
         const OpenedMedia media = session.control().open(values.text("LOCATOR"));
         if (!media.opened) throw Refusal("'" + values.text("LOCATOR") + "' cannot be opened");
         showValue(session, "player", media.player);
       }},
      {"media listen",
       "ask to be told of a player's end",
       {player},
       [](Session& session, const Values& values) {
         session.control().addMediaListener(values.integer("PLAYER"));
       }},
      {"media play",
       "let a player play",
       {player},
       [](Session& session, const Values& values) {
         showValue(session, "playing", session.control().play(values.integer("PLAYER")));
       }},
      {"media stop",
       "stop a player",
       {player},
       [](Session& session, const Values& values) {
         session.control().stop(values.integer("PLAYER"));
       }},
      {"media close",
       "close a player",
       {player},
       [](Session& session, const Values& values) {
         session.control().close(values.integer("PLAYER"));
       }},
      {"media duration",
       "show how long a player's medium is",
       {player},
       [](Session& session, const Values& values) {
         showValue(session, "duration", session.control().getDuration(values.integer("PLAYER")));
       }},
      {"media time",
       "show where a player is",
       {player},
       [](Session& session, const Values& values) {
         showValue(session, "time", session.control().getCurrentTime(values.integer("PLAYER")));
       }},
      {"media seek", "set where a player is",
       playerAnd(
           {integer("TIME", "milliseconds from the beginning"),
            integer("MODE", "for the reference receiver: 0 exact, 1 nearest key picture", "0")}),
       [](Session& session, const Values& values) {
         showValue(session, "time",
                   session.control().setCurrentTime(
                       values.integer("PLAYER"), values.integer("TIME"), values.integer("MODE")));
       }},
      {"media bounds",
       "show a player's bounds",
       {player},
       [](Session& session, const Values& values) {
         showRectangle(session, session.control().getMediaBounds(values.integer("PLAYER")));
       }},
      {"media set-bounds", "set a player's bounds", playerAnd(bounds()),
       [](Session& session, const Values& values) {
         showValue(session, "result",
                   session.control().setMediaBounds(values.integer("PLAYER"), rectangle(values)));
       }},
      {"media freeze", "stop a player's picture, or let it go on", playerAnd({onOff("on or off")}),
       [](Session& session, const Values& values) {
         session.control().setMediaFreeze(values.integer("PLAYER"), values.isOn("ON"));
       }},
      {"media mute", "turn a player's sound off, or on again", playerAnd({onOff("on or off")}),
       [](Session& session, const Values& values) {
         session.control().setMediaMute(values.integer("PLAYER"), values.isOn("ON"));
       }},
      {"media run",
       "open, play to the end and close",
       {text("LOCATOR", "as for 'media open'"),
        integer("--timeout", "milliseconds to wait; without it for ever", "-1", -1)},
       playToTheEnd},
  };
  const std::pair<const char*, Level> levels[] = {
      {"sound", &ControlChannel::setMediaSoundLevel},
      {"balance", &ControlChannel::setMediaBalanceLevel},
      {"bass", &ControlChannel::setMediaBassLevel},
      {"treble", &ControlChannel::setMediaTrebleLevel}};
  for (const auto& [name, set] : levels) {
    list.push_back({fmt::format("media {}", name), fmt::format("set a player's {} level", name),
                    playerAnd({level}), [set = set](Session& session, const Values& values) {
                      (session.control().*set)(values.integer("PLAYER"), values.real("LEVEL"));
                    }});
  }
  return list;
}

}  // namespace

std::int32_t Values::integer(const std::string& name) const {
  return static_cast<std::int32_t>(std::stol(text(name)));
}

double Values::real(const std::string& name) const { return std::stod(text(name)); }

const std::vector<Command>& commands() {
  static const std::vector<Command> all = [] {
    std::vector<Command> list;
    for (auto&& part :
         {serviceInformation(), receiverCommands(), videoCommands(), mediaCommands()}) {
      list.insert(list.end(), part.begin(), part.end());
    }
    return list;
  }();
  return all;
}

}  // namespace quillwork::cli
