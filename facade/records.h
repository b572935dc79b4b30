#pragma once

#include "protocol/language.h"

#include <cstdint>
#include <list>
#include <string>

/// The records in which the middleware's facade library delivers service information and
/// properties. The library carries their integers unchanged and in order; what each integer means
/// is the middleware's business, so most fields are numbered like the fields of the records in
/// protocol/records.h that receive them.
namespace middlewarefacade {

/// A service. `text` does not travel to the client.
struct Service_ {
  int value_1 = 0;
  int value_2 = 0;
  int value_3 = 0;
  std::string name;
  int value_4 = 0;
  int value_5 = 0;
  std::string text;
};

/// A broadcast event (programme) of a service.
struct ProgramEvent_ {
  int value_1 = 0;
  int value_2 = 0;
  int value_3 = 0;
  int value_4 = 0;
  std::string text_1;
  std::string text_2;
  std::string text_3;
  int value_5 = 0;
  int value_6 = 0;
  int value_7 = 0;
  int value_8 = 0;
  std::list<unsigned char> byte_list_1;
  std::list<unsigned char> byte_list_2;
  std::list<unsigned char> byte_list_3;
  std::list<std::string> text_list_1;
  std::list<std::string> text_list_2;
  std::list<std::string> text_list_3;
};

/// One descriptor (ISO/IEC 13818-1, 2.6): its tag, and the bytes that follow its length byte.
struct Descriptors_ {
  std::int16_t tag = 0;
  std::list<unsigned char> data;
};

/// A system property.
struct Property_ {
  std::string name;
  std::string value;
};

/// An elementary stream of a service.
struct ServiceComponent_ {
  int value_1 = 0;
  int value_2 = 0;
  int value_3 = 0;
  int value_4 = 0;
  int value_5 = 0;
  int value_6 = 0;
};

/// A program map (PMT).
struct ProgramMap_ {
  int value_1 = 0;
  int value_2 = 0;
  int value_3 = 0;
  int value_4 = 0;
};

/// The network that the receiver is tuned to.
struct Network_ {
  std::string name;
  int network_value = 0;
};

/// The transport stream that the receiver is tuned to. `text` and `value_after_text` do not travel
/// to the client; of `mode` the values 0 to 3 do.
struct TransportStream_ {
  int value_1 = 0;
  int value_2 = 0;
  std::string text;
  int value_after_text = 0;
  float real_value = 0;
  int mode = 0;
  int value_3 = 0;
};

}  // namespace middlewarefacade
