// quillwork-client: asks the receiver behind the library's two sockets, from the command line.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "client/ControlChannel.h"
#include "client/Output.h"
#include "client/SectionFilterChannel.h"

namespace {

using namespace quillwork::client;
using std::chrono::milliseconds;

/// What holds for every command.
struct Settings {
  bool json = false;
  int timeLimit = 10'000;
};

Settings settings;

ControlChannel connect() {
  return ControlChannel(ControlChannel::defaultPath, milliseconds(settings.timeLimit));
}

template <class Element>
void show(const std::vector<Element>& elements) {
  if (!settings.json) {
    printTable(elements);
    return;
  }
  Json list = Json::array();
  for (const Element& element : elements) list.push_back(toJson(element));
  fmt::print("{}\n", list.dump(2));
}

template <class Record>
void showRecord(const Record& record) {
  if (settings.json) {
    fmt::print("{}\n", toJson(record).dump(2));
  } else {
    printRecord(record);
  }
}

/// A value that is neither a record nor a list.
void showValue(const std::string& key, const Json& value) {
  if (settings.json) {
    fmt::print("{}\n", Json{{key, value}}.dump(2, ' ', false, Json::error_handler_t::replace));
  } else {
    fmt::print("{}\n", value.is_string() ? value.get<std::string>() : value.dump());
  }
}

void showIdentifiers(const std::vector<std::int32_t>& identifiers, bool hexadecimal) {
  if (settings.json) {
    fmt::print("{}\n", Json(identifiers).dump());
    return;
  }
  for (const std::int32_t identifier : identifiers) {
    fmt::print("{}\n",
               hexadecimal ? fmt::format("{:#06x}", identifier) : fmt::to_string(identifier));
  }
}

/// Adds a command that runs `action`.
CLI::App* command(CLI::App& application, const std::string& name, const std::string& description,
                  std::function<void()> action) {
  CLI::App* const added = application.add_subcommand(name, description);
  added->callback(std::move(action));
  added->fallthrough();
  return added;
}

void addServiceInformation(CLI::App& application) {
  command(application, "services", "list the services", [] { show(connect().getServices()); });

  static int eventService = -1;
  static bool presentFollowing = false;
  auto* const events = command(application, "events", "list the events", [] {
    std::vector<ProgramEvent> all = connect().getProgramEvents();
    std::erase_if(all, [](const ProgramEvent& event) {
      const bool isPresentFollowing = event.values[4] == 0x4e || event.values[4] == 0x4f;
      return (eventService != -1 && event.values[0] != eventService) ||
             (presentFollowing && !isPresentFollowing);
    });
    show(all);
  });
  events->add_option("--service", eventService, "only the events of this service");
  events->add_flag("--present-following", presentFollowing, "only the present and following ones");

  command(application, "event", "show the present event of the current service",
          [] { showRecord(connect().getProgramEvent()); });

  static int componentService = -1;
  command(application, "components", "list the components of a service", [] {
    show(connect().getServiceComponents(componentService));
  })->add_option("SERVICE", componentService, "the service; the current one without it");

  static int program = -1;
  command(application, "pmts", "list the program maps", [] {
    show(connect().getPMTs(program));
  })->add_option("PROGRAM", program, "only the map of this program");

  command(application, "network", "show the network", [] { showRecord(connect().getNetwork()); });
  command(application, "transport-stream", "show the transport stream",
          [] { showRecord(connect().getTransportStream()); });
  command(application, "ca-systems", "list the conditional-access systems",
          [] { showIdentifiers(connect().getCASystemIds(), true); });
  command(application, "current-service", "show the current service",
          [] { showValue("service", connect().getCurrentService()); });
  command(application, "protected", "tell whether the current service is protected",
          [] { showValue("protected", connect().isProtectedService()); });
  command(application, "description", "show the description of the current service",
          [] { showValue("description", connect().getServiceDescription()); });
  command(application, "coding-format", "show the coding of the texts",
          [] { showValue("coding_format", connect().getSICodingFormat()); });
}

void addDescriptors(CLI::App& application) {
  CLI::App* const descriptors =
      application.add_subcommand("descriptors", "list descriptors")->require_subcommand(1);
  descriptors->fallthrough();

  static int service = -1;
  static int event = 0;
  auto* const ofEvent = command(*descriptors, "event", "of an event",
                                [] { show(connect().getProgramEventDescriptors(service, event)); });
  ofEvent->add_option("SERVICE", service, "the event's service")->required();
  ofEvent->add_option("EVENT", event, "the event's identifier")->required();

  static int component = 0;
  command(*descriptors, "component", "of a component",
          [] { show(connect().getServiceComponentDescriptors(component)); })
      ->add_option("COMPONENT", component, "the component, for the reference receiver its PID")
      ->required();

  static int stream = -1;
  command(*descriptors, "transport-stream", "of a transport stream", [] {
    show(connect().getTransportStreamDescriptors(stream));
  })->add_option("STREAM", stream, "its identifier; the current one without it");

  command(*descriptors, "network", "of the network",
          [] { show(connect().getNetworkDescriptors()); });
}

void addOthers(CLI::App& application) {
  static int kind = 0;
  static int key = 0;
  auto* const ids = command(application, "ids", "list identifiers of the tuner",
                            [] { showIdentifiers(connect().getAllIDs(kind, key), false); });
  ids->add_option("KIND", kind, "which identifiers: 1, 2, 3 or 4")
      ->required()
      ->check(CLI::Range(1, 4));
  ids->add_option("KEY", key, "the key that the kinds 1, 3 and 4 need");

  static std::string name;
  static std::string value;
  static bool removed = false;
  static bool isSet = false;
  auto* const property = command(application, "property", "list, show or change properties", [] {
    ControlChannel channel = connect();
    if (removed) {
      channel.removeSystemProperty(name);
    } else if (isSet) {
      channel.setSystemProperty(name, value);
    } else if (name.empty()) {
      show(channel.getSystemProperties());
    } else {
      showValue("value", channel.getSystemProperty(name));
    }
  });
  auto* const nameOption =
      property->add_option("NAME", name, "the property; all of them without it");
  auto* const setOption =
      property->add_option("--set", value, "give it this value, also an empty one");
  setOption->each([](const std::string&) { isSet = true; });
  setOption->needs(nameOption);
  property->add_flag("--remove", removed, "remove it")->needs(nameOption)->excludes(setOption);

  static int flag = 0;
  command(application, "version", "tell whether a version flag is set",
          [] { showValue("set", connect().checkVersionFlag(flag)); })
      ->add_option("FLAG", flag, "the flag")
      ->required();
}

/// "42 ff" or "42ff" as bytes.
std::vector<std::uint8_t> parseBytes(const std::string& text) {
  std::string digits;
  for (const char character : text) {
    if (character != ' ') digits += character;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t index = 0; index < digits.size(); index += 2) {
    std::size_t end = 0;
    const std::string pair = digits.substr(index, 2);
    const bool isHex = pair.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (isHex && pair.size() == 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, &end, 16)));
    } else {
      throw CLI::ValidationError("--filter", "'" + text + "' is not pairs of hexadecimal digits");
    }
  }
  return bytes;
}

/// "OFFSET:VALUE[/MASK]" as a positive filter's arguments.
struct PositiveFilter {
  int offset = 0;
  std::vector<std::uint8_t> value;
  std::vector<std::uint8_t> mask;

  static PositiveFilter parse(const std::string& text) {
    PositiveFilter filter;
    std::string rest = text;
    if (const std::size_t colon = rest.find(':'); colon != std::string::npos) {
      if (!CLI::detail::lexical_cast(rest.substr(0, colon), filter.offset) || filter.offset < 0) {
        throw CLI::ValidationError("--filter", "'" + rest.substr(0, colon) + "' is no offset");
      }
      rest.erase(0, colon + 1);
    }
    const std::size_t slash = rest.find('/');
    filter.value = parseBytes(rest.substr(0, slash));
    if (slash != std::string::npos) filter.mask = parseBytes(rest.substr(slash + 1));
    return filter;
  }
};

void addSection(CLI::App& application) {
  static int pid = 0;
  static int tableId = -1;
  static int timeOut = 5000;
  static int count = 1;
  static std::string filter;
  auto* const section =
      command(application, "section", "read sections through the section filter", [] {
        SectionFilterChannel channel(SectionFilterChannel::defaultPath,
                                     milliseconds(settings.timeLimit));
        channel.set_pid(pid);
        channel.clear_table_id();
        channel.clear_positive_filter();
        channel.clear_less_than_filter();
        channel.clear_xor_filter();
        if (tableId >= 0) channel.set_table_id(tableId);
        if (!filter.empty()) {
          const PositiveFilter positive = PositiveFilter::parse(filter);
          channel.set_positive_filter(positive.offset, positive.value, positive.mask);
        }
        channel.set_time_out(timeOut);
        channel.start();
        for (int index = 0; index < count; ++index) {
          const std::vector<std::uint8_t> bytes = channel.read_section(milliseconds(timeOut));
          if (bytes.empty()) {
            throw Error(fmt::format("no section on PID {} within {} ms", pid, timeOut));
          }
          if (settings.json) {
            fmt::print("{}\n", Json{{"size", bytes.size()}, {"section", hex(bytes)}}.dump());
          } else {
            fmt::print("section of {} bytes\n", bytes.size());
            printSection(bytes);
          }
        }
        channel.stop();
      });
  section->add_option("--pid", pid, "PID, 0 to 8191")->required()->check(CLI::Range(0, 8191));
  section->add_option("--table-id", tableId, "table id, 0 to 255; any without it")
      ->check(CLI::Range(0, 255));
  section->add_option("--filter", filter,
                      "[OFFSET:]VALUE[/MASK] in hexadecimal: bytes that the section must have");
  section->add_option("--timeout", timeOut, "milliseconds to wait for a section")
      ->check(CLI::Range(0, 3'600'000));
  section->add_option("--count", count, "how many sections")->check(CLI::Range(1, 1'000'000));
}

void addWatch(CLI::App& application) {
  static int count = std::numeric_limits<int>::max();
  static int timeOut = -1;
  auto* const watch = command(application, "watch", "print notifications as they come", [] {
    ControlChannel channel = connect();
    channel.addCarouselListener();
    for (int index = 0; index < count; ++index) {
      const auto wait = timeOut >= 0 ? milliseconds(timeOut) : std::chrono::hours(24);
      const auto notification = channel.waitForNotification(wait);
      if (!notification && timeOut < 0) continue;
      if (!notification) break;
      if (std::holds_alternative<ApplicationStateRequest>(*notification)) {
        channel.answerApplicationState(true);
      }
      fmt::print("{}\n", toJson(*notification).dump());
      std::fflush(stdout);
    }
    channel.removeCarouselListener();
  });
  watch->add_option("--count", count, "end after so many")->check(CLI::PositiveNumber);
  watch->add_option("--timeout", timeOut, "end when none has come for so many milliseconds")
      ->check(CLI::NonNegativeNumber);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  // The widths of characters; everything else stays as in the C locale.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
  CLI::App application{
      "Asks a receiver through the sockets /dev/shm/ipc.socket and "
      "/dev/shm/ipcdemux.socket"};
  application.require_subcommand(1);
  application.add_flag("--json", settings.json, "print JSON with the protocol's field names");
  application.add_option("--time-limit", settings.timeLimit, "milliseconds to wait for an answer")
      ->check(CLI::PositiveNumber);
  addServiceInformation(application);
  addDescriptors(application);
  addOthers(application);
  addSection(application);
  addWatch(application);
  try {
    application.parse(argumentCount, arguments);
  } catch (const CLI::Success& success) {
    return application.exit(success);
  } catch (const CLI::Error& error) {
    const bool isUnknown =
        application.get_subcommands().empty() && !application.remaining().empty();
    fmt::print(stderr, "quillwork-client: {}\n",
               isUnknown ? fmt::format("unknown command '{}'", application.remaining().front())
                         : error.what());
    return EXIT_FAILURE;
  } catch (const std::exception& error) {
    fmt::print(stderr, "quillwork-client: {}\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
