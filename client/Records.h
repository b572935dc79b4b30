#pragma once

#include "protocol/language.h"

#include <array>
#include <cstdint>
#include <list>
#include <string>
#include <variant>
#include <vector>

/// What the client reads and writes, without the wire's fields of fixed size. The integers are the
/// middleware's, in the order of the protocol's records; docs/protocol.md places them, and
/// docs/profile.md says what the reference receiver puts there.
namespace quillwork::client {

/// A service.
struct Service {
  /// In the reference receiver: service id, transport stream id, original network id, service type
  /// (EN 300 468, table 87), and flags: bits 0 to 2 the running status, bit 3 free CA mode, bit 4
  /// an EIT schedule, bit 5 EIT present/following, bit 6 of the received stream, bit 7 in the PAT.
  std::array<std::int32_t, 5> values;
  /// 254 bytes at most.
  std::string name;
};

/// An elementary stream of a service.
struct ServiceComponent {
  /// In the reference receiver: PID, stream type, component tag, program number, language as a
  /// number (its first letter highest), lowest CA system id; -1 for what is not known.
  std::array<std::int32_t, 6> values;
};

/// A program map (PMT).
struct ProgramMap {
  /// In the reference receiver: program number, PID of the PMT, PID of the PCR, version.
  std::array<std::int32_t, 4> values;
};

/// A broadcast event (programme).
struct ProgramEvent {
  /// In the reference receiver: service id, event id (-1 for no event), start in seconds since 1970
  /// (unsigned), duration in seconds, table id (0 in the single event), running status, transport
  /// stream id, original network id.
  std::array<std::int32_t, 8> values;
  /// 254 bytes each at most; in the reference receiver language (ISO 639-2), name, short text.
  std::array<std::string, 3> texts;
  /// Of any length; a list that is absent is empty here. In the reference receiver: content
  /// descriptors' entries of two bytes, parental ratings of four bytes, and section number, version
  /// and free CA mode.
  std::array<std::vector<std::uint8_t>, 3> byteLists;
  /// Texts of any length; a list that is absent is empty here. In the reference receiver: the
  /// extended text, its items (description, text, and so on), and name and short text uncut.
  std::array<std::vector<std::string>, 3> textLists;
};

/// The network that is received.
struct Network {
  /// In the reference receiver the network id; -1 if it is not known.
  std::int32_t value;
  /// 254 bytes at most.
  std::string name;
};

/// The transport stream that is received.
struct TransportStream {
  /// In the reference receiver: transport stream id, original network id (-1 if it is not known),
  /// version of the PAT.
  std::array<std::int32_t, 3> values;
  /// In the reference receiver the frequency in MHz.
  float real;
  /// 0 to 3; in the reference receiver 1 satellite, 2 cable, 3 terrestrial.
  std::int32_t mode;
};

/// One descriptor (ISO/IEC 13818-1, 2.6).
struct Descriptor {
  /// Its tag, 0 to 255 on air.
  std::int16_t tag;
  /// The bytes behind its length byte.
  std::vector<std::uint8_t> data;
};

/// A system property.
struct SystemProperty {
  /// 254 bytes at most.
  std::string name;
  /// 254 bytes at most.
  std::string value;
};

/// A rectangle; the unit is the middleware's own, pixels in the reference receiver.
struct Rectangle {
  /// The left edge.
  std::int32_t x;
  /// The upper edge.
  std::int32_t y;
  /// From the left edge to the right one.
  std::int32_t width;
  /// From the upper edge to the lower one.
  std::int32_t height;
};

/// What ControlChannel::open() gives.
struct OpenedMedia {
  /// Whether there is a player now.
  bool opened;
  /// Its number; without one it means nothing.
  std::int32_t player;
};

/// A media player has reached its end. After ControlChannel::addMediaListener().
struct EndOfMedia {
  /// The number that ControlChannel::open() gave.
  std::int32_t player;
};

/// The graphics plane or the video has another size.
struct GraphicsSettingsChanged {
  /// The middleware's own; in the reference receiver the graphics plane.
  Rectangle first;
  /// The middleware's own, with the size of the video; in the reference receiver the graphics
  /// plane.
  Rectangle second;
};

/// A carousel's download is complete. After ControlChannel::addCarouselListener().
struct DownloadComplete {
  /// 254 bytes at most; in the reference receiver the locator as it was mounted.
  std::string first;
  /// 254 bytes at most; in the reference receiver the directory with the files.
  std::string second;
};

/// The application shall change its state. The receiver waits for
/// ControlChannel::answerApplicationState().
struct ApplicationState {
  /// The state; what it means is the middleware's own affair.
  std::int32_t state;
};

/// A DSM-CC command from the broadcast (a stream event named "nclEditingCommand").
struct DsmCCCommand {
  /// Which command; in the reference receiver its tag, 0 to 255.
  std::int32_t code;
  /// When; in the reference receiver normal play time in seconds.
  double time;
  /// In the reference receiver 1 for one that is to be done at once, and else 0.
  std::uint8_t flag;
  /// Its data, bytes of any value; zero bytes at the end do not arrive.
  std::string text;
};

/// What the receiver sends on its own.
using Notification = std::variant<EndOfMedia, GraphicsSettingsChanged, DownloadComplete,
                                  ApplicationState, DsmCCCommand>;

}  // namespace quillwork::client
