// Sizes, alignments and offsets of every public type, against the frozen table of this processor: a
// platform's binary is compiled against them.

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>

#include "adapter/MiddlewareIpc.h"
#include "facade/records.h"
#include "protocol/IpcServerManager.h"
#include "protocol/message.h"
#include "protocol/records.h"

namespace {

using namespace middlewarefacade;
using namespace quillwork;
using ipcutil::DsmCCCommand_t;
using ipcutil::Rectangle_t;

#if defined(__i386__)
constexpr const char* processor = "i686";
#elif defined(__arm__)
constexpr const char* processor = "armhf";
#else
constexpr const char* processor = nullptr;
#endif

// Types with texts and lists are of no standard layout, but their fields stand as in one.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#define TYPE(type) table << #type << ' ' << sizeof(type) << ' ' << alignof(type) << '\n'
#define FIELD(type, field) table << #type "." #field << ' ' << offsetof(type, field) << '\n'

void addDomainRecords(std::ostream& table) {
  TYPE(message);
  FIELD(message, reserved);
  FIELD(message, type);
  FIELD(message, payload);
  TYPE(Rectangle_t);
  FIELD(Rectangle_t, y);
  FIELD(Rectangle_t, width);
  FIELD(Rectangle_t, height);
  TYPE(DsmCCCommand_t);
  FIELD(DsmCCCommand_t, event_time);
  FIELD(DsmCCCommand_t, flag);
  FIELD(DsmCCCommand_t, text);
  TYPE(service);
  FIELD(service, name);
  FIELD(service, reserved_tail);
  TYPE(service_component);
  FIELD(service_component, value_6);
  TYPE(pmt);
  FIELD(pmt, value_4);
  TYPE(program_event);
  FIELD(program_event, text_1);
  FIELD(program_event, byte_list_1_count);
  FIELD(program_event, byte_list_1);
  FIELD(program_event, text_list_3);
  TYPE(descriptor);
  FIELD(descriptor, length);
  FIELD(descriptor, data);
  TYPE(network);
  FIELD(network, name);
  TYPE(transport_stream);
  FIELD(transport_stream, real_value);
  FIELD(transport_stream, mode);
  TYPE(system_property);
  FIELD(system_property, name);
  FIELD(system_property, value);
  TYPE(tuner_data);
  FIELD(tuner_data, argument);
  TYPE(video_data);
  TYPE(audio_data);
  TYPE(video_region);
  TYPE(state);
  TYPE(command);
}

void addFacadeRecords(std::ostream& table) {
  TYPE(Service_);
  FIELD(Service_, value_2);
  FIELD(Service_, value_3);
  FIELD(Service_, name);
  FIELD(Service_, value_4);
  FIELD(Service_, value_5);
  FIELD(Service_, text);
  TYPE(ProgramEvent_);
  FIELD(ProgramEvent_, value_4);
  FIELD(ProgramEvent_, text_1);
  FIELD(ProgramEvent_, text_2);
  FIELD(ProgramEvent_, text_3);
  FIELD(ProgramEvent_, value_5);
  FIELD(ProgramEvent_, value_8);
  FIELD(ProgramEvent_, byte_list_1);
  FIELD(ProgramEvent_, byte_list_2);
  FIELD(ProgramEvent_, byte_list_3);
  FIELD(ProgramEvent_, text_list_1);
  FIELD(ProgramEvent_, text_list_2);
  FIELD(ProgramEvent_, text_list_3);
  TYPE(Descriptors_);
  FIELD(Descriptors_, data);
  TYPE(Property_);
  FIELD(Property_, value);
  TYPE(ServiceComponent_);
  FIELD(ServiceComponent_, value_6);
  TYPE(ProgramMap_);
  FIELD(ProgramMap_, value_4);
  TYPE(Network_);
  FIELD(Network_, network_value);
  TYPE(TransportStream_);
  FIELD(TransportStream_, text);
  FIELD(TransportStream_, value_after_text);
  FIELD(TransportStream_, real_value);
  FIELD(TransportStream_, mode);
  FIELD(TransportStream_, value_3);
}

TEST(Abi, EveryPublicTypeIsAsItWasFrozen) {
  if (processor == nullptr) GTEST_SKIP() << "the tables are those of 32-bit processors";
  std::ostringstream table;
  addDomainRecords(table);
  addFacadeRecords(table);
  TYPE(IpcServerManager);
  TYPE(MiddlewareIpc);
  std::ifstream file(std::string(ABI_DIRECTORY "/") + processor + ".txt");
  std::ostringstream frozen;
  frozen << file.rdbuf();
  EXPECT_EQ(table.str(), frozen.str());
}

}  // namespace
