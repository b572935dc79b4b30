#include "support/GoldenListener.h"

using quillwork::program_event;
using quillwork::setFieldText;

namespace {

using Chars = std::list<char>;
using Texts = std::list<std::string>;

program_event firstEvent() {
  program_event event{1, 2, 3, 4, 5, 6, 7,       8,       "one",   "text two", "",      {},
                      2, 0, 0, 3, 0, 0, nullptr, nullptr, nullptr, nullptr,    nullptr, nullptr};
  event.byte_list_1 = new Chars{1, 2};
  event.byte_list_2 = new Chars;
  event.text_list_1 = new Texts{"first", "", "second"};
  event.text_list_3 = new Texts;
  return event;
}

program_event secondEvent() {
  program_event event{11, 12, 13, 14, 15, 16, 17,      18,      "",      "",      "z",     {},
                      3,  1,  1,  0,  1,  1,  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  setFieldText(event.text_1, std::string(254, 'x'));
  event.byte_list_1 = new Chars{3, 4, 5};
  event.byte_list_2 = new Chars{'\xff'};
  event.byte_list_3 = new Chars{0};
  std::string longText;
  for (int repetition = 0; repetition < 100; ++repetition) longText += "long";
  event.text_list_2 = new Texts{longText};
  event.text_list_3 = new Texts{"end"};
  return event;
}

quillwork::service namedService(std::int32_t first, std::int32_t step, const std::string& name) {
  quillwork::service service{
      first, first + step, first + 2 * step, first + 3 * step, first + 4 * step, 0, {}, {}};
  setFieldText(service.name, name);
  return service;
}

}  // namespace

void giveGoldenAnswers(RecordingListener& listener) {
  listener.numbers = {
      {"getVideoProperty", 42},
      {"getCurrentTransportStreamID", 4097},
      {"isProtectedService", 1},
      {"getCurrentService", 101},
      {"open", 256},
      {"open.player", 9},
      {"getDuration", 3600},
      {"getCurrentTime", 12},
      {"setCurrentTime", 1},
      {"play", -1},
      {"setMediaBounds", 0},
      {"checkVersionFlag", 256},
  };
  listener.texts = {
      {"getVideoLanguage", "por"},
      {"getSystemProperty", "value of it"},
      {"mountCarousel", "/mnt/oc"},
      {"getSICodingFormat", "UTF-8"},
      {"getServiceDescription", "a description"},
  };
  listener.languages = {"por", "eng", "spa"};
  listener.properties = {{0, "a", "1", {}}, {7, "b", "2", {}}};
  listener.identifiers = {{"getAllIDs", {1, -2, 65535}}, {"getCASystemIds", {0x0b00, 0x0b01}}};
  listener.services = {namedService(1, 1, "Alpha TV"), namedService(-1, -1, std::string(254, 'n'))};
  listener.components = {{1, 2, 3, 4, 5, 6}, {-9, -8, -7, -6, -5, -4}};
  listener.pmts = {{1, 2, 3, 4}, {101, 102, 103, 104}};
  listener.networkAnswer = {65281, "Sample Net", 0};
  listener.transportStream = {4097, 65281, 3, 0, 570.5, 2, {}};
  const std::list<std::pair<int, std::string>> descriptors = {
      {0x48, "abc"}, {0x4d, ""}, {-1, std::string("\x00\xff", 2)}};
  for (const char* const operation :
       {"getNetworkDescriptors", "getTransportStreamDescriptors", "getServiceDescriptors",
        "getProgramEventDescriptors", "getServiceComponentDescriptors"}) {
    listener.descriptorLists[operation] = descriptors;
  }
  listener.makeEvents = [] { return std::list<program_event>{firstEvent(), secondEvent()}; };
  listener.makeEvent = firstEvent;
  // One output is left as the client sent it.
  const int bounds[] = {10, RecordingListener::untouched, 640, 480};
  std::copy(std::begin(bounds), std::end(bounds), listener.bounds);
}
