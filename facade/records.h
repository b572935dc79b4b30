#pragma once

#include "protocol/language.h"

#include <cstdint>
#include <list>
#include <string>

/// The middleware's side: the facades that a host implements, the listeners that it calls, and
/// their records.
///
/// The records in which the middleware's facade library delivers service information and
/// properties. The library carries their integers unchanged and in order; what each integer means
/// is the middleware's own affair, so most fields are numbered like the fields of the records in
/// protocol/records.h that receive them; said is what the reference receiver puts there, and -1 for
/// what is not known. Texts are bytes without a character set, of which the client gets the first
/// 254 unless more is said.
namespace middlewarefacade {

/// A service.
struct Service_ {
  /// Service id.
  int value_1 = 0;
  /// Transport stream id.
  int value_2 = 0;
  /// Original network id.
  int value_3 = 0;
  /// The service's name.
  std::string name;
  /// Service type (EN 300 468, table 87).
  int value_4 = 0;
  /// Bits 0 to 2: running status; bit 3: free CA mode; bit 4: has an EIT schedule; bit 5: has EIT
  /// present/following; bit 6: of the received stream; bit 7: in the PAT.
  int value_5 = 0;
  /// Does not travel to the client.
  std::string text;
};

/// A broadcast event (programme) of a service.
struct ProgramEvent_ {
  /// Service id.
  int value_1 = 0;
  /// Event id; -1 for no event.
  int value_2 = 0;
  /// Start in seconds since 1970, unsigned.
  int value_3 = 0;
  /// Duration in seconds.
  int value_4 = 0;
  /// Language (ISO 639-2).
  std::string text_1;
  /// Name.
  std::string text_2;
  /// Short text.
  std::string text_3;
  /// Table id: 0x4E, 0x4F present/following, 0x50 to 0x6F schedule. Does not travel in the single
  /// event, where the client gets 0.
  int value_5 = 0;
  /// Running status.
  int value_6 = 0;
  /// Transport stream id.
  int value_7 = 0;
  /// Original network id.
  int value_8 = 0;
  /// Content descriptors' entries, two bytes each. Any number travels.
  std::list<unsigned char> byte_list_1;
  /// Parental ratings, four bytes each: country and rating. Any number travels.
  std::list<unsigned char> byte_list_2;
  /// Section number, version, free CA mode. Any number travels.
  std::list<unsigned char> byte_list_3;
  /// The extended text, whole, as one text. Any number of texts of any length travels.
  std::list<std::string> text_list_1;
  /// Items of the extended text: description, text, and so on. Any number of texts of any length
  /// travels.
  std::list<std::string> text_list_2;
  /// Name and short text, uncut. Any number of texts of any length travels.
  std::list<std::string> text_list_3;
};

/// One descriptor (ISO/IEC 13818-1, 2.6): its tag, and the bytes that follow its length byte.
struct Descriptors_ {
  /// 0 to 255 on air; 16 bits travel.
  std::int16_t tag = 0;
  /// Any number of bytes travels.
  std::list<unsigned char> data;
};

/// A system property.
struct Property_ {
  /// Its name.
  std::string name;
  /// Its value.
  std::string value;
};

/// An elementary stream of a service.
struct ServiceComponent_ {
  /// PID.
  int value_1 = 0;
  /// Stream type.
  int value_2 = 0;
  /// Component tag.
  int value_3 = 0;
  /// Program number.
  int value_4 = 0;
  /// Language as a number, its first letter highest.
  int value_5 = 0;
  /// The lowest CA system id, the component's own or else the program's.
  int value_6 = 0;
};

/// A program map (PMT).
struct ProgramMap_ {
  /// Program number.
  int value_1 = 0;
  /// PID of the PMT.
  int value_2 = 0;
  /// PID of the PCR.
  int value_3 = 0;
  /// Version.
  int value_4 = 0;
};

/// The network that the receiver is tuned to.
struct Network_ {
  /// Its name.
  std::string name;
  /// Network id; -1 for no network.
  int network_value = 0;
};

/// The transport stream that the receiver is tuned to.
struct TransportStream_ {
  /// Transport stream id.
  int value_1 = 0;
  /// Original network id; -1 for no transport stream.
  int value_2 = 0;
  /// Does not travel to the client.
  std::string text;
  /// Does not travel to the client.
  int value_after_text = 0;
  /// Frequency in MHz.
  float real_value = 0;
  /// 1 satellite, 2 cable, 3 terrestrial; the client gets 0 for what is not 0 to 3.
  int mode = 0;
  /// Version of the PAT.
  int value_3 = 0;
};

}  // namespace middlewarefacade
